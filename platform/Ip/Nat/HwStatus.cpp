#include "Ip/Nat/HwStatus.h"

#include <utility>
#include <vector>

#include "Mox/Assert.h"

namespace Ip::Nat {

// NatFlowPortSet

NatFlowPortSet::NatFlowPortSet(std::uint16_t vlan) : vlan_(vlan) {}

void NatFlowPortSet::intfIs(const Nexo::IntfId& intf) {
  if (intf_.contains(intf)) return;
  intf_.is(intf, Mox::Present());
  publishChange(Attr::intf, intf);
}

bool NatFlowPortSet::intfDel(const Nexo::IntfId& intf) {
  if (!intf_.del(intf)) return false;
  publishChange(Attr::intf, intf);
  return true;
}

void NatFlowPortSet::intfDelAll() {
  for (const Nexo::IntfId& intf : intf_.keys()) intfDel(intf);
}

void NatFlowPortSet::dmacIs(Nexo::EthAddr dmac) {
  if (dmac_ == dmac) return;
  dmac_ = dmac;
  publishChange(Attr::dmac);
}

void NatFlowPortSet::portSetIdIs(std::uint32_t portSetId) {
  if (portSetId_ == portSetId) return;
  portSetId_ = portSetId;
  publishChange(Attr::portSetId);
}

void NatFlowPortSet::portSetId2Is(std::uint32_t portSetId2) {
  if (portSetId2_ == portSetId2) return;
  portSetId2_ = portSetId2;
  publishChange(Attr::portSetId2);
}

// NatFlowVlanPortSets

Mox::Ptr<NatFlowPortSet> NatFlowVlanPortSets::portSetIs(std::uint32_t kind, std::uint16_t vlan,
                                                        Pelo::AttrId attr) {
  const std::uint32_t key = keyOf(kind, vlan);
  if (const Mox::Ptr<NatFlowPortSet>* portSet = portSet_.find(key)) return *portSet;
  auto portSet = Mox::makePtr<NatFlowPortSet>(vlan);
  portSet_.is(key, portSet);
  publishChange(attr, vlan);
  return portSet;
}

bool NatFlowVlanPortSets::portSetDel(std::uint32_t kind, std::uint16_t vlan, Pelo::AttrId attr) {
  if (!portSet_.del(keyOf(kind, vlan))) return false;
  publishChange(attr, vlan);
  return true;
}

void NatFlowVlanPortSets::portSetDelAll(std::uint32_t kind, Pelo::AttrId attr) {
  for (const std::uint32_t key : portSet_.keys()) {
    if ((key >> 16) == kind) portSetDel(kind, static_cast<std::uint16_t>(key), attr);
  }
}

Mox::Ptr<const NatFlowPortSet> NatFlowVlanPortSets::ucastPortSet(std::uint16_t vlan) const {
  return ucastPortSet().find(vlan);
}

Mox::Ptr<NatFlowPortSet> NatFlowVlanPortSets::ucastPortSetIs(std::uint16_t vlan) {
  return portSetIs(kUcast, vlan, Attr::ucastPortSet);
}

bool NatFlowVlanPortSets::ucastPortSetDel(std::uint16_t vlan) {
  return portSetDel(kUcast, vlan, Attr::ucastPortSet);
}

void NatFlowVlanPortSets::ucastPortSetDelAll() { portSetDelAll(kUcast, Attr::ucastPortSet); }

Mox::Ptr<const NatFlowPortSet> NatFlowVlanPortSets::mcastPortSet(std::uint16_t vlan) const {
  return mcastPortSet().find(vlan);
}

Mox::Ptr<NatFlowPortSet> NatFlowVlanPortSets::mcastPortSetIs(std::uint16_t vlan) {
  return portSetIs(kMcast, vlan, Attr::mcastPortSet);
}

bool NatFlowVlanPortSets::mcastPortSetDel(std::uint16_t vlan) {
  return portSetDel(kMcast, vlan, Attr::mcastPortSet);
}

void NatFlowVlanPortSets::mcastPortSetDelAll() { portSetDelAll(kMcast, Attr::mcastPortSet); }

Mox::Ptr<NatFlowVlanPortSets> natFlowVlanPortSetsFactory() {
  return Mox::makePtr<NatFlowVlanPortSets>();
}

// HwNatFlowActionStatus

HwNatFlowActionStatus::HwNatFlowActionStatus(Pelo::String name) : Mox::Entity(std::move(name)) {}

void HwNatFlowActionStatus::srcNatIs(Nexo::IpAndPort srcNat) {
  if (this->srcNat() == srcNat) return;
  srcNatIp_ = srcNat.ip();
  srcNatPort_ = srcNat.port();
  publishChange(Attr::srcNat);
}

void HwNatFlowActionStatus::srcFlowIs(Nexo::IpAndPort srcFlow) {
  if (this->srcFlow() == srcFlow) return;
  srcFlowIp_ = srcFlow.ip();
  srcFlowPort_ = srcFlow.port();
  publishChange(Attr::srcFlow);
}

void HwNatFlowActionStatus::srcLenIs(std::uint32_t srcLen) {
  // Held in a byte: the action's records are many.
  MOX_ASSERT(srcLen <= NatFlow::kMaxPrefixLen);
  if (srcLen_ == srcLen) return;
  srcLen_ = static_cast<std::uint8_t>(srcLen);
  publishChange(Attr::srcLen);
}

void HwNatFlowActionStatus::dstNatIs(Nexo::IpAndPort dstNat) {
  if (this->dstNat() == dstNat) return;
  dstNatIp_ = dstNat.ip();
  dstNatPort_ = dstNat.port();
  publishChange(Attr::dstNat);
}

void HwNatFlowActionStatus::dstFlowIs(Nexo::IpAndPort dstFlow) {
  if (this->dstFlow() == dstFlow) return;
  dstFlowIp_ = dstFlow.ip();
  dstFlowPort_ = dstFlow.port();
  publishChange(Attr::dstFlow);
}

void HwNatFlowActionStatus::dstLenIs(std::uint32_t dstLen) {
  // Held in a byte: the action's records are many.
  MOX_ASSERT(dstLen <= NatFlow::kMaxPrefixLen);
  if (dstLen_ == dstLen) return;
  dstLen_ = static_cast<std::uint8_t>(dstLen);
  publishChange(Attr::dstLen);
}

void HwNatFlowActionStatus::flowTypeIs(NatFlowType flowType) {
  if (flowType_ == flowType) return;
  flowType_ = flowType;
  publishChange(Attr::flowType);
}

void HwNatFlowActionStatus::vlanPortSetsIs(Mox::Ptr<NatFlowVlanPortSets> vlanPortSets) {
  if (vlanPortSets_ == vlanPortSets) return;
  // The old port sets die (when this held the last reference) after the new ones are in place.
  std::swap(vlanPortSets_, vlanPortSets);
  publishChange(Attr::vlanPortSets);
}

// HwNatFlowMatchStatus

HwNatFlowMatchStatus::HwNatFlowMatchStatus(Pelo::String name) : Mox::Entity(std::move(name)) {}

void HwNatFlowMatchStatus::groupIdUcIs(std::uint32_t groupIdUc) {
  if (groupIdUc_ == groupIdUc) return;
  groupIdUc_ = groupIdUc;
  publishChange(Attr::groupIdUc);
}

void HwNatFlowMatchStatus::groupIdMcIs(std::uint32_t groupIdMc) {
  if (groupIdMc_ == groupIdMc) return;
  groupIdMc_ = groupIdMc;
  publishChange(Attr::groupIdMc);
}

void HwNatFlowMatchStatus::flowIs(const NatFlow& flow) {
  if (flow_ == flow) return;
  flow_ = flow;
  publishChange(Attr::flow);
}

Mox::Ptr<const HwNatFlowActionStatus> HwNatFlowMatchStatus::action(const Pelo::String& name) const {
  const Mox::Ptr<HwNatFlowActionStatus>* action = action_.find(name);
  return action != nullptr ? *action : nullptr;
}

Mox::Ptr<HwNatFlowActionStatus> HwNatFlowMatchStatus::actionIs(const Pelo::String& name) {
  if (const Mox::Ptr<HwNatFlowActionStatus>* action = action_.find(name)) return *action;
  auto action = Mox::makePtr<HwNatFlowActionStatus>(name);
  action_.is(name, action);
  publishChange(Attr::action, name);
  return action;
}

bool HwNatFlowMatchStatus::actionDel(const Pelo::String& name) {
  if (!action_.del(name)) return false;
  publishChange(Attr::action, name);
  return true;
}

void HwNatFlowMatchStatus::actionDelAll() {
  for (const Pelo::String& name : action_.keys()) actionDel(name);
}

// HwNatFlowPolicyStatus

HwNatFlowPolicyStatus::HwNatFlowPolicyStatus(Pelo::String name) : Mox::Entity(std::move(name)) {}

Mox::Ptr<const HwNatFlowMatchStatus> HwNatFlowPolicyStatus::match(const Pelo::String& name) const {
  const Mox::Ptr<HwNatFlowMatchStatus>* match = match_.find(name);
  return match != nullptr ? *match : nullptr;
}

Mox::Ptr<HwNatFlowMatchStatus> HwNatFlowPolicyStatus::matchIs(const Pelo::String& name) {
  if (const Mox::Ptr<HwNatFlowMatchStatus>* match = match_.find(name)) return *match;
  auto match = Mox::makePtr<HwNatFlowMatchStatus>(name);
  match_.is(name, match);
  publishChange(Attr::match, name);
  return match;
}

bool HwNatFlowPolicyStatus::matchDel(const Pelo::String& name) {
  if (!match_.del(name)) return false;
  publishChange(Attr::match, name);
  return true;
}

void HwNatFlowPolicyStatus::matchDelAll() {
  for (const Pelo::String& name : match_.keys()) matchDel(name);
}

// HwNatFlowStatus

Mox::Ptr<const HwNatFlowPolicyStatus> HwNatFlowStatus::natFlow(const Pelo::String& name) const {
  const Mox::Ptr<HwNatFlowPolicyStatus>* policy = natFlow_.find(name);
  return policy != nullptr ? *policy : nullptr;
}

Mox::Ptr<HwNatFlowPolicyStatus> HwNatFlowStatus::natFlowIs(const Pelo::String& name) {
  if (const Mox::Ptr<HwNatFlowPolicyStatus>* policy = natFlow_.find(name)) return *policy;
  auto policy = Mox::makePtr<HwNatFlowPolicyStatus>(name);
  natFlow_.is(name, policy);
  publishChange(Attr::natFlow, name);
  return policy;
}

bool HwNatFlowStatus::natFlowDel(const Pelo::String& name) {
  if (!natFlow_.del(name)) return false;
  publishChange(Attr::natFlow, name);
  return true;
}

void HwNatFlowStatus::natFlowDelAll() {
  for (const Pelo::String& name : natFlow_.keys()) natFlowDel(name);
}

}  // namespace Ip::Nat
