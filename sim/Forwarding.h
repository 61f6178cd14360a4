#pragma once

#include <cstdint>
#include <iosfwd>
#include <string>
#include <vector>

#include "Ip/Nat/NatFlow.h"
#include "Nexo/EthAddr.h"
#include "Nexo/IntfId.h"
#include "Nexo/IpAddr.h"
#include "Pelo/String.h"

namespace Sim {

// The records of forwarding one packet through a NAT flow dataplane (docs/forwarding.md), and
// the one way they are printed: every dataplane that forwards by those rules fills the same
// records, so that its transcript can be compared line for line with the simulated chip's.

// An IPv4 UDP packet as it comes into the switch. An empty interface is the recirculation
// interface; VLAN 0 means the packet carries none (untagged on a port without a native VLAN).
struct Packet {
  Nexo::IntfId intf;
  std::uint16_t vlan = 0;
  Nexo::IpAndPort src;
  Nexo::IpAndPort dst;
  friend bool operator==(const Packet&, const Packet&) = default;
};

// One copy that a port set emits: out of `intf` (empty: into the recirculation interface), on
// `vlan`, with its destination MAC and its addresses after translation. Ordered by interface
// (the recirculation interface last), then VLAN, MAC, source and destination.
struct Copy {
  Nexo::IntfId intf;
  std::uint16_t vlan = 0;
  Nexo::EthAddr dmac;
  Nexo::IpAndPort src;
  Nexo::IpAndPort dst;
  bool recirculated() const { return intf.empty(); }
  friend bool operator==(const Copy&, const Copy&) = default;
  friend bool operator<(const Copy& a, const Copy& b);
};

// One pass of a packet through the pipeline: the match and group that took it and the copies
// they made, in Copy order, or why nothing left.
struct Pass {
  Packet packet;
  Pelo::String policy;  // empty when no match took the packet
  Pelo::String match;
  Ip::Nat::NatFlow flow;
  std::uint32_t group = 0;  // 0 when no group took the packet
  std::vector<Copy> copies;
  // Why no copy was made ("no flow matches", "the match holds no group", "the group has no port
  // set", ...); empty when there are copies.
  std::string drop;
  // A copy to the recirculation interface that was not made, as the packet had been recirculated
  // once already.
  bool recirculationDropped = false;
};

// Everything one packet caused: its own pass, then one pass per copy recirculated from it, in
// the order of those copies.
struct Forwarding {
  std::vector<Pass> passes;
  // The copies that leave the switch, over all passes, in Copy order.
  std::vector<Copy> leaving() const;
};

// "out Ethernet1  vlan 10  dmac 01:00:5e:00:00:00  src 10.1.0.5:4000  dst 239.100.1.1:5000", or
// "recirculate  vlan 10  ..." for a copy into the recirculation interface. No newline.
void printCopy(std::ostream& os, const Copy& copy);
// A packet forwarded by a dataplane that shows only what leaves: a line for the packet, then one
// line per copy, or "  nothing leaves".
void printSent(std::ostream& os, const Packet& packet, const std::vector<Copy>& copies);
// Each pass: a line for the packet and what took it, then one line per copy.
void printForwarding(std::ostream& os, const Forwarding& forwarding);

}  // namespace Sim
