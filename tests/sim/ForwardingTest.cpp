#include "sim/Forwarding.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <tuple>
#include <vector>

#include "sim/Chip.h"

namespace {

using Nexo::EthAddr;
using Nexo::IntfId;
using Nexo::IpAndPort;

const EthAddr kHostMac("02:00:00:00:00:05");
const EthAddr kMcastMac("01:00:5e:00:00:00");

class ForwardingTest : public testing::Test {
 protected:
  ForwardingTest() { chip->natStatusIs(nat); }

  void flow(const char* policy, const char* match, const char* text) {
    nat->natFlowIs(policy)->matchIs(match)->flowIs(Ip::Nat::NatFlow::fromString(text));
  }
  // A port set of `intfs` on `vlan` in `group`; returns its id.
  std::uint32_t portSet(std::uint32_t group, std::uint16_t vlan, std::vector<const char*> intfs,
                        EthAddr dmac = kMcastMac) {
    auto ps = Mox::makePtr<Ip::Nat::NatFlowPortSet>(vlan);
    for (const char* intf : intfs) ps->intfIs(IntfId(intf));
    ps->dmacIs(dmac);
    return chip->updateNatFlowVlanPortSet(group, 0, ps);
  }
  Sim::Forwarding send(const char* src, const char* dst) const {
    return chip->forward(Sim::Packet{IntfId("Ethernet9"), 10, IpAndPort(src), IpAndPort(dst)});
  }

  Mox::Ptr<Ip::Nat::Status> nat = Mox::makePtr<Ip::Nat::Status>();
  Mox::Ptr<Sim::Chip> chip = Mox::makePtr<Sim::Chip>();
};

// (winner's flow, loser's flow, packet source, packet destination): the loser's match comes first
// in name order, so only the ranking can make the winner take the packet.
using Contest = std::tuple<const char*, const char*, const char*, const char*>;
class MatchPriorityTest : public ForwardingTest, public testing::WithParamInterface<Contest> {};

TEST_P(MatchPriorityTest, MostSpecificFlowInTheChipTakesThePacket) {
  const auto& [winner, loser, src, dst] = GetParam();
  flow("P", "a", loser);
  flow("P", "b", winner);
  portSet(chip->createNatFlowGroup("P", "a", false), 10, {"Ethernet1"});
  portSet(chip->createNatFlowGroup("P", "b", false), 10, {"Ethernet2"});
  EXPECT_EQ(send(src, dst).passes.at(0).match, "b");
}

INSTANTIATE_TEST_SUITE_P(
    Flows, MatchPriorityTest,
    testing::Values(
        // The destination prefix counts before the source prefix, then the ports.
        Contest{"src 0.0.0.0/0:0 dst 239.1.1.1/32:0", "src 10.1.1.1/32:0 dst 239.1.0.0/16:0",
                "10.1.1.1:1", "239.1.1.1:5"},
        Contest{"src 10.1.0.0/16:0 dst 239.1.1.1/32:0", "src 10.0.0.0/8:7 dst 239.1.1.1/32:5",
                "10.1.1.1:7", "239.1.1.1:5"},
        Contest{"src 10.0.0.0/8:0 dst 239.1.1.1/32:5", "src 10.0.0.0/8:7 dst 239.1.1.1/32:0",
                "10.1.1.1:7", "239.1.1.1:5"},
        Contest{"src 10.0.0.0/8:7 dst 239.1.1.1/32:5", "src 10.0.0.0/8:0 dst 239.1.1.1/32:5",
                "10.1.1.1:7", "239.1.1.1:5"},
        // Host bits beyond the prefix length do not count.
        Contest{"src 10.1.2.3/16:0 dst 239.1.1.1/32:0", "src 0.0.0.0/0:0 dst 239.1.1.1/32:0",
                "10.1.9.9:7", "239.1.1.1:5"}));

TEST_F(ForwardingTest, MatchWithoutGroupIsNamedOnlyWhenNoMatchInTheChipTakesThePacket) {
  EXPECT_EQ(send("10.1.1.1:1", "239.1.1.1:5").passes.at(0).drop, "no flow matches");
  flow("P", "wide", "src 0.0.0.0/0:0 dst 239.0.0.0/8:0");
  flow("P", "narrow", "src 0.0.0.0/0:0 dst 239.1.1.1/32:0");
  Sim::Pass pass = send("10.1.1.1:1", "239.1.1.1:5").passes.at(0);
  EXPECT_EQ(pass.match, "narrow");
  EXPECT_EQ(pass.drop, "the match holds no group");
  const std::uint32_t group = chip->createNatFlowGroup("P", "wide", false);
  EXPECT_EQ(send("10.1.1.1:1", "239.1.1.1:5").passes.at(0).drop, "the group has no port set");
  portSet(group, 10, {"Ethernet1"});
  pass = send("10.1.1.1:1", "239.1.1.1:5").passes.at(0);
  EXPECT_EQ(pass.match, "wide");
  EXPECT_EQ(pass.copies.size(), 1u);
}

TEST_F(ForwardingTest, PairSplitsByDestinationAndTheNewestGroupOfAKindWins) {
  flow("P", "m", "src 10.0.0.0/8:0 dst 0.0.0.0/0:0");
  const std::uint32_t leaked = chip->createNatFlowGroup("P", "m", true);
  portSet(leaked, 10, {"Ethernet1"});
  // A match holding one kind of group sends everything to it.
  EXPECT_EQ(send("10.1.1.1:1", "239.1.1.1:5").passes.at(0).group, leaked);
  const std::uint32_t uc = chip->createNatFlowGroup("P", "m", true);
  const std::uint32_t mc = chip->createNatFlowGroup("P", "m", false);
  EXPECT_EQ(send("10.1.1.1:1", "10.2.2.2:5").passes.at(0).group, uc);
  EXPECT_EQ(send("10.1.1.1:1", "239.1.1.1:5").passes.at(0).group, mc);
}

TEST_F(ForwardingTest, TranslationsApplyOnTheirVlanToThePacketsTheirFlowCovers) {
  flow("P", "m", "src 10.1.0.0/16:0 dst 239.1.1.1/32:5000");
  const std::uint32_t g = chip->createNatFlowGroup("P", "m", false);
  const IpAndPort srcFlow("10.1.0.0:0");
  const IpAndPort dstFlow("239.1.1.1:5000");
  // Source to a port of 0 (the packet's port stays); destination with a port and its own MAC.
  const std::uint32_t both = portSet(g, 10, {"Ethernet1"});
  chip->updateNatFlowSrcTranslation(g, both, 10, IpAndPort("10.200.0.1:0"), srcFlow, 16);
  chip->updateNatFlowDstTranslation(g, both, 10, IpAndPort("10.5.5.5:6000"), dstFlow, 32, kHostMac);
  // A destination translation to 0.0.0.0 gives only its MAC.
  const std::uint32_t macOnly = portSet(g, 20, {"Ethernet2"}, EthAddr("02:00:00:00:00:99"));
  chip->updateNatFlowDstTranslation(g, macOnly, 20, IpAndPort(), dstFlow, 32, kHostMac);
  // Translations programmed for another VLAN, or for another source port, do not apply.
  const std::uint32_t none = portSet(g, 30, {"Ethernet3"});
  chip->updateNatFlowSrcTranslation(g, none, 31, IpAndPort("10.200.0.1:1"), srcFlow, 16);
  chip->updateNatFlowDstTranslation(g, none, 30, IpAndPort("239.9.9.9:1"),
                                    IpAndPort("239.1.1.1:4999"), 32, kHostMac);

  const IpAndPort packetSrc("10.1.2.3:4000");
  const std::vector<Sim::Copy> copies = send("10.1.2.3:4000", "239.1.1.1:5000").leaving();
  EXPECT_THAT(copies, testing::ElementsAre(
                          Sim::Copy{IntfId("Ethernet1"), 10, kHostMac, IpAndPort("10.200.0.1:4000"),
                                    IpAndPort("10.5.5.5:6000")},
                          Sim::Copy{IntfId("Ethernet2"), 20, kHostMac, packetSrc, dstFlow},
                          Sim::Copy{IntfId("Ethernet3"), 30, EthAddr("01:00:5e:01:01:01"),
                                    packetSrc, dstFlow}));
}

TEST_F(ForwardingTest, RecirculatedCopyComesBackOnceAndNeverLoops) {
  // The translated source stays inside the flow: its copy would recirculate forever.
  flow("P", "loop", "src 10.3.0.0/16:0 dst 10.9.9.9/32:0");
  const std::uint32_t g = chip->createNatFlowGroup("P", "loop", false);
  const std::uint32_t recirc = portSet(g, 10, {""}, EthAddr("00:1c:73:00:00:01"));
  portSet(g, 20, {"Ethernet4"}, kHostMac);
  chip->updateNatFlowSrcTranslation(g, recirc, 10, IpAndPort("10.3.0.1:0"), IpAndPort("10.3.0.0:0"),
                                    16);
  const Sim::Forwarding forwarding = send("10.3.7.7:4000", "10.9.9.9:7000");
  ASSERT_EQ(forwarding.passes.size(), 2u);
  EXPECT_EQ(forwarding.passes[1].packet,
            (Sim::Packet{IntfId(), 10, IpAndPort("10.3.0.1:4000"), IpAndPort("10.9.9.9:7000")}));
  EXPECT_TRUE(forwarding.passes[1].recirculationDropped);
  // The port's copy leaves from both passes; the recirculation copy does not leave.
  const std::vector<Sim::Copy> leaving = forwarding.leaving();
  ASSERT_EQ(leaving.size(), 2u);
  EXPECT_EQ(leaving[0].src, IpAndPort("10.3.0.1:4000"));
  EXPECT_EQ(leaving[1].src, IpAndPort("10.3.7.7:4000"));
}

}  // namespace
