#include "sim/Forwarding.h"

#include <algorithm>
#include <ostream>
#include <tuple>

namespace Sim {

namespace {

void printVlan(std::ostream& os, std::uint16_t vlan) {
  if (vlan == 0) {
    os << "untagged";
    return;
  }
  os << "vlan " << vlan;
}

void printPacket(std::ostream& os, const Packet& packet) {
  os << "in ";
  if (packet.intf.empty()) {
    os << "recirculation";
  } else {
    os << packet.intf;
  }
  os << "  ";
  printVlan(os, packet.vlan);
  os << "  src " << packet.src << "  dst " << packet.dst;
}

}  // namespace

bool operator<(const Copy& a, const Copy& b) {
  // The recirculation interface (the empty name) sorts after every port.
  return std::tuple(a.recirculated(), a.intf, a.vlan, a.dmac, a.src, a.dst) <
         std::tuple(b.recirculated(), b.intf, b.vlan, b.dmac, b.src, b.dst);
}

std::vector<Copy> Forwarding::leaving() const {
  std::vector<Copy> out;
  for (const Pass& pass : passes) {
    for (const Copy& copy : pass.copies) {
      if (!copy.recirculated()) out.push_back(copy);
    }
  }
  std::sort(out.begin(), out.end());
  return out;
}

void printCopy(std::ostream& os, const Copy& copy) {
  if (copy.recirculated()) {
    os << "recirculate  ";
  } else {
    os << "out " << copy.intf << "  ";
  }
  printVlan(os, copy.vlan);
  os << "  dmac " << copy.dmac << "  src " << copy.src << "  dst " << copy.dst;
}

void printSent(std::ostream& os, const Packet& packet, const std::vector<Copy>& copies) {
  printPacket(os, packet);
  os << "\n";
  if (copies.empty()) os << "  nothing leaves\n";
  for (const Copy& copy : copies) {
    os << "  ";
    printCopy(os, copy);
    os << "\n";
  }
}

void printForwarding(std::ostream& os, const Forwarding& forwarding) {
  for (const Pass& pass : forwarding.passes) {
    printPacket(os, pass.packet);
    if (!pass.policy.empty()) os << "  match " << pass.policy << "/" << pass.match;
    if (pass.group != 0) os << "  group " << pass.group;
    if (!pass.drop.empty()) os << "  nothing leaves: " << pass.drop;
    os << "\n";
    for (const Copy& copy : pass.copies) {
      os << "  ";
      printCopy(os, copy);
      os << "\n";
    }
    if (pass.recirculationDropped && !pass.copies.empty()) {
      os << "  a recirculated packet is not recirculated again: its copy into the recirculation "
            "interface is dropped\n";
    }
  }
}

}  // namespace Sim
