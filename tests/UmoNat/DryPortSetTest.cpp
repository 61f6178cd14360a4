// A dry port-set computation: the same port sets as a live pass, each step in
// the live pass's trace words, and no side effect at all.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "Mox/Trace.h"
#include "NatFixture.h"
#include "UmoNat/UmoNatFlowMcastTopologySm.h"

namespace UmoNatTest {
namespace {

using PortState = Bridging::Topology::PortState;
using Step = UmoNatFlowPortSetProbe::Step;

struct RecordingProbe : UmoNatFlowPortSetProbe {
  struct Entry {
    Step step;
    std::string source;
    int level;
    std::string text;
  };
  void step(Step s, const char* source, int level, const std::string& text) override {
    entries.push_back({s, source, level, text});
  }
  void member(bool unicast, std::uint16_t vlan, const Nexo::IntfId& intf) override {
    reported.push_back(std::string(unicast ? "u" : "m") + std::to_string(vlan) + ":" +
                       intf.name().str());
  }
  std::vector<std::string> texts(Step s) const {
    std::vector<std::string> out;
    for (const Entry& e : entries) {
      if (e.step == s) out.push_back(e.text);
    }
    return out;
  }
  std::vector<Entry> entries;
  std::vector<std::string> reported;
};

// Interfaces of a port set, as "vlan:intf" for comparison.
std::vector<std::string> members(const Ip::Nat::NatFlowVlanPortSets& vps, bool unicast) {
  std::vector<std::string> out;
  for (const auto& [vlan, ps] : unicast ? vps.ucastPortSet() : vps.mcastPortSet()) {
    for (const auto& [intf, present] : ps->intf()) {
      out.push_back(std::to_string(vlan) + ":" + intf.name().str());
    }
  }
  return out;
}

class DryPortSetTest : public NatFixture {
 protected:
  // Match m1 of policy P (multicast flow) with action a1 on Ethernet1 and
  // Ethernet2 (VLAN 10), Vlan20 and Ethernet3 (VLAN 30, which has no SVI).
  void SetUp() override {
    vlanIs(10, {"Ethernet1", "Ethernet2"});
    vlanIs(20, {"Ethernet4", "Ethernet5"});
    vlanStatusDir->vlanStatusIs(Bridging::VlanId(30))->vlanPortStatusIs(intf("Ethernet3"), {});
    brTopo->vidToTopoMapIs(Bridging::VlanId(30), brTopo->topoConfigIs("T"));
    portIs("Ethernet1", PortState::forwarding);
    portIs("Ethernet2", PortState::blocking);
    portIs("Ethernet3", PortState::forwarding);
    portIs("Ethernet4", PortState::forwarding);
    portIs("Ethernet5", PortState::forwarding);
    matchIs("P", "m1");
    auto a = actionIs("P", "m1", "a1", "239.2.2.2");
    const Nexo::EthAddr mac(0x02, 0, 0, 0, 0, 1);
    a->intfIs(intf("Ethernet1"), Ip::Nat::NatFlowNextHop(10, mac));
    a->intfIs(intf("Ethernet2"), Ip::Nat::NatFlowNextHop(10, mac));
    a->intfIs(intf("Ethernet3"), Ip::Nat::NatFlowNextHop(30, mac));
    a->intfIs(intf("Vlan20"), Ip::Nat::NatFlowNextHop(0, mac));
    start();
  }
};

TEST_F(DryPortSetTest, ComputesWhatALivePassRecordedAndChangesNothing) {
  UmoNatFlowActionSm* sm = actionSm("P", "m1", "a1");
  ASSERT_NE(sm, nullptr);
  const auto programmed = sm->hwActionStatus()->vlanPortSets();
  ASSERT_TRUE(programmed);
  helper->takeCalls();
  const std::size_t intfKeys = topo()->actionIntf().size();
  const std::size_t vlanKeys = topo()->actionVlan().size();

  auto vps = Ip::Nat::natFlowVlanPortSetsFactory();
  RecordingProbe probe;
  Mox::TraceCapture capture("*/0-9");
  sm->computeSwPortSet(*vps, sm->hwActionStatus()->flowType(), probe);

  EXPECT_EQ(members(*vps, false), members(*programmed, false));
  EXPECT_EQ(members(*vps, true), members(*programmed, true));
  EXPECT_THAT(members(*vps, false),
              testing::ElementsAre("10:Ethernet1", "20:Ethernet4", "20:Ethernet5"));
  // Each member is reported as it goes in, in the order of the next hops.
  EXPECT_THAT(probe.reported,
              testing::ElementsAre("m10:Ethernet1", "m20:Ethernet4", "m20:Ethernet5"));
  // No trace line, no hardware call, no index or backlog change.
  EXPECT_TRUE(capture.lines().empty());
  EXPECT_TRUE(helper->calls().empty());
  EXPECT_EQ(topo()->actionIntf().size(), intfKeys);
  EXPECT_EQ(topo()->actionVlan().size(), vlanKeys);
  EXPECT_TRUE(topo()->actionSmUpdateBacklog().empty());
}

TEST_F(DryPortSetTest, ReportsEachRefusalInTheLivePassWords) {
  UmoNatFlowActionSm* sm = actionSm("P", "m1", "a1");
  ASSERT_NE(sm, nullptr);
  // The live pass's trace lines, for the same topology.
  std::vector<std::string> live;
  {
    Mox::TraceCapture capture("UmoNat*/0-9");
    sm->handleNatFlowAction(true);
    live = capture.texts();
  }
  auto vps = Ip::Nat::natFlowVlanPortSetsFactory();
  RecordingProbe probe;
  sm->computeSwPortSet(*vps, sm->hwActionStatus()->flowType(), probe);

  EXPECT_THAT(
      probe.texts(Step::refused),
      testing::ElementsAre("Intf Ethernet2 not in forwarding state", "Invalid vlan or port state",
                           "Vlan not found in the l3 intf table", "Invalid vlan or port state"));
  EXPECT_THAT(probe.texts(Step::nextHop), testing::SizeIs(4));
  // Every step but the physical ports' additions is a line the live pass
  // traced, with its source and level.
  for (const RecordingProbe::Entry& e : probe.entries) {
    if (e.step == Step::added && e.source == "UmoNatFlowActionSm") continue;
    EXPECT_THAT(live, testing::Contains(e.text)) << e.source << "/" << e.level;
  }
}

TEST_F(DryPortSetTest, ChecksAnswerAlikeWithAndWithoutAProbe) {
  RecordingProbe probe;
  for (std::uint16_t vlan : {0, 10, 20, 30, 4095}) {
    EXPECT_EQ(topo()->validVlan(vlan, &probe), topo()->validVlan(vlan)) << vlan;
  }
  for (const char* name : {"Ethernet1", "Ethernet2", "Ethernet9"}) {
    EXPECT_EQ(topo()->validSwitchIntf(0, intf(name), true, &probe),
              topo()->validSwitchIntf(0, intf(name), true));
    EXPECT_EQ(topo()->validPort(10, intf(name), &probe), topo()->validPort(10, intf(name)));
  }
  EXPECT_THAT(probe.texts(Step::refused),
              testing::Contains("Intf Ethernet9 not found in switchIntfConfig"));
}

}  // namespace
}  // namespace UmoNatTest
