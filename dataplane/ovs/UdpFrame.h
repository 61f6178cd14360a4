#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace Ovs {

// An Ethernet frame that carries one UDP datagram over IPv4, optionally with one 802.1Q tag: the
// only kind of frame the NAT flow dataplane forwards. Addresses are in host byte order.
struct UdpFrame {
  std::array<std::uint8_t, 6> dstMac{};
  std::array<std::uint8_t, 6> srcMac{};
  std::uint16_t vlan = 0;  // 0: untagged
  std::uint32_t srcIp = 0;
  std::uint32_t dstIp = 0;
  std::uint16_t srcPort = 0;
  std::uint16_t dstPort = 0;
  std::uint8_t ttl = 64;
  std::vector<std::uint8_t> payload;
};

// The bytes of `frame` on the wire, with valid IPv4 header and UDP checksums.
std::vector<std::uint8_t> encode(const UdpFrame& frame);

// The frame `bytes` decoded, or, when it is not a whole UDP/IPv4 frame with valid checksums, why
// not in `problem` (and a default frame). A UDP checksum of 0 (none) counts as invalid: every
// frame this dataplane sends carries one.
UdpFrame decode(std::span<const std::uint8_t> bytes, std::string& problem);

}  // namespace Ovs
