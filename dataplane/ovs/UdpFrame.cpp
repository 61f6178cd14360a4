#include "UdpFrame.h"

#include <cstddef>

namespace Ovs {
namespace {

constexpr std::uint16_t kIpv4 = 0x0800;
constexpr std::uint16_t kVlanTpid = 0x8100;
constexpr std::uint8_t kUdp = 17;
constexpr std::size_t kIpHeader = 20;
constexpr std::size_t kUdpHeader = 8;

void put16(std::vector<std::uint8_t>& b, std::uint16_t v) {
  b.push_back(static_cast<std::uint8_t>(v >> 8));
  b.push_back(static_cast<std::uint8_t>(v));
}

void put32(std::vector<std::uint8_t>& b, std::uint32_t v) {
  put16(b, static_cast<std::uint16_t>(v >> 16));
  put16(b, static_cast<std::uint16_t>(v));
}

std::uint16_t get16(std::span<const std::uint8_t> b, std::size_t at) {
  return static_cast<std::uint16_t>(b[at] << 8 | b[at + 1]);
}

std::uint32_t get32(std::span<const std::uint8_t> b, std::size_t at) {
  return static_cast<std::uint32_t>(get16(b, at)) << 16 | get16(b, at + 2);
}

// The ones' complement sum of the 16-bit words of `b` (an odd last byte padded with zero), added
// to `sum` and folded to 16 bits.
std::uint32_t sumWords(std::span<const std::uint8_t> b, std::uint32_t sum) {
  for (std::size_t i = 0; i < b.size(); i += 2) {
    sum += static_cast<std::uint32_t>(b[i] << 8 | (i + 1 < b.size() ? b[i + 1] : 0));
    sum = (sum & 0xffff) + (sum >> 16);
  }
  return sum;
}

// The sum of the UDP pseudo header: addresses, protocol and UDP length.
std::uint32_t pseudoHeaderSum(std::span<const std::uint8_t> ip, std::uint16_t udpLength) {
  return sumWords(ip.subspan(12, 8), kUdp + udpLength);
}

}  // namespace

std::vector<std::uint8_t> encode(const UdpFrame& frame) {
  std::vector<std::uint8_t> b(frame.dstMac.begin(), frame.dstMac.end());
  b.insert(b.end(), frame.srcMac.begin(), frame.srcMac.end());
  if (frame.vlan != 0) {
    put16(b, kVlanTpid);
    put16(b, frame.vlan & 0x0fff);
  }
  put16(b, kIpv4);
  const std::size_t ip = b.size();
  const auto udpLength = static_cast<std::uint16_t>(kUdpHeader + frame.payload.size());
  b.push_back(0x45);  // version 4, 5 words of header
  b.push_back(0);
  put16(b, static_cast<std::uint16_t>(kIpHeader + udpLength));
  put16(b, 0);       // identification
  put16(b, 0x4000);  // don't fragment
  b.push_back(frame.ttl);
  b.push_back(kUdp);
  put16(b, 0);  // header checksum, below
  put32(b, frame.srcIp);
  put32(b, frame.dstIp);
  const std::uint16_t ipSum = ~sumWords(std::span(b).subspan(ip, kIpHeader), 0) & 0xffff;
  b[ip + 10] = static_cast<std::uint8_t>(ipSum >> 8);
  b[ip + 11] = static_cast<std::uint8_t>(ipSum);
  const std::size_t udp = b.size();
  put16(b, frame.srcPort);
  put16(b, frame.dstPort);
  put16(b, udpLength);
  put16(b, 0);  // checksum, below
  b.insert(b.end(), frame.payload.begin(), frame.payload.end());
  std::uint16_t udpSum =
      ~sumWords(std::span(b).subspan(udp), pseudoHeaderSum(std::span(b).subspan(ip), udpLength)) &
      0xffff;
  if (udpSum == 0) udpSum = 0xffff;  // 0 would mean "no checksum"
  b[udp + 6] = static_cast<std::uint8_t>(udpSum >> 8);
  b[udp + 7] = static_cast<std::uint8_t>(udpSum);
  return b;
}

UdpFrame decode(std::span<const std::uint8_t> bytes, std::string& problem) {
  problem.clear();
  UdpFrame frame;
  if (bytes.size() < 14) {
    problem = "shorter than an Ethernet header";
    return {};
  }
  std::copy(bytes.begin(), bytes.begin() + 6, frame.dstMac.begin());
  std::copy(bytes.begin() + 6, bytes.begin() + 12, frame.srcMac.begin());
  std::size_t at = 12;
  if (get16(bytes, at) == kVlanTpid) {
    if (bytes.size() < 18) {
      problem = "cut short in its VLAN tag";
      return {};
    }
    frame.vlan = get16(bytes, at + 2) & 0x0fff;
    at += 4;
    if (get16(bytes, at) == kVlanTpid) {
      problem = "carries two VLAN tags";
      return {};
    }
  }
  if (get16(bytes, at) != kIpv4) {
    problem = "not IPv4";
    return {};
  }
  at += 2;
  if (bytes.size() < at + kIpHeader + kUdpHeader) {
    problem = "too short for IPv4 and UDP headers";
    return {};
  }
  const auto ip = bytes.subspan(at);
  if (ip[0] != 0x45) {
    problem = "IPv4 header is not 20 bytes of version 4";
    return {};
  }
  if (ip[9] != kUdp) {
    problem = "not UDP";
    return {};
  }
  const std::uint16_t ipLength = get16(ip, 2);
  if (ipLength < kIpHeader + kUdpHeader || ipLength > ip.size()) {
    problem = "IPv4 total length " + std::to_string(ipLength) + " does not fit the frame";
    return {};
  }
  if (sumWords(ip.subspan(0, kIpHeader), 0) != 0xffff) {
    problem = "bad IPv4 header checksum";
    return {};
  }
  const auto udp = ip.subspan(kIpHeader, ipLength - kIpHeader);
  const std::uint16_t udpLength = get16(udp, 4);
  if (udpLength != udp.size()) {
    problem = "UDP length " + std::to_string(udpLength) + " disagrees with the IPv4 length";
    return {};
  }
  if (get16(udp, 6) == 0) {
    problem = "no UDP checksum";
    return {};
  }
  if (sumWords(udp, pseudoHeaderSum(ip, udpLength)) != 0xffff) {
    problem = "bad UDP checksum";
    return {};
  }
  frame.ttl = ip[8];
  frame.srcIp = get32(ip, 12);
  frame.dstIp = get32(ip, 16);
  frame.srcPort = get16(udp, 0);
  frame.dstPort = get16(udp, 2);
  frame.payload.assign(udp.begin() + kUdpHeader, udp.end());
  return frame;
}

}  // namespace Ovs
