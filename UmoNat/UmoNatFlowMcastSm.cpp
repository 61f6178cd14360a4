#include "UmoNat/UmoNatFlowMcastSm.h"

#include "Mox/Log.h"
#include "Mox/Trace.h"
#include "Skimtrace/Skimtrace.h"
#include "UmoNat/UmoNatFlowActionSm.h"
#include "UmoNat/UmoNatFlowMatchSm.h"

namespace {

constinit Mox::TraceHandle traceHandle("UmoNatFlowMcastSm");

// The module's log-event catalogue, registered when the plug-in is loaded. No
// state machine raises these events.
const Mox::LogHandle natHwResourceNormal(
    "NAT_HW_RESOURCE_NORMAL", 6, "All NAT rules are programmed in hardware",
    "The switch was able to program all the NAT rules in the NAT table", Mox::NoActionRequired, 0.0,
    1.0, 0, 0);
const Mox::LogHandle natHwResourceFull(
    "NAT_HW_RESOURCE_FULL", 3, "Hardware resources are insufficient to program all NAT rules",
    "The switch is unable to program all NAT rules due to insufficient hardware resources.",
    "Reconfigure your NAT rules to reduce the size and/or complexity of the NAT rules.", 0.0, 1.0,
    0, 0);
const Mox::LogHandle natRuleIfMax(
    "NAT_RULE_IF_MAX", 3,
    "The active number of interfaces associated with the NAT rule: '%s', has exceeded the "
    "maximum. Cannot add VLAN %d. Interface count: %d, Maximum interfaces: %d.",
    "The maximum number of active interfaces associated with the NAT rule has been reached.",
    "Remove the NAT rule from any interface not currently in use.", 0.0, 1.0, 0, 0);

}  // namespace

UmoNatFlowMcastSm::UmoNatFlowMcastSm(const Mox::Ptr<const Ip::Nat::Status>& status,
                                     const Mox::Ptr<Ip::Nat::HwNatFlowStatus>& hwStatus,
                                     const Mox::Ptr<const Bridging::Config>& bridgingConfig,
                                     const Mox::Ptr<const Bridging::Status>& bridgingStatus,
                                     const Mox::Ptr<const Bridging::VlanStatusDir>& vlanStatusDir,
                                     const Mox::Ptr<const Bridging::Topology::Config>& brTopo,
                                     const Mox::Ptr<const UmoL3Intf::Table>& umoL3IntfTable,
                                     const Mox::Ptr<const Ip::Status>& ipStatus,
                                     const Mox::Ptr<UmoHelper::UmoNatFlowMcastHelper>& helper)
    : Mox::Reactor("UmoNatFlowMcastSm"),
      status_(status),
      hwStatus_(hwStatus),
      bridgingConfig_(bridgingConfig),
      bridgingStatus_(bridgingStatus),
      vlanStatusDir_(vlanStatusDir),
      brTopo_(brTopo),
      umoL3IntfTable_(umoL3IntfTable),
      ipStatus_(ipStatus),
      helper_(helper) {
  if (status_) subscribe<&UmoNatFlowMcastSm::statusDispatch>(*status_);
  // The policies built so far free what they programmed, then the tree goes
  // in the order its destruction follows, before the members are released.
  initializeOrUnwind(this, &UmoNatFlowMcastSm::handleInitialized, &UmoNatFlowMcastSm::teardown);
}

UmoNatFlowMcastSm::~UmoNatFlowMcastSm() { teardown(); }

void UmoNatFlowMcastSm::teardown() {
  if (status_) unsubscribe(*status_);
  unprogrammedGroupTaskDel();
  policySm_.delAll();
  unprogrammedGroup_.delAll();
  topologySm_.reset();
}

void UmoNatFlowMcastSm::statusDispatch(const Pelo::Publisher& /*publisher*/, Pelo::AttrId attr,
                                       const Pelo::Key& key) {
  if (attr != Ip::Nat::Status::Attr::natFlow || isMarkedForDeletion()) return;
  handleNatFlowPolicy(key.get<Pelo::String>());
}

void UmoNatFlowMcastSm::unprogrammedGroupTaskDispatch(const Pelo::Publisher& /*publisher*/,
                                                      Pelo::AttrId attr, const Pelo::Key& /*key*/) {
  if (attr != Vyr::Task::Attr::run || isMarkedForDeletion()) return;
  handleUnprogrammedGroup();
}

Mox::Ptr<UmoNatFlowPolicySm> UmoNatFlowMcastSm::policySmIs(
    const Mox::Ptr<const Ip::Nat::NatFlowPolicyStatus>& ps,
    const Mox::Ptr<Ip::Nat::HwNatFlowStatus>& hwStatus, UmoNatFlowMcastTopologySm* topologySm,
    const Mox::Ptr<UmoHelper::UmoNatFlowMcastHelper>& helper,
    const Mox::Ptr<const Bridging::Config>& bridgingConfig, UmoNatFlowMcastSm* mcastSm) {
  return policySm_.is(ps->name(), ps, hwStatus, topologySm, helper, bridgingConfig, mcastSm);
}

void UmoNatFlowMcastSm::policySmDel(const Pelo::String& name) { policySm_.del(name); }

void UmoNatFlowMcastSm::policySmDelAll() { policySm_.delAll(); }

void UmoNatFlowMcastSm::unprogrammedGroupIs(UmoNatFlowMatchSm* matchSm) {
  unprogrammedGroup_.is(matchSm);
}

void UmoNatFlowMcastSm::unprogrammedGroupDel(UmoNatFlowMatchSm* matchSm) {
  unprogrammedGroup_.del(matchSm);
}

void UmoNatFlowMcastSm::unprogrammedGroupDelAll() { unprogrammedGroup_.delAll(); }

void UmoNatFlowMcastSm::unprogrammedGroupTaskIs(const Mox::Ptr<Vyr::TimerTask>& task) {
  if (task == unprogrammedGroupTask_) return;
  unprogrammedGroupTaskDel();
  unprogrammedGroupTask_ = task;
  if (unprogrammedGroupTask_) {
    subscribe<&UmoNatFlowMcastSm::unprogrammedGroupTaskDispatch>(*unprogrammedGroupTask_);
  }
}

void UmoNatFlowMcastSm::unprogrammedGroupTaskDel() {
  if (!unprogrammedGroupTask_) return;
  unsubscribe(*unprogrammedGroupTask_);
  unprogrammedGroupTask_.reset();
}

void UmoNatFlowMcastSm::addUnprogrammedGroupTask(UmoNatFlowMatchSm* matchSm) {
  MOX_TRACE(traceHandle, 9, "UmoNatFlowMcastSm::addUnprogrammedGroupTask");
  unprogrammedGroupIs(matchSm);
}

void UmoNatFlowMcastSm::handleInitialized() {
  MOX_TRACE(traceHandle, 1, "NatFlowMcastSm::handleInitialized");
  SKIMTRACE("UmoNatFlowMcastSm::handleInitialized");

  // Hardware status left by an earlier run goes, bottom up. The hardware
  // itself is not touched: the helper is not called.
  if (hwStatus_) {
    for (const auto& [policyName, hwPolicy] : hwStatus_->natFlow()) {
      auto policy = hwStatus_->natFlowIs(policyName);
      for (const auto& [matchName, hwMatch] : policy->match()) {
        auto match = policy->matchIs(matchName);
        for (const auto& [actionName, hwAction] : match->action()) {
          auto action = match->actionIs(actionName);
          if (const auto& vps = action->vlanPortSets()) {
            vps->ucastPortSetDelAll();
            vps->mcastPortSetDelAll();
          }
        }
        match->actionDelAll();
      }
      policy->matchDelAll();
    }
    hwStatus_->natFlowDelAll();
  }

  groupScheduler_ = Vyr::TaskSchedulerRoot::findOrCreateScheduler();
  unprogrammedGroupTaskIs(
      Mox::makePtr<Vyr::TimerTask>(groupScheduler_, 4, "unprogrammedGroupTask"));
  initialized_ = true;

  topologySm_ = umoNatFlowMcastTopologySmFactory(bridgingConfig_, vlanStatusDir_, brTopo_,
                                                 bridgingStatus_, umoL3IntfTable_, ipStatus_);

  if (!status_) return;
  for (const auto& [name, policy] : status_->natFlow()) handleNatFlowPolicy(name);
}

void UmoNatFlowMcastSm::handleNatFlowPolicy(const Pelo::String& name) {
  MOX_TRACE(traceHandle, 2, "UmoNatFlowMcastSm::handleNatFlowPolicy, policy: " << name);
  SKIMTRACE("UmoNatFlowMcastSm::handleNatFlowPolicy policy %s", name);
  if (!initialized_) return;
  if (auto policyStatus = status_->natFlow(name)) {
    MOX_TRACE(traceHandle, 2, "Create policySm");
    policySmIs(policyStatus, hwStatus_, topologySm(), helper_, bridgingConfig_, this);
    return;
  }
  MOX_TRACE(traceHandle, 2, "Delete policySm");
  policySmDel(name);
}

void UmoNatFlowMcastSm::handleUnprogrammedGroup() {
  MOX_TRACE(traceHandle, 2, "UmoNatFlowMcastSm::handleUnprogrammedGroup");
  SKIMTRACE("UmoNatFlowMcastSm::handleUnprogrammedGroup");
  if (!initialized_) return;
  if (!unprogrammedGroupTask_ || !unprogrammedGroupTask_->taskCurrentlyRunning()) {
    MOX_TRACE(traceHandle, 9, "Task not running");
    return;
  }
  std::uint64_t checked = 0;
  for (auto it = unprogrammedGroup_.begin(); it != unprogrammedGroup_.end(); ++it) {
    UmoNatFlowMatchSm* matchSm = *it;
    if (!matchSm->matchSmStatus()) break;
    // A failed retry has parked the match again (it is still in the set).
    if (!matchSm->createNatFlowGroups(matchSm->matchSmStatus()->groupNum())) break;
    for (const auto& [name, action] : matchSm->actionSm()) {
      action->resetHwGroups();
      action->handleNatFlowAction(false);
    }
    unprogrammedGroupDel(matchSm);
    ++checked;
    if (unprogrammedGroupTask_->taskShouldYield() && !unprogrammedGroup_.empty()) {
      MOX_TRACE(traceHandle, 9, "Yielding. Scheduled unprogrammed group task");
      unprogrammedGroupTask_->scheduleTask();
      break;
    }
  }
  MOX_TRACE(traceHandle, 9,
            "Entries checked: " << checked << ", remaining: " << unprogrammedGroup_.size());
  unprogrammedGroupTask_->taskWorkCountInc(checked);
}

void UmoNatFlowMcastSm::doCleanup() {
  MOX_TRACE(traceHandle, 1, "NatFlowMcastSm::doCleanup");
  SKIMTRACE("UmoNatFlowMcastSm::doCleanup");
  if (!initialized_) return;
  policySmDelAll();
  if (hwStatus_) hwStatus_->natFlowDelAll();
}

Mox::Ptr<UmoNatFlowMcastSm> umoNatFlowMcastSmFactory(
    const Mox::Ptr<const Ip::Nat::Status>& status,
    const Mox::Ptr<Ip::Nat::HwNatFlowStatus>& hwStatus,
    const Mox::Ptr<const Bridging::Config>& bridgingConfig,
    const Mox::Ptr<const Bridging::Status>& bridgingStatus,
    const Mox::Ptr<const Bridging::VlanStatusDir>& vlanStatusDir,
    const Mox::Ptr<const Bridging::Topology::Config>& brTopo,
    const Mox::Ptr<const UmoL3Intf::Table>& umoL3IntfTable,
    const Mox::Ptr<const Ip::Status>& ipStatus,
    const Mox::Ptr<UmoHelper::UmoNatFlowMcastHelper>& helper) {
  return Mox::reactorIs<UmoNatFlowMcastSm>(status, hwStatus, bridgingConfig, bridgingStatus,
                                           vlanStatusDir, brTopo, umoL3IntfTable, ipStatus, helper);
}
