#include "NatFlowHelper.h"

#include <algorithm>
#include <set>
#include <sstream>
#include <tuple>

namespace Ovs {
namespace {

using Clock = std::chrono::steady_clock;

// The pipeline:
//   table 0  takes the VLAN tag off a tagged packet (the flows name no VLAN) and forgets the
//            ingress port (a copy may leave by it); sends echo frames
//            out of the echo port;
//   table 1  classifies: one entry per match that holds a group, by how specific its flow is,
//            pointing to the OpenFlow group of the same id;
//   group    one bucket per port set, which names the port set in reg1 (group) and reg2 (port
//            set) and goes on in table 2;
//   table 2  per port set, the translations that apply to the packet, the destination MAC, and
//            the copies: tagged with the port set's VLAN out of each port, or into table 3 for
//            the recirculation interface;
//   table 3  recirculation: marks the packet as recirculated (reg0) and classifies it again; a
//            packet already marked is dropped there.
// Buckets of a group of type "all" work on copies of the packet, so one port set's rewrites
// never reach another's.
constexpr int kClassifierTable = 1;
constexpr int kPortSetTable = 2;
constexpr int kRecirculationTable = 3;

constexpr Nexo::EthAddr kMulticastMacPrefix = Nexo::EthAddr::ipv4MulticastPrefix();
constexpr std::uint32_t kMulticastNet = 0xe0000000U;  // 224.0.0.0/4
constexpr std::uint32_t kMulticastLen = 4;

std::uint32_t prefixMask(std::uint32_t len) {
  if (len == 0) return 0;
  return len >= 32 ? 0xffffffffU : ~(0xffffffffU >> len);
}

std::string ipText(std::uint32_t hostOrder) { return Nexo::IpAddr(hostOrder).stringValue().str(); }

// ",nw_src=10.1.0.0/16,tp_src=4000" for `field` "src": the address test (none for length 0)
// and the port test (none for port 0).
std::string endpointMatch(const char* field, Nexo::IpAddr addr, std::uint32_t len,
                          std::uint16_t port) {
  len = std::min<std::uint32_t>(len, 32);
  std::string text;
  if (len != 0) {
    text += std::string(",nw_") + field + "=" + ipText(addr.value() & prefixMask(len)) + "/" +
            std::to_string(len);
  }
  if (port != 0) text += std::string(",tp_") + field + "=" + std::to_string(port);
  return text;
}

// The rewrite of a translation to `nat`: the address 0.0.0.0 rewrites nothing, port 0 keeps the
// packet's port.
std::string rewrite(const char* field, const Nexo::IpAndPort& nat) {
  if (nat.ip().isZero()) return "";
  std::string text = "set_field:" + nat.ip().stringValue().str() + "->ip_" + field + ",";
  if (nat.port() != 0) text += "set_field:" + std::to_string(nat.port()) + "->udp_" + field + ",";
  return text;
}

std::string macText(const Nexo::EthAddr& mac) { return mac.stringValue().str(); }

// Sets the destination MAC to the multicast MAC of the packet's (untranslated) destination.
const char* const kMulticastMacFromDst =
    "set_field:01:00:5e:00:00:00->eth_dst,move:NXM_OF_IP_DST[0..22]->NXM_OF_ETH_DST[0..22],";

std::string flowKey(int table, int priority, const std::string& match) {
  return "table=" + std::to_string(table) + ",priority=" + std::to_string(priority) + match;
}

// The number after `name=` in `line`, or 0.
unsigned long long numberAfter(const std::string& line, const std::string& name) {
  const std::size_t at = line.find(name + "=");
  if (at == std::string::npos) return 0;
  return std::strtoull(line.c_str() + at + name.size() + 1, nullptr, 10);
}

// The lines of `text` that begin with a space (the entries of an ovs-ofctl dump).
std::vector<std::string> entries(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) {
    if (!line.empty() && line[0] == ' ') lines.push_back(line.substr(1));
  }
  return lines;
}

}  // namespace

NatFlowHelper::NatFlowHelper(Instance& instance, Options options)
    : UmoHelper::UmoNatFlowMcastHelper("OvsNatFlowHelper"),
      instance_(instance),
      options_(options) {}

NatFlowHelper::~NatFlowHelper() = default;

void NatFlowHelper::portIs(const Nexo::IntfId& intf, std::uint16_t ofport) {
  if (port(intf) == ofport) return;
  if (ofport == 0) {
    ports_.erase(intf);
  } else {
    ports_[intf] = ofport;
  }
  // The port sets that hold the interface send their copies elsewhere now.
  for (const auto& [key, ps] : portSets_) {
    if (std::binary_search(ps.intf.begin(), ps.intf.end(), intf)) dirtyPortSets_.insert(key);
  }
}

std::uint16_t NatFlowHelper::port(const Nexo::IntfId& intf) const {
  const auto it = ports_.find(intf);
  return it == ports_.end() ? 0 : it->second;
}

std::uint32_t NatFlowHelper::createNatFlowGroup(const Pelo::String& policy,
                                                const Pelo::String& match, bool unicast) {
  ++stats_.calls;
  if (groups_.size() >= options_.groupCapacity) return 0;
  std::uint32_t id = 1;
  for (const auto& [used, group] : groups_) {
    if (used != id) break;
    ++id;
  }
  groups_.emplace(id, Group{policy, match, unicast, ++allocations_});
  dirtyGroups_.insert(id);
  classifierDirty_ = true;
  return id;
}

void NatFlowHelper::deleteNatFlowGroup(const Pelo::String& policy, const Pelo::String& match,
                                       std::uint32_t groupId) {
  ++stats_.calls;
  const auto it = groups_.find(groupId);
  if (it == groups_.end() || it->second.policy != policy || it->second.match != match) {
    ++stats_.refused;
    return;
  }
  // A group is freed empty; one that still holds port sets or translations stays.
  const auto holds = [groupId](const auto& table) {
    const auto it = table.lower_bound({groupId, 0});
    return it != table.end() && it->first.first == groupId;
  };
  if (holds(portSets_) || holds(srcTranslations_) || holds(dstTranslations_)) {
    ++stats_.refused;
    return;
  }
  groups_.erase(it);
  dirtyGroups_.insert(groupId);
  classifierDirty_ = true;
}

std::uint32_t NatFlowHelper::updateNatFlowVlanPortSet(
    std::uint32_t groupId, std::uint32_t portSetId,
    const Mox::Ptr<const Ip::Nat::NatFlowPortSet>& ps) {
  ++stats_.calls;
  if (!groupKnown(groupId) || !ps || (portSetId != 0 && !portSetKnown(groupId, portSetId))) {
    ++stats_.refused;
    return 0;
  }
  PortSet entry;
  entry.vlan = ps->vlan();
  for (const auto& [intf, member] : ps->intf()) entry.intf.push_back(intf);
  entry.dmac = ps->dmac();
  if (portSetId != 0) {
    portSets_[{groupId, portSetId}] = std::move(entry);
    dirtyPortSets_.insert({groupId, portSetId});
    return portSetId;
  }
  if (portSets_.size() >= options_.portSetCapacity) return 0;
  std::uint32_t id = 1;
  for (auto it = portSets_.lower_bound({groupId, 0});
       it != portSets_.end() && it->first.first == groupId && it->first.second == id; ++it) {
    ++id;
  }
  portSets_.emplace(PortSetKey{groupId, id}, std::move(entry));
  dirtyPortSets_.insert({groupId, id});
  dirtyGroups_.insert(groupId);
  return id;
}

void NatFlowHelper::deleteNatFlowVlanPortSet(std::uint32_t groupId, std::uint32_t portSetId) {
  ++stats_.calls;
  if (portSets_.erase({groupId, portSetId}) == 0) {
    ++stats_.refused;
    return;
  }
  dirtyPortSets_.insert({groupId, portSetId});
  dirtyGroups_.insert(groupId);
}

bool NatFlowHelper::updateTranslation(std::map<PortSetKey, Translation>& table,
                                      std::uint32_t groupId, std::uint32_t portSetId,
                                      Translation translation) {
  ++stats_.calls;
  if (!portSetKnown(groupId, portSetId)) {
    ++stats_.refused;
    return false;
  }
  const PortSetKey key{groupId, portSetId};
  if (table.count(key) == 0 && translationCount() >= options_.translationCapacity) return false;
  table[key] = translation;
  dirtyPortSets_.insert(key);
  return true;
}

bool NatFlowHelper::updateNatFlowSrcTranslation(std::uint32_t groupId, std::uint32_t portSetId,
                                                std::uint16_t vlan, const Nexo::IpAndPort& srcNat,
                                                const Nexo::IpAndPort& srcFlow,
                                                std::uint32_t pfxLen) {
  return updateTranslation(srcTranslations_, groupId, portSetId,
                           Translation{vlan, srcNat, srcFlow, pfxLen, {}});
}

void NatFlowHelper::deleteNatFlowSrcTranslation(std::uint32_t groupId, std::uint32_t portSetId) {
  ++stats_.calls;
  if (!groupKnown(groupId)) ++stats_.refused;
  if (srcTranslations_.erase({groupId, portSetId}) != 0)
    dirtyPortSets_.insert({groupId, portSetId});
}

bool NatFlowHelper::updateNatFlowDstTranslation(std::uint32_t groupId, std::uint32_t portSetId,
                                                std::uint16_t vlan, const Nexo::IpAndPort& dstNat,
                                                const Nexo::IpAndPort& dstFlow,
                                                std::uint32_t pfxLen, const Nexo::EthAddr& dmac) {
  return updateTranslation(dstTranslations_, groupId, portSetId,
                           Translation{vlan, dstNat, dstFlow, pfxLen, dmac});
}

void NatFlowHelper::deleteNatFlowDstTranslation(std::uint32_t groupId, std::uint32_t portSetId) {
  ++stats_.calls;
  if (!groupKnown(groupId)) ++stats_.refused;
  if (dstTranslations_.erase({groupId, portSetId}) != 0)
    dirtyPortSets_.insert({groupId, portSetId});
}

NatFlowHelper::OpenFlowState NatFlowHelper::render() const {
  OpenFlowState state;
  renderFixed(state);
  renderClassifier(state);
  for (const auto& [id, group] : groups_) renderGroup(id, state);
  for (const auto& [key, ps] : portSets_) renderPortSet(key, ps, state);
  return state;
}

void NatFlowHelper::renderGroup(std::uint32_t groupId, OpenFlowState& state) const {
  std::string description = "group_id=" + std::to_string(groupId) + ",type=all";
  for (auto it = portSets_.lower_bound({groupId, 0});
       it != portSets_.end() && it->first.first == groupId; ++it) {
    description += ",bucket=actions=set_field:" + std::to_string(groupId) +
                   "->reg1,set_field:" + std::to_string(it->first.second) + "->reg2,resubmit(," +
                   std::to_string(kPortSetTable) + ")";
  }
  state.groups[groupId] = std::move(description);
}

void NatFlowHelper::renderFixed(OpenFlowState& state) const {
  // OpenFlow sends nothing back out of the port a packet came in on, but a port set's copy to
  // that port is a copy like any other: forgetting the ingress port lets it leave.
  state.flows[flowKey(0, 1, ",vlan_tci=0x1000/0x1000")] =
      "actions=pop_vlan,set_field:0->in_port,goto_table:1";
  state.flows[flowKey(0, 0, "")] = "actions=set_field:0->in_port,goto_table:1";
  if (options_.echoPort != 0) {
    state.flows[flowKey(0, 100, ",dl_type=0x88b5")] =
        "actions=output:" + std::to_string(options_.echoPort);
  }
  state.flows[flowKey(kRecirculationTable, 2, ",reg0=1")] = "actions=drop";
  state.flows[flowKey(kRecirculationTable, 1, "")] =
      "actions=set_field:1->reg0,resubmit(," + std::to_string(kClassifierTable) + ")";
}

void NatFlowHelper::renderClassifier(OpenFlowState& state) const {
  if (!natStatus_) return;
  // The newest group of each kind per match.
  struct Held {
    const std::pair<const std::uint32_t, Group>* unicast = nullptr;
    const std::pair<const std::uint32_t, Group>* multicast = nullptr;
  };
  std::map<std::pair<std::string, std::string>, Held> held;
  for (const auto& entry : groups_) {
    const Group& group = entry.second;
    Held& h = held[{group.policy.str(), group.match.str()}];
    const auto*& newest = group.unicast ? h.unicast : h.multicast;
    if (newest == nullptr || group.allocation > newest->second.allocation) newest = &entry;
  }
  // Equally specific flows overlap only when they are the same flow, and then the first match
  // in name order takes every packet: the others get no entry.
  std::set<std::tuple<std::uint32_t, std::uint32_t, std::uint16_t, std::uint32_t, std::uint32_t,
                      std::uint16_t>>
      taken;
  for (const auto& [policyName, policy] : natStatus_->natFlow()) {
    for (const auto& [matchName, match] : policy->match()) {
      const auto h = held.find({policyName.str(), matchName.str()});
      if (h == held.end()) continue;
      const Ip::Nat::NatFlow& flow = match->flow();
      const std::uint32_t srcLen = std::min<std::uint32_t>(flow.srcPrefixLen(), 32);
      const std::uint32_t dstLen = std::min<std::uint32_t>(flow.dstPrefixLen(), 32);
      const std::uint32_t dst = flow.dstAddr().value() & prefixMask(dstLen);
      if (!taken
               .emplace(flow.srcAddr().value() & prefixMask(srcLen), srcLen, flow.srcPort(), dst,
                        dstLen, flow.dstPort())
               .second) {
        continue;
      }
      // More specific flows get higher priorities: the longer destination prefix, then the
      // longer source prefix, then a given destination port, then a given source port. Each
      // level leaves room for a multicast entry just above the match's main entry.
      const int specificity = static_cast<int>(
          ((dstLen * 33 + srcLen) * 2 + (flow.dstPort() != 0)) * 2 + (flow.srcPort() != 0));
      const int priority = 10 + 2 * specificity;
      const std::string src = endpointMatch("src", flow.srcAddr(), srcLen, flow.srcPort());
      const auto entry = [&](int prio, const std::string& dstMatch, std::uint32_t group) {
        state.flows[flowKey(kClassifierTable, prio, ",udp" + src + dstMatch)] =
            "actions=group:" + std::to_string(group);
      };
      const std::string dstMatch = endpointMatch("dst", flow.dstAddr(), dstLen, flow.dstPort());
      const Held& groups = h->second;
      if (groups.unicast == nullptr || groups.multicast == nullptr) {
        entry(priority, dstMatch, (groups.unicast ? groups.unicast : groups.multicast)->first);
        continue;
      }
      // Two groups: a multicast destination goes to the multicast group.
      if (dstLen >= kMulticastLen) {
        const bool multicast = (dst & prefixMask(kMulticastLen)) == kMulticastNet;
        entry(priority, dstMatch, (multicast ? groups.multicast : groups.unicast)->first);
        continue;
      }
      entry(priority, dstMatch, groups.unicast->first);
      if ((kMulticastNet & prefixMask(dstLen)) == dst) {
        entry(priority + 1,
              endpointMatch("dst", Nexo::IpAddr(kMulticastNet), kMulticastLen, flow.dstPort()),
              groups.multicast->first);
      }
    }
  }
}

void NatFlowHelper::renderPortSet(const PortSetKey& key, const PortSet& ps,
                                  OpenFlowState& state) const {
  const auto [groupId, portSetId] = key;
  // A translation applies only to the copies on the VLAN it was programmed for.
  const auto find = [&](const std::map<PortSetKey, Translation>& table) -> const Translation* {
    const auto it = table.find(key);
    return it != table.end() && it->second.vlan == ps.vlan ? &it->second : nullptr;
  };
  const Translation* srcT = find(srcTranslations_);
  const Translation* dstT = find(dstTranslations_);

  // The copies: into the recirculation table first (before the tag goes on), then out of the
  // ports.
  std::string copies;
  std::string outputs;
  bool recirculates = false;
  for (const Nexo::IntfId& intf : ps.intf) {
    if (intf.empty()) {
      recirculates = true;
    } else if (const std::uint16_t ofport = port(intf); ofport != 0) {
      outputs += ",output:" + std::to_string(ofport);
    }
  }
  if (recirculates) copies += "resubmit(," + std::to_string(kRecirculationTable) + ")";
  if (!outputs.empty()) {
    if (ps.vlan != 0) {
      copies += std::string(copies.empty() ? "" : ",") +
                "push_vlan:0x8100,set_field:" + std::to_string(4096 + (ps.vlan & 0x0fff)) +
                "->vlan_vid";
      copies += outputs;
    } else {
      copies += outputs.substr(copies.empty() ? 1 : 0);
    }
  }
  const std::string base =
      ",udp,reg1=" + std::to_string(groupId) + ",reg2=" + std::to_string(portSetId);
  const auto add = [&](int priority, const std::string& match, const std::string& rewrites) {
    state.flows[flowKey(kPortSetTable, priority, base + match)] =
        copies.empty() ? "actions=drop" : "actions=" + rewrites + copies;
  };

  // One entry per combination of the translations that apply, the more translations the higher;
  // each with, where the destination MAC is the multicast prefix and the destination is not
  // rewritten, an entry just above for multicast destinations, whose MAC is completed from the
  // packet's own group address.
  for (const bool srcOn : {false, true}) {
    if (srcOn && srcT == nullptr) continue;
    for (const bool dstOn : {false, true}) {
      if (dstOn && dstT == nullptr) continue;
      const int priority = 10 + 10 * (2 * static_cast<int>(srcOn) + static_cast<int>(dstOn));
      std::string match;
      std::string rewrites;
      if (srcOn) {
        match += endpointMatch("src", srcT->flow.ip(), srcT->pfxLen, srcT->flow.port());
        rewrites += rewrite("src", srcT->nat);
      }
      const std::uint32_t dstLen = dstOn ? std::min<std::uint32_t>(dstT->pfxLen, 32) : 0;
      const std::uint32_t dstNet = dstOn ? dstT->flow.ip().value() & prefixMask(dstLen) : 0;
      const std::uint16_t dstPort = dstOn ? dstT->flow.port() : 0;
      const std::string dstMatch =
          dstOn ? endpointMatch("dst", dstT->flow.ip(), dstLen, dstPort) : "";
      if (dstOn) rewrites += rewrite("dst", dstT->nat);
      const Nexo::EthAddr dmac = dstOn ? dstT->dmac : ps.dmac;
      if (dmac != kMulticastMacPrefix) {
        add(priority, match + dstMatch, rewrites + "set_field:" + macText(dmac) + "->eth_dst,");
        continue;
      }
      if (dstOn && !dstT->nat.ip().isZero()) {
        // The destination is rewritten to a known address.
        const std::uint32_t to = dstT->nat.ip().value();
        const Nexo::EthAddr mac =
            Nexo::IpAddr(to).isMulticast() ? Nexo::EthAddr::ipv4Multicast(to) : dmac;
        add(priority, match + dstMatch, rewrites + "set_field:" + macText(mac) + "->eth_dst,");
        continue;
      }
      const std::string prefixMac = "set_field:" + macText(dmac) + "->eth_dst,";
      if (dstLen >= kMulticastLen) {
        // Every covered destination is multicast, or none is.
        const bool multicast = (dstNet & prefixMask(kMulticastLen)) == kMulticastNet;
        add(priority, match + dstMatch, rewrites + (multicast ? kMulticastMacFromDst : prefixMac));
        continue;
      }
      add(priority, match + dstMatch, rewrites + prefixMac);
      if ((kMulticastNet & prefixMask(dstLen)) == dstNet) {
        add(priority + 5,
            match + endpointMatch("dst", Nexo::IpAddr(kMulticastNet), kMulticastLen, dstPort),
            rewrites + kMulticastMacFromDst);
      }
    }
  }
}

std::vector<NatFlowHelper::ClassifierInput> NatFlowHelper::classifierInputs() const {
  std::vector<ClassifierInput> inputs;
  if (!natStatus_ || groups_.empty()) return inputs;
  for (const auto& [policyName, policy] : natStatus_->natFlow()) {
    for (const auto& [matchName, match] : policy->match()) {
      inputs.push_back({policyName.str(), matchName.str(), match->flow()});
    }
  }
  return inputs;
}

std::size_t NatFlowHelper::sync() {
  const auto start = Clock::now();
  // Only the parts of the pipeline that may have changed are rendered again: the port sets and
  // groups that calls touched, and the classifier when groups came or went or a flow changed.
  if (!cleared_) {
    dirtyPortSets_.clear();
    for (const auto& [key, ps] : portSets_) dirtyPortSets_.insert(key);
    dirtyGroups_.clear();
    for (const auto& [id, group] : groups_) dirtyGroups_.insert(id);
  }
  std::vector<ClassifierInput> inputs = classifierInputs();
  const bool classifierChanged = !cleared_ || classifierDirty_ || inputs != classifierInputs_;

  // The new content of each dirty part, and the keys its flows had.
  struct Part {
    std::vector<std::string> oldKeys;
    OpenFlowState now;
  };
  std::map<std::pair<int, PortSetKey>, Part> parts;  // (0 fixed | 1 classifier | 2 port set)
  if (!cleared_) renderFixed(parts[{0, {}}].now);
  if (classifierChanged) renderClassifier(parts[{1, {}}].now);
  for (const PortSetKey& key : dirtyPortSets_) {
    Part& part = parts[{2, key}];
    if (const auto ps = portSets_.find(key); ps != portSets_.end()) {
      renderPortSet(key, ps->second, part.now);
    }
  }
  for (auto& [id, part] : parts) {
    if (const auto keys = partKeys_.find(id); keys != partKeys_.end()) part.oldKeys = keys->second;
  }
  OpenFlowState groupsNow;
  for (const std::uint32_t id : dirtyGroups_) {
    if (groups_.count(id) != 0) renderGroup(id, groupsNow);
  }

  std::string mods;
  std::size_t count = 0;
  const auto line = [&](const std::string& text) {
    mods += text;
    mods += '\n';
    ++count;
  };
  if (!cleared_) {
    // The bridge starts with whatever it held (a new bridge forwards everything normally).
    line("flow delete");
    line("group delete group_id=all");
  }
  // Groups first, so that flows find them; flows before groups go, so that none is left
  // pointing to a group that is gone.
  for (const auto& [id, description] : groupsNow.groups) {
    const auto had = pushed_.groups.find(id);
    if (had == pushed_.groups.end()) {
      line("group add " + description);
    } else if (had->second != description) {
      line("group modify " + description);
    }
  }
  for (const auto& [id, part] : parts) {
    for (const std::string& key : part.oldKeys) {
      if (part.now.flows.count(key) == 0) line("flow delete_strict " + key);
    }
  }
  for (const auto& [id, part] : parts) {
    for (const auto& [key, actions] : part.now.flows) {
      const auto had = pushed_.flows.find(key);
      if (had == pushed_.flows.end() || had->second != actions) {
        line("flow add " + key + "," + actions);
      }
    }
  }
  for (const std::uint32_t id : dirtyGroups_) {
    if (groups_.count(id) == 0 && pushed_.groups.count(id) != 0) {
      line("group delete group_id=" + std::to_string(id));
    }
  }

  if (count != 0) {
    instance_.bundle(mods);  // throws, and everything stays dirty, on a refusal
    // The datapath caches the decisions of the old tables and revalidates them in the
    // background: a frame sent right away could still take a removed flow. Purging the cached
    // flows makes the next frame go through the new tables.
    instance_.appctl({"revalidator/purge"});
  }

  // The bridge now holds the new parts.
  for (auto& [id, part] : parts) {
    for (const std::string& key : part.oldKeys) pushed_.flows.erase(key);
    std::vector<std::string>& keys = partKeys_[id];
    keys.clear();
    for (auto& [key, actions] : part.now.flows) {
      keys.push_back(key);
      pushed_.flows[key] = std::move(actions);
    }
    if (keys.empty()) partKeys_.erase(id);
  }
  for (const std::uint32_t id : dirtyGroups_) {
    if (auto description = groupsNow.groups.find(id); description != groupsNow.groups.end()) {
      pushed_.groups[id] = std::move(description->second);
    } else {
      pushed_.groups.erase(id);
    }
  }
  dirtyPortSets_.clear();
  dirtyGroups_.clear();
  classifierDirty_ = false;
  classifierInputs_ = std::move(inputs);
  cleared_ = true;
  if (count == 0) return 0;
  const auto took = std::chrono::duration_cast<std::chrono::nanoseconds>(Clock::now() - start);
  ++stats_.syncs;
  stats_.mods += count;
  stats_.syncTime += took;
  stats_.longestSync = std::max(stats_.longestSync, took);
  return count;
}

std::string NatFlowHelper::dump() const {
  std::vector<std::string> groups = entries(instance_.ofctl("dump-groups"));
  std::sort(groups.begin(), groups.end(), [](const std::string& a, const std::string& b) {
    return numberAfter(a, "group_id") < numberAfter(b, "group_id");
  });
  std::vector<std::string> flows = entries(instance_.ofctl("dump-flows", {"--no-stats"}));
  // By table, then the highest priority first, as the switch looks them up.
  std::stable_sort(flows.begin(), flows.end(), [](const std::string& a, const std::string& b) {
    const auto ta = numberAfter(a, "table");
    const auto tb = numberAfter(b, "table");
    if (ta != tb) return ta < tb;
    const auto pa = numberAfter(a, "priority");
    const auto pb = numberAfter(b, "priority");
    if (pa != pb) return pa > pb;
    return a < b;
  });
  std::string text;
  for (const std::string& g : groups) text += g + "\n";
  for (const std::string& f : flows) text += f + "\n";
  return text;
}

}  // namespace Ovs
