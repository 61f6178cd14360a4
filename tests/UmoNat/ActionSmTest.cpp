#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

#include "Mox/Trace.h"
#include "NatFixture.h"
#include "UmoNat/UmoNatFlowActionSm.h"
#include "UmoNat/UmoNatFlowMcastTopologySm.h"

namespace {

using Ip::Nat::NatFlowType;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

class ActionSmTest : public UmoNatTest::NatFixture {
 protected:
  // Gives the action's hardware status port sets as a pass would have left
  // them: unicast VLAN 10 with ids (1, 11), multicast VLAN 20 with ids (2, 12)
  // and VLAN 30 never programmed (ids 0).
  void programmedPortSets(UmoNatFlowActionSm* a, NatFlowType type, bool srcNat, bool dstNat) {
    auto vps = Ip::Nat::natFlowVlanPortSetsFactory();
    auto uc = vps->ucastPortSetIs(10);
    uc->portSetIdIs(1);
    uc->portSetId2Is(11);
    auto mc = vps->mcastPortSetIs(20);
    mc->portSetIdIs(2);
    mc->portSetId2Is(12);
    vps->mcastPortSetIs(30);
    const auto& hw = a->hwActionStatus();
    hw->vlanPortSetsIs(vps);
    hw->flowTypeIs(type);
    hw->srcNatIs(srcNat ? Nexo::IpAndPort("1.1.1.1:0") : Nexo::IpAndPort());
    hw->dstNatIs(dstNat ? Nexo::IpAndPort("239.9.9.9:0") : Nexo::IpAndPort());
    hw->srcLenIs(8);
  }
};

struct FlowTypeCase {
  const char* flowDst;
  const char* actionDst;
  NatFlowType type;
  const char* trace;
};

class ActionFlowTypeTest : public ActionSmTest, public testing::WithParamInterface<FlowTypeCase> {};

TEST_P(ActionFlowTypeTest, ComesFromTheActionThenTheFlowDestination) {
  const FlowTypeCase& c = GetParam();
  matchIs("P", "M", c.flowDst);
  actionIs("P", "M", "a", c.actionDst);
  start();
  Mox::TraceCapture trace("UmoNatFlowActionSm/2");
  EXPECT_EQ(actionSm("P", "M", "a")->getFlowType(), c.type);
  EXPECT_THAT(trace.texts(), ElementsAre(c.trace));
  EXPECT_EQ(actionSm("P", "M", "a")->hwActionStatus()->flowType(), c.type);
}

INSTANTIATE_TEST_SUITE_P(
    Destinations, ActionFlowTypeTest,
    testing::Values(FlowTypeCase{"239.1.1.1", "0.0.0.0", NatFlowType::natFlowTypeMulticast,
                                 "Flow type: natFlowTypeMulticast (dip: 239.1.1.1)"},
                    FlowTypeCase{"239.1.1.1", "10.0.0.9", NatFlowType::natFlowTypeUnicast,
                                 "Flow type: natFlowTypeUnicast (dip: 10.0.0.9)"},
                    FlowTypeCase{"0.0.0.0", "224.0.0.5", NatFlowType::natFlowTypeMulticast,
                                 "Flow type: natFlowTypeMulticast (dip: 224.0.0.5)"},
                    FlowTypeCase{"0.0.0.0", "0.0.0.0", NatFlowType::natFlowTypeNone,
                                 "Flow type: natFlowTypeNone (dip: 0.0.0.0)"}));

TEST_F(ActionSmTest, ChangedGroupCountIsHandedToTheMatchOnceWhichCallsBack) {
  matchIs("P", "M", "0.0.0.0");
  auto a = actionIs("P", "M", "a", "239.2.2.2");
  start();
  helper->takeCalls();
  Mox::TraceCapture trace("UmoNatFlowActionSm/2 UmoNatFlowMatchSm/2");
  // The action loses its destination: with none in the flow either, the match
  // now needs two groups.
  a->dstIs(Nexo::IpAndPort());
  a->versionIs(2);
  auto* sm = matchSm("P", "M");
  EXPECT_EQ(sm->matchSmStatus()->groupNumUpdate(), 1u);
  EXPECT_EQ(sm->matchSmStatus()->groupNum(), 2u);
  EXPECT_THAT(helper->takeCalls("Group("),
              ElementsAre("deleteNatFlowGroup(P, M, 1)", "createNatFlowGroup(P, M, true) = 1",
                          "createNatFlowGroup(P, M, false) = 2"));
  const auto texts = trace.texts();
  auto at = [&](const std::string& text) {
    return std::find(texts.begin(), texts.end(), text) - texts.begin();
  };
  const auto bump = at("Change in the group number, old: 1, new: 2");
  const auto told =
      at("UmoNatFlowActionSm::handleGroupNum, policy: P, match: M, action: a, num: 2");
  const auto realloc = at("Current groups num: 1, new: 2");
  ASSERT_LT(bump, static_cast<long>(texts.size()));
  EXPECT_LT(bump, realloc);
  EXPECT_LT(realloc, told);
  // The match called the action back (re-entrantly, inside its own pass),
  // which found the count right and programmed with the new type.
  EXPECT_EQ(std::count(texts.begin(), texts.end(),
                       "UmoNatFlowActionSm::handleNatFlowAction, policy: P, match: M, action: a, "
                       "version: 2, skipChecks: false"),
            2);
  EXPECT_EQ(actionSm("P", "M", "a")->hwActionStatus()->flowType(), NatFlowType::natFlowTypeNone);
}

TEST_F(ActionSmTest, VersionZeroDoesNothingAnywhereAndLeavesTheHardwareEntry) {
  matchIs("P", "M");
  actionIs("P", "M", "a", "0.0.0.0", 0);
  start();
  auto* a = actionSm("P", "M", "a");
  programmedPortSets(a, NatFlowType::natFlowTypeMulticast, true, true);
  helper->takeCalls();
  Mox::TraceCapture trace("UmoNatFlowActionSm/2");
  a->handleNatFlowAction(true);
  a->handleNatFlow();
  a->handleGroupNum(2);
  a->resetHwGroups();
  EXPECT_THAT(trace.texts(), testing::Contains("Version not initialized yet, skip update"));
  EXPECT_THAT(helper->takeCalls(), IsEmpty());
  EXPECT_NE(a->hwActionStatus()->vlanPortSets(), nullptr);
  status->natFlowIs("P")->matchIs("M")->actionDel("a");
  EXPECT_NE(hwMatch("P", "M")->action("a"), nullptr);
}

struct ResetCase {
  const char* name;
  NatFlowType type;
  bool twoGroups;
  bool srcNat;
  bool dstNat;
  std::vector<std::string> calls;
};

class ActionResetTest : public ActionSmTest, public testing::WithParamInterface<ResetCase> {};

TEST_P(ActionResetTest, TakesOutThePortSetsOfTheRecordedTypePerGroup) {
  const ResetCase& c = GetParam();
  // Two groups need a flow without destination and an action without one.
  matchIs("P", "M", c.twoGroups ? "0.0.0.0" : "239.1.1.1");
  actionIs("P", "M", "a", "0.0.0.0");
  if (c.twoGroups) actionIs("P", "M", "z", "0.0.0.0");
  start();
  auto* a = actionSm("P", "M", "a");
  programmedPortSets(a, c.type, c.srcNat, c.dstNat);
  helper->takeCalls();
  a->resetHwGroups();
  EXPECT_EQ(helper->takeCalls(), c.calls);
  const auto& hw = a->hwActionStatus();
  EXPECT_EQ(hw->vlanPortSets(), nullptr);
  EXPECT_TRUE(hw->srcNat().ip().isZero());
  EXPECT_TRUE(hw->dstNat().ip().isZero());
  EXPECT_EQ(hw->srcLen(), 0u);
  EXPECT_EQ(hw->flowType(), c.type);  // left for the caller to rewrite
}

// Group 1 is the match's first group; with two groups the second is 2.
INSTANTIATE_TEST_SUITE_P(
    FlowTypes, ActionResetTest,
    testing::Values(
        ResetCase{"UnicastOneGroup",
                  NatFlowType::natFlowTypeUnicast,
                  false,
                  true,
                  true,
                  {"deleteNatFlowVlanPortSet(1, 1)", "deleteNatFlowSrcTranslation(1, 1)",
                   "deleteNatFlowDstTranslation(1, 1)"}},
        ResetCase{"MulticastOneGroup",
                  NatFlowType::natFlowTypeMulticast,
                  false,
                  false,
                  true,
                  {"deleteNatFlowVlanPortSet(1, 2)", "deleteNatFlowDstTranslation(1, 2)"}},
        // Without a recorded destination translation, unicast port sets still
        // lose theirs; multicast port sets do not.
        ResetCase{"UnicastNoDst",
                  NatFlowType::natFlowTypeUnicast,
                  false,
                  false,
                  false,
                  {"deleteNatFlowVlanPortSet(1, 1)", "deleteNatFlowDstTranslation(1, 1)"}},
        ResetCase{"MulticastNoDst",
                  NatFlowType::natFlowTypeMulticast,
                  false,
                  false,
                  false,
                  {"deleteNatFlowVlanPortSet(1, 2)"}},
        ResetCase{"UnicastTwoGroups",
                  NatFlowType::natFlowTypeUnicast,
                  true,
                  false,
                  false,
                  {"deleteNatFlowVlanPortSet(1, 1)", "deleteNatFlowDstTranslation(1, 1)",
                   "deleteNatFlowVlanPortSet(2, 11)", "deleteNatFlowDstTranslation(2, 11)"}},
        ResetCase{"MulticastTwoGroups",
                  NatFlowType::natFlowTypeMulticast,
                  true,
                  true,
                  false,
                  {"deleteNatFlowVlanPortSet(1, 2)", "deleteNatFlowSrcTranslation(1, 2)",
                   "deleteNatFlowVlanPortSet(2, 12)", "deleteNatFlowSrcTranslation(2, 12)"}},
        // No destination at all: unicast port sets in the first group and
        // multicast ones in the second, both by their first id.
        ResetCase{"NoneTwoGroups",
                  NatFlowType::natFlowTypeNone,
                  true,
                  false,
                  true,
                  {"deleteNatFlowVlanPortSet(1, 1)", "deleteNatFlowDstTranslation(1, 1)",
                   "deleteNatFlowVlanPortSet(2, 2)", "deleteNatFlowDstTranslation(2, 2)"}}),
    [](const testing::TestParamInfo<ResetCase>& info) { return info.param.name; });

TEST_F(ActionSmTest, FlowTypeChangeResetsWithTheOldTypeBeforeRecordingTheNewOne) {
  matchIs("P", "M");
  auto a = actionIs("P", "M", "a", "239.5.5.5");
  start();
  auto* sm = actionSm("P", "M", "a");
  programmedPortSets(sm, NatFlowType::natFlowTypeMulticast, false, true);
  helper->takeCalls();
  a->dstIs(Nexo::IpAndPort("10.0.0.7:0"));
  a->versionIs(2);
  // The multicast port set of the old type goes first, by the old parameters;
  // the pass then programs the unicast one.
  const auto calls = helper->takeCalls();
  ASSERT_GE(calls.size(), 2u);
  EXPECT_THAT(std::vector<std::string>(calls.begin(), calls.begin() + 2),
              ElementsAre("deleteNatFlowVlanPortSet(1, 2)", "deleteNatFlowDstTranslation(1, 2)"));
  EXPECT_EQ(sm->hwActionStatus()->flowType(), NatFlowType::natFlowTypeUnicast);
}

TEST_F(ActionSmTest, RemovingTheActionResetsItsGroupsAndItsHardwareEntry) {
  matchIs("P", "M");
  actionIs("P", "M", "a", "239.5.5.5");
  actionIs("P", "M", "b", "239.6.6.6");
  start();
  programmedPortSets(actionSm("P", "M", "a"), NatFlowType::natFlowTypeMulticast, false, false);
  helper->takeCalls();
  status->natFlowIs("P")->matchIs("M")->actionDel("a");
  EXPECT_THAT(helper->takeCalls(), ElementsAre("deleteNatFlowVlanPortSet(1, 2)"));
  EXPECT_EQ(hwMatch("P", "M")->action("a"), nullptr);
  EXPECT_NE(hwMatch("P", "M")->action("b"), nullptr);
}

// Fails the first port-set delete it is asked for.
class ThrowingHelper : public UmoNatTest::RecordingHelper {
 public:
  void deleteNatFlowVlanPortSet(std::uint32_t, std::uint32_t) override {
    throw std::runtime_error("chip gone");
  }
};

TEST_F(ActionSmTest, ConstructorThatFailsReleasesEverything) {
  const auto before = Mox::PtrInterface::instances();
  {
    auto matchStatus = matchIs("P", "M");
    auto actionStatus = actionIs("P", "M", "a", "239.5.5.5");
    auto hwMatchStatus = Mox::makePtr<Ip::Nat::HwNatFlowMatchStatus>("M");
    hwMatchStatus->groupIdUcIs(1);
    hwMatchStatus->groupIdMcIs(1);
    // A hardware entry left with a programmed port set: the first pass resets
    // it (the recorded type differs) and the helper throws.
    auto vps = Ip::Nat::natFlowVlanPortSetsFactory();
    vps->ucastPortSetIs(10)->portSetIdIs(4);
    hwMatchStatus->actionIs("a")->vlanPortSetsIs(vps);
    auto smStatus = UmoNatFlowMatchSmStatusIs();
    smStatus->groupNumIs(1);
    Mox::Ptr<UmoHelper::UmoNatFlowMcastHelper> throwing = Mox::makePtr<ThrowingHelper>();
    EXPECT_THROW(Mox::reactorIs<UmoNatFlowActionSm>(
                     Pelo::String("P"), Pelo::String("M"),
                     Mox::Ptr<const Ip::Nat::NatFlowMatchStatus>(matchStatus),
                     Mox::Ptr<const Ip::Nat::NatFlowActionStatus>(actionStatus), hwMatchStatus,
                     smStatus, nullptr, throwing, Mox::Ptr<const Bridging::Config>()),
                 std::runtime_error);
    EXPECT_EQ(actionStatus->subscriberCount(), 0u);
  }
  status->natFlowDelAll();
  EXPECT_EQ(Mox::PtrInterface::instances(), before);
}

TEST_F(ActionSmTest, RetryResetsAndReprogramsTheActionsOfTheMatch) {
  helper->groupCapacityIs(1);
  matchIs("P", "a-holder");
  actionIs("P", "a-holder", "x", "239.1.1.1");
  matchIs("P", "b-waiting");
  actionIs("P", "b-waiting", "x", "239.1.1.1");
  start();
  status->natFlowIs("P")->matchIs("a-holder")->actionDel("x");
  Mox::TraceCapture trace("UmoNatFlowActionSm/2");
  scheduler->advance(10.0);
  EXPECT_THAT(trace.texts(),
              testing::IsSupersetOf(
                  {"UmoNatFlowActionSm::resetHwGroups, policy: P, match: b-waiting, action: x, ft: "
                   "natFlowTypeMulticast",
                   "UmoNatFlowActionSm::handleNatFlowAction, policy: P, match: b-waiting, action: "
                   "x, version: 1, skipChecks: false"}));
  EXPECT_NE(actionSm("P", "b-waiting", "x")->hwActionStatus()->vlanPortSets(), nullptr);
}

TEST_F(ActionSmTest, ActionIndexSharesEntriesAndWithdrawsOnlyItsOwnKeys) {
  matchIs("P", "M");
  actionIs("P", "M", "a", "239.5.5.5");
  actionIs("P", "M", "b", "239.6.6.6");
  start();
  auto* topo = root->topologySm();
  auto* a = actionSm("P", "M", "a");
  auto* b = actionSm("P", "M", "b");
  const Nexo::IntfId et1("Ethernet1");
  const Nexo::EthAddr mac("00:00:00:00:00:0a");
  topo->addActionSmVlan(10, a);
  topo->addActionSmVlan(10, a);  // twice: one member, one entry
  topo->addActionSmVlan(10, b);
  topo->addActionSmIntf(et1, a);
  topo->addActionSmMac(mac, a);
  topo->addActionSmRecirc(a);
  topo->actionSmUpdateBacklogIs(a);
  EXPECT_EQ(topo->actionVlan().find(10)->get()->actionSm().size(), 2u);
  Mox::TraceCapture trace("UmoNatFlowMcastTopologySm/4");
  topo->delActionSm(a);
  EXPECT_THAT(trace.texts(), ElementsAre("delActionSm, policy: P, match: M, action: a",
                                         "Removed actionIntf for intf Ethernet1",
                                         "Removed actionMac for mac 00:00:00:00:00:0a"));
  EXPECT_TRUE(topo->actionVlan().contains(10));
  EXPECT_FALSE(topo->actionRecirc().contains(a));
  EXPECT_TRUE(topo->actionSmUpdateBacklog().contains(a));  // the backlog keeps it
  trace.clear();
  topo->delActionSm(b);
  topo->delActionSm(b);
  EXPECT_THAT(trace.texts(), ElementsAre("delActionSm, policy: P, match: M, action: b",
                                         "Removed actionVlan for vlan 10",
                                         "delActionSm, policy: P, match: M, action: b"));
  EXPECT_TRUE(topo->actionVlan().empty());
}

TEST_F(ActionSmTest, QueuedActionDestroyedBeforeTheBacklogRunsIsNeverCalled) {
  matchIs("P", "M");
  actionIs("P", "M", "a", "239.5.5.5", 0);  // version 0: its clean-up withdraws nothing
  actionIs("P", "M", "b", "239.6.6.6");
  start();
  auto* topo = root->topologySm();
  topo->addActionSmIntf(Nexo::IntfId("Ethernet1"), actionSm("P", "M", "a"));
  topo->addActionSmIntf(Nexo::IntfId("Ethernet1"), actionSm("P", "M", "b"));
  topo->notifyActionSmIntf(Nexo::IntfId("Ethernet1"));
  EXPECT_EQ(topo->actionSmUpdateBacklog().size(), 2u);
  status->natFlowIs("P")->matchIs("M")->actionDel("a");
  EXPECT_EQ(topo->actionSmUpdateBacklog().size(), 1u);
  EXPECT_EQ(topo->actionIntf().find(Nexo::IntfId("Ethernet1"))->get()->actionSm().size(), 1u);
  Mox::TraceCapture trace("UmoNatFlowActionSm/2 UmoNatFlowMcastTopologySm/9");
  scheduler->runUntilIdle();
  EXPECT_THAT(trace.texts(),
              testing::Contains(HasSubstr("action: b, version: 1, skipChecks: true")));
  EXPECT_THAT(trace.texts(), testing::Contains("Entries reviewed: 1, left: 0"));
}

TEST_F(ActionSmTest, ActionsOfAMatchShareItsContextAndReCreationComparesTheirArguments) {
  matchIs("P", "M");
  actionIs("P", "M", "a", "239.5.5.5");
  actionIs("P", "M", "b", "239.6.6.6");
  start();
  auto* m = matchSm("P", "M");
  auto* a = actionSm("P", "M", "a");
  auto* b = actionSm("P", "M", "b");
  EXPECT_EQ(a->context(), b->context());
  EXPECT_EQ(a->policy(), "P");
  EXPECT_EQ(a->match(), "M");
  EXPECT_EQ(a->matchStatus(), m->matchStatus());
  EXPECT_EQ(a->hwMatchStatus(), m->hwMatchStatus());
  EXPECT_EQ(a->matchSmStatus(), m->matchSmStatus());
  EXPECT_EQ(a->topologySm(), root->topologySm());
  EXPECT_EQ(a->helper(), m->helper());
  const auto again = [&](const char* policy, const UmoNatFlowActionSm* action) {
    return m->actionSmIs(policy, "a", m->matchStatus(), action->actionStatus(), m->hwMatchStatus(),
                         m->matchSmStatus(), m->topologySm(), m->helper(), m->bridgingConfig());
  };
  EXPECT_EQ(again("P", a).get(), a);
  EXPECT_THROW(again("P", b), Mox::MutatorReinstantiatingException);
  EXPECT_THROW(again("Q", a), Mox::MutatorReinstantiatingException);
  // A context made for other inputs is not handed to the next action.
  actionIs("P", "M", "c", "239.7.7.7");
  EXPECT_EQ(actionSm("P", "M", "c")->policy(), "P");
  EXPECT_EQ(actionSm("P", "M", "a"), a);
}

}  // namespace
