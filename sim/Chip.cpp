#include "sim/Chip.h"

#include <algorithm>
#include <cstdio>
#include <ostream>
#include <sstream>
#include <tuple>

#include "Mox/Trace.h"

namespace Sim {

namespace {

constinit Mox::TraceHandle traceHandle("SimChip");

std::string capacityText(std::size_t capacity) {
  return capacity == Chip::kUnlimited ? "unlimited" : std::to_string(capacity);
}

std::string intfListText(const std::vector<Nexo::IntfId>& intfs) {
  std::string text = "[";
  const char* sep = "";
  for (const Nexo::IntfId& intf : intfs) {
    text += sep;
    // An empty name stays visible.
    text += intf.empty() ? "\"\"" : intf.name().str();
    sep = " ";
  }
  return text + "]";
}

std::string portSetText(const Chip::PortSetKey& key) {
  return "group " + std::to_string(key.first) + " port set " + std::to_string(key.second);
}

// The lowest id from 1 that `used` (ascending) does not hold.
template <class Ids>
std::uint32_t lowestFree(const Ids& used) {
  std::uint32_t id = 1;
  for (std::uint32_t u : used) {
    if (u != id) break;
    ++id;
  }
  return id;
}

// True when the first `len` bits of `addr` and `prefix` agree (the bits of `prefix` beyond `len`
// do not count).
bool inPrefix(Nexo::IpAddr addr, Nexo::IpAddr prefix, std::uint32_t len) {
  if (len == 0) return true;
  const std::uint32_t mask = len >= 32 ? 0xffffffffU : ~(0xffffffffU >> len);
  return (addr.value() & mask) == (prefix.value() & mask);
}

// Port 0 in a flow matches any port.
bool portMatches(std::uint16_t flowPort, std::uint16_t port) {
  return flowPort == 0 || flowPort == port;
}

bool flowMatches(const Ip::Nat::NatFlow& flow, const Packet& packet) {
  return inPrefix(packet.src.ip(), flow.srcAddr(), flow.srcPrefixLen()) &&
         portMatches(flow.srcPort(), packet.src.port()) &&
         inPrefix(packet.dst.ip(), flow.dstAddr(), flow.dstPrefixLen()) &&
         portMatches(flow.dstPort(), packet.dst.port());
}

// How specific a flow is; of several flows that match a packet, the greatest takes it: the longer
// destination prefix, then the longer source prefix, then a given destination port, then a given
// source port.
auto specificity(const Ip::Nat::NatFlow& flow) {
  return std::tuple(flow.dstPrefixLen(), flow.srcPrefixLen(), flow.dstPort() != 0,
                    flow.srcPort() != 0);
}

// `endpoint` rewritten by a translation to `nat`: the address 0.0.0.0 rewrites nothing, the port
// 0 keeps the packet's port.
Nexo::IpAndPort translated(const Nexo::IpAndPort& endpoint, const Nexo::IpAndPort& nat) {
  if (nat.ip().isZero()) return endpoint;
  return Nexo::IpAndPort(nat.ip(), nat.port() == 0 ? endpoint.port() : nat.port());
}

// The destination MAC of a copy to `dst`: the IPv4 multicast prefix, which the system gives every
// multicast port set, completed from a multicast destination; any other MAC as it is.
Nexo::EthAddr copyMac(const Nexo::EthAddr& mac, const Nexo::IpAndPort& dst) {
  if (mac != Nexo::EthAddr::ipv4MulticastPrefix() || !dst.ip().isMulticast()) return mac;
  return Nexo::EthAddr::ipv4Multicast(dst.ip().value());
}

}  // namespace

const char* Chip::opName(Op op) {
  switch (op) {
    case Op::createNatFlowGroup:
      return "createNatFlowGroup";
    case Op::deleteNatFlowGroup:
      return "deleteNatFlowGroup";
    case Op::updateNatFlowVlanPortSet:
      return "updateNatFlowVlanPortSet";
    case Op::deleteNatFlowVlanPortSet:
      return "deleteNatFlowVlanPortSet";
    case Op::updateNatFlowSrcTranslation:
      return "updateNatFlowSrcTranslation";
    case Op::deleteNatFlowSrcTranslation:
      return "deleteNatFlowSrcTranslation";
    case Op::updateNatFlowDstTranslation:
      return "updateNatFlowDstTranslation";
    case Op::deleteNatFlowDstTranslation:
      return "deleteNatFlowDstTranslation";
  }
  return "?";
}

Chip::Chip() : UmoHelper::UmoNatFlowMcastHelper("SimChip") {}

Chip::~Chip() = default;

template <class T>
void Chip::compareMirror(const T& want, const T& got) {
  if (want == got) return;
  std::ostringstream text;
  text << std::boolalpha << "#" << calls_.size() << " " << calls_.back().text
       << ": the dataplane answered " << got;
  divergences_.push_back(text.str());
}

void Chip::log(Op op, std::string text, const std::string& result, const std::string& note,
               const std::string& violation) {
  Counter& counter = counters_[static_cast<std::size_t>(op)];
  ++counter.calls;
  if (!result.empty()) text += " = " + result;
  if (!violation.empty()) {
    ++counter.refused;
    ++violationCount_;
    text += "  REFUSED: " + violation;
  } else if (!note.empty()) {
    ++counter.failed;
    text += "  (" + note + ")";
  }
  MOX_TRACE(traceHandle, 1, text);
  calls_.push_back(Call{calls_.size() + 1, std::move(text), violation});
}

std::string Chip::groupViolation(std::uint32_t groupId) const {
  if (groups_.count(groupId) != 0) return "";
  if (freedGroups_.count(groupId) != 0) {
    return "group " + std::to_string(groupId) + " was already freed";
  }
  return "group " + std::to_string(groupId) + " is not allocated";
}

std::string Chip::portSetViolation(std::uint32_t groupId, std::uint32_t portSetId) const {
  std::string violation = groupViolation(groupId);
  if (!violation.empty()) return violation;
  if (portSets_.count({groupId, portSetId}) != 0) return "";
  return "group " + std::to_string(groupId) + " has no port set " + std::to_string(portSetId);
}

std::string Chip::groupContents(std::uint32_t groupId) const {
  const auto inGroup = [groupId](const auto& table) {
    std::size_t n = 0;
    for (auto it = table.lower_bound({groupId, 0}); it != table.end() && it->first.first == groupId;
         ++it) {
      ++n;
    }
    return n;
  };
  const std::size_t portSets = inGroup(portSets_);
  const std::size_t translations = inGroup(srcTranslations_) + inGroup(dstTranslations_);
  std::string text;
  if (portSets != 0) {
    text = std::to_string(portSets) + " port set" + (portSets == 1 ? "" : "s");
  }
  if (translations != 0) {
    text += (text.empty() ? "" : ", ") + std::to_string(translations) + " translation" +
            (translations == 1 ? "" : "s");
  }
  return text;
}

std::uint32_t Chip::createNatFlowGroup(const Pelo::String& policy, const Pelo::String& match,
                                       bool unicast) {
  const std::string text = std::string(opName(Op::createNatFlowGroup)) + "(" + policy.str() + ", " +
                           match.str() + ", unicast=" + (unicast ? "true" : "false") + ")";
  std::string note;
  if (failNextGroups_ > 0) {
    --failNextGroups_;
    note = "injected failure, " + std::to_string(failNextGroups_) + " more to fail";
  } else if (unicast && failUnicastGroups_) {
    note = "injected failure of unicast groups";
  } else if (!unicast && failMulticastGroups_) {
    note = "injected failure of multicast groups";
  } else if (groups_.size() >= groupCapacity_) {
    note = "full: " + std::to_string(groups_.size()) + " of " + capacityText(groupCapacity_) +
           " groups in use";
  }
  if (!note.empty()) {
    log(Op::createNatFlowGroup, text, "0", note, "");
    return 0;
  }
  std::vector<std::uint32_t> used;
  used.reserve(groups_.size());
  for (const auto& [id, group] : groups_) used.push_back(id);
  const std::uint32_t id = lowestFree(used);
  groups_.emplace(id, Group{policy, match, unicast, calls_.size() + 1});
  freedGroups_.erase(id);
  log(Op::createNatFlowGroup, text, std::to_string(id), "", "");
  if (mirror_) compareMirror(id, mirror_->createNatFlowGroup(policy, match, unicast));
  return id;
}

void Chip::deleteNatFlowGroup(const Pelo::String& policy, const Pelo::String& match,
                              std::uint32_t groupId) {
  const std::string text = std::string(opName(Op::deleteNatFlowGroup)) + "(" + policy.str() + ", " +
                           match.str() + ", group=" + std::to_string(groupId) + ")";
  std::string violation = groupViolation(groupId);
  if (violation.empty()) {
    const Group& group = groups_.at(groupId);
    if (group.policy != policy || group.match != match) {
      violation = "group " + std::to_string(groupId) + " belongs to " + group.policy.str() + "/" +
                  group.match.str();
    } else if (const std::string contents = groupContents(groupId); !contents.empty()) {
      violation = "group " + std::to_string(groupId) + " still holds " + contents;
    }
  }
  if (violation.empty()) {
    groups_.erase(groupId);
    freedGroups_.insert(groupId);
  }
  log(Op::deleteNatFlowGroup, text, "", "", violation);
  if (mirror_ && violation.empty()) mirror_->deleteNatFlowGroup(policy, match, groupId);
}

std::uint32_t Chip::updateNatFlowVlanPortSet(std::uint32_t groupId, std::uint32_t portSetId,
                                             const Mox::Ptr<const Ip::Nat::NatFlowPortSet>& ps) {
  std::string text = std::string(opName(Op::updateNatFlowVlanPortSet)) +
                     "(group=" + std::to_string(groupId) + ", portSet=" + std::to_string(portSetId);
  PortSet entry;
  if (ps) {
    entry.vlan = ps->vlan();
    for (const auto& [intf, member] : ps->intf()) entry.intf.push_back(intf);
    entry.dmac = ps->dmac();
    text += ", vlan=" + std::to_string(entry.vlan) + ", intf=" + intfListText(entry.intf) +
            ", dmac=" + entry.dmac.stringValue().str();
  } else {
    text += ", null";
  }
  text += ")";

  std::string violation = groupViolation(groupId);
  if (violation.empty() && !ps) violation = "no port set given";
  if (violation.empty() && portSetId != 0) violation = portSetViolation(groupId, portSetId);
  if (!violation.empty()) {
    log(Op::updateNatFlowVlanPortSet, text, "0", "", violation);
    return 0;
  }
  if (portSetId != 0) {
    portSets_[{groupId, portSetId}] = std::move(entry);
    log(Op::updateNatFlowVlanPortSet, text, std::to_string(portSetId), "", "");
    if (mirror_)
      compareMirror(portSetId, mirror_->updateNatFlowVlanPortSet(groupId, portSetId, ps));
    return portSetId;
  }
  if (portSets_.size() >= portSetCapacity_) {
    log(Op::updateNatFlowVlanPortSet, text, "0",
        "full: " + std::to_string(portSets_.size()) + " of " + capacityText(portSetCapacity_) +
            " port sets in use",
        "");
    return 0;
  }
  std::vector<std::uint32_t> used;
  for (auto it = portSets_.lower_bound({groupId, 0});
       it != portSets_.end() && it->first.first == groupId; ++it) {
    used.push_back(it->first.second);
  }
  const std::uint32_t id = lowestFree(used);
  portSets_.emplace(PortSetKey{groupId, id}, std::move(entry));
  log(Op::updateNatFlowVlanPortSet, text, std::to_string(id), "", "");
  if (mirror_) compareMirror(id, mirror_->updateNatFlowVlanPortSet(groupId, 0, ps));
  return id;
}

void Chip::deleteNatFlowVlanPortSet(std::uint32_t groupId, std::uint32_t portSetId) {
  const std::string text = std::string(opName(Op::deleteNatFlowVlanPortSet)) +
                           "(group=" + std::to_string(groupId) +
                           ", portSet=" + std::to_string(portSetId) + ")";
  const std::string violation = portSetViolation(groupId, portSetId);
  // Its translations stay until they are removed themselves.
  if (violation.empty()) portSets_.erase({groupId, portSetId});
  log(Op::deleteNatFlowVlanPortSet, text, "", "", violation);
  if (mirror_ && violation.empty()) mirror_->deleteNatFlowVlanPortSet(groupId, portSetId);
}

bool Chip::updateNatFlowSrcTranslation(std::uint32_t groupId, std::uint32_t portSetId,
                                       std::uint16_t vlan, const Nexo::IpAndPort& srcNat,
                                       const Nexo::IpAndPort& srcFlow, std::uint32_t pfxLen) {
  const std::string text =
      std::string(opName(Op::updateNatFlowSrcTranslation)) + "(group=" + std::to_string(groupId) +
      ", portSet=" + std::to_string(portSetId) + ", vlan=" + std::to_string(vlan) +
      ", srcNat=" + srcNat.stringValue().str() + ", srcFlow=" + srcFlow.stringValue().str() +
      ", pfxLen=" + std::to_string(pfxLen) + ")";
  const std::string violation = portSetViolation(groupId, portSetId);
  if (!violation.empty()) {
    log(Op::updateNatFlowSrcTranslation, text, "false", "", violation);
    return false;
  }
  const PortSetKey key{groupId, portSetId};
  if (srcTranslations_.count(key) == 0 && translationCount() >= translationCapacity_) {
    log(Op::updateNatFlowSrcTranslation, text, "false",
        "full: " + std::to_string(translationCount()) + " of " +
            capacityText(translationCapacity_) + " translations in use",
        "");
    return false;
  }
  srcTranslations_[key] = SrcTranslation{vlan, srcNat, srcFlow, pfxLen};
  log(Op::updateNatFlowSrcTranslation, text, "true", "", "");
  if (mirror_) {
    compareMirror(true, mirror_->updateNatFlowSrcTranslation(groupId, portSetId, vlan, srcNat,
                                                             srcFlow, pfxLen));
  }
  return true;
}

void Chip::deleteNatFlowSrcTranslation(std::uint32_t groupId, std::uint32_t portSetId) {
  std::string text = std::string(opName(Op::deleteNatFlowSrcTranslation)) +
                     "(group=" + std::to_string(groupId) +
                     ", portSet=" + std::to_string(portSetId) + ")";
  const std::string violation = groupViolation(groupId);
  if (violation.empty() && srcTranslations_.erase({groupId, portSetId}) == 0) {
    text += "  (no source translation to remove)";
  }
  log(Op::deleteNatFlowSrcTranslation, text, "", "", violation);
  if (mirror_ && violation.empty()) mirror_->deleteNatFlowSrcTranslation(groupId, portSetId);
}

bool Chip::updateNatFlowDstTranslation(std::uint32_t groupId, std::uint32_t portSetId,
                                       std::uint16_t vlan, const Nexo::IpAndPort& dstNat,
                                       const Nexo::IpAndPort& dstFlow, std::uint32_t pfxLen,
                                       const Nexo::EthAddr& dmac) {
  const std::string text =
      std::string(opName(Op::updateNatFlowDstTranslation)) + "(group=" + std::to_string(groupId) +
      ", portSet=" + std::to_string(portSetId) + ", vlan=" + std::to_string(vlan) +
      ", dstNat=" + dstNat.stringValue().str() + ", dstFlow=" + dstFlow.stringValue().str() +
      ", pfxLen=" + std::to_string(pfxLen) + ", dmac=" + dmac.stringValue().str() + ")";
  const std::string violation = portSetViolation(groupId, portSetId);
  if (!violation.empty()) {
    log(Op::updateNatFlowDstTranslation, text, "false", "", violation);
    return false;
  }
  const PortSetKey key{groupId, portSetId};
  if (dstTranslations_.count(key) == 0 && translationCount() >= translationCapacity_) {
    log(Op::updateNatFlowDstTranslation, text, "false",
        "full: " + std::to_string(translationCount()) + " of " +
            capacityText(translationCapacity_) + " translations in use",
        "");
    return false;
  }
  dstTranslations_[key] = DstTranslation{vlan, dstNat, dstFlow, pfxLen, dmac};
  log(Op::updateNatFlowDstTranslation, text, "true", "", "");
  if (mirror_) {
    compareMirror(true, mirror_->updateNatFlowDstTranslation(groupId, portSetId, vlan, dstNat,
                                                             dstFlow, pfxLen, dmac));
  }
  return true;
}

void Chip::deleteNatFlowDstTranslation(std::uint32_t groupId, std::uint32_t portSetId) {
  std::string text = std::string(opName(Op::deleteNatFlowDstTranslation)) +
                     "(group=" + std::to_string(groupId) +
                     ", portSet=" + std::to_string(portSetId) + ")";
  const std::string violation = groupViolation(groupId);
  if (violation.empty() && dstTranslations_.erase({groupId, portSetId}) == 0) {
    text += "  (no destination translation to remove)";
  }
  log(Op::deleteNatFlowDstTranslation, text, "", "", violation);
  if (mirror_ && violation.empty()) mirror_->deleteNatFlowDstTranslation(groupId, portSetId);
}

Forwarding Chip::forward(const Packet& packet) const {
  Forwarding forwarding;
  forwarding.passes.push_back(forwardOnce(packet));
  // The copies sent into the recirculation interface come back in as packets of their own.
  const std::vector<Copy> first = forwarding.passes.front().copies;
  for (const Copy& copy : first) {
    if (!copy.recirculated()) continue;
    forwarding.passes.push_back(forwardOnce(Packet{Nexo::IntfId(), copy.vlan, copy.src, copy.dst}));
  }
  return forwarding;
}

Pass Chip::forwardOnce(const Packet& packet) const {
  Pass pass;
  pass.packet = packet;
  // The match that takes the packet is the most specific one that holds a group; a more
  // specific match without a group has no entry in the chip and is named only when no match
  // takes the packet.
  struct Candidate {
    const Ip::Nat::NatFlowPolicyStatus* policy = nullptr;
    const Ip::Nat::NatFlowMatchStatus* match = nullptr;
    std::uint32_t group = 0;
  };
  Candidate best;
  Candidate groupless;
  if (natStatus_) {
    // Policies and matches in ascending name order: of equally specific flows the first wins.
    for (const auto& [policyName, policy] : natStatus_->natFlow()) {
      for (const auto& [matchName, match] : policy->match()) {
        if (!flowMatches(match->flow(), packet)) continue;
        const std::uint32_t group = groupFor(policyName, matchName, packet);
        Candidate& slot = group == 0 ? groupless : best;
        if (slot.match == nullptr || specificity(match->flow()) > specificity(slot.match->flow())) {
          slot = Candidate{policy.get(), match.get(), group};
        }
      }
    }
  }
  const Candidate& taken = best.match != nullptr ? best : groupless;
  if (taken.match == nullptr) {
    pass.drop = "no flow matches";
    return pass;
  }
  pass.policy = taken.policy->name();
  pass.match = taken.match->name();
  pass.flow = taken.match->flow();
  if (best.match == nullptr) {
    pass.drop = "the match holds no group";
    return pass;
  }
  pass.group = best.group;
  const std::uint32_t bestGroup = best.group;
  auto it = portSets_.lower_bound({bestGroup, 0});
  if (it == portSets_.end() || it->first.first != bestGroup) {
    pass.drop = "the group has no port set";
    return pass;
  }
  for (; it != portSets_.end() && it->first.first == bestGroup; ++it) {
    emit(it->first, it->second, packet, pass.copies);
  }
  // A packet is recirculated once: a copy of a recirculated packet into the recirculation
  // interface is dropped, so that no packet loops.
  if (packet.intf.empty()) {
    const auto recirculated = std::remove_if(pass.copies.begin(), pass.copies.end(),
                                             [](const Copy& copy) { return copy.recirculated(); });
    pass.recirculationDropped = recirculated != pass.copies.end();
    pass.copies.erase(recirculated, pass.copies.end());
  }
  std::sort(pass.copies.begin(), pass.copies.end());
  if (pass.copies.empty()) {
    pass.drop = pass.recirculationDropped ? "a recirculated packet is not recirculated again"
                                          : "the group's port sets hold no interface";
  }
  return pass;
}

std::uint32_t Chip::groupFor(const Pelo::String& policy, const Pelo::String& match,
                             const Packet& packet) const {
  // The newest group of each kind that the match holds.
  const std::pair<const std::uint32_t, Group>* uc = nullptr;
  const std::pair<const std::uint32_t, Group>* mc = nullptr;
  for (const auto& entry : groups_) {
    const Group& group = entry.second;
    if (group.policy != policy || group.match != match) continue;
    const auto*& newest = group.unicast ? uc : mc;
    if (newest == nullptr || group.allocation > newest->second.allocation) newest = &entry;
  }
  // With both kinds the destination chooses; with one kind, that group takes every packet.
  if (uc != nullptr && mc != nullptr) return packet.dst.ip().isMulticast() ? mc->first : uc->first;
  if (uc != nullptr) return uc->first;
  if (mc != nullptr) return mc->first;
  return 0;
}

void Chip::emit(const PortSetKey& key, const PortSet& ps, const Packet& packet,
                std::vector<Copy>& copies) const {
  Nexo::IpAndPort src = packet.src;
  Nexo::IpAndPort dst = packet.dst;
  Nexo::EthAddr dmac = ps.dmac;
  // A translation applies to the copies on its VLAN of the packets its flow covers.
  if (const auto t = srcTranslations_.find(key); t != srcTranslations_.end()) {
    const SrcTranslation& s = t->second;
    if (s.vlan == ps.vlan && inPrefix(packet.src.ip(), s.srcFlow.ip(), s.pfxLen) &&
        portMatches(s.srcFlow.port(), packet.src.port())) {
      src = translated(packet.src, s.srcNat);
    }
  }
  if (const auto t = dstTranslations_.find(key); t != dstTranslations_.end()) {
    const DstTranslation& d = t->second;
    if (d.vlan == ps.vlan && inPrefix(packet.dst.ip(), d.dstFlow.ip(), d.pfxLen) &&
        portMatches(d.dstFlow.port(), packet.dst.port())) {
      dst = translated(packet.dst, d.dstNat);
      // The destination translation carries the MAC of the copies: it is reprogrammed alone
      // when only the next hop's MAC changes.
      dmac = d.dmac;
    }
  }
  dmac = copyMac(dmac, dst);
  for (const Nexo::IntfId& intf : ps.intf) copies.push_back(Copy{intf, ps.vlan, dmac, src, dst});
}

std::vector<const Chip::Call*> Chip::violations() const {
  std::vector<const Call*> out;
  out.reserve(violationCount_);
  for (const Call& call : calls_) {
    if (!call.violation.empty()) out.push_back(&call);
  }
  return out;
}

void Chip::printGroups(std::ostream& os) const {
  for (const auto& [id, group] : groups_) {
    os << "  group " << id << "  " << group.policy << "/" << group.match << "  "
       << (group.unicast ? "unicast" : "multicast") << "\n";
  }
}

void Chip::printPortSets(std::ostream& os) const {
  for (const auto& [key, ps] : portSets_) {
    os << "  " << portSetText(key) << "  vlan " << ps.vlan << "  dmac " << ps.dmac << "  intf "
       << intfListText(ps.intf) << "\n";
  }
}

void Chip::printTranslations(std::ostream& os) const {
  // Source and destination translations of one port set print together, source first.
  std::set<PortSetKey> keys;
  for (const auto& [key, t] : srcTranslations_) keys.insert(key);
  for (const auto& [key, t] : dstTranslations_) keys.insert(key);
  for (const PortSetKey& key : keys) {
    if (auto it = srcTranslations_.find(key); it != srcTranslations_.end()) {
      const SrcTranslation& t = it->second;
      os << "  " << portSetText(key) << "  src  vlan " << t.vlan << "  " << t.srcFlow << "/"
         << t.pfxLen << " -> " << t.srcNat << "\n";
    }
    if (auto it = dstTranslations_.find(key); it != dstTranslations_.end()) {
      const DstTranslation& t = it->second;
      os << "  " << portSetText(key) << "  dst  vlan " << t.vlan << "  " << t.dstFlow << "/"
         << t.pfxLen << " -> " << t.dstNat << "  dmac " << t.dmac << "\n";
    }
  }
}

void Chip::printTables(std::ostream& os) const {
  os << "chip groups: " << groups_.size() << " of " << capacityText(groupCapacity_) << " in use\n";
  printGroups(os);
  os << "chip port sets: " << portSets_.size() << " of " << capacityText(portSetCapacity_)
     << " in use\n";
  printPortSets(os);
  os << "chip translations: " << translationCount() << " of " << capacityText(translationCapacity_)
     << " in use\n";
  printTranslations(os);
  os << "chip faults:";
  if (failNextGroups_ == 0 && !failUnicastGroups_ && !failMulticastGroups_) os << " none";
  if (failNextGroups_ != 0) os << " fail the next " << failNextGroups_ << " group requests;";
  if (failUnicastGroups_) os << " fail unicast group requests;";
  if (failMulticastGroups_) os << " fail multicast group requests;";
  os << "\n";
}

void Chip::printCalls(std::ostream& os) const {
  if (calls_.empty()) os << "no chip calls\n";
  for (const Call& call : calls_) os << "#" << call.number << " " << call.text << "\n";
}

void Chip::printCallsSinceLastLook(std::ostream& os) {
  if (callsSeen_ == calls_.size()) os << "no chip calls since the last look\n";
  for (; callsSeen_ < calls_.size(); ++callsSeen_) {
    const Call& call = calls_[callsSeen_];
    os << "#" << call.number << " " << call.text << "\n";
  }
}

void Chip::printCounters(std::ostream& os) const {
  char line[96];
  std::snprintf(line, sizeof line, "%-28s %8s %8s %8s\n", "operation", "calls", "failed",
                "refused");
  os << line;
  for (std::size_t i = 0; i < kOpCount; ++i) {
    const Counter& c = counters_[i];
    std::snprintf(line, sizeof line, "%-28s %8llu %8llu %8llu\n", opName(static_cast<Op>(i)),
                  static_cast<unsigned long long>(c.calls),
                  static_cast<unsigned long long>(c.failed),
                  static_cast<unsigned long long>(c.refused));
    os << line;
  }
}

void Chip::printLeftovers(std::ostream& os) const {
  if (empty()) {
    os << "chip holds nothing\n";
  } else {
    os << "chip still holds " << groups_.size() << " group(s), " << portSets_.size()
       << " port set(s), " << translationCount() << " translation(s):\n";
    printGroups(os);
    printPortSets(os);
    printTranslations(os);
  }
  if (violationCount_ == 0) {
    os << "chip violations: none\n";
    return;
  }
  os << "chip violations: " << violationCount_ << "\n";
  for (const Call* call : violations()) os << "  #" << call->number << " " << call->text << "\n";
}

}  // namespace Sim
