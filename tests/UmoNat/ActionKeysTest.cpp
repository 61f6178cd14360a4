#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "UmoNat/UmoNatflowActionSmIndex.h"

namespace {

using Key = UmoNatflowActionSmKey;

std::vector<Key> keysOf(const UmoNatflowActionSmKeys& keys) {
  return std::vector<Key>(keys.begin(), keys.end());
}

TEST(ActionKeysTest, EveryKindRoundTripsThroughItsWord) {
  const std::vector<Key> keys = {Nexo::IntfId("Ethernet1"),
                                 Nexo::IntfId(),
                                 Nexo::IntfId("Port-Channel10"),
                                 std::uint16_t{0},
                                 std::uint16_t{4095},
                                 std::uint16_t{65535},
                                 Nexo::EthAddr(),
                                 Nexo::EthAddr(0xff, 0xff, 0xff, 0xff, 0xff, 0xff),
                                 Nexo::EthAddr(0x01, 0, 0x5e, 1, 2, 3)};
  for (const Key& key : keys) {
    const std::uint64_t word = UmoNatflowActionSmKeys::encode(key);
    EXPECT_NE(word, 0u) << "no key may be 0: 0 ends the keys held inside";
    EXPECT_EQ(UmoNatflowActionSmKeys::decode(word), key);
  }
  const Nexo::IntfId et("Ethernet7");
  EXPECT_EQ(Nexo::IntfId::fromHandle(et.handle()), et);
  EXPECT_EQ(Nexo::IntfId::fromHandle(0), Nexo::IntfId());
}

// Keys come out by kind, then in each kind's own order: interfaces in natural name order
// whatever the order their records were made in, MAC addresses bytewise.
TEST(ActionKeysTest, KeysWalkInKeyOrderWithoutDuplicates) {
  // Records made in the opposite of the natural order, so that record addresses disagree.
  const Nexo::IntfId et10("ActionKeysTest10");
  const Nexo::IntfId et2("ActionKeysTest2");
  UmoNatflowActionSmKeys keys;
  EXPECT_TRUE(keys.empty());
  EXPECT_TRUE(keys.insert(Nexo::EthAddr(2, 0, 0, 0, 0, 1)));
  EXPECT_TRUE(keys.insert(std::uint16_t{20}));
  EXPECT_TRUE(keys.insert(et10));
  EXPECT_TRUE(keys.insert(Nexo::EthAddr(1, 0xff, 0xff, 0xff, 0xff, 0xff)));
  EXPECT_FALSE(keys.insert(std::uint16_t{20}));
  EXPECT_TRUE(keys.insert(et2));
  EXPECT_TRUE(keys.insert(std::uint16_t{10}));
  EXPECT_FALSE(keys.insert(et10));
  const std::vector<Key> expected = {et2,
                                     et10,
                                     std::uint16_t{10},
                                     std::uint16_t{20},
                                     Nexo::EthAddr(1, 0xff, 0xff, 0xff, 0xff, 0xff),
                                     Nexo::EthAddr(2, 0, 0, 0, 0, 1)};
  EXPECT_EQ(keysOf(keys), expected);
  EXPECT_EQ(keys.size(), 6u);
}

// Four keys stay inside; a fifth moves them to a heap block, which keeps its room when cleared
// and when the list moves; the list then fills again in order.
TEST(ActionKeysTest, SpillsBeyondFourAndKeepsTheRoom) {
  UmoNatflowActionSmKeys keys;
  for (std::uint16_t vlan : {40, 10, 30, 20}) keys.insert(vlan);
  EXPECT_FALSE(keys.spilled());
  keys.insert(std::uint16_t{25});
  EXPECT_TRUE(keys.spilled());
  EXPECT_EQ(keysOf(keys), (std::vector<Key>{std::uint16_t{10}, std::uint16_t{20}, std::uint16_t{25},
                                            std::uint16_t{30}, std::uint16_t{40}}));
  for (std::uint16_t vlan = 100; vlan < 120; ++vlan) keys.insert(vlan);
  EXPECT_EQ(keys.size(), 25u);
  keys.clear();
  EXPECT_TRUE(keys.empty());
  EXPECT_TRUE(keys.spilled());
  UmoNatflowActionSmKeys moved = std::move(keys);
  EXPECT_TRUE(keys.empty());
  EXPECT_FALSE(keys.spilled());
  moved.insert(std::uint16_t{7});
  moved.insert(Nexo::IntfId("Ethernet3"));
  EXPECT_EQ(keysOf(moved), (std::vector<Key>{Nexo::IntfId("Ethernet3"), std::uint16_t{7}}));
  keys = std::move(moved);
  EXPECT_EQ(keys.size(), 2u);
}

}  // namespace
