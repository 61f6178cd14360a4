#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "Mox/Trace.h"
#include "NatFixture.h"
#include "UmoNat/UmoNatFlowMcastTopologySm.h"

namespace {

using PortState = Bridging::Topology::PortState;
using Mode = Bridging::SwitchportMode;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using UmoNatTest::intf;

const Nexo::EthAddr kHostA("00:00:00:00:00:0a");
const Nexo::EthAddr kHostB("00:00:00:00:00:0b");

// VLAN 10 with members Ethernet1..3 forwarding in topology T, VLAN 20 with
// Ethernet4; a policy P, match M with a multicast flow.
class ProgrammingTest : public UmoNatTest::NatFixture {
 protected:
  ProgrammingTest() {
    vlanIs(10, {"Ethernet1", "Ethernet2", "Ethernet3"});
    vlanIs(20, {"Ethernet4"});
    for (const char* p : {"Ethernet1", "Ethernet2", "Ethernet3", "Ethernet4"}) {
      portIs(p, PortState::forwarding);
    }
    bridgingConfig->bridgeMacAddrIs(Nexo::EthAddr("00:1c:00:00:00:99"));
  }
  Mox::Ptr<Ip::Nat::NatFlowActionStatus> action(const char* name, const char* dst,
                                                const char* src = "0.0.0.0") {
    auto a = status->natFlowIs("P")->matchIs("M")->actionIs(name);
    a->srcIs(Nexo::IpAndPort(Nexo::IpAddr(src), 0));
    a->dstIs(Nexo::IpAndPort(Nexo::IpAddr(dst), 0));
    return a;
  }
  void nextHop(const Mox::Ptr<Ip::Nat::NatFlowActionStatus>& a, const char* name,
               std::uint16_t vlan, Nexo::EthAddr mac) {
    a->intfIs(intf(name), Ip::Nat::NatFlowNextHop(vlan, mac));
  }
  void bump(const Mox::Ptr<Ip::Nat::NatFlowActionStatus>& a) { a->versionIs(a->version() + 1); }
  Mox::Ptr<Ip::Nat::NatFlowVlanPortSets> portSets(const char* name) {
    return actionSm("P", "M", name)->hwActionStatus()->vlanPortSets();
  }
};

TEST_F(ProgrammingTest, FirstPassProgramsEveryPortSetThenItsTranslations) {
  matchIs("P", "M");
  auto a = action("a", "239.9.9.9", "1.1.1.1");
  nextHop(a, "Vlan10", 0, kHostA);
  nextHop(a, "Ethernet4", 20, kHostB);
  bump(a);
  start();
  EXPECT_THAT(
      helper->takeCalls(),
      ElementsAre("createNatFlowGroup(P, M, false) = 1", "updateNatFlowVlanPortSet(1, 0, 10) = 1",
                  "updateNatFlowVlanPortSet(1, 0, 20) = 2",
                  "updateNatFlowSrcTranslation(1, 1, 10, 1.1.1.1:0, 10.0.0.0:0, 8)",
                  "updateNatFlowSrcTranslation(1, 2, 20, 1.1.1.1:0, 10.0.0.0:0, 8)",
                  "updateNatFlowDstTranslation(1, 1, 10, 239.9.9.9:0, 239.1.1.1:5000, 32, "
                  "01:00:5e:00:00:00)",
                  "updateNatFlowDstTranslation(1, 2, 20, 239.9.9.9:0, 239.1.1.1:5000, 32, "
                  "01:00:5e:00:00:00)"));
  auto vps = portSets("a");
  EXPECT_THAT(vps->mcastPortSet(10)->intf().keys(),
              ElementsAre(intf("Ethernet1"), intf("Ethernet2"), intf("Ethernet3")));
  EXPECT_EQ(vps->mcastPortSet(20)->portSetId(), 2u);
  EXPECT_TRUE(vps->ucastPortSet().empty());
  // Re-publishing unchanged state makes no helper call; ids carry over.
  bump(a);
  EXPECT_THAT(helper->takeCalls(), IsEmpty());
  EXPECT_EQ(portSets("a")->mcastPortSet(20)->portSetId(), 2u);
}

TEST_F(ProgrammingTest, ChangedMembersReprogramOnlyThatPortSetAndGoneVlansLoseTheirs) {
  matchIs("P", "M");
  auto a = action("a", "239.9.9.9", "1.1.1.1");
  nextHop(a, "Vlan10", 0, kHostA);
  nextHop(a, "Vlan20", 0, kHostA);
  bump(a);
  start();
  helper->takeCalls();
  // A new member of VLAN 10: the port set is reprogrammed under its id and
  // keeps its translations.
  vlanStatusDir->vlanStatusIs(Bridging::VlanId(10))->vlanPortStatusIs(intf("Ethernet5"), {});
  portIs("Ethernet5", PortState::forwarding);
  scheduler->runUntilIdle();
  EXPECT_THAT(helper->takeCalls(), ElementsAre("updateNatFlowVlanPortSet(1, 1, 10) = 1"));
  // VLAN 20 loses its only port: the port set and its translations go.
  brTopo->topoConfigIs("T")->topoPortConfigIs(intf("Ethernet4"))->portStateIs(PortState::blocking);
  scheduler->runUntilIdle();
  EXPECT_THAT(helper->takeCalls(),
              ElementsAre("deleteNatFlowVlanPortSet(1, 2)", "deleteNatFlowSrcTranslation(1, 2)",
                          "deleteNatFlowDstTranslation(1, 2)"));
  // It comes back: new in the group, so its translations come with it.
  brTopo->topoConfigIs("T")
      ->topoPortConfigIs(intf("Ethernet4"))
      ->portStateIs(PortState::forwarding);
  scheduler->runUntilIdle();
  EXPECT_THAT(helper->takeCalls(),
              ElementsAre("updateNatFlowVlanPortSet(1, 0, 20) = 2",
                          "updateNatFlowDstTranslation(1, 2, 20, 239.9.9.9:0, 239.1.1.1:5000, 32, "
                          "01:00:5e:00:00:00)",
                          "updateNatFlowSrcTranslation(1, 2, 20, 1.1.1.1:0, 10.0.0.0:0, 8)"));
}

TEST_F(ProgrammingTest, UnicastToAHostFollowsItAndAMacChangeRedoesOnlyTheDstTranslation) {
  matchIs("P", "M", "0.0.0.0");
  auto a = action("a", "10.5.5.5");
  nextHop(a, "Vlan10", 0, kHostA);
  bump(a);
  auto fdb = bridgingStatus->fdbStatusIs(Bridging::Fid(10));
  fdb->learnedHostIs(kHostA, Bridging::LearnedHost(intf("Ethernet2")));
  start();
  EXPECT_THAT(portSets("a")->ucastPortSet(10)->intf().keys(), ElementsAre(intf("Ethernet2")));
  helper->takeCalls();
  fdb->learnedHostIs(kHostA, Bridging::LearnedHost(intf("Ethernet3")));  // the host moves
  scheduler->runUntilIdle();
  EXPECT_THAT(helper->takeCalls(), ElementsAre("updateNatFlowVlanPortSet(1, 1, 10) = 1"));
  // The next hop's MAC changes: same port, new MAC in the destination
  // translation, no port-set call.
  fdb->learnedHostIs(kHostB, Bridging::LearnedHost(intf("Ethernet3")));
  nextHop(a, "Vlan10", 0, kHostB);
  bump(a);
  EXPECT_THAT(helper->takeCalls(),
              ElementsAre("updateNatFlowDstTranslation(1, 1, 10, 10.5.5.5:0, 0.0.0.0:0, 0, "
                          "00:00:00:00:00:0b)"));
}

TEST_F(ProgrammingTest, TranslationChangesWithTheSameFlowTypeTouchOnlyTranslations) {
  matchIs("P", "M");
  auto a = action("a", "239.9.9.9", "1.1.1.1");
  nextHop(a, "Vlan10", 0, kHostA);
  bump(a);
  start();
  helper->takeCalls();
  // Only the port of the source changes: not seen as a change.
  a->srcIs(Nexo::IpAndPort("1.1.1.1:99"));
  bump(a);
  EXPECT_THAT(helper->takeCalls(), IsEmpty());
  // A new flow source with the same flow type: translations only.
  status->natFlowIs("P")->matchIs("M")->flowIs(
      Ip::Nat::NatFlow::fromString("src 10.9.0.0/16:0 dst 239.1.1.1/32:5000"));
  EXPECT_THAT(helper->takeCalls(),
              ElementsAre("updateNatFlowSrcTranslation(1, 1, 10, 1.1.1.1:99, 10.9.0.0:0, 16)"));
  // The source loses its address: every source translation goes.
  a->srcIs(Nexo::IpAndPort());
  bump(a);
  EXPECT_THAT(helper->takeCalls(), ElementsAre("deleteNatFlowSrcTranslation(1, 1)"));
  EXPECT_TRUE(actionSm("P", "M", "a")->hwActionStatus()->srcNat().ip().isZero());
}

TEST_F(ProgrammingTest, TwoGroupsGiveTypedPortSetsASecondIdAndSplitNoneTypes) {
  matchIs("P", "M", "0.0.0.0");
  auto typed = action("a", "239.9.9.9");
  nextHop(typed, "Ethernet4", 20, kHostB);
  bump(typed);
  auto none = action("b", "0.0.0.0");
  nextHop(none, "Ethernet4", 20, kHostB);
  bump(none);
  start();
  // Typed: the same multicast port set in both groups, by portSetId and
  // portSetId2.
  auto mc = portSets("a")->mcastPortSet(20);
  EXPECT_EQ(mc->portSetId(), 1u);
  EXPECT_EQ(mc->portSetId2(), 1u);
  // No destination: unicast port set in the first group, multicast in the
  // second, both by portSetId.
  EXPECT_EQ(portSets("b")->ucastPortSet(20)->portSetId(), 2u);
  EXPECT_EQ(portSets("b")->mcastPortSet(20)->portSetId(), 2u);
  EXPECT_EQ(portSets("b")->mcastPortSet(20)->portSetId2(), 0u);
  EXPECT_EQ(hwMatch("P", "M")->groupIdUc(), 1u);
  EXPECT_EQ(hwMatch("P", "M")->groupIdMc(), 2u);
}

TEST_F(ProgrammingTest, SoftwarePortSetsFollowTheNextHops) {
  matchIs("P", "M", "0.0.0.0");
  auto recirc = action("recirc", "239.9.9.9");  // no next hop: recirculation
  bump(recirc);
  auto phys = action("phys", "10.5.5.5");
  nextHop(phys, "Ethernet1", 10, kHostA);
  nextHop(phys, "Ethernet2", 10, kHostB);  // another MAC in the same VLAN: left out
  nextHop(phys, "Vlan0", 0, kHostA);       // not a usable VLAN
  bump(phys);
  auto both = action("both", "0.0.0.0");
  nextHop(both, "Ethernet3", 10, kHostA);
  bump(both);
  Mox::TraceCapture trace("UmoNatFlowActionSm/2");
  start();
  auto r = portSets("recirc");
  ASSERT_EQ(r->ucastPortSet().size(), 1u);
  EXPECT_TRUE(r->mcastPortSet().empty());
  auto rps = r->ucastPortSet(topo()->natFlowRecircVlan());
  ASSERT_TRUE(rps);
  EXPECT_THAT(rps->intf().keys(), ElementsAre(Nexo::IntfId()));
  EXPECT_EQ(rps->dmac(), Nexo::EthAddr("00:1c:00:00:00:99"));
  EXPECT_TRUE(topo()->actionRecirc().contains(actionSm("P", "M", "recirc")));
  EXPECT_THAT(portSets("phys")->ucastPortSet(10)->intf().keys(), ElementsAre(intf("Ethernet1")));
  EXPECT_THAT(trace.texts(), Contains("Different mac (00:00:00:00:00:0a) already found in the "
                                      "vlan, skip intf"));
  EXPECT_THAT(trace.texts(), Contains("Invalid vlan"));
  EXPECT_TRUE(portSets("both")->ucastPortSet().contains(10));
  EXPECT_TRUE(portSets("both")->mcastPortSet().contains(10));
}

TEST_F(ProgrammingTest, FailingUnicastSviSkipsTheMulticastAttempt) {
  matchIs("P", "M", "0.0.0.0");
  auto a = action("a", "0.0.0.0");
  nextHop(a, "Vlan30", 0, kHostA);  // VLAN 30 has no status
  bump(a);
  Mox::TraceCapture trace("UmoNatFlowMcastTopologySm/6");
  start();
  int sviCalls = 0;
  for (const auto& t : trace.texts()) {
    if (t.rfind("UmoNatFlowMcastTopologySm::addSviPorts", 0) == 0) ++sviCalls;
  }
  EXPECT_EQ(sviCalls, 1);
  EXPECT_TRUE(portSets("a")->ucastPortSet().empty());
}

template <class View>
std::vector<std::uint16_t> vlansOf(const View& portSets) {
  std::vector<std::uint16_t> vlans;
  for (const auto& [vlan, ps] : portSets) vlans.push_back(vlan);
  return vlans;
}

// Values the platform may publish that name no usable VLAN or host: each is
// skipped with the trace of the decision it fails, and the other next hops of
// the action are programmed as usual.
TEST_F(ProgrammingTest, UnusableNextHopValuesAreSkippedAndTheRestProgrammed) {
  matchIs("P", "M", "0.0.0.0");
  auto mc = action("mc", "239.9.9.9");
  nextHop(mc, "Ethernet1", 4095, kHostA);  // a trunk port: 4095 is no VLAN
  nextHop(mc, "Ethernet4", 20, kHostA);
  bump(mc);
  auto uc = action("uc", "10.5.5.5");
  nextHop(uc, "Vlan10", 0, Nexo::EthAddr());  // a VLAN interface without a MAC
  nextHop(uc, "Ethernet4", 20, kHostB);
  bump(uc);
  auto none = action("none", "0.0.0.0");
  nextHop(none, "Ethernet1", 10, Nexo::EthAddr());  // no destination: no MAC promised
  nextHop(none, "Vlan20", 0, Nexo::EthAddr());
  nextHop(none, "Ethernet4", 20, kHostB);
  bump(none);
  Mox::TraceCapture trace("UmoNatFlowActionSm/2 UmoNatFlowMcastTopologySm/6");
  start();
  EXPECT_TRUE(trace.contains("Invalid vlan or port state"));
  EXPECT_TRUE(trace.contains("Invalid or empty vlan"));
  EXPECT_TRUE(trace.contains("Invalid mac (00:00:00:00:00:00) for the intf, skip intf"));
  EXPECT_THAT(vlansOf(portSets("mc")->mcastPortSet()), ElementsAre(20));
  EXPECT_THAT(vlansOf(portSets("uc")->ucastPortSet()), ElementsAre(20));
  EXPECT_THAT(vlansOf(portSets("none")->ucastPortSet()), ElementsAre(20));
  EXPECT_THAT(vlansOf(portSets("none")->mcastPortSet()), ElementsAre(20));
  EXPECT_THAT(portSets("none")->ucastPortSet(20)->intf().keys(), ElementsAre(intf("Ethernet4")));
  root.reset();
  EXPECT_TRUE(helper->portSets().empty());
}

using ProgrammingDeathTest = ProgrammingTest;

// The platform never publishes a physical next hop without a MAC for a
// unicast flow.
TEST_F(ProgrammingDeathTest, UnicastPhysicalNextHopWithoutMacStops) {
  auto a = action("a", "10.5.5.5");
  nextHop(a, "Ethernet1", 10, Nexo::EthAddr());
  bump(a);
  EXPECT_DEATH(start(), "iter->mac\\(\\) != Nexo::EthAddr::ethAddrZero\\(\\)");
}

TEST_F(ProgrammingTest, TeardownLeavesNothingProgrammed) {
  matchIs("P", "M", "0.0.0.0");
  auto a = action("a", "239.9.9.9", "1.1.1.1");
  nextHop(a, "Vlan10", 0, kHostA);
  bump(a);
  auto b = action("b", "0.0.0.0");
  nextHop(b, "Ethernet4", 20, kHostB);
  bump(b);
  start();
  helper->takeCalls();
  root.reset();
  EXPECT_TRUE(helper->groups().empty());
  EXPECT_TRUE(helper->portSets().empty());
}

}  // namespace
