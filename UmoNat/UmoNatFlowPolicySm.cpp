#include "UmoNat/UmoNatFlowPolicySm.h"

#include "Mox/Assert.h"
#include "Mox/Trace.h"
#include "Skimtrace/Skimtrace.h"
#include "UmoNat/UmoNatFlowMcastSm.h"

namespace {

constinit Mox::TraceHandle traceHandle("UmoNatFlowPolicySm");

const Pelo::String kNoName;

}  // namespace

UmoNatFlowPolicySm::UmoNatFlowPolicySm(
    const Mox::Ptr<const Ip::Nat::NatFlowPolicyStatus>& policyStatus,
    const Mox::Ptr<Ip::Nat::HwNatFlowStatus>& hwStatus, UmoNatFlowMcastTopologySm* topologySm,
    const Mox::Ptr<UmoHelper::UmoNatFlowMcastHelper>& helper,
    const Mox::Ptr<const Bridging::Config>& bridgingConfig, UmoNatFlowMcastSm* mcastSm)
    : Mox::Reactor(policyStatus ? policyStatus->name() : kNoName),
      policyStatus_(policyStatus),
      hwStatus_(hwStatus),
      topologySm_(topologySm),
      helper_(helper),
      bridgingConfig_(bridgingConfig),
      mcastSm_(mcastSm) {
  if (policyStatus_) subscribe<&UmoNatFlowPolicySm::policyStatusDispatch>(*policyStatus_);
  initializeOrUnwind(this, &UmoNatFlowPolicySm::handleInitialized, &UmoNatFlowPolicySm::teardown);
}

UmoNatFlowPolicySm::~UmoNatFlowPolicySm() { teardown(); }

void UmoNatFlowPolicySm::teardown() {
  if (policyStatus_) unsubscribe(*policyStatus_);
  matchSm_.delAll();
}

const Pelo::String& UmoNatFlowPolicySm::policyName() const {
  return policyStatus_ ? policyStatus_->name() : kNoName;
}

void UmoNatFlowPolicySm::policyStatusDispatch(const Pelo::Publisher& /*publisher*/,
                                              Pelo::AttrId attr, const Pelo::Key& key) {
  if (attr != Ip::Nat::NatFlowPolicyStatus::Attr::match || isMarkedForDeletion()) return;
  handleNatFlowMatch(key.get<Pelo::String>());
}

Mox::Ptr<UmoNatFlowMatchSm> UmoNatFlowPolicySm::matchSmIs(
    const Pelo::String& name, const Mox::Ptr<const Ip::Nat::NatFlowMatchStatus>& matchStatus,
    const Mox::Ptr<Ip::Nat::HwNatFlowPolicyStatus>& hwPolicyStatus,
    UmoNatFlowMcastTopologySm* topologySm, const Mox::Ptr<UmoHelper::UmoNatFlowMcastHelper>& helper,
    const Mox::Ptr<const Bridging::Config>& bridgingConfig, UmoNatFlowMcastSm* mcastSm) {
  return matchSm_.is(name, policyName(), matchStatus, hwPolicyStatus, topologySm, helper,
                     bridgingConfig, mcastSm);
}

void UmoNatFlowPolicySm::matchSmDel(const Pelo::String& name) { matchSm_.del(name); }

void UmoNatFlowPolicySm::matchSmDelAll() { matchSm_.delAll(); }

void UmoNatFlowPolicySm::handleInitialized() {
  MOX_TRACE(traceHandle, 1, "UmoNatFlowPolicySm::handleInitialized, policy: " << policyName());
  SKIMTRACE("UmoNatFlowPolicySm::handleInitialized policy %s", policyName());
  initialized_ = true;
  hwPolicyStatus_ = hwStatus_->natFlowIs(policyName());
  MOX_ASSERT(policyStatus());
  for (const auto& [name, match] : policyStatus_->match()) handleNatFlowMatch(name);
}

void UmoNatFlowPolicySm::handleNatFlowMatch(const Pelo::String& name) {
  MOX_TRACE(
      traceHandle, 2,
      "UmoNatFlowPolicySm::handleNatFlowMatch, policy: " << policyName() << ", match: " << name);
  SKIMTRACE("UmoNatFlowPolicySm::handleNatFlowMatch policy %s match %s", policyName(), name);
  if (!initialized_) return;
  if (auto matchStatus = policyStatus_->match(name)) {
    MOX_TRACE(traceHandle, 2, "Create matchSm");
    matchSmIs(name, matchStatus, hwPolicyStatus_, topologySm_, helper_, bridgingConfig_, mcastSm_);
    return;
  }
  MOX_TRACE(traceHandle, 2, "Delete matchSm");
  matchSmDel(name);
}

void UmoNatFlowPolicySm::doCleanup() {
  MOX_TRACE(traceHandle, 1, "UmoNatFlowPolicySm::doCleanup, policy: " << policyName());
  SKIMTRACE("UmoNatFlowPolicySm::doCleanup policy %s", policyName());
  if (!initialized_) return;
  // The whole retry set goes, not only this policy's matches: waiting matches
  // of other policies are retried again only when their group count changes.
  if (const auto& task = mcastSm_->unprogrammedGroupTask()) task->stopTimerTask();
  mcastSm_->unprogrammedGroupDelAll();
  matchSmDelAll();
  hwStatus_->natFlowDel(policyName());
}
