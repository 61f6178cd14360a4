// The Open vSwitch helper as the system sees it: the answers the helper contract asks for, and a
// bridge that is brought to the tables with the differences only. Forwarding by those tables is
// checked against the chip's model in OvsDifferentialTest and in the differential scenarios.

#include "NatFlowHelper.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "Instance.h"

namespace {

using Helper = Ovs::NatFlowHelper;

Mox::Ptr<const Ip::Nat::NatFlowPortSet> portSet(std::uint16_t vlan, const char* intf) {
  auto ps = Mox::makePtr<Ip::Nat::NatFlowPortSet>(vlan);
  ps->intfIs(Nexo::IntfId(Pelo::String(intf)));
  ps->dmacIs(Nexo::EthAddr(0x01, 0x00, 0x5e, 0, 0, 0));
  return ps;
}

const Nexo::IpAndPort kNat("10.200.0.1:0");
const Nexo::IpAndPort kFlow("10.1.0.0:0");

class NatFlowHelperTest : public testing::Test {
 protected:
  Mox::Ptr<Helper> make(Helper::Options options = {}) {
    return Mox::makePtr<Helper>(*ovs_, options);
  }
  static Ovs::Instance::Options onePort() {
    Ovs::Instance::Options options;
    options.ports = {{"p1", 1}};
    return options;
  }
  std::unique_ptr<Ovs::Instance> ovs_ = std::make_unique<Ovs::Instance>(onePort());
};

TEST_F(NatFlowHelperTest, AnswersAsTheContractSays) {
  auto helper = make({.groupCapacity = 2, .portSetCapacity = 2, .translationCapacity = 1});
  const Pelo::String p("P");
  const Pelo::String m("m1");
  // Groups: the lowest free id, none beyond the capacity.
  EXPECT_EQ(helper->createNatFlowGroup(p, m, false), 1u);
  EXPECT_EQ(helper->createNatFlowGroup(p, m, true), 2u);
  EXPECT_EQ(helper->createNatFlowGroup(p, m, false), 0u);
  helper->deleteNatFlowGroup(p, m, 1);
  EXPECT_EQ(helper->createNatFlowGroup(p, m, false), 1u);
  // Port sets: the lowest free id within the group; reprogramming one takes no room.
  EXPECT_EQ(helper->updateNatFlowVlanPortSet(1, 0, portSet(10, "Ethernet1")), 1u);
  EXPECT_EQ(helper->updateNatFlowVlanPortSet(2, 0, portSet(10, "Ethernet1")), 1u);
  EXPECT_EQ(helper->updateNatFlowVlanPortSet(1, 0, portSet(20, "Ethernet2")), 0u);
  EXPECT_EQ(helper->updateNatFlowVlanPortSet(1, 1, portSet(20, "Ethernet2")), 1u);
  // Translations: one of room; reprogramming it takes none.
  EXPECT_TRUE(helper->updateNatFlowSrcTranslation(1, 1, 20, kNat, kFlow, 16));
  EXPECT_FALSE(helper->updateNatFlowDstTranslation(1, 1, 20, kNat, kFlow, 16, {}));
  EXPECT_TRUE(helper->updateNatFlowSrcTranslation(1, 1, 20, kNat, kFlow, 24));
  EXPECT_EQ(helper->stats().refused, 0u);

  // Calls that break the contract change nothing and are counted.
  EXPECT_EQ(helper->updateNatFlowVlanPortSet(9, 0, portSet(10, "Ethernet1")), 0u);
  EXPECT_EQ(helper->updateNatFlowVlanPortSet(1, 7, portSet(10, "Ethernet1")), 0u);
  EXPECT_EQ(helper->updateNatFlowVlanPortSet(1, 0, nullptr), 0u);
  EXPECT_FALSE(helper->updateNatFlowDstTranslation(2, 5, 10, kNat, kFlow, 16, {}));
  helper->deleteNatFlowGroup(p, m, 1);                  // still holds a port set
  helper->deleteNatFlowGroup(Pelo::String("Q"), m, 2);  // another owner
  helper->deleteNatFlowVlanPortSet(2, 3);
  EXPECT_EQ(helper->stats().refused, 7u);
  EXPECT_EQ(helper->groupCount(), 2u);
  EXPECT_EQ(helper->portSetCount(), 2u);
  EXPECT_EQ(helper->translationCount(), 1u);

  // A port set removed before its translation; the group goes once both are.
  helper->deleteNatFlowVlanPortSet(1, 1);
  helper->deleteNatFlowSrcTranslation(1, 1);
  helper->deleteNatFlowGroup(p, m, 1);
  EXPECT_EQ(helper->groupCount(), 1u);
  EXPECT_EQ(helper->stats().refused, 7u);
}

// The first sync replaces whatever the bridge held; later ones send only what changed, and none
// when nothing did.
TEST_F(NatFlowHelperTest, SyncSendsTheDifferencesOnly) {
  ovs_->ofctl("add-flow", {"priority=7,actions=drop"});
  auto helper = make();
  helper->portIs(Nexo::IntfId(Pelo::String("Ethernet1")), 1);
  const std::uint32_t group =
      helper->createNatFlowGroup(Pelo::String("P"), Pelo::String("m"), false);
  const std::uint32_t ps = helper->updateNatFlowVlanPortSet(group, 0, portSet(10, "Ethernet1"));
  EXPECT_GT(helper->sync(), 0u);
  EXPECT_EQ(helper->sync(), 0u);
  EXPECT_EQ(helper->render(), helper->render());
  std::string dump = helper->dump();
  EXPECT_EQ(dump.find("priority=7"), std::string::npos) << dump;
  EXPECT_NE(dump.find("group_id=1,type=all,bucket="), std::string::npos) << dump;
  EXPECT_NE(dump.find("output:1"), std::string::npos) << dump;

  // A new VLAN for the port set rewrites its two entries (any destination, and multicast
  // destinations whose MAC is completed from the group), and nothing else.
  helper->updateNatFlowVlanPortSet(group, ps, portSet(20, "Ethernet1"));
  EXPECT_EQ(helper->sync(), 2u);
  EXPECT_NE(helper->dump().find("set_field:4116->vlan_vid"), std::string::npos);

  // Emptied, the bridge holds the fixed pipeline only.
  helper->deleteNatFlowVlanPortSet(group, ps);
  helper->deleteNatFlowGroup(Pelo::String("P"), Pelo::String("m"), group);
  EXPECT_EQ(helper->sync(), 3u);  // the port set's two entries and the group
  dump = helper->dump();
  EXPECT_EQ(dump.find("group_id"), std::string::npos) << dump;
  EXPECT_EQ(dump.find("reg2"), std::string::npos) << dump;
  EXPECT_EQ(helper->stats().syncs, 3u);
}

}  // namespace
