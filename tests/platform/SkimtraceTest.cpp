#include "Skimtrace/Skimtrace.h"

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include <gtest/gtest.h>

#include "Pelo/String.h"

namespace {

class SkimtraceTest : public ::testing::Test {
 protected:
  void SetUp() override { Skimtrace::clear(); }
  void TearDown() override { Skimtrace::capacityIs(Skimtrace::kDefaultCapacity); }

  // The dumped lines without their "#<sequence> " prefix.
  static std::vector<std::string> texts(std::size_t last = Skimtrace::all) {
    std::vector<std::string> out;
    for (const std::string& line : Skimtrace::dump(last))
      out.push_back(line.substr(line.find(' ') + 1));
    return out;
  }
};

TEST_F(SkimtraceTest, WrapAroundKeepsNewestRecordsInOrder) {
  Skimtrace::capacityIs(3);
  const std::uint64_t before = Skimtrace::recorded();
  for (int i = 1; i <= 7; ++i) SKIMTRACE("record %d", i);
  EXPECT_EQ(Skimtrace::recorded(), before + 7);
  EXPECT_EQ(Skimtrace::dump(),
            (std::vector<std::string>{"#" + std::to_string(before + 5) + " record 5",
                                      "#" + std::to_string(before + 6) + " record 6",
                                      "#" + std::to_string(before + 7) + " record 7"}));
  EXPECT_EQ(texts(2), (std::vector<std::string>{"record 6", "record 7"}));
  Skimtrace::clear();
  EXPECT_TRUE(Skimtrace::dump().empty());
  EXPECT_EQ(Skimtrace::recorded(), before + 7);
}

TEST_F(SkimtraceTest, FormatsEachDirective) {
  const std::string name = "policy-1";
  SKIMTRACE("%s %s %s %s", "literal", name, std::string_view("view"), Pelo::String("pelo"));
  SKIMTRACE("%d %d %u %x", -42, std::int64_t{-9000000000}, 4000000000U, 0xbeefU);
  SKIMTRACE("%x %x %x", std::int8_t{-1}, -1, std::uint64_t{0x123456789a});
  SKIMTRACE("100%% done, %u%%", 7U);
  SKIMTRACE("no values");
  EXPECT_EQ(texts(), (std::vector<std::string>{
                         "literal policy-1 view pelo", "-42 -9000000000 4000000000 beef",
                         "ff ffffffff 123456789a", "100% done, 7%", "no values"}));
}

TEST_F(SkimtraceTest, TruncatesLongStrings) {
  const std::string longName(40, 'x');
  const char* longLiteral = "0123456789012345678901234567890123456789";
  SKIMTRACE("%s|%s", longName, longLiteral);
  EXPECT_EQ(texts(),
            std::vector<std::string>{std::string(31, 'x') + "|" + std::string(longLiteral, 31)});
}

TEST_F(SkimtraceTest, MismatchesShowUpWithoutCrashing) {
  SKIMTRACE("%d and %d", 1);
  SKIMTRACE("%d", "text");
  SKIMTRACE("%s", 5);
  SKIMTRACE("only %d", 1, 2);
  SKIMTRACE("%f then %", 3);
  EXPECT_EQ(texts(), (std::vector<std::string>{"1 and <?>", "<?text>", "<?5>", "only 1 <?2>",
                                               "<?%f> then <?%> <?3>"}));
}

}  // namespace
