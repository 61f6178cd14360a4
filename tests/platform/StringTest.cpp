#include "Pelo/String.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "Mox/Ptr.h"

namespace {

// Names key every map node and every entity: one pointer each.
static_assert(sizeof(Pelo::String) == sizeof(void*));

TEST(StringTest, MutatingASharedCopyLeavesTheOthersAlone) {
  const Pelo::String original("policy-1");
  Pelo::String copy = original;
  Pelo::String assigned;
  assigned = copy;
  copy += "/match";
  EXPECT_EQ(copy, "policy-1/match");
  EXPECT_EQ(original, "policy-1");
  EXPECT_EQ(assigned, "policy-1");
  // The only holder appends in place; the copy taken before keeps its bytes.
  Pelo::String grown = copy;
  copy += "/action";
  copy += "";
  EXPECT_EQ(copy, "policy-1/match/action");
  EXPECT_EQ(grown, "policy-1/match");
  Pelo::String twice = original;
  twice += twice;
  EXPECT_EQ(twice, "policy-1policy-1");
  EXPECT_EQ(original + "!", "policy-1!");
  EXPECT_EQ(original.str(), "policy-1");
}

TEST(StringTest, EmptyInEveryFormIsOneValue) {
  const Pelo::String forms[] = {Pelo::String(), Pelo::String(""), Pelo::String(std::string()),
                                Pelo::String(std::string_view()), Pelo::String("x").substr(1)};
  for (const Pelo::String& s : forms) {
    EXPECT_TRUE(s.empty());
    EXPECT_EQ(s.size(), 0u);
    EXPECT_STREQ(s.c_str(), "");
    EXPECT_EQ(s.str(), std::string());
    EXPECT_EQ(s, forms[0]);
    EXPECT_EQ(s <=> forms[0], std::strong_ordering::equal);
    EXPECT_EQ(std::hash<Pelo::String>{}(s), std::hash<std::string>{}(std::string()));
  }
  Pelo::String grown;
  grown += "abc";
  EXPECT_EQ(grown, "abc");
  EXPECT_LT(Pelo::String(), grown);
}

TEST(StringTest, MoveLeavesTheSourceEmpty) {
  Pelo::String a("a long name that does not fit a small buffer");
  const char* bytes = a.c_str();
  Pelo::String b = std::move(a);
  EXPECT_TRUE(a.empty());  // NOLINT(bugprone-use-after-move)
  EXPECT_EQ(b.c_str(), bytes);
  a = std::move(b);
  EXPECT_TRUE(b.empty());  // NOLINT(bugprone-use-after-move)
  EXPECT_EQ(a.c_str(), bytes);
  std::ostringstream os;
  os << a << '|' << b;
  EXPECT_EQ(os.str(), "a long name that does not fit a small buffer|");
}

// Ordered collections and hash maps must see the order and equality of
// std::string, whether or not two Strings share their bytes.
TEST(StringTest, OrderEqualityAndHashAgreeWithStdString) {
  std::mt19937 rng(12345);
  std::vector<std::string> raw;
  // Short strings over a small alphabet (with a NUL and a byte above 0x7f) make
  // equal strings and prefixes frequent.
  const char alphabet[] = {'a', 'b', '\0', '\xe9'};
  for (int i = 0; i < 300; ++i) {
    std::string s(rng() % 5, ' ');
    for (char& c : s) c = alphabet[rng() % 4];
    raw.push_back(s);
  }
  std::vector<Pelo::String> strings(raw.begin(), raw.end());
  for (std::size_t i = 0; i < raw.size(); ++i) {
    const Pelo::String shared = strings[i];
    EXPECT_EQ(shared, strings[i]);
    EXPECT_EQ(strings[i].str(), raw[i]);
    EXPECT_EQ(std::hash<Pelo::String>{}(strings[i]), std::hash<std::string>{}(raw[i]));
    for (std::size_t j = 0; j < raw.size(); j += 7) {
      EXPECT_EQ(strings[i] <=> strings[j], raw[i] <=> raw[j]) << i << " " << j;
      EXPECT_EQ(strings[i] == strings[j], raw[i] == raw[j]) << i << " " << j;
    }
  }
  std::vector<Pelo::String> sorted = strings;
  std::sort(sorted.begin(), sorted.end());
  std::sort(raw.begin(), raw.end());
  ASSERT_EQ(sorted.size(), raw.size());
  for (std::size_t i = 0; i < raw.size(); ++i) EXPECT_EQ(sorted[i].str(), raw[i]);
}

// Under address sanitizer a lost count shows as a double free or a leak.
TEST(StringTest, ThreadSafeModeSharesBlocksAcrossThreads) {
  Mox::threadSafePtrIs(true);
  {
    const Pelo::String shared("shared between threads, longer than a small buffer");
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
      threads.emplace_back([&shared] {
        for (int i = 0; i < 20000; ++i) {
          Pelo::String copy = shared;
          Pelo::String another = copy;
          another += "!";
        }
      });
    }
    for (auto& t : threads) t.join();
    EXPECT_EQ(shared, "shared between threads, longer than a small buffer");
  }
  Mox::threadSafePtrIs(false);
}

}  // namespace
