#include "Pelo/String.h"

#include <gtest/gtest.h>

#include <random>
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
  copy += "/match";
  Pelo::String grown = copy;
  copy += "/action";  // shared again: copied first
  Pelo::String twice = original;
  twice += twice;
  EXPECT_EQ(original, "policy-1");
  EXPECT_EQ(grown, "policy-1/match");
  EXPECT_EQ(copy, "policy-1/match/action");
  EXPECT_EQ(twice, "policy-1policy-1");
  Pelo::String moved = std::move(copy);
  EXPECT_TRUE(copy.empty());  // NOLINT(bugprone-use-after-move)
  EXPECT_STREQ(copy.c_str(), "");
  EXPECT_EQ(copy, Pelo::String(""));
  copy += "x";
  EXPECT_EQ(copy.str(), "x");
}

// Ordered collections and hash maps must see the order and equality of
// std::string, whether or not two Strings share their bytes. Short strings
// over a small alphabet (a NUL, a byte above 0x7f) make ties and prefixes common.
TEST(StringTest, OrderEqualityAndHashAgreeWithStdString) {
  std::mt19937 rng(12345);
  const char alphabet[] = {'a', 'b', '\0', '\xe9'};
  std::vector<std::string> raw(300);
  for (std::string& s : raw) {
    s.resize(rng() % 5);
    for (char& c : s) c = alphabet[rng() % 4];
  }
  const std::vector<Pelo::String> strings(raw.begin(), raw.end());
  for (std::size_t i = 0; i < raw.size(); ++i) {
    const Pelo::String shared = strings[i];
    EXPECT_EQ(shared <=> strings[i], std::strong_ordering::equal);
    EXPECT_EQ(std::hash<Pelo::String>{}(strings[i]), std::hash<std::string>{}(raw[i]));
    for (std::size_t j = 0; j < raw.size(); j += 7) {
      EXPECT_EQ(strings[i] <=> strings[j], raw[i] <=> raw[j]) << i << " " << j;
      EXPECT_EQ(strings[i] == strings[j], raw[i] == raw[j]) << i << " " << j;
    }
  }
}

// Under the address sanitizer a lost count shows as a double free or a leak.
TEST(StringTest, ThreadSafeModeSharesBlocksAcrossThreads) {
  Mox::threadSafePtrIs(true);
  {
    const Pelo::String shared("shared between threads");
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
      threads.emplace_back([&shared] {
        for (int i = 0; i < 20000; ++i) {
          Pelo::String copy = shared;
          copy += "!";
        }
      });
    }
    for (auto& t : threads) t.join();
    EXPECT_EQ(shared, "shared between threads");
  }
  Mox::threadSafePtrIs(false);
}

}  // namespace
