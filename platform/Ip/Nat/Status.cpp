#include "Ip/Nat/Status.h"

#include <utility>
#include <vector>

namespace Ip::Nat {

// NatFlowActionStatus

NatFlowActionStatus::NatFlowActionStatus(Pelo::String name) : Mox::Entity(std::move(name)) {}

void NatFlowActionStatus::srcIs(Nexo::IpAndPort src) {
  if (src_ == src) return;
  src_ = src;
  publishChange(Attr::src);
}

void NatFlowActionStatus::dstIs(Nexo::IpAndPort dst) {
  if (dst_ == dst) return;
  dst_ = dst;
  publishChange(Attr::dst);
}

void NatFlowActionStatus::versionIs(std::uint32_t version) {
  if (version_ == version) return;
  version_ = version;
  publishChange(Attr::version);
}

void NatFlowActionStatus::intfIs(const Nexo::IntfId& intf, NatFlowNextHop nextHop) {
  if (const NatFlowNextHop* old = intf_.find(intf); old != nullptr && *old == nextHop) return;
  intf_.is(intf, nextHop);
  publishChange(Attr::intf, intf);
}

bool NatFlowActionStatus::intfDel(const Nexo::IntfId& intf) {
  if (!intf_.del(intf)) return false;
  publishChange(Attr::intf, intf);
  return true;
}

void NatFlowActionStatus::intfDelAll() {
  for (const Nexo::IntfId& intf : intf_.keys()) intfDel(intf);
}

// NatFlowMatchStatus

NatFlowMatchStatus::NatFlowMatchStatus(Pelo::String name) : Mox::Entity(std::move(name)) {}

void NatFlowMatchStatus::flowIs(const NatFlow& flow) {
  if (flow_ == flow) return;
  flow_ = flow;
  publishChange(Attr::flow);
}

Mox::Ptr<const NatFlowActionStatus> NatFlowMatchStatus::action(const Pelo::String& name) const {
  const Mox::Ptr<NatFlowActionStatus>* action = action_.find(name);
  return action != nullptr ? *action : nullptr;
}

Mox::Ptr<NatFlowActionStatus> NatFlowMatchStatus::actionIs(const Pelo::String& name) {
  if (const Mox::Ptr<NatFlowActionStatus>* action = action_.find(name)) return *action;
  auto action = Mox::makePtr<NatFlowActionStatus>(name);
  action_.is(name, action);
  publishChange(Attr::action, name);
  return action;
}

bool NatFlowMatchStatus::actionDel(const Pelo::String& name) {
  if (!action_.del(name)) return false;
  publishChange(Attr::action, name);
  return true;
}

void NatFlowMatchStatus::actionDelAll() {
  for (const Pelo::String& name : action_.keys()) actionDel(name);
}

// NatFlowPolicyStatus

NatFlowPolicyStatus::NatFlowPolicyStatus(Pelo::String name) : Mox::Entity(std::move(name)) {}

Mox::Ptr<const NatFlowMatchStatus> NatFlowPolicyStatus::match(const Pelo::String& name) const {
  const Mox::Ptr<NatFlowMatchStatus>* match = match_.find(name);
  return match != nullptr ? *match : nullptr;
}

Mox::Ptr<NatFlowMatchStatus> NatFlowPolicyStatus::matchIs(const Pelo::String& name) {
  if (const Mox::Ptr<NatFlowMatchStatus>* match = match_.find(name)) return *match;
  auto match = Mox::makePtr<NatFlowMatchStatus>(name);
  match_.is(name, match);
  publishChange(Attr::match, name);
  return match;
}

bool NatFlowPolicyStatus::matchDel(const Pelo::String& name) {
  if (!match_.del(name)) return false;
  publishChange(Attr::match, name);
  return true;
}

void NatFlowPolicyStatus::matchDelAll() {
  for (const Pelo::String& name : match_.keys()) matchDel(name);
}

// Status

Mox::Ptr<const NatFlowPolicyStatus> Status::natFlow(const Pelo::String& name) const {
  const Mox::Ptr<NatFlowPolicyStatus>* policy = natFlow_.find(name);
  return policy != nullptr ? *policy : nullptr;
}

Mox::Ptr<NatFlowPolicyStatus> Status::natFlowIs(const Pelo::String& name) {
  if (const Mox::Ptr<NatFlowPolicyStatus>* policy = natFlow_.find(name)) return *policy;
  auto policy = Mox::makePtr<NatFlowPolicyStatus>(name);
  natFlow_.is(name, policy);
  publishChange(Attr::natFlow, name);
  return policy;
}

bool Status::natFlowDel(const Pelo::String& name) {
  if (!natFlow_.del(name)) return false;
  publishChange(Attr::natFlow, name);
  return true;
}

void Status::natFlowDelAll() {
  for (const Pelo::String& name : natFlow_.keys()) natFlowDel(name);
}

}  // namespace Ip::Nat
