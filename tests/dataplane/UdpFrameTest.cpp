#include "UdpFrame.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

namespace {

using Bytes = std::vector<std::uint8_t>;

Ovs::UdpFrame groupFrame(std::uint16_t vlan) {
  Ovs::UdpFrame f;
  f.dstMac = {0x01, 0x00, 0x5e, 0x01, 0x01, 0x01};
  f.srcMac = {0x02, 0x00, 0x00, 0x00, 0x00, 0x01};
  f.vlan = vlan;
  f.srcIp = 0x0a010101;  // 10.1.1.1
  f.dstIp = 0xef010101;  // 239.1.1.1
  f.srcPort = 1234;
  f.dstPort = 5000;
  f.payload = {'u', 'm', 'o', 'n', 'a', 't'};
  return f;
}

// The bytes, checksums included, as an independent implementation computes them.
TEST(UdpFrameTest, EncodesTheWireFormatWithChecksums) {
  const Bytes expected{0x01, 0x00, 0x5e, 0x01, 0x01, 0x01, 0x02, 0x00, 0x00, 0x00, 0x00,
                       0x01, 0x81, 0x00, 0x00, 0x64, 0x08, 0x00, 0x45, 0x00, 0x00, 0x22,
                       0x00, 0x00, 0x40, 0x00, 0x40, 0x11, 0x3f, 0xc7, 0x0a, 0x01, 0x01,
                       0x01, 0xef, 0x01, 0x01, 0x01, 0x04, 0xd2, 0x13, 0x88, 0x00, 0x0e,
                       0xa6, 0x23, 0x75, 0x6d, 0x6f, 0x6e, 0x61, 0x74};
  EXPECT_EQ(Ovs::encode(groupFrame(100)), expected);
  // Untagged: the same without the four bytes of the tag.
  Bytes untagged = expected;
  untagged.erase(untagged.begin() + 12, untagged.begin() + 16);
  EXPECT_EQ(Ovs::encode(groupFrame(0)), untagged);
}

TEST(UdpFrameTest, DecodesWhatItEncodes) {
  for (const std::uint16_t vlan : {0, 1, 4094}) {
    std::string problem;
    const Ovs::UdpFrame f = Ovs::decode(Ovs::encode(groupFrame(vlan)), problem);
    EXPECT_EQ(problem, "");
    EXPECT_EQ(f.vlan, vlan);
    EXPECT_EQ(f.dstMac, groupFrame(vlan).dstMac);
    EXPECT_EQ(f.srcIp, 0x0a010101u);
    EXPECT_EQ(f.dstIp, 0xef010101u);
    EXPECT_EQ(f.srcPort, 1234);
    EXPECT_EQ(f.dstPort, 5000);
    EXPECT_EQ(f.payload, groupFrame(vlan).payload);
  }
}

// Every way a frame out of the switch can be wrong is named, and nothing is decoded from it.
TEST(UdpFrameTest, NamesWhatIsWrongWithAFrame) {
  const Bytes good = Ovs::encode(groupFrame(0));
  const auto problemOf = [](Bytes bytes) {
    std::string problem;
    const Ovs::UdpFrame f = Ovs::decode(bytes, problem);
    EXPECT_EQ(f.srcIp, 0u) << problem;
    return problem;
  };
  Bytes b = good;
  b.back() ^= 1;  // payload
  EXPECT_EQ(problemOf(b), "bad UDP checksum");
  b = good;
  b[14 + 8] -= 1;  // TTL
  EXPECT_EQ(problemOf(b), "bad IPv4 header checksum");
  b = good;
  b[14 + 26] = b[14 + 27] = 0;
  EXPECT_EQ(problemOf(b), "no UDP checksum");
  b = good;
  b[14 + 9] = 6;  // TCP
  EXPECT_EQ(problemOf(b), "not UDP");
  b = good;
  b[12] = 0x86;
  b[13] = 0xdd;
  EXPECT_EQ(problemOf(b), "not IPv4");
  EXPECT_EQ(problemOf(Bytes(good.begin(), good.begin() + 30)),
            "too short for IPv4 and UDP headers");
  EXPECT_EQ(problemOf(Bytes(good.begin(), good.end() - 1)),
            "IPv4 total length 34 does not fit the frame");
  EXPECT_EQ(problemOf(Bytes(good.begin(), good.begin() + 10)), "shorter than an Ethernet header");
  Bytes doubleTagged = Ovs::encode(groupFrame(10));
  const Bytes tag{0x81, 0x00, 0x00, 0x14};
  doubleTagged.insert(doubleTagged.begin() + 12, tag.begin(), tag.end());
  EXPECT_EQ(problemOf(doubleTagged), "carries two VLAN tags");
}

}  // namespace
