#pragma once

#include <cstdint>
#include <iosfwd>
#include <map>
#include <string>
#include <vector>

#include "Instance.h"
#include "Mox/Ptr.h"
#include "NatFlowHelper.h"
#include "Nexo/IntfId.h"
#include "sim/Agent.h"
#include "sim/Forwarding.h"

namespace Sim {

// The simulation's real dataplane: a private Open vSwitch (started by the constructor, stopped by
// the destructor) programmed by an Ovs::NatFlowHelper that receives every call the simulated chip
// carries out, so that the same scenario moves real frames.
//
// Every switch interface gets a dummy port of its own ("p1", "p2", ... in the order the
// interfaces appear), added when sync() first sees the interface; a port "echo" marks the end of
// a packet's forwarding. Throws Ovs::Error when Open vSwitch cannot start or refuses a change.
class OvsDataplane {
 public:
  // What `send` saw: the copies that left, in Copy order, and every frame that was not a valid
  // UDP/IPv4 frame ("a frame out of Ethernet4: bad UDP checksum").
  struct Sent {
    std::vector<Copy> copies;
    std::vector<std::string> problems;
  };

  explicit OvsDataplane(Agent& agent);
  ~OvsDataplane();
  OvsDataplane(const OvsDataplane&) = delete;
  OvsDataplane& operator=(const OvsDataplane&) = delete;

  // Brings the bridge up to date with the chip's tables and the matches' flows: adds the ports of
  // interfaces not seen before, then pushes the helper's differences as one bundle. Returns the
  // number of OpenFlow modifications sent.
  std::size_t sync();
  // Injects `packet` as a real frame on its interface's port (tagged unless it arrives untagged
  // in its switchport's native VLAN), waits until the switch has forwarded it, and decodes the
  // frames every port transmitted meanwhile.
  Sent send(const Packet& packet);

  // "show dataplane": the ports, then what the bridge holds in the switch's own words.
  void print(std::ostream& os) const;
  // "show dataplane stats": helper calls, bundles, modifications and wall-clock times.
  void printStats(std::ostream& os) const;

  // The same as one JSON document (docs/views.md); `dataplane` null: the chip forwards alone.
  static void printJson(std::ostream& os, const OvsDataplane* dataplane);
  static void printStatsJson(std::ostream& os, const OvsDataplane* dataplane);

  Ovs::NatFlowHelper& helper() const { return *helper_; }

 private:
  std::uint16_t addPort(const Nexo::IntfId& intf, std::vector<Ovs::Instance::Port>& added);

  Agent& agent_;
  Ovs::Instance instance_;
  Mox::Ptr<Ovs::NatFlowHelper> helper_;
  std::map<Nexo::IntfId, std::uint16_t> ports_;
  std::map<std::uint16_t, Nexo::IntfId> intfs_;
  std::map<std::string, std::size_t> framesSeen_;  // per port name
  std::uint64_t sends_ = 0;
  std::uint64_t sendNanoseconds_ = 0;
};

}  // namespace Sim
