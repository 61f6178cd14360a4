#pragma once

#include <cstdint>
#include <iosfwd>
#include <string_view>

#include "Nexo/EthAddr.h"
#include "Nexo/IpAddr.h"
#include "Pelo/String.h"

namespace Ip::Nat {

// How the hardware forwards the packets of a translated flow: to one next hop
// (unicast), replicated to a group of ports (multicast), or not at all.
enum class NatFlowType : std::uint8_t {
  natFlowTypeUnicast = 0,
  natFlowTypeMulticast = 1,
  natFlowTypeNone = 2,
};

// Prints the enumerator name ("natFlowTypeMulticast"); a value outside the enumeration prints as
// its number.
std::ostream& operator<<(std::ostream& os, NatFlowType type);

// The packets a NAT rule matches, as a value type: a source and a destination, each an address
// with a prefix length (0..32) and a transport port (0 matches any port). The default value is
// all zero. The address keeps the bits beyond the prefix length as given.
class NatFlow {
 public:
  static constexpr std::uint32_t kMaxPrefixLen = 32;

  NatFlow() = default;
  // Throws std::invalid_argument when a prefix length exceeds kMaxPrefixLen.
  NatFlow(Nexo::IpAddr srcAddr, std::uint16_t srcPort, std::uint32_t srcPrefixLen,
          Nexo::IpAddr dstAddr, std::uint16_t dstPort, std::uint32_t dstPrefixLen);

  // Parses exactly the form stringValue() prints, "src 10.1.0.0/16:0 dst 239.1.1.1/32:5000":
  // single spaces, every field present, decimal numbers without sign or leading zeros. Throws
  // std::invalid_argument naming the text otherwise.
  static NatFlow fromString(std::string_view text);

  Nexo::IpAddr srcAddr() const { return srcAddr_; }
  std::uint16_t srcPort() const { return srcPort_; }
  std::uint32_t srcPrefixLen() const { return srcPrefixLen_; }
  Nexo::IpAddr dstAddr() const { return dstAddr_; }
  std::uint16_t dstPort() const { return dstPort_; }
  std::uint32_t dstPrefixLen() const { return dstPrefixLen_; }
  Nexo::IpAndPort src() const { return Nexo::IpAndPort(srcAddr_, srcPort_); }
  Nexo::IpAndPort dst() const { return Nexo::IpAndPort(dstAddr_, dstPort_); }

  // Returns the one-line form, "src 10.1.0.0/16:0 dst 239.1.1.1/32:5000".
  Pelo::String stringValue() const;

  friend bool operator==(const NatFlow& a, const NatFlow& b) = default;

 private:
  Nexo::IpAddr srcAddr_;
  std::uint16_t srcPort_ = 0;
  std::uint32_t srcPrefixLen_ = 0;
  Nexo::IpAddr dstAddr_;
  std::uint16_t dstPort_ = 0;
  std::uint32_t dstPrefixLen_ = 0;
};

std::ostream& operator<<(std::ostream& os, const NatFlow& flow);

// Where a translated copy of a flow leaves through one interface: the VLAN it is tagged with
// and the destination MAC address it is rewritten to.
class NatFlowNextHop {
 public:
  NatFlowNextHop() = default;
  NatFlowNextHop(std::uint16_t vlan, Nexo::EthAddr mac) : vlan_(vlan), mac_(mac) {}

  std::uint16_t vlan() const { return vlan_; }
  Nexo::EthAddr mac() const { return mac_; }

  friend bool operator==(const NatFlowNextHop& a, const NatFlowNextHop& b) = default;

 private:
  std::uint16_t vlan_ = 0;
  Nexo::EthAddr mac_;
};

// Prints "vlan 100 mac 02:00:00:00:00:01".
std::ostream& operator<<(std::ostream& os, const NatFlowNextHop& nextHop);

}  // namespace Ip::Nat
