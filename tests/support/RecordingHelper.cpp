#include "RecordingHelper.h"

#include <sstream>

namespace UmoNatTest {

namespace {

template <class... Args>
std::string call(const char* name, const Args&... args) {
  std::ostringstream os;
  os << name << "(";
  const char* sep = "";
  ((os << sep << args, sep = ", "), ...);
  os << ")";
  return os.str();
}

std::uint32_t lowestFree(const std::set<std::uint32_t>& used) {
  std::uint32_t id = 1;
  for (std::uint32_t u : used) {
    if (u != id) break;
    ++id;
  }
  return id;
}

}  // namespace

RecordingHelper::RecordingHelper() : UmoHelper::UmoNatFlowMcastHelper("RecordingHelper") {}

std::uint32_t RecordingHelper::createNatFlowGroup(const Pelo::String& policy,
                                                  const Pelo::String& match, bool unicast) {
  std::uint32_t id = 0;
  const bool full = groupCapacity_ != 0 && groups_.size() >= groupCapacity_;
  if (failNextGroups_ > 0) {
    --failNextGroups_;
  } else if (!full && !(unicast ? failUnicastGroups_ : failMulticastGroups_)) {
    id = lowestFree(groups_);
    groups_.insert(id);
  }
  calls_.push_back(call("createNatFlowGroup", policy, match, unicast ? "true" : "false") + " = " +
                   std::to_string(id));
  return id;
}

void RecordingHelper::deleteNatFlowGroup(const Pelo::String& policy, const Pelo::String& match,
                                         std::uint32_t groupId) {
  groups_.erase(groupId);
  calls_.push_back(call("deleteNatFlowGroup", policy, match, groupId));
}

std::uint32_t RecordingHelper::updateNatFlowVlanPortSet(
    std::uint32_t groupId, std::uint32_t portSetId,
    const Mox::Ptr<const Ip::Nat::NatFlowPortSet>& ps) {
  std::uint32_t id = portSetId;
  if (id == 0) {
    std::set<std::uint32_t> used;
    for (const auto& [g, p] : portSets_) {
      if (g == groupId) used.insert(p);
    }
    id = lowestFree(used);
    portSets_.insert({groupId, id});
  }
  calls_.push_back(call("updateNatFlowVlanPortSet", groupId, portSetId, ps ? ps->vlan() : 0) +
                   " = " + std::to_string(id));
  return id;
}

void RecordingHelper::deleteNatFlowVlanPortSet(std::uint32_t groupId, std::uint32_t portSetId) {
  portSets_.erase({groupId, portSetId});
  calls_.push_back(call("deleteNatFlowVlanPortSet", groupId, portSetId));
}

bool RecordingHelper::updateNatFlowSrcTranslation(std::uint32_t groupId, std::uint32_t portSetId,
                                                  std::uint16_t vlan, const Nexo::IpAndPort& srcNat,
                                                  const Nexo::IpAndPort& srcFlow,
                                                  std::uint32_t pfxLen) {
  calls_.push_back(
      call("updateNatFlowSrcTranslation", groupId, portSetId, vlan, srcNat, srcFlow, pfxLen));
  return true;
}

void RecordingHelper::deleteNatFlowSrcTranslation(std::uint32_t groupId, std::uint32_t portSetId) {
  calls_.push_back(call("deleteNatFlowSrcTranslation", groupId, portSetId));
}

bool RecordingHelper::updateNatFlowDstTranslation(std::uint32_t groupId, std::uint32_t portSetId,
                                                  std::uint16_t vlan, const Nexo::IpAndPort& dstNat,
                                                  const Nexo::IpAndPort& dstFlow,
                                                  std::uint32_t pfxLen, const Nexo::EthAddr& dmac) {
  calls_.push_back(
      call("updateNatFlowDstTranslation", groupId, portSetId, vlan, dstNat, dstFlow, pfxLen, dmac));
  return true;
}

void RecordingHelper::deleteNatFlowDstTranslation(std::uint32_t groupId, std::uint32_t portSetId) {
  calls_.push_back(call("deleteNatFlowDstTranslation", groupId, portSetId));
}

std::vector<std::string> RecordingHelper::takeCalls() {
  std::vector<std::string> out;
  out.swap(calls_);
  return out;
}

std::vector<std::string> RecordingHelper::takeCalls(std::string_view part) {
  std::vector<std::string> out;
  for (auto& c : takeCalls()) {
    if (c.find(part) != std::string::npos) out.push_back(std::move(c));
  }
  return out;
}

}  // namespace UmoNatTest
