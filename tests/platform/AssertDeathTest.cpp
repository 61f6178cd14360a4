#include "Mox/Assert.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Skimtrace/Skimtrace.h"

namespace {

using ::testing::HasSubstr;

struct ActionStatus {
  int version() const { return 0; }
};

bool initialized() { return true; }
const ActionStatus* actionStatus() {
  static const ActionStatus status;
  return &status;
}

TEST(AssertDeathTest, ReportsExpressionTextAndLocation) {
  const int groups = 3;
  EXPECT_DEATH(MOX_ASSERT(groups == 2), HasSubstr("assertion failed: groups == 2 (" __FILE__ ":"));
  EXPECT_DEATH(MOX_ASSERT(initialized() && actionStatus()->version()),
               HasSubstr("assertion failed: initialized() && actionStatus()->version()"));
}

TEST(AssertDeathTest, DumpsNewestSkimtraceRecordsOldestFirst) {
  for (int i = 0; i < 40; ++i) SKIMTRACE("step %d", i);
  SKIMTRACE("last words %s", "before the fall");
  const auto dies = [] { MOX_ASSERT(Skimtrace::recorded() == 0); };
  EXPECT_DEATH(dies(), HasSubstr(" step 38\n  skimtrace: #"));
  EXPECT_DEATH(dies(), HasSubstr(" last words before the fall\n"));
  // 32 records: the 31 newest steps and the last words.
  EXPECT_DEATH(dies(), ::testing::Not(HasSubstr(" step 8\n")));
  EXPECT_DEATH(dies(), HasSubstr(" step 9\n"));
}

TEST(AssertDeathTest, HoldingInvariantEvaluatesOnceAndContinues) {
  int evaluations = 0;
  MOX_ASSERT(++evaluations == 1);
  EXPECT_EQ(evaluations, 1);
}

}  // namespace
