#include "sim/Chip.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <sstream>
#include <string>

namespace {

using testing::HasSubstr;

Mox::Ptr<const Ip::Nat::NatFlowPortSet> portSet(std::uint16_t vlan,
                                                std::initializer_list<const char*> intfs) {
  auto ps = Mox::makePtr<Ip::Nat::NatFlowPortSet>(vlan);
  for (const char* intf : intfs) ps->intfIs(Nexo::IntfId(intf));
  ps->dmacIs(Nexo::EthAddr("01:00:5e:01:01:01"));
  return ps;
}

const Nexo::IpAndPort kNat(Nexo::IpAddr("10.9.9.9"), 0);
const Nexo::IpAndPort kFlow(Nexo::IpAddr("10.1.0.0"), 0);

class ChipTest : public testing::Test {
 protected:
  std::string tables() const {
    std::ostringstream os;
    chip->printTables(os);
    return os.str();
  }
  bool src(std::uint32_t group, std::uint32_t ps) {
    return chip->updateNatFlowSrcTranslation(group, ps, 10, kNat, kFlow, 16);
  }
  bool dst(std::uint32_t group, std::uint32_t ps) {
    return chip->updateNatFlowDstTranslation(group, ps, 10, kNat, kFlow, 32,
                                             Nexo::EthAddr("02:00:00:00:00:01"));
  }

  Mox::Ptr<Sim::Chip> chip = Mox::makePtr<Sim::Chip>();
};

TEST_F(ChipTest, GroupIdsAreLowestFreeFromOneAndRememberTheirOwner) {
  EXPECT_EQ(chip->createNatFlowGroup("P", "a", false), 1u);
  EXPECT_EQ(chip->createNatFlowGroup("P", "b", true), 2u);
  EXPECT_EQ(chip->createNatFlowGroup("P", "c", false), 3u);
  chip->deleteNatFlowGroup("P", "b", 2);
  EXPECT_EQ(chip->createNatFlowGroup("Q", "d", true), 2u);
  const Sim::Chip::Group& group = chip->groups().at(2);
  EXPECT_EQ(group.policy, "Q");
  EXPECT_EQ(group.match, "d");
  EXPECT_TRUE(group.unicast);
  EXPECT_EQ(chip->violationCount(), 0u);
}

TEST_F(ChipTest, FullTablesFailLikeTheHardwareWithoutViolations) {
  chip->groupCapacityIs(1);
  EXPECT_EQ(chip->createNatFlowGroup("P", "a", false), 1u);
  EXPECT_EQ(chip->createNatFlowGroup("P", "b", false), 0u);
  EXPECT_EQ(chip->counter(Sim::Chip::Op::createNatFlowGroup).failed, 1u);

  chip->portSetCapacityIs(1);
  EXPECT_EQ(chip->updateNatFlowVlanPortSet(1, 0, portSet(10, {"Ethernet1"})), 1u);
  EXPECT_EQ(chip->updateNatFlowVlanPortSet(1, 0, portSet(20, {"Ethernet2"})), 0u);
  // Reprogramming takes no new room, keeps the id and records the new contents.
  EXPECT_EQ(chip->updateNatFlowVlanPortSet(1, 1, portSet(30, {"Ethernet3", "Ethernet4"})), 1u);
  EXPECT_EQ(chip->portSets().at({1, 1}).vlan, 30u);
  EXPECT_EQ(chip->portSets().at({1, 1}).intf.size(), 2u);

  // Source and destination translations share one capacity.
  chip->translationCapacityIs(1);
  EXPECT_TRUE(src(1, 1));
  EXPECT_FALSE(dst(1, 1));
  EXPECT_TRUE(src(1, 1));
  EXPECT_EQ(chip->counter(Sim::Chip::Op::updateNatFlowDstTranslation).failed, 1u);
  EXPECT_EQ(chip->violationCount(), 0u);

  // Lowering a capacity below the use frees nothing; more room lets requests through again.
  chip->groupCapacityIs(0);
  EXPECT_EQ(chip->groups().size(), 1u);
  chip->groupCapacityIs(Sim::Chip::kUnlimited);
  EXPECT_EQ(chip->createNatFlowGroup("P", "b", false), 2u);
}

TEST_F(ChipTest, PortSetIdsAreLowestFreePerGroup) {
  const std::uint32_t g1 = chip->createNatFlowGroup("P", "a", false);
  const std::uint32_t g2 = chip->createNatFlowGroup("P", "b", false);
  EXPECT_EQ(chip->updateNatFlowVlanPortSet(g1, 0, portSet(10, {})), 1u);
  EXPECT_EQ(chip->updateNatFlowVlanPortSet(g1, 0, portSet(20, {})), 2u);
  EXPECT_EQ(chip->updateNatFlowVlanPortSet(g2, 0, portSet(10, {})), 1u);
  chip->deleteNatFlowVlanPortSet(g1, 1);
  EXPECT_EQ(chip->updateNatFlowVlanPortSet(g1, 0, portSet(30, {})), 1u);
  EXPECT_EQ(chip->violationCount(), 0u);
}

TEST_F(ChipTest, InjectedGroupFailuresCountDownAndSplitByKind) {
  chip->failNextGroupsIs(2);
  EXPECT_EQ(chip->createNatFlowGroup("P", "a", false), 0u);
  EXPECT_EQ(chip->createNatFlowGroup("P", "a", true), 0u);
  EXPECT_EQ(chip->createNatFlowGroup("P", "a", false), 1u);
  chip->failUnicastGroupsIs(true);
  EXPECT_EQ(chip->createNatFlowGroup("P", "b", true), 0u);
  EXPECT_EQ(chip->createNatFlowGroup("P", "b", false), 2u);
  chip->failUnicastGroupsIs(false);
  chip->failMulticastGroupsIs(true);
  EXPECT_EQ(chip->createNatFlowGroup("P", "c", false), 0u);
  EXPECT_EQ(chip->createNatFlowGroup("P", "c", true), 3u);
  EXPECT_EQ(chip->counter(Sim::Chip::Op::createNatFlowGroup).failed, 4u);
}

TEST_F(ChipTest, PortSetMayGoBeforeItsTranslationsButTheGroupGoesLast) {
  const std::uint32_t g = chip->createNatFlowGroup("P", "a", false);
  const std::uint32_t ps = chip->updateNatFlowVlanPortSet(g, 0, portSet(10, {"Ethernet1"}));
  ASSERT_TRUE(src(g, ps));
  ASSERT_TRUE(dst(g, ps));
  chip->deleteNatFlowVlanPortSet(g, ps);
  // Translations left behind keep the group from being freed.
  chip->deleteNatFlowSrcTranslation(g, ps);
  chip->deleteNatFlowGroup("P", "a", g);
  ASSERT_EQ(chip->violationCount(), 1u);
  EXPECT_THAT(chip->violations().front()->text, HasSubstr("group 1 still holds 1 translation"));
  chip->deleteNatFlowDstTranslation(g, ps);
  // Removing what is not there is harmless, and says so.
  chip->deleteNatFlowDstTranslation(g, ps);
  EXPECT_THAT(chip->calls().back().text, HasSubstr("(no destination translation to remove)"));
  chip->deleteNatFlowGroup("P", "a", g);
  EXPECT_TRUE(chip->empty());
  EXPECT_EQ(chip->violationCount(), 1u);
}

TEST_F(ChipTest, CallsSinceTheLastLookShowEachCallOnce) {
  chip->createNatFlowGroup("P", "a", false);
  std::ostringstream first;
  chip->printCallsSinceLastLook(first);
  EXPECT_EQ(first.str(), "#1 createNatFlowGroup(P, a, unicast=false) = 1\n");
  chip->deleteNatFlowGroup("P", "a", 1);
  std::ostringstream second;
  chip->printCallsSinceLastLook(second);
  EXPECT_EQ(second.str(), "#2 deleteNatFlowGroup(P, a, group=1)\n");
  std::ostringstream third;
  chip->printCallsSinceLastLook(third);
  EXPECT_EQ(third.str(), "no chip calls since the last look\n");
}

// A misuse of the helper contract, made on a chip holding group 1 of P/a with port set 1, whose
// source translation is programmed, and an empty port set 2.
struct Misuse {
  const char* name;
  std::function<void(Sim::Chip&)> call;
  const char* violation;
};

class ChipViolationTest : public ChipTest, public testing::WithParamInterface<Misuse> {
 protected:
  void SetUp() override {
    ASSERT_EQ(chip->createNatFlowGroup("P", "a", false), 1u);
    ASSERT_EQ(chip->updateNatFlowVlanPortSet(1, 0, portSet(10, {"Ethernet1"})), 1u);
    ASSERT_EQ(chip->updateNatFlowVlanPortSet(1, 0, portSet(20, {"Ethernet2"})), 2u);
    ASSERT_TRUE(src(1, 1));
    ASSERT_EQ(chip->createNatFlowGroup("P", "gone", false), 2u);
    chip->deleteNatFlowGroup("P", "gone", 2);
  }
};

TEST_P(ChipViolationTest, IsRefusedCountedListedAndChangesNothing) {
  const std::string before = tables();
  GetParam().call(*chip);
  EXPECT_EQ(tables(), before);
  ASSERT_EQ(chip->violationCount(), 1u);
  EXPECT_THAT(chip->violations().front()->text, HasSubstr(GetParam().violation));
  std::ostringstream leftovers;
  chip->printLeftovers(leftovers);
  EXPECT_THAT(leftovers.str(), HasSubstr(GetParam().violation));
}

INSTANTIATE_TEST_SUITE_P(
    Misuses, ChipViolationTest,
    testing::Values(
        Misuse{"SecondFree", [](Sim::Chip& c) { c.deleteNatFlowGroup("P", "gone", 2); },
               "REFUSED: group 2 was already freed"},
        Misuse{"FreeOfUnallocatedGroup", [](Sim::Chip& c) { c.deleteNatFlowGroup("P", "a", 7); },
               "group 7 is not allocated"},
        Misuse{"FreeByAnotherOwner", [](Sim::Chip& c) { c.deleteNatFlowGroup("P", "b", 1); },
               "group 1 belongs to P/a"},
        Misuse{"FreeWithPortSets", [](Sim::Chip& c) { c.deleteNatFlowGroup("P", "a", 1); },
               "group 1 still holds 2 port sets, 1 translation"},
        Misuse{"PortSetInUnallocatedGroup",
               [](Sim::Chip& c) { c.updateNatFlowVlanPortSet(2, 0, portSet(10, {})); },
               "group 2 was already freed"},
        Misuse{"UnknownPortSetId",
               [](Sim::Chip& c) { c.updateNatFlowVlanPortSet(1, 9, portSet(10, {})); },
               "group 1 has no port set 9"},
        Misuse{"NullPortSet", [](Sim::Chip& c) { c.updateNatFlowVlanPortSet(1, 0, nullptr); },
               "no port set given"},
        Misuse{"DeleteUnknownPortSet", [](Sim::Chip& c) { c.deleteNatFlowVlanPortSet(1, 3); },
               "group 1 has no port set 3"},
        Misuse{"DeletePortSetOfFreedGroup", [](Sim::Chip& c) { c.deleteNatFlowVlanPortSet(2, 1); },
               "group 2 was already freed"},
        Misuse{"TranslationWithoutPortSet",
               [](Sim::Chip& c) { c.updateNatFlowSrcTranslation(1, 5, 10, kNat, kFlow, 16); },
               "group 1 has no port set 5"},
        Misuse{"TranslationInFreedGroup",
               [](Sim::Chip& c) {
                 c.updateNatFlowDstTranslation(2, 1, 10, kNat, kFlow, 32, Nexo::EthAddr());
               },
               "group 2 was already freed"},
        Misuse{"DeleteTranslationOfUnallocatedGroup",
               [](Sim::Chip& c) { c.deleteNatFlowSrcTranslation(9, 1); },
               "group 9 is not allocated"}),
    [](const testing::TestParamInfo<Misuse>& info) { return info.param.name; });

}  // namespace
