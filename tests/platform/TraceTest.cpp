#include "Mox/Trace.h"

#include <cstdlib>
#include <stdexcept>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace {

// Constant initialisation proves that a namespace-scope handle does no work before main.
constinit Mox::TraceHandle fileHandle("UmoNatFlowMcastSm");

// Leaves the trace system as a fresh process has it, without MOX_TRACE.
class TraceTest : public ::testing::Test {
 protected:
  void SetUp() override { reset(); }
  void TearDown() override { reset(); }
  static void reset() {
    unsetenv("MOX_TRACE");
    Mox::detail::traceResetForTest();
  }
};

TEST_F(TraceTest, DisabledLevelDoesNotEvaluateArguments) {
  Mox::TraceCapture capture("UmoNatFlowMcastSm/1");
  int evaluations = 0;
  const auto policy = [&evaluations] { return "policy-" + std::to_string(++evaluations); };
  MOX_TRACE(fileHandle, 2, "skipped " << policy());
  EXPECT_EQ(evaluations, 0);
  MOX_TRACE(fileHandle, 1, "UmoNatFlowMcastSm::handleNatFlowPolicy, policy: " << policy());
  EXPECT_EQ(evaluations, 1);
  ASSERT_EQ(capture.lines().size(), 1U);
  EXPECT_STREQ(capture.lines()[0].handle, "UmoNatFlowMcastSm");
  EXPECT_EQ(capture.lines()[0].level, 1);
  EXPECT_EQ(capture.texts()[0], "UmoNatFlowMcastSm::handleNatFlowPolicy, policy: policy-1");
}

struct LevelCase {
  const char* config;
  const char* handle;
  const char* enabledLevels;  // one character per level 0..9: '1' enabled
};

class TraceLevelTest : public TraceTest, public ::testing::WithParamInterface<LevelCase> {};

TEST_P(TraceLevelTest, SelectsLevelsOfMatchingHandles) {
  Mox::traceLevelsIs(GetParam().config);
  const Mox::TraceHandle handle(GetParam().handle);
  std::string levels;
  for (int level = 0; level <= 9; ++level) levels += handle.enabled(level) ? '1' : '0';
  EXPECT_EQ(levels, GetParam().enabledLevels);
  EXPECT_FALSE(handle.enabled(-1));
  EXPECT_FALSE(handle.enabled(10));
  EXPECT_FALSE(handle.enabled(15));
}

INSTANTIATE_TEST_SUITE_P(Patterns, TraceLevelTest,
                         ::testing::Values(LevelCase{"*/0-9", "Any", "1111111111"},
                                           LevelCase{"Umo*/1,2,5-9", "UmoNat", "0110011111"},
                                           LevelCase{"Umo*/3", "Umo", "0001000000"},
                                           LevelCase{"Umo*/3", "Other", "0000000000"},
                                           LevelCase{"Umo/3", "UmoNat", "0000000000"},
                                           LevelCase{"*/0-9 UmoNat/4", "UmoNat", "0000100000"},
                                           LevelCase{"*/0-9;UmoNat/4", "UmoNatX", "1111111111"},
                                           LevelCase{"UmoNat/4 */1", "UmoNat", "0100000000"},
                                           LevelCase{"*/0-9 Umo*/", "UmoNat", "0000000000"},
                                           LevelCase{"", "UmoNat", "0000000000"}),
                         // Names by position: the cases hold pointers, whose bytes would
                         // otherwise name the tests differently on every run.
                         [](const ::testing::TestParamInfo<LevelCase>& info) {
                           return "Case" + std::to_string(info.index);
                         });

class TraceMalformedTest : public TraceTest, public ::testing::WithParamInterface<const char*> {};

TEST_P(TraceMalformedTest, ThrowsNamingBadEntryAndKeepsConfiguration) {
  Mox::traceLevelsIs("Keep/1");
  try {
    Mox::traceLevelsIs(std::string("Good/2 ") + GetParam());
    ADD_FAILURE() << "accepted " << GetParam();
  } catch (const std::invalid_argument& e) {
    EXPECT_NE(std::string(e.what()).find(GetParam()), std::string::npos) << e.what();
  }
  EXPECT_EQ(Mox::traceLevels(), "Keep/1");
}

INSTANTIATE_TEST_SUITE_P(Configs, TraceMalformedTest,
                         ::testing::Values("Umo", "/1", "Umo/10", "Umo/a", "Umo/5-2", "Umo/1-",
                                           "Umo/-1", "U*mo/1", "**/1", "Umo/1,,2", "Umo/1,",
                                           "Umo/1/2"),
                         [](const ::testing::TestParamInfo<const char*>& info) {
                           return "Case" + std::to_string(info.index);
                         });

TEST_F(TraceTest, ExistingHandlesFollowReconfiguration) {
  Mox::traceLevelsIs("UmoNatFlowMcastSm/3");
  EXPECT_TRUE(fileHandle.enabled(3));
  Mox::traceLevelsIs("Umo*/5-9,1,2;;  X/");
  EXPECT_FALSE(fileHandle.enabled(3));
  EXPECT_TRUE(fileHandle.enabled(7));
  EXPECT_EQ(Mox::traceLevels(), "Umo*/1-2,5-9 X/");
  Mox::traceLevelsIs("");
  EXPECT_FALSE(fileHandle.enabled(7));
}

TEST_F(TraceTest, EnvironmentIsReadAtFirstUseAndExplicitConfigReplacesIt) {
  setenv("MOX_TRACE", "UmoNat*/4", 1);
  Mox::detail::traceResetForTest();
  EXPECT_TRUE(fileHandle.enabled(4));
  setenv("MOX_TRACE", "*/0-9", 1);  // read once: a later change has no effect
  Mox::traceLevelsIs("Other/1");
  EXPECT_FALSE(fileHandle.enabled(4));
  EXPECT_EQ(Mox::traceLevels(), "Other/1");
}

TEST_F(TraceTest, MalformedEnvironmentWarnsOnceAndIsIgnored) {
  setenv("MOX_TRACE", "UmoNat*/4 bad", 1);
  Mox::detail::traceResetForTest();
  ::testing::internal::CaptureStderr();
  EXPECT_FALSE(fileHandle.enabled(4));
  Mox::traceLevelsIs("");
  EXPECT_EQ(::testing::internal::GetCapturedStderr(),
            "warning: MOX_TRACE ignored: invalid trace entry 'bad': expected pattern/levels\n");
}

TEST_F(TraceTest, DefaultSinkWritesHandleLevelAndText) {
  Mox::traceLevelsIs("UmoNatFlowMcastSm/2");
  ::testing::internal::CaptureStderr();
  MOX_TRACE(fileHandle, 2, "value " << 7);
  EXPECT_EQ(::testing::internal::GetCapturedStderr(), "UmoNatFlowMcastSm/2 value 7\n");
}

TEST_F(TraceTest, NestedCapturesRestorePreviousSinkAndLevels) {
  Mox::TraceCapture outer("UmoNatFlowMcastSm/1");
  {
    Mox::TraceCapture inner;
    MOX_TRACE(fileHandle, 5, "inner");
    EXPECT_TRUE(inner.contains("inn"));
  }
  EXPECT_EQ(Mox::traceLevels(), "UmoNatFlowMcastSm/1");
  MOX_TRACE(fileHandle, 5, "dropped");
  MOX_TRACE(fileHandle, 1, "outer");
  EXPECT_EQ(outer.texts(), std::vector<std::string>{"outer"});
  EXPECT_FALSE(outer.contains("inner"));
}

}  // namespace
