#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "Mox/Trace.h"
#include "NatFixture.h"
#include "UmoNat/UmoNatFlowMcastTopologySmReactors.h"

namespace {

using PortState = Bridging::Topology::PortState;
using Mode = Bridging::SwitchportMode;
using testing::ElementsAre;
using testing::IsEmpty;
using UmoNatTest::intf;

// A switch with VLANs, SVIs, one topology and switch interfaces, built from
// the inputs the platform publishes.
class TopologyTest : public UmoNatTest::NatFixture {
 protected:
  // Starts the root with one action "a" per name, and returns the actions.
  std::vector<UmoNatFlowActionSm*> actions(std::vector<const char*> names) {
    matchIs("P", "M");
    for (const char* n : names) actionIs("P", "M", n, "239.5.5.5");
    start();
    std::vector<UmoNatFlowActionSm*> out;
    for (const char* n : names) out.push_back(actionSm("P", "M", n));
    return out;
  }
  std::vector<std::string> queued() {
    std::vector<std::string> out;
    for (auto* a : topo()->actionSmUpdateBacklog()) out.push_back(a->action().str());
    return out;
  }
};

TEST_F(TopologyTest, EmptyInputsGiveAnInitializedTrackerWithItsTask) {
  auto t = umoNatFlowMcastTopologySmFactory(bridgingConfig, vlanStatusDir, brTopo, bridgingStatus,
                                            l3IntfTable, nullptr);
  EXPECT_TRUE(t->initialized());
  EXPECT_EQ(t->natFlowRecircVlan(), 0);
  EXPECT_TRUE(t->switchIntfConfig().empty());
  EXPECT_TRUE(t->ipIntfStatus().empty());
  ASSERT_TRUE(t->actionSmUpdateBacklogTask());
  EXPECT_EQ(t->actionSmUpdateBacklogTask()->nameString(), "actionSmUpdateBacklogTask");
  EXPECT_EQ(t->actionSmUpdateBacklogTaskLimit(), 100u);
  EXPECT_DOUBLE_EQ(t->actionSmUpdateBacklogTaskInterval(), 0.1);
  t.reset();
  EXPECT_EQ(brTopo->subscriberCount(), 0u);
  EXPECT_EQ(bridgingConfig->subscriberCount(), 0u);
}

TEST_F(TopologyTest, MovingAVlanBetweenTopologiesRecreatesThemAndNotifiesOnce) {
  vlanIs(10, {}, "A");
  start();
  Mox::TraceCapture trace("UmoNatFlowMcastTopologySm/3,5");
  brTopo->vidToTopoMapIs(Bridging::VlanId(10), brTopo->topoConfigIs("B"));
  EXPECT_THAT(trace.texts(), ElementsAre("handleVidToTopoMap, vlan: 10", "Old vlan topology: A",
                                         "Empty vlan list, deleting topology",
                                         "handleTopologyDel, topology: A", "New vlan topology: B",
                                         "Creating topology", "notifyActionSmVlan, vlan: 10"));
  EXPECT_FALSE(topo()->moxTopoConfig().contains("A"));
  EXPECT_EQ(*topo()->vlanToTopoMap().find(Bridging::VlanId(10)), "B");
}

TEST_F(TopologyTest, PortLeavingForwardingNotifiesItsVlansThenItself) {
  vlanIs(10, {"Ethernet1"});
  vlanIs(20, {"Ethernet1"});
  portIs("Ethernet1", PortState::forwarding);
  start();
  Mox::TraceCapture trace("UmoNatFlowMcastTopologySm/5");
  auto port = brTopo->topoConfigIs("T")->topoPortConfigIs(intf("Ethernet1"));
  port->portStateIs(PortState::blocking);
  EXPECT_THAT(trace.texts(),
              ElementsAre("notifyActionSmVlan, vlan: 10", "notifyActionSmVlan, vlan: 20",
                          "notifyActionSmIntf, intf: Ethernet1"));
  trace.clear();
  port->portStateIs(PortState::discarding);  // still not forwarding
  EXPECT_THAT(trace.texts(), IsEmpty());
  brTopo->topoConfigIs("T")->topoPortConfigDel(intf("Ethernet1"));  // blocked: nothing
  EXPECT_THAT(trace.texts(), IsEmpty());
  portIs("Ethernet2", PortState::forwarding);
  trace.clear();
  brTopo->topoConfigIs("T")->topoPortConfigDel(intf("Ethernet2"));  // forwarding: told
  EXPECT_THAT(trace.texts(), testing::Contains("notifyActionSmIntf, intf: Ethernet2"));
}

struct VlanCase {
  const char* name;
  bool status, mapped, l3, ip, up;
  const char* trace;
};

class TopologyVlanTest : public TopologyTest, public testing::WithParamInterface<VlanCase> {};

TEST_P(TopologyVlanTest, ValidVlanChecksInOrderAndSaysWhy) {
  const VlanCase& c = GetParam();
  if (c.status) vlanStatusDir->vlanStatusIs(Bridging::VlanId(30));
  if (c.mapped) brTopo->vidToTopoMapIs(Bridging::VlanId(30), brTopo->topoConfigIs("T"));
  if (c.l3) l3IntfTable->routedPortNameIs(30, intf("Vlan30"));
  if (c.ip) {
    auto ip = ipStatus->ipIntfStatusIs(intf("Vlan30"));
    ip->routingIs(true);
    if (c.up) ip->addrWithMaskIs(Nexo::IpAddrWithMask("10.3.0.1/16"));
  }
  start();
  Mox::TraceCapture trace("UmoNatFlowMcastTopologySm/6");
  EXPECT_EQ(topo()->validVlan(30), c.trace == nullptr);
  std::vector<std::string> want{"UmoNatFlowMcastTopologySm::validVlan, vlan: 30"};
  if (c.trace != nullptr) want.push_back(c.trace);
  EXPECT_EQ(trace.texts(), want);
}

INSTANTIATE_TEST_SUITE_P(
    Missing, TopologyVlanTest,
    testing::Values(
        VlanCase{"NoStatus", false, true, true, true, true, "Vlan status not found for vlan 30"},
        VlanCase{"NoTopology", true, false, true, true, true, "No bridging topology for vlan 30"},
        VlanCase{"NoL3", true, true, false, true, true, "Vlan not found in the l3 intf table"},
        VlanCase{"NoIp", true, true, true, false, false, "No ipIntfStatus found for the vlan"},
        // Routing on but no address: not up.
        VlanCase{"Disabled", true, true, true, true, false, "L3 intf disabled"},
        VlanCase{"Valid", true, true, true, true, true, nullptr}),
    [](const testing::TestParamInfo<VlanCase>& info) { return info.param.name; });

struct SwitchIntfCase {
  const char* name;
  Mode mode;
  std::uint16_t native;
  std::uint16_t vlan;
  bool rejectRouted;
  std::uint16_t result;
};

class TopologySwitchIntfTest : public TopologyTest,
                               public testing::WithParamInterface<SwitchIntfCase> {};

TEST_P(TopologySwitchIntfTest, GivesTheVlanTheInterfaceCarries) {
  const SwitchIntfCase& c = GetParam();
  portIs("Ethernet1", PortState::forwarding, c.mode, c.native);
  start();
  EXPECT_EQ(topo()->validSwitchIntf(c.vlan, intf("Ethernet1"), c.rejectRouted), c.result);
  EXPECT_EQ(topo()->validSwitchIntf(c.vlan, intf("Ethernet9"), c.rejectRouted), 0);
}

INSTANTIATE_TEST_SUITE_P(
    Modes, TopologySwitchIntfTest,
    testing::Values(SwitchIntfCase{"TrunkWithoutVlan", Mode::trunk, 10, 0, true, 10},
                    SwitchIntfCase{"TrunkOtherVlan", Mode::trunk, 10, 20, true, 20},
                    SwitchIntfCase{"AccessOtherVlan", Mode::access, 10, 20, true, 0},
                    SwitchIntfCase{"AccessNativeVlan", Mode::access, 10, 10, true, 10},
                    SwitchIntfCase{"AccessWithoutVlan", Mode::access, 10, 0, true, 10},
                    SwitchIntfCase{"RoutedRejected", Mode::routed, 10, 0, true, 0},
                    SwitchIntfCase{"RoutedAsAccess", Mode::routed, 10, 10, false, 10},
                    SwitchIntfCase{"NativeNone", Mode::trunk, 4095, 20, true, 0},
                    SwitchIntfCase{"TrunkReservedVlan", Mode::trunk, 10, 4095, true, 0},
                    SwitchIntfCase{"TrunkBeyondVlans", Mode::trunk, 10, 5000, false, 0},
                    SwitchIntfCase{"NativeBeyondVlans", Mode::access, 5000, 0, false, 0},
                    SwitchIntfCase{"NativeZero", Mode::access, 0, 0, false, 0}),
    [](const testing::TestParamInfo<SwitchIntfCase>& info) { return info.param.name; });

TEST_F(TopologyTest, ValidPortSaysNotForwardingOnlyForAPortOfTheTopology) {
  vlanIs(10, {"Ethernet1", "Ethernet2"});
  portIs("Ethernet1", PortState::blocking);
  bridgingConfig->switchIntfConfigIs(intf("Ethernet2"));
  start();
  Mox::TraceCapture trace("UmoNatFlowMcastTopologySm/6");
  EXPECT_FALSE(topo()->validPort(10, intf("Ethernet1")));
  EXPECT_FALSE(topo()->validPort(10, intf("Ethernet2")));
  EXPECT_THAT(trace.texts(),
              ElementsAre("UmoNatFlowMcastTopologySm::validPort, vlan: 10, intf: Ethernet1",
                          "Intf Ethernet1 not in forwarding state",
                          "UmoNatFlowMcastTopologySm::validPort, vlan: 10, intf: Ethernet2",
                          "Intf Ethernet2 not found in the topology"));
}

TEST_F(TopologyTest, RecirculationVlanIsStickyAndMovesWhenItsInterfaceGoesDown) {
  vlanIs(10, {});
  vlanIs(20, {});
  auto users = actions({"a"});
  EXPECT_EQ(topo()->natFlowRecircVlan(), 10);
  topo()->addActionSmRecirc(users[0]);
  sviIs(30, true);  // another valid VLAN does not displace the chosen one
  EXPECT_EQ(topo()->natFlowRecircVlan(), 10);
  Mox::TraceCapture trace("UmoNatFlowMcastTopologySm/5");
  ipStatus->ipIntfStatusIs(intf("Vlan10"))->addrWithMaskIs(Nexo::IpAddrWithMask());
  EXPECT_EQ(topo()->natFlowRecircVlan(), 20);
  // Recirculation users are told twice.
  const auto texts = trace.texts();
  EXPECT_EQ(std::count(texts.begin(), texts.end(), "notifyActionSmRecirc"), 2);
  ipStatus->ipIntfStatusIs(intf("Vlan20"))->routingIs(false);
  ipStatus->ipIntfStatusIs(intf("Vlan30"))->routingIs(false);
  EXPECT_EQ(topo()->natFlowRecircVlan(), 0);
  // With none chosen, the first L3 interface added is taken at once.
  l3IntfTable->intfL3IndexIs(intf("Vlan40"), 40);
  EXPECT_EQ(topo()->natFlowRecircVlan(), 40);
}

TEST_F(TopologyTest, RemovingAnL3InterfaceNotifiesItsVlanAndMembers) {
  vlanIs(10, {});
  vlanIs(20, {"Ethernet1"});
  portIs("Ethernet1", PortState::forwarding);
  start();
  Mox::TraceCapture trace("UmoNatFlowMcastTopologySm/3,5");
  l3IntfTable->intfL3IndexDel(intf("Vlan20"));
  EXPECT_EQ(topo()->natFlowRecircVlan(), 10);
  EXPECT_THAT(trace.texts(),
              ElementsAre("handleL3Intf, delete l3 intf Vlan20 for vlan 20",
                          "notifyActionSmVlan, vlan: 20", "notifyActionSmIntf, intf: Ethernet1"));
}

TEST_F(TopologyTest, SviPortsFloodToForwardingMembersOrGoToTheLearnedHost) {
  vlanIs(10, {"Ethernet1", "Ethernet2", "Ethernet3", "Ethernet4", "Ethernet5"});
  portIs("Ethernet1", PortState::forwarding);
  portIs("Ethernet2", PortState::forwarding);
  portIs("Ethernet3", PortState::forwarding);
  portIs("Ethernet4", PortState::blocking);
  portIs("Ethernet5", PortState::forwarding, Mode::routed, 10);
  const Nexo::EthAddr host("00:00:00:00:00:01");
  const Nexo::EthAddr other("00:00:00:00:00:02");
  const Nexo::EthAddr mcast("01:00:5e:00:00:00");
  auto a = actions({"a"})[0];
  auto vps = Ip::Nat::natFlowVlanPortSetsFactory();
  EXPECT_TRUE(topo()->addSviPorts(10, mcast, vps.get(), false, a));
  auto mc = vps->mcastPortSet(10);
  EXPECT_THAT(mc->intf().keys(),
              ElementsAre(intf("Ethernet1"), intf("Ethernet2"), intf("Ethernet3")));
  EXPECT_EQ(mc->dmac(), mcast);
  // An unknown host: flooded into the unicast port set with its MAC.
  EXPECT_TRUE(topo()->addSviPorts(10, host, vps.get(), true, a));
  EXPECT_EQ(vps->ucastPortSet(10)->intf().size(), 3u);
  EXPECT_EQ(vps->ucastPortSet(10)->dmac(), host);
  // A known host: only its port; another MAC in the same VLAN is refused.
  bridgingStatus->fdbStatusIs(Bridging::Fid(10))
      ->learnedHostIs(other, Bridging::LearnedHost(intf("Ethernet2")));
  Mox::TraceCapture trace("UmoNatFlowMcastTopologySm/2");
  EXPECT_FALSE(topo()->addSviPorts(10, other, vps.get(), true, a));
  EXPECT_THAT(trace.texts(), ElementsAre("Different mac already found in the vlan "
                                         "(00:00:00:00:00:01), skip intf"));
  auto fresh = Ip::Nat::natFlowVlanPortSetsFactory();
  EXPECT_TRUE(topo()->addSviPorts(10, other, fresh.get(), true, a));
  EXPECT_THAT(fresh->ucastPortSet(10)->intf().keys(), ElementsAre(intf("Ethernet2")));
  // A host behind a routed port is not flooded either.
  bridgingStatus->fdbStatusIs(Bridging::Fid(10))
      ->learnedHostIs(other, Bridging::LearnedHost(intf("Ethernet5")));
  EXPECT_FALSE(
      topo()->addSviPorts(10, other, Ip::Nat::natFlowVlanPortSetsFactory().get(), true, a));
  // Registered under the VLAN and both MACs, whatever the answers were.
  EXPECT_TRUE(topo()->actionVlan().contains(10));
  EXPECT_TRUE(topo()->actionMac().contains(host));
  EXPECT_TRUE(topo()->actionMac().contains(other));
}

TEST_F(TopologyTest, InvalidVlanStillRegistersTheAction) {
  auto a = actions({"a"})[0];
  auto vps = Ip::Nat::natFlowVlanPortSetsFactory();
  EXPECT_FALSE(topo()->addSviPorts(77, Nexo::EthAddr("00:00:00:00:00:07"), vps.get(), true, a));
  EXPECT_TRUE(topo()->actionVlan().contains(77));
  EXPECT_TRUE(topo()->actionMac().contains(Nexo::EthAddr("00:00:00:00:00:07")));
}

TEST_F(TopologyTest, PhysicalPortWithoutVlanUsesTheAccessNativeVlanAndRegistersOnlyTheIntf) {
  vlanIs(10, {"Ethernet1"});
  portIs("Ethernet1", PortState::forwarding, Mode::access, 10);
  auto a = actions({"a"})[0];
  Mox::TraceCapture trace("UmoNatFlowMcastTopologySm/6");
  EXPECT_EQ(topo()->addPhysicalPort(intf("Ethernet1"), 0, a), 10);
  EXPECT_EQ(trace.texts().front(),
            "UmoNatFlowMcastTopologySm::addPhysicalPort, intf; Ethernet1, vlan: 0");
  EXPECT_TRUE(topo()->actionIntf().contains(intf("Ethernet1")));
  EXPECT_FALSE(topo()->actionVlan().contains(10));
  EXPECT_EQ(topo()->addPhysicalPort(intf("Ethernet1"), 20, a), 0);
  EXPECT_TRUE(topo()->actionVlan().contains(20));
}

TEST_F(TopologyTest, BridgingReactorsQueueByTheKeyThatChanged) {
  vlanIs(10, {"Ethernet1"});
  portIs("Ethernet1", PortState::forwarding);
  const Nexo::EthAddr host("00:00:00:00:00:01");
  auto acts = actions({"byIntf", "byVlan", "byMac"});
  // Each pass re-registers an action under what its port sets use (here, the
  // recirculation VLAN only): register the keys again after every run.
  auto registerKeys = [&] {
    topo()->addActionSmIntf(intf("Ethernet1"), acts[0]);
    topo()->addActionSmVlan(10, acts[1]);
    topo()->addActionSmMac(host, acts[2]);
  };
  registerKeys();
  vlanStatusDir->vlanStatusIs(Bridging::VlanId(10))->vlanPortStatusDel(intf("Ethernet1"));
  EXPECT_THAT(queued(), ElementsAre("byIntf"));
  scheduler->runUntilIdle();
  registerKeys();
  vlanStatusDir->vlanStatusDel(Bridging::VlanId(10));
  EXPECT_THAT(queued(), ElementsAre("byVlan"));
  scheduler->runUntilIdle();
  registerKeys();
  bridgingStatus->fdbStatusIs(Bridging::Fid(10));
  EXPECT_THAT(queued(), ElementsAre("byVlan"));
  scheduler->runUntilIdle();
  registerKeys();
  auto fdb = bridgingStatus->fdbStatusIs(Bridging::Fid(10));
  fdb->learnedHostIs(host, Bridging::LearnedHost(intf("Ethernet1")));
  Mox::TraceCapture trace("UmoNatFlowMcastTopologySm/3");
  fdb->learnedHostIs(host, Bridging::LearnedHost(intf("Ethernet2")));  // the host moves
  EXPECT_THAT(trace.texts(), ElementsAre("handleLearnedHost, vlan: 10, mac: 00:00:00:00:00:01",
                                         "Add mac address, intf: Ethernet2"));
  EXPECT_THAT(queued(), ElementsAre("byMac"));
  scheduler->runUntilIdle();
  registerKeys();
  bridgingConfig->switchIntfConfigIs(intf("Ethernet1"))->nativeVlanIs(99);
  bridgingConfig->switchIntfConfigIs(intf("Ethernet7"));  // nobody uses it
  EXPECT_THAT(queued(), ElementsAre("byIntf"));
}

TEST_F(TopologyTest, BacklogDrainsInBatchesOfTheLimitSpacedByTheInterval) {
  std::vector<std::string> names;
  for (int i = 0; i < 250; ++i) names.push_back("a" + std::to_string(1000 + i));
  std::vector<const char*> raw;
  for (const auto& n : names) raw.push_back(n.c_str());
  // Actions without next hops use the recirculation VLAN.
  auto acts = actions(raw);
  Mox::TraceCapture trace("UmoNatFlowMcastTopologySm/9");
  topo()->notifyActionSmRecirc();
  const auto due = topo()->actionSmUpdateBacklogTask()->dueTime();
  topo()->notifyActionSmRecirc();  // already scheduled: the due time stays
  EXPECT_EQ(topo()->actionSmUpdateBacklogTask()->dueTime(), due);
  trace.clear();
  scheduler->advance(0.1);
  scheduler->advance(0.1);
  scheduler->advance(0.1);
  std::vector<std::string> reviewed;
  for (const auto& t : trace.texts()) {
    if (t.rfind("Entries reviewed", 0) == 0) reviewed.push_back(t);
  }
  EXPECT_THAT(reviewed,
              ElementsAre("Entries reviewed: 100, left: 150", "Entries reviewed: 100, left: 50",
                          "Entries reviewed: 50, left: 0"));
  EXPECT_FALSE(topo()->actionSmUpdateBacklogTask()->taskScheduled());
  // A limit of 0 drains everything in one run.
  topo()->actionSmUpdateBacklogTaskLimitIs(0);
  topo()->notifyActionSmRecirc();
  trace.clear();
  scheduler->advance(0.1);
  EXPECT_THAT(trace.texts(), testing::Contains("Entries reviewed: 250, left: 0"));
}

using TopologyDeathTest = TopologyTest;

TEST_F(TopologyDeathTest, ValidPortOnAVlanThatValidVlanRefusedIsFatal) {
  bridgingConfig->switchIntfConfigIs(intf("Ethernet1"));
  vlanStatusDir->vlanStatusIs(Bridging::VlanId(10))->vlanPortStatusIs(intf("Ethernet1"), {});
  start();
  EXPECT_DEATH(topo()->validPort(20, intf("Ethernet1")), "vlanStatus");
  EXPECT_DEATH(topo()->validPort(10, intf("Ethernet1")), "ttc");
}

TEST_F(TopologyTest, NumbersOutsideTheVlanRangeAreNoValidVlan) {
  vlanIs(10, {"Ethernet1"});
  start();
  Mox::TraceCapture trace("UmoNatFlowMcastTopologySm/6");
  for (std::uint16_t v : {0, 4095, 5000, 65535}) {
    EXPECT_FALSE(topo()->validVlan(v)) << v;
    EXPECT_TRUE(trace.contains("Vlan status not found for vlan " + std::to_string(v)));
  }
}

// L3 ids of routed ports (above 4094) are no VLANs: never mirrored, never
// notified as VLANs, never the recirculation VLAN, whether present at start,
// added, changed or removed later.
TEST_F(TopologyTest, RoutedPortL3IdsAreNeverTakenForVlans) {
  auto routed = [&](const char* name, std::uint16_t id) {
    portIs(name, PortState::forwarding, Mode::routed);
    l3IntfTable->intfL3IndexIs(intf(name), id);
    l3IntfTable->routedPortNameIs(id, intf(name));
    auto ip = ipStatus->ipIntfStatusIs(intf(name));
    ip->routingIs(true);
    ip->addrWithMaskIs(Nexo::IpAddrWithMask("10.9.9.1/24"));
  };
  routed("Ethernet5", 5000);
  Mox::TraceCapture trace("UmoNatFlowMcastTopologySm/3,5");
  start();
  EXPECT_TRUE(trace.contains("No vlan found for the l3 intf"));
  routed("Ethernet6", 5001);
  routed("Ethernet7", 4095);
  for (const char* name : {"Ethernet5", "Ethernet6", "Ethernet7"}) {
    EXPECT_FALSE(topo()->intfL3Index().contains(intf(name))) << name;
  }
  EXPECT_EQ(topo()->natFlowRecircVlan(), 0);
  // An SVI-like entry whose id moves out of the range leaves its VLAN.
  vlanIs(10, {"Ethernet1"});
  EXPECT_EQ(topo()->natFlowRecircVlan(), 10);
  trace.clear();
  l3IntfTable->intfL3IndexIs(intf("Vlan10"), 5010);
  EXPECT_FALSE(topo()->intfL3Index().contains(intf("Vlan10")));
  EXPECT_TRUE(trace.contains("handleL3Intf, delete l3 intf Vlan10 for vlan 10"));
  for (const char* name : {"Ethernet5", "Ethernet6", "Ethernet7", "Vlan10"}) {
    l3IntfTable->intfL3IndexDel(intf(name));
  }
  EXPECT_EQ(topo()->natFlowRecircVlan(), 0);
  for (const auto& t : trace.texts()) {
    EXPECT_EQ(t.find("vlan: 50"), std::string::npos) << t;
    EXPECT_EQ(t.find("to 50"), std::string::npos) << t;
    EXPECT_EQ(t.find("for vlan 50"), std::string::npos) << t;
  }
}

}  // namespace
