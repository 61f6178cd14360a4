#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "Mox/Log.h"
#include "Mox/Trace.h"
#include "NatFixture.h"
#include "UmoNat/UmoNatFlowMatchSm.h"
#include "UmoNat/UmoNatFlowMcastSm.h"
#include "UmoNat/UmoNatFlowPolicySm.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

using FlowHierarchyTest = UmoNatTest::NatFixture;

TEST_F(FlowHierarchyTest, StartUpWipesStaleHardwareStatusBottomUpWithoutTheHelper) {
  auto stale = hwStatus->natFlowIs("old")->matchIs("m")->actionIs("a");
  auto vps = Ip::Nat::natFlowVlanPortSetsFactory();
  vps->ucastPortSetIs(10)->intfIs(Nexo::IntfId("Ethernet1"));
  vps->mcastPortSetIs(20);
  stale->vlanPortSetsIs(vps);
  hwStatus->natFlowIs("empty");
  matchIs("P1", "M1");
  actionIs("P1", "M1", "A1", "239.2.2.2");
  start();
  EXPECT_TRUE(vps->ucastPortSet().empty());
  EXPECT_TRUE(vps->mcastPortSet().empty());
  EXPECT_EQ(hwStatus->natFlow("old"), nullptr);
  EXPECT_EQ(hwStatus->natFlow("empty"), nullptr);
  EXPECT_NE(hwMatch("P1", "M1"), nullptr);
  EXPECT_THAT(helper->takeCalls(), ElementsAre("createNatFlowGroup(P1, M1, false) = 1"));
}

TEST_F(FlowHierarchyTest, PoliciesFollowTheStatusBeforeAndAfterStart) {
  status->natFlowIs("before");
  start();
  status->natFlowIs("after");
  EXPECT_EQ(root->policySm().size(), 2u);
  EXPECT_NE(hwStatus->natFlow("after"), nullptr);
  auto kept = root->policySm().find("before");
  status->publishChange(Ip::Nat::Status::Attr::natFlow, Pelo::Key("before"));
  EXPECT_EQ(root->policySm().find("before"), kept);
  kept.reset();
  status->natFlowDel("before");
  EXPECT_EQ(root->policySm().find("before"), nullptr);
  EXPECT_EQ(hwStatus->natFlow("before"), nullptr);
  // A policy without matches has an empty hardware element.
  EXPECT_TRUE(hwStatus->natFlow("after")->match().empty());
}

TEST_F(FlowHierarchyTest, GroupCountFollowsTheDestinations) {
  start();
  matchIs("P", "fixed");  // the flow names a destination: one shared group
  actionIs("P", "fixed", "a");
  matchIs("P", "open", "0.0.0.0");  // neither names one: a unicast and a multicast group
  actionIs("P", "open", "a");
  matchIs("P", "idle");  // no actions: no group
  EXPECT_THAT(helper->takeCalls("Group("), ElementsAre("createNatFlowGroup(P, fixed, false) = 1",
                                                       "createNatFlowGroup(P, open, true) = 2",
                                                       "createNatFlowGroup(P, open, false) = 3"));
  EXPECT_EQ(hwMatch("P", "fixed")->groupIdUc(), 1u);
  EXPECT_EQ(hwMatch("P", "fixed")->groupIdMc(), 1u);
  EXPECT_EQ(hwMatch("P", "open")->groupIdUc(), 2u);
  EXPECT_EQ(hwMatch("P", "open")->groupIdMc(), 3u);
  EXPECT_EQ(hwMatch("P", "idle")->groupIdUc(), 0u);
  EXPECT_EQ(matchSm("P", "open")->matchSmStatus()->groupNum(), 2u);
  EXPECT_EQ(matchSm("P", "idle")->matchSmStatus()->groupNum(), 0u);
}

TEST_F(FlowHierarchyTest, CountChangeFreesTheSharedGroupOnceAndAllocatesThePair) {
  matchIs("P", "M", "0.0.0.0");
  actionIs("P", "M", "a1", "239.9.9.9");
  start();
  helper->takeCalls("Group(");
  actionIs("P", "M", "a2");  // no destination anywhere: now two groups
  EXPECT_THAT(helper->takeCalls("Group("),
              ElementsAre("deleteNatFlowGroup(P, M, 1)", "createNatFlowGroup(P, M, true) = 1",
                          "createNatFlowGroup(P, M, false) = 2"));
  status->natFlowIs("P")->matchIs("M")->actionDelAll();
  EXPECT_THAT(helper->takeCalls("Group("),
              ElementsAre("deleteNatFlowGroup(P, M, 1)", "deleteNatFlowGroup(P, M, 2)"));
  EXPECT_EQ(matchSm("P", "M")->matchSmStatus()->groupNum(), 0u);
  EXPECT_TRUE(root->unprogrammedGroup().empty());
}

TEST_F(FlowHierarchyTest, FlowChangeKeepingTheCountTouchesNoGroup) {
  matchIs("P", "M");
  actionIs("P", "M", "a");
  start();
  helper->takeCalls();
  auto flow = Ip::Nat::NatFlow::fromString("src 10.9.0.0/16:0 dst 239.5.5.5/32:6000");
  status->natFlowIs("P")->matchIs("M")->flowIs(flow);
  EXPECT_THAT(helper->takeCalls(), IsEmpty());
  EXPECT_EQ(hwMatch("P", "M")->flow(), flow);
  // A request to re-evaluate with the count unchanged only refreshes the flow.
  auto* sm = matchSm("P", "M");
  sm->matchSmStatus()->groupNumUpdateIs(sm->matchSmStatus()->groupNumUpdate() + 1);
  EXPECT_THAT(helper->takeCalls(), IsEmpty());
}

TEST_F(FlowHierarchyTest, PartlyFailedPairKeepsTheAllocatedGroupAndRecordsNothing) {
  helper->failMulticastGroupsIs(true);
  matchIs("P", "M", "0.0.0.0");
  actionIs("P", "M", "a");
  Mox::TraceCapture trace("UmoNatFlowMatchSm/2");
  start();
  EXPECT_THAT(helper->takeCalls(), ElementsAre("createNatFlowGroup(P, M, true) = 1",
                                               "createNatFlowGroup(P, M, false) = 0"));
  EXPECT_TRUE(trace.contains("Failed to allocate group(s)"));
  EXPECT_EQ(hwMatch("P", "M")->groupIdUc(), 0u);
  EXPECT_EQ(hwMatch("P", "M")->groupIdMc(), 0u);
  EXPECT_EQ(helper->groups(), (std::set<std::uint32_t>{1}));
  // The count wanted is recorded although nothing is held; the match waits.
  EXPECT_EQ(matchSm("P", "M")->matchSmStatus()->groupNum(), 2u);
  EXPECT_TRUE(root->unprogrammedGroup().contains(matchSm("P", "M")));
  // A failed allocation alone never schedules the retry.
  EXPECT_FALSE(root->unprogrammedGroupTask()->taskScheduled());
}

TEST_F(FlowHierarchyTest, FreedGroupsScheduleTheRetryWhichProgramsTheWaitingMatch) {
  helper->groupCapacityIs(1);
  matchIs("P", "first");
  actionIs("P", "first", "a");
  matchIs("P", "second");
  actionIs("P", "second", "a");
  start();
  EXPECT_EQ(hwMatch("P", "second")->groupIdUc(), 0u);
  helper->takeCalls();
  status->natFlowIs("P")->matchIs("first")->actionDel("a");  // frees group 1
  EXPECT_TRUE(root->unprogrammedGroupTask()->taskScheduled());
  scheduler->advance(9.999);
  EXPECT_EQ(hwMatch("P", "second")->groupIdUc(), 0u);
  Mox::TraceCapture trace("UmoNatFlowMcastSm/9");
  scheduler->advance(0.001);
  EXPECT_EQ(hwMatch("P", "second")->groupIdUc(), 1u);
  EXPECT_THAT(trace.texts(), ElementsAre("Entries checked: 1, remaining: 0"));
  EXPECT_TRUE(root->unprogrammedGroup().empty());
  EXPECT_EQ(root->unprogrammedGroupTask()->lastRunWork(), 1u);
}

TEST_F(FlowHierarchyTest, RetryStopsAtFirstFailedMatchAndYieldsWhenTheSliceIsUsed) {
  helper->groupCapacityIs(1);
  for (const char* m : {"m0", "m1", "m2", "m3"}) {
    matchIs("P", m);
    actionIs("P", m, "a");
  }
  start();
  // m0 holds the only group; m1, m2, m3 wait in that order. Room for two.
  helper->groupCapacityIs(2);
  status->natFlowIs("P")->matchIs("m0")->actionDel("a");
  helper->takeCalls();
  scheduler->timeSliceIs(1);
  Mox::TraceCapture trace("UmoNatFlowMcastSm/9");
  scheduler->advance(10.0);
  // One entry per run: the run yields and reschedules itself at once.
  EXPECT_THAT(
      trace.texts(),
      ElementsAre("Yielding. Scheduled unprogrammed group task", "Entries checked: 1, remaining: 2",
                  "Yielding. Scheduled unprogrammed group task", "Entries checked: 1, remaining: 1",
                  "UmoNatFlowMcastSm::addUnprogrammedGroupTask",
                  "Entries checked: 0, remaining: 1"));
  EXPECT_THAT(helper->takeCalls(), ElementsAre("createNatFlowGroup(P, m1, false) = 1",
                                               "createNatFlowGroup(P, m2, false) = 2",
                                               "createNatFlowGroup(P, m3, false) = 0"));
  EXPECT_TRUE(root->unprogrammedGroup().contains(matchSm("P", "m3")));
}

TEST_F(FlowHierarchyTest, DirectCallOrEmptyRunOfTheRetryDoesNothing) {
  start();
  Mox::TraceCapture trace("UmoNatFlowMcastSm/2,9");
  root->handleUnprogrammedGroup();
  root->unprogrammedGroupTask()->scheduleTask();
  scheduler->runDue();
  EXPECT_THAT(trace.texts(),
              ElementsAre("UmoNatFlowMcastSm::handleUnprogrammedGroup", "Task not running",
                          "UmoNatFlowMcastSm::handleUnprogrammedGroup",
                          "Entries checked: 0, remaining: 0"));
  EXPECT_EQ(root->unprogrammedGroupTask()->workCount(), 0u);
}

TEST_F(FlowHierarchyTest, RemovingAPolicyDropsTheWholeRetrySetAndStopsTheRetry) {
  helper->groupCapacityIs(1);
  matchIs("A", "holder");
  actionIs("A", "holder", "a");
  matchIs("B", "waiting");
  actionIs("B", "waiting", "a");
  matchIs("C", "m");
  start();
  status->natFlowIs("A")->matchIs("holder")->actionDel("a");  // schedules the retry
  ASSERT_TRUE(root->unprogrammedGroupTask()->taskScheduled());
  status->natFlowDel("C");
  EXPECT_TRUE(root->unprogrammedGroup().empty());
  EXPECT_FALSE(root->unprogrammedGroupTask()->taskScheduled());
  scheduler->runUntilIdle();
  EXPECT_EQ(hwMatch("B", "waiting")->groupIdUc(), 0u);
}

TEST_F(FlowHierarchyTest, WaitingMatchRemovedAloneIsNeverRetried) {
  helper->groupCapacityIs(1);
  matchIs("P", "first");
  actionIs("P", "first", "a");
  matchIs("P", "second");
  actionIs("P", "second", "a");
  start();
  status->natFlowIs("P")->matchDel("second");
  EXPECT_TRUE(root->unprogrammedGroup().empty());
  status->natFlowIs("P")->matchIs("first")->actionDel("a");
  helper->takeCalls();
  scheduler->runUntilIdle();
  EXPECT_THAT(helper->takeCalls(), IsEmpty());
}

TEST_F(FlowHierarchyTest, MatchThatGetsItsGroupsThroughACountChangeLeavesTheRetrySet) {
  helper->groupCapacityIs(1);
  matchIs("P", "a-holder");
  actionIs("P", "a-holder", "x", "239.1.1.1");
  matchIs("P", "b-waiting", "0.0.0.0");
  actionIs("P", "b-waiting", "x", "239.2.2.2");
  start();
  ASSERT_TRUE(root->unprogrammedGroup().contains(matchSm("P", "b-waiting")));
  // More room, and the waiting match now needs two groups: it gets them at
  // once and no longer waits, so no retry allocates over them.
  helper->groupCapacityIs(0);
  actionIs("P", "b-waiting", "y");
  EXPECT_EQ(hwMatch("P", "b-waiting")->groupIdUc(), 2u);
  EXPECT_TRUE(root->unprogrammedGroup().empty());
  status->natFlowIs("P")->matchIs("a-holder")->actionDel("x");
  helper->takeCalls();
  scheduler->runUntilIdle();
  EXPECT_THAT(helper->takeCalls("Group("), IsEmpty());
}

TEST_F(FlowHierarchyTest, TeardownFreesEveryGroupAndEmptiesTheHardwareStatus) {
  const auto before = Mox::PtrInterface::instances();
  matchIs("P", "one");
  actionIs("P", "one", "a", "239.1.1.1");
  matchIs("P", "two", "0.0.0.0");
  actionIs("P", "two", "a");
  matchIs("Q", "m");
  actionIs("Q", "m", "a");
  start();
  EXPECT_EQ(helper->groups().size(), 4u);
  root.reset();
  EXPECT_TRUE(helper->groups().empty());
  EXPECT_TRUE(hwStatus->natFlow().empty());
  EXPECT_TRUE(scheduler->tasks().empty());
  EXPECT_EQ(status->subscriberCount(), 0u);
  status->natFlowDelAll();
  EXPECT_EQ(Mox::PtrInterface::instances(), before);
}

TEST(UmoNatLogEventsTest, CatalogueIsRegisteredAtLoad) {
  std::vector<std::string> names;
  for (const Mox::LogHandle* e : Mox::logEvents()) {
    if (std::string(e->name()).rfind("NAT_", 0) == 0) names.push_back(e->name());
  }
  EXPECT_THAT(names,
              ElementsAre("NAT_HW_RESOURCE_FULL", "NAT_HW_RESOURCE_NORMAL", "NAT_RULE_IF_MAX"));
  for (const Mox::LogHandle* e : Mox::logEvents()) {
    if (std::string(e->name()) != "NAT_HW_RESOURCE_NORMAL") continue;
    EXPECT_EQ(e->severity(), 6);
    EXPECT_STREQ(e->recommendedAction(), Mox::NoActionRequired);
    EXPECT_EQ(e->minimumInterval(), 0.0);
    EXPECT_EQ(e->factor(), 1.0);
  }
}

using FlowHierarchyDeathTest = FlowHierarchyTest;

TEST_F(FlowHierarchyDeathTest, GroupCountOtherThanOneOrTwoIsFatal) {
  matchIs("P", "M");
  start();
  EXPECT_DEATH(matchSm("P", "M")->createNatFlowGroups(3), "groups == 2");
}

TEST_F(FlowHierarchyDeathTest, PolicyWithoutStatusIsFatal) {
  start();
  EXPECT_DEATH(Mox::reactorIs<UmoNatFlowPolicySm>(nullptr, hwStatus, nullptr, helper,
                                                  bridgingConfig, root.get()),
               "policyStatus\\(\\)");
}

}  // namespace
