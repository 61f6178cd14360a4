#include "sim/HistoryGenerator.h"

#include <iterator>
#include <utility>

namespace Sim {

namespace {

// The universe. Ports come first among the next hops so that physical ones are picked more often.
constexpr const char* kPorts[] = {"Ethernet1", "Ethernet2", "Ethernet3", "Ethernet4", "Ethernet5"};
constexpr const char* kVlans[] = {"10", "20", "30"};
constexpr const char* kHosts[] = {"02:00:00:00:00:01", "02:00:00:00:00:02"};
constexpr const char* kZeroMac = "00:00:00:00:00:00";
constexpr const char* kMulticastMac = "01:00:5e:01:01:01";
constexpr const char* kPolicies[] = {"P", "Q"};
constexpr const char* kMatches[] = {"m1", "m2", "m3"};
constexpr const char* kActions[] = {"a1", "a2", "a3"};
constexpr const char* kTopologies[] = {"T", "U"};
// Capacities left out on purpose. A full port-set table hands out port-set id 0, on which the
// system stops ("psId"): a stop by design, not a publishable input. A full translation table
// refuses translations, and the system does not observe the helper's translation results, so what
// failed stays recorded as programmed and is not tried again: the chip could never be compared
// with the hardware status afterwards.
constexpr bool kFullPortSetTable = false;
constexpr bool kFullTranslationTable = false;

// A destination that makes a flow multicast whatever else it holds.
constexpr const char* kMulticastFlowDst = "239.1.1.1/32:5000";

// What kind of flow a destination address makes.
enum class Kind { none, unicast, multicast };

Kind kindOf(const std::string& address) {
  if (address.empty() || address.starts_with("0.0.0.0")) return Kind::none;
  const int firstOctet = std::stoi(address.substr(0, address.find('.')));
  return firstOctet >= 224 && firstOctet <= 239 ? Kind::multicast : Kind::unicast;
}

// The flow type of an action: its own destination when it translates it, else its match's.
Kind flowType(const std::string& dst, const std::string& flowDst) {
  const Kind own = kindOf(dst);
  return own != Kind::none ? own : kindOf(flowDst);
}

bool isVlanInterface(const std::string& intf) { return intf.starts_with("Vlan"); }

}  // namespace

HistoryGenerator::HistoryGenerator(Choose choose) : choose_(std::move(choose)) {}

std::uint32_t HistoryGenerator::pick(std::uint32_t bound) {
  if (bound <= 1) return 0;
  return choose_(bound) % bound;
}

const char* HistoryGenerator::oneOf(std::initializer_list<const char*> words) {
  return *(words.begin() + pick(static_cast<std::uint32_t>(words.size())));
}

template <typename Container>
const std::string& HistoryGenerator::anyOf(const Container& c) {
  auto it = c.begin();
  std::advance(it, pick(static_cast<std::uint32_t>(c.size())));
  if constexpr (requires { it->first; }) {
    return it->first;
  } else {
    return *it;
  }
}

bool HistoryGenerator::zeroMacOnUnicast(const Action& action, const std::string& dst,
                                        const std::string& flowDst) {
  if (flowType(dst, flowDst) != Kind::unicast) return false;
  for (const auto& [intf, zeroPhysical] : action.hops) {
    if (zeroPhysical) return true;
  }
  return false;
}

std::vector<std::string> HistoryGenerator::setup() {
  std::vector<std::string> lines = {
      "bridge-mac 00:1c:00:00:00:01",
      "intf Ethernet1 mode trunk native 1",
      "intf Ethernet2 mode access native 10",
      "intf Ethernet3 mode trunk native 1",
      "intf Ethernet4 mode access native 20",
      "intf Ethernet5 mode trunk native 1",
      "vlan 10 member Ethernet1 Ethernet2 Ethernet3",
      "vlan 20 member Ethernet3 Ethernet4 Ethernet5",
      "vlan 30 member Ethernet1 Ethernet5",
      "topology T port Ethernet1 state forwarding",
      "topology T port Ethernet2 state forwarding",
      "topology T port Ethernet3 state forwarding",
      "topology T port Ethernet4 state forwarding",
      "topology T port Ethernet5 state forwarding",
      "topology U port Ethernet1 state forwarding",
      "vlan-topology 10 T",
      "vlan-topology 20 T",
      "vlan-topology 30 U",
      "ip Vlan10 addr 10.0.10.1/24 routing on",
      "ip Vlan20 addr 10.0.20.1/24 routing on",
      "ip Vlan30 addr 10.0.30.1/24 routing on",
      "l3 Vlan10 id 10",
      "l3 Vlan20 id 20",
      "l3 Vlan30 id 30",
      "policy P",
      "policy Q",
      "start",
  };
  for (const char* port : kPorts) model_.switchports.insert(port);
  model_.vlans["10"] = {"Ethernet1", "Ethernet2", "Ethernet3"};
  model_.vlans["20"] = {"Ethernet3", "Ethernet4", "Ethernet5"};
  model_.vlans["30"] = {"Ethernet1", "Ethernet5"};
  model_.topologies["T"] = {"Ethernet1", "Ethernet2", "Ethernet3", "Ethernet4", "Ethernet5"};
  model_.topologies["U"] = {"Ethernet1"};
  model_.mappedVlans = {"10", "20", "30"};
  for (const char* vlan : kVlans) {
    model_.ipIntfs.insert(std::string("Vlan") + vlan);
    model_.l3[std::string("Vlan") + vlan] = vlan;
  }
  for (const char* policy : kPolicies) model_.policies[policy];
  model_.started = true;
  before_ = model_;
  return lines;
}

std::string HistoryGenerator::next() {
  before_ = model_;
  // NAT changes come most often, creations more often than removals, so that the NAT tree keeps
  // growing back while the switch changes under it.
  static constexpr int kKinds[] = {0, 0, 0, 0, 0, 0, 1, 1, 1, 1, 1, 2,
                                   3, 3, 3, 4, 4, 5, 5, 6, 6, 7, 8};
  for (int attempt = 0; attempt < 8; ++attempt) {
    std::optional<std::string> line;
    switch (kKinds[pick(static_cast<std::uint32_t>(std::size(kKinds)))]) {
      case 0:
        line = nat();
        break;
      case 1:
        line = nexthop();
        break;
      case 2:
        line = natDelete();
        break;
      case 3:
        line = bridging();
        break;
      case 4:
        line = topology();
        break;
      case 5:
        line = layer3();
        break;
      case 6:
        line = system();
        break;
      case 7:
        line = chip();
        break;
      default:
        line = show();
        break;
    }
    if (line) return *line;
  }
  return "advance 0.1";
}

void HistoryGenerator::refused() { model_ = before_; }

std::optional<std::string> HistoryGenerator::nat() {
  const std::uint32_t what = pick(10);
  if (what == 0 || model_.policies.empty()) {
    const std::string policy = oneOf({kPolicies[0], kPolicies[1]});
    model_.policies[policy];
    return "policy " + policy;
  }
  const std::string& policy = anyOf(model_.policies);
  auto& matches = model_.policies[policy];
  if (what <= 3 || matches.empty()) {
    const std::string match = oneOf({kMatches[0], kMatches[1], kMatches[2]});
    const bool added = matches.count(match) == 0;
    Match& m = matches[match];
    if (added) m.flowDst = "0.0.0.0/0:0";
    if (pick(4) == 0) return "match " + policy + " " + match;
    const std::string src = oneOf({"10.1.0.0/16:0", "0.0.0.0/0:0", "10.1.1.1/32:1234"});
    std::string dst = oneOf({kMulticastFlowDst, "0.0.0.0/0:0", "10.9.9.9/32:80", "224.0.0.0/4:0"});
    for (const auto& [name, action] : m.actions) {
      if (zeroMacOnUnicast(action, action.dst, dst)) dst = kMulticastFlowDst;
    }
    m.flowDst = dst;
    return "match " + policy + " " + match + " flow src " + src + " dst " + dst;
  }
  const std::string& match = anyOf(matches);
  Match& m = matches[match];
  const std::string action = oneOf({kActions[0], kActions[1], kActions[2]});
  const bool added = m.actions.count(action) == 0;
  Action& a = m.actions[action];
  std::string line = "action " + policy + " " + match + " " + action;
  if (pick(2) == 0) line += std::string(" src ") + oneOf({"0.0.0.0", "100.1.1.1", "100.1.1.1:7"});
  if (pick(3) != 0) {
    const std::string dst = oneOf({"0.0.0.0", "239.5.5.5:5000", "10.5.5.5:6000"});
    if (!zeroMacOnUnicast(a, dst, m.flowDst)) {
      a.dst = dst;
      line += " dst " + dst;
    }
  }
  // A new action starts at version 0 while its writer fills it in; once complete it only moves on.
  if (pick(4) != 0) {
    a.version = (added || a.version == 0) && pick(4) == 0 ? 0 : ++version_;
    line += " version " + std::to_string(a.version);
  }
  return line;
}

std::optional<std::string> HistoryGenerator::nexthop() {
  std::vector<std::pair<std::string, std::string>> matches;
  for (const auto& [policy, ms] : model_.policies) {
    for (const auto& [match, m] : ms) {
      if (!m.actions.empty()) matches.emplace_back(policy, match);
    }
  }
  if (matches.empty()) return std::nullopt;
  const auto& [policy, match] = matches[pick(static_cast<std::uint32_t>(matches.size()))];
  Match& m = model_.policies[policy][match];
  const std::string& action = anyOf(m.actions);
  Action& a = m.actions[action];
  const std::string prefix = "nexthop " + policy + " " + match + " " + action + " ";
  if (!a.hops.empty() && pick(4) == 0) {
    const std::string intf = anyOf(a.hops);
    a.hops.erase(intf);
    return prefix + intf + " delete";
  }
  const std::string intf = oneOf({kPorts[0], kPorts[1], kPorts[2], kPorts[3], kPorts[4], kPorts[4],
                                  "Vlan10", "Vlan20", "Vlan30", "Vlan0", "Vlan4095"});
  const std::string vlan = oneOf({"0", "1", "10", "20", "30", "4095"});
  std::string mac = oneOf({kHosts[0], kHosts[1], kZeroMac, kZeroMac, kMulticastMac});
  const bool physical = !isVlanInterface(intf);
  if (mac == kZeroMac && physical && flowType(a.dst, m.flowDst) == Kind::unicast) mac = kHosts[0];
  a.hops[intf] = physical && mac == kZeroMac;
  return prefix + intf + " vlan " + vlan + " mac " + mac;
}

std::optional<std::string> HistoryGenerator::natDelete() {
  if (model_.policies.empty()) return std::nullopt;
  const std::string policy = anyOf(model_.policies);
  auto& matches = model_.policies[policy];
  const std::uint32_t what = pick(6);
  if (what == 0 || matches.empty()) {
    model_.policies.erase(policy);
    return "policy " + policy + " delete";
  }
  const std::string match = anyOf(matches);
  auto& actions = matches[match].actions;
  if (what <= 2 || actions.empty()) {
    matches.erase(match);
    return "match " + policy + " " + match + " delete";
  }
  const std::string action = anyOf(actions);
  actions.erase(action);
  return "action " + policy + " " + match + " " + action + " delete";
}

std::optional<std::string> HistoryGenerator::bridging() {
  const std::string port = kPorts[pick(static_cast<std::uint32_t>(std::size(kPorts)))];
  const std::string vlan = kVlans[pick(static_cast<std::uint32_t>(std::size(kVlans)))];
  switch (pick(10)) {
    case 0:
    case 1:
    case 2: {
      // Routed and trunk ports carry the most special cases; 0 and 4095 stand for no VLAN.
      std::string line = "intf " + port;
      if (pick(3) != 0) {
        line +=
            std::string(" mode ") + oneOf({"access", "trunk", "trunk", "routed", "routed", "tunnel",
                                           "monitorSource", "monitorDestination", "voice"});
      }
      if (pick(2) == 0)
        line += std::string(" native ") + oneOf({"0", "1", "10", "20", "30", "4095"});
      model_.switchports.insert(port);
      return line;
    }
    case 3:
      if (model_.switchports.erase(port) == 0) return std::nullopt;
      return "intf " + port + " delete";
    case 4:
    case 5: {
      auto& members = model_.vlans[vlan];
      if (pick(6) == 0) return "vlan " + vlan;
      std::string line = "vlan " + vlan + " member " + port;
      members.insert(port);
      const std::string other = kPorts[pick(static_cast<std::uint32_t>(std::size(kPorts)))];
      if (other != port && pick(2) == 0) {
        members.insert(other);
        line += " " + other;
      }
      return line;
    }
    case 6: {
      auto it = model_.vlans.find(vlan);
      if (it == model_.vlans.end() || it->second.empty()) return std::nullopt;
      const std::string member = anyOf(it->second);
      it->second.erase(member);
      return "vlan " + vlan + " remove " + member;
    }
    case 7:
      if (pick(2) == 0 || model_.vlans.erase(vlan) == 0) return std::nullopt;
      return "vlan " + vlan + " delete";
    case 8: {
      const std::string host = kHosts[pick(static_cast<std::uint32_t>(std::size(kHosts)))];
      model_.fdbs[vlan].insert(host);
      return "fdb " + vlan + " host " + host + " intf " + port;
    }
    default: {
      auto it = model_.fdbs.find(vlan);
      if (pick(3) == 0) {
        return std::string("bridge-mac ") + oneOf({"00:1c:00:00:00:01", "00:1c:00:00:00:02"});
      }
      if (it == model_.fdbs.end()) return std::nullopt;
      if (it->second.empty() || pick(4) == 0) {
        model_.fdbs.erase(it);
        return "fdb " + vlan + " delete";
      }
      const std::string host = anyOf(it->second);
      it->second.erase(host);
      return "fdb " + vlan + " host " + host + " delete";
    }
  }
}

std::optional<std::string> HistoryGenerator::topology() {
  const std::string topo = kTopologies[pick(static_cast<std::uint32_t>(std::size(kTopologies)))];
  const std::string port = kPorts[pick(static_cast<std::uint32_t>(std::size(kPorts)))];
  const std::string vlan = kVlans[pick(static_cast<std::uint32_t>(std::size(kVlans)))];
  switch (pick(8)) {
    case 0:
    case 1:
    case 2:
      model_.topologies[topo].insert(port);
      return "topology " + topo + " port " + port + " state " +
             oneOf({"forwarding", "forwarding", "blocking", "discarding", "learning", "disabled"});
    case 3: {
      auto it = model_.topologies.find(topo);
      if (it == model_.topologies.end() || it->second.erase(port) == 0) return std::nullopt;
      return "topology " + topo + " port " + port + " delete";
    }
    case 4:
    case 5:
      // A VLAN may keep following a topology that was deleted, as on the platform.
      if (model_.topologies.count(topo) == 0) return std::nullopt;
      model_.mappedVlans.insert(vlan);
      return "vlan-topology " + vlan + " " + topo;
    case 6:
      if (model_.mappedVlans.erase(vlan) == 0) return std::nullopt;
      return "vlan-topology " + vlan + " delete";
    default:
      if (pick(2) == 0) {
        model_.topologies[topo];
        return "topology " + topo;
      }
      if (model_.topologies.erase(topo) == 0) return std::nullopt;
      return "topology " + topo + " delete";
  }
}

std::optional<std::string> HistoryGenerator::layer3() {
  // Ethernet4 and Ethernet5 become routed ports with L3 ids above the VLAN range (4095 included);
  // the VLAN interfaces have the ids of their VLANs.
  const std::string intf =
      oneOf({"Vlan10", "Vlan20", "Vlan30", "Ethernet4", "Ethernet5", "Ethernet5"});
  switch (pick(8)) {
    case 0:
    case 1: {
      std::string line = "ip " + intf;
      if (pick(3) != 0) {
        line += intf.starts_with("Vlan")
                    ? " addr 10.0." + intf.substr(4) + ".1/24"
                    : std::string(" addr ") + oneOf({"10.0.50.1/24", "0.0.0.0/0"});
      }
      if (pick(3) != 0) line += std::string(" routing ") + oneOf({"on", "on", "off"});
      model_.ipIntfs.insert(intf);
      return line;
    }
    case 2:
      if (model_.ipIntfs.erase(intf) == 0) return std::nullopt;
      return "ip " + intf + " delete";
    case 3:
    case 4:
    case 5: {
      const std::string id =
          isVlanInterface(intf) ? intf.substr(4) : oneOf({"5000", "5001", "4095", "65535"});
      for (const auto& [other, otherId] : model_.l3) {
        if (otherId == id && other != intf) return std::nullopt;
      }
      model_.l3[intf] = id;
      return "l3 " + intf + " id " + id;
    }
    default:
      if (model_.l3.erase(intf) == 0) return std::nullopt;
      return "l3 " + intf + " delete";
  }
}

std::optional<std::string> HistoryGenerator::system() {
  switch (pick(10)) {
    case 0:
    case 1:
    case 2:
    case 3:
    case 4:
      return std::string("advance ") + oneOf({"0.1", "0.5", "1", "5", "9.999", "10", "11"});
    case 5:
    case 6:
    case 7:
      return "run";
    case 8:
      if (model_.started) {
        model_.started = false;
        return "stop";
      }
      [[fallthrough]];
    default:
      if (model_.started) return std::nullopt;
      model_.started = true;
      return "start";
  }
}

std::optional<std::string> HistoryGenerator::chip() {
  switch (pick(8)) {
    case 0:
      return std::string("chip groups ") + oneOf({"0", "1", "2", "3", "4", "6"});
    case 1:
      if (!kFullPortSetTable) return std::nullopt;
      return std::string("chip port-sets ") + oneOf({"0", "1", "3", "8", "20"});
    case 2:
      if (!kFullTranslationTable) return std::nullopt;
      return std::string("chip translations ") + oneOf({"0", "2", "6", "20"});
    case 3:
      return std::string("chip fail-groups ") + oneOf({"1", "2", "3"});
    case 4:
      return std::string("chip fail unicast ") + oneOf({"on", "off", "off"});
    case 5:
      return std::string("chip fail multicast ") + oneOf({"on", "off", "off"});
    default:
      // Room comes back as often as it goes, so that the system keeps programming.
      return std::string("chip ") + oneOf({"groups", "port-sets", "translations"}) + " unlimited";
  }
}

std::optional<std::string> HistoryGenerator::show() {
  // Now and then a packet through the chip, from the sources and to the destinations the flows
  // take, on a switchport (which carries its native VLAN, or none).
  if (!model_.switchports.empty() && pick(2) == 0) {
    return "send " + anyOf(model_.switchports) + " src " +
           oneOf({"10.1.1.1:1234", "10.2.0.1:4000"}) + " dst " +
           oneOf({"239.1.1.1:5000", "10.9.9.9:80", "224.5.5.5:5000", "10.8.8.8:53"});
  }
  if (model_.started && pick(2) == 0) {
    return pick(2) == 0 ? "show table"
                        : std::string("show table ") + oneOf({kPolicies[0], kPolicies[1]});
  }
  return std::string("show ") + oneOf({"hw", "chip", "inputs", "tasks", "counters", "leftovers"});
}

}  // namespace Sim
