#include "UmoNat/UmoNatFlowMatchSm.h"

#include "Mox/Assert.h"
#include "Mox/Trace.h"
#include "Skimtrace/Skimtrace.h"
#include "UmoNat/UmoNatFlowActionSm.h"
#include "UmoNat/UmoNatFlowMcastSm.h"

namespace {

constinit Mox::TraceHandle traceHandle("UmoNatFlowMatchSm");

const Pelo::String kNoName;

}  // namespace

// Every handler's first trace line: the class, the operation, the policy and
// the match.
#define MATCH_ENTRY(fn) "UmoNatFlowMatchSm::" fn ", policy: " << policy_ << ", match: " << match()

UmoNatFlowMatchSmStatus::UmoNatFlowMatchSmStatus() = default;

void UmoNatFlowMatchSmStatus::groupNumIs(std::uint32_t groupNum) {
  if (groupNum == groupNum_) return;
  groupNum_ = groupNum;
  publishChange(Attr::groupNum);
}

void UmoNatFlowMatchSmStatus::groupNumUpdateIs(std::uint32_t groupNumUpdate) {
  if (groupNumUpdate == groupNumUpdate_) return;
  groupNumUpdate_ = groupNumUpdate;
  publishChange(Attr::groupNumUpdate);
}

Mox::Ptr<UmoNatFlowMatchSmStatus> UmoNatFlowMatchSmStatusIs() {
  return Mox::makePtr<UmoNatFlowMatchSmStatus>();
}

Mox::Ptr<UmoNatFlowMatchSmStatus> umoNatFlowMatchSmStatusFactory() {
  return UmoNatFlowMatchSmStatusIs();
}

UmoNatFlowMatchSm::UmoNatFlowMatchSm(const Pelo::String& policy,
                                     const Mox::Ptr<const Ip::Nat::NatFlowMatchStatus>& matchStatus,
                                     const Mox::Ptr<Ip::Nat::HwNatFlowPolicyStatus>& hwPolicyStatus,
                                     UmoNatFlowMcastTopologySm* topologySm,
                                     const Mox::Ptr<UmoHelper::UmoNatFlowMcastHelper>& helper,
                                     const Mox::Ptr<const Bridging::Config>& bridgingConfig,
                                     UmoNatFlowMcastSm* mcastSm)
    : Mox::Reactor(matchStatus ? matchStatus->name() : kNoName),
      policy_(policy),
      matchStatus_(matchStatus),
      hwPolicyStatus_(hwPolicyStatus),
      topologySm_(topologySm),
      helper_(helper),
      bridgingConfig_(bridgingConfig),
      mcastSm_(mcastSm) {
  if (matchStatus_) subscribe<&UmoNatFlowMatchSm::matchStatusDispatch>(*matchStatus_);
  initializeOrUnwind(this, &UmoNatFlowMatchSm::handleInitialized, &UmoNatFlowMatchSm::teardown);
}

UmoNatFlowMatchSm::~UmoNatFlowMatchSm() { teardown(); }

void UmoNatFlowMatchSm::teardown() {
  // A match removed on its own (its policy stays) may still wait for groups:
  // the retry must never reach it once it is gone.
  if (mcastSm_ != nullptr) mcastSm_->unprogrammedGroupDel(this);
  if (matchStatus_) unsubscribe(*matchStatus_);
  if (matchSmStatus_) unsubscribe(*matchSmStatus_);
  actionSm_.delAll();
}

Mox::Ptr<UmoNatFlowActionSm> UmoNatFlowMatchSm::actionSmIs(
    const Pelo::String& policy, const Pelo::String& name,
    const Mox::Ptr<const Ip::Nat::NatFlowMatchStatus>& matchStatus,
    const Mox::Ptr<const Ip::Nat::NatFlowActionStatus>& actionStatus,
    const Mox::Ptr<Ip::Nat::HwNatFlowMatchStatus>& hwMatchStatus,
    const Mox::Ptr<UmoNatFlowMatchSmStatus>& matchSmStatus, UmoNatFlowMcastTopologySm* topologySm,
    const Mox::Ptr<UmoHelper::UmoNatFlowMcastHelper>& helper,
    const Mox::Ptr<const Bridging::Config>& bridgingConfig) {
  if (!actionContext_ ||
      !actionContext_->holds(policy, match(), matchStatus, hwMatchStatus, matchSmStatus, topologySm,
                             helper, bridgingConfig)) {
    actionContext_ = Mox::makePtr<const UmoNatFlowActionSmContext>(
        policy, match(), matchStatus, hwMatchStatus, matchSmStatus, topologySm, helper,
        bridgingConfig);
  }
  return actionSm_.is(name, actionContext_, actionStatus);
}

void UmoNatFlowMatchSm::actionSmDel(const Pelo::String& name) { actionSm_.del(name); }

void UmoNatFlowMatchSm::actionSmDelAll() { actionSm_.delAll(); }

void UmoNatFlowMatchSm::matchStatusDispatch(const Pelo::Publisher& /*publisher*/, Pelo::AttrId attr,
                                            const Pelo::Key& key) {
  if (isMarkedForDeletion()) return;
  if (attr == Ip::Nat::NatFlowMatchStatus::Attr::flow) {
    handleNatFlow();
  } else if (attr == Ip::Nat::NatFlowMatchStatus::Attr::action) {
    handleNatFlowAction(key.get<Pelo::String>());
  }
}

void UmoNatFlowMatchSm::matchSmStatusDispatch(const Pelo::Publisher& /*publisher*/,
                                              Pelo::AttrId attr, const Pelo::Key& /*key*/) {
  if (attr != UmoNatFlowMatchSmStatus::Attr::groupNumUpdate || isMarkedForDeletion()) return;
  handleGroupNumUpdate();
}

void UmoNatFlowMatchSm::matchSmStatusIs(const Mox::Ptr<UmoNatFlowMatchSmStatus>& status) {
  if (status == matchSmStatus_) return;
  if (matchSmStatus_) unsubscribe(*matchSmStatus_);
  matchSmStatus_ = status;
  if (!matchSmStatus_) return;
  subscribe<&UmoNatFlowMatchSm::matchSmStatusDispatch>(*matchSmStatus_);
  if (!isMarkedForDeletion()) handleGroupNumUpdate();
}

std::uint32_t UmoNatFlowMatchSm::getGroupNum() const {
  const auto& actions = matchStatus_->action();
  const bool flowHasDst = !matchStatus_->flow().dstAddr().isZero();
  for (const auto& [name, action] : actions) {
    if (action->dst().ip().isZero() && !flowHasDst) return 2;
  }
  return actions.empty() ? 0 : 1;
}

bool UmoNatFlowMatchSm::createNatFlowGroups(std::uint32_t groups) {
  MOX_TRACE(traceHandle, 2, MATCH_ENTRY("createNatFlowGroups") << ", groups: " << groups);
  SKIMTRACE("UmoNatFlowMatchSm::createNatFlowGroups policy %s match %s groups %u", policy_, match(),
            groups);
  if (!initialized_ || groups == 0) return false;
  if (groups == 1) {
    MOX_TRACE(traceHandle, 2, "Create single group for match " << match());
    const std::uint32_t id = helper_->createNatFlowGroup(policy_, match(), false);
    MOX_TRACE(traceHandle, 2, "Group id: " << id);
    if (id == 0) {
      MOX_TRACE(traceHandle, 2, "Failed to allocate group");
      mcastSm_->addUnprogrammedGroupTask(this);
      return false;
    }
    hwMatchStatus_->groupIdUcIs(id);
    hwMatchStatus_->groupIdMcIs(id);
    return true;
  }
  MOX_ASSERT(groups == 2);
  MOX_TRACE(traceHandle, 2, "Create unicast group for match " << match());
  const std::uint32_t uc = helper_->createNatFlowGroup(policy_, match(), true);
  MOX_TRACE(traceHandle, 2, "Unicast group id: " << uc);
  // The multicast group is requested even when the unicast one failed.
  MOX_TRACE(traceHandle, 2, "Create multicast group for match " << match());
  const std::uint32_t mc = helper_->createNatFlowGroup(policy_, match(), false);
  MOX_TRACE(traceHandle, 2, "Multicast group id: " << mc);
  if (uc == 0 || mc == 0) {
    // A group allocated by this call stays in the hardware and is not
    // recorded: the hardware status keeps group ids 0.
    MOX_TRACE(traceHandle, 2, "Failed to allocate group(s)");
    mcastSm_->addUnprogrammedGroupTask(this);
    return false;
  }
  hwMatchStatus_->groupIdUcIs(uc);
  hwMatchStatus_->groupIdMcIs(mc);
  return true;
}

void UmoNatFlowMatchSm::deleteNatFlowGroups() {
  MOX_TRACE(traceHandle, 2, MATCH_ENTRY("deleteNatFlowGroups"));
  SKIMTRACE("UmoNatFlowMatchSm::deleteNatFlowGroups policy %s match %s", policy_, match());
  if (!initialized_) return;
  const std::uint32_t uc = hwMatchStatus_->groupIdUc();
  const std::uint32_t mc = hwMatchStatus_->groupIdMc();
  if (uc != 0) {
    MOX_TRACE(traceHandle, 2, "Delete unicast group " << uc << " for match " << match());
    helper_->deleteNatFlowGroup(policy_, match(), uc);
  }
  if (mc != 0 && mc != uc) {
    MOX_TRACE(traceHandle, 2, "Delete multicast group " << mc << " for match " << match());
    helper_->deleteNatFlowGroup(policy_, match(), mc);
  }
  hwMatchStatus_->groupIdUcIs(0);
  hwMatchStatus_->groupIdMcIs(0);
  // Freed groups may be what a waiting match needs.
  const auto& task = mcastSm_->unprogrammedGroupTask();
  if (!mcastSm_->unprogrammedGroup().empty() && task && !task->taskScheduled()) {
    MOX_TRACE(traceHandle, 9, "Scheduled unprogrammed group task");
    task->scheduleTaskDelay(mcastSm_->unprogrammedGroupTaskDelay());
  }
}

bool UmoNatFlowMatchSm::handleGroupNumUpdate() {
  if (!initialized_) return handleGroupNumUpdate(0);
  return handleGroupNumUpdate(getGroupNum());
}

bool UmoNatFlowMatchSm::handleGroupNumUpdate(std::uint32_t wanted) {
  MOX_TRACE(traceHandle, 2,
            MATCH_ENTRY("handleGroupNumUpdate") << ", flow: " << matchStatus_->flow());
  SKIMTRACE("UmoNatFlowMatchSm::handleGroupNumUpdate policy %s match %s", policy_, match());
  if (!initialized_) return true;
  MOX_ASSERT(hwMatchStatus());
  hwMatchStatus_->flowIs(matchStatus_->flow());
  const std::uint32_t current = matchSmStatus_->groupNum();
  MOX_TRACE(traceHandle, 2, "Current groups num: " << current << ", new: " << wanted);
  if (wanted == current) return false;
  for (const auto& [name, action] : actionSm_) action->handleGroupNum(wanted);
  deleteNatFlowGroups();
  matchSmStatus_->groupNumIs(wanted);
  const bool allocated = createNatFlowGroups(wanted);
  // A change of the count ends a wait too, when it allocates or needs no
  // group: were the match left in the retry set, the retry would allocate a
  // second set of groups over the ones its actions have just programmed, or
  // stop at a match that needs none.
  if (allocated || wanted == 0) mcastSm_->unprogrammedGroupDel(this);
  // On failure the match waits for the retry; the actions are not told.
  if (!allocated) return true;
  for (const auto& [name, action] : actionSm_) action->handleNatFlowAction(false);
  return true;
}

void UmoNatFlowMatchSm::handleNatFlow() {
  MOX_TRACE(traceHandle, 2, MATCH_ENTRY("handleNatFlow") << ", flow: " << matchStatus_->flow());
  SKIMTRACE("UmoNatFlowMatchSm::handleNatFlow policy %s match %s", policy_, match());
  if (!initialized_) return;
  if (handleGroupNumUpdate()) return;
  for (const auto& [name, action] : actionSm_) action->handleNatFlow();
}

void UmoNatFlowMatchSm::handleNatFlowAction(const Pelo::String& name) {
  handleNatFlowAction(name, initialized_ ? getGroupNum() : 0);
}

void UmoNatFlowMatchSm::handleNatFlowAction(const Pelo::String& name, std::uint32_t groupNum) {
  MOX_TRACE(traceHandle, 2, MATCH_ENTRY("handleNatFlowAction") << ", action: " << name);
  SKIMTRACE("UmoNatFlowMatchSm::handleNatFlowAction policy %s match %s action %s", policy_, match(),
            name);
  if (!initialized_) return;
  handleGroupNumUpdate(groupNum);
  if (auto actionStatus = matchStatus_->action(name)) {
    MOX_TRACE(traceHandle, 2, "Create actionSm");
    actionSmIs(policy_, name, matchStatus_, actionStatus, hwMatchStatus_, matchSmStatus_,
               topologySm_, helper_, bridgingConfig_);
    return;
  }
  MOX_TRACE(traceHandle, 2, "Delete actionSm");
  actionSmDel(name);
}

void UmoNatFlowMatchSm::handleInitialized() {
  MOX_TRACE(traceHandle, 1, MATCH_ENTRY("handleInitialized"));
  SKIMTRACE("UmoNatFlowMatchSm::handleInitialized policy %s match %s", policy_, match());
  MOX_ASSERT(hwPolicyStatus());
  hwMatchStatus_ = hwPolicyStatus_->matchIs(match());
  MOX_ASSERT(hwMatchStatus());
  matchSmStatusIs(UmoNatFlowMatchSmStatusIs());
  MOX_ASSERT(matchSmStatus());
  initialized_ = true;
  handleNatFlow();
  MOX_ASSERT(matchStatus());
  // The group count follows from the NAT status alone, which creating the action state machines
  // does not change: counted once, not once per action, the scan stays linear in the actions.
  const std::uint32_t groupNum = getGroupNum();
  for (const auto& [name, action] : matchStatus_->action()) handleNatFlowAction(name, groupNum);
}

void UmoNatFlowMatchSm::doCleanup() {
  MOX_TRACE(traceHandle, 1, MATCH_ENTRY("doCleanup"));
  SKIMTRACE("UmoNatFlowMatchSm::doCleanup policy %s match %s", policy_, match());
  if (!initialized_) return;
  actionSmDelAll();
  deleteNatFlowGroups();
  hwPolicyStatus_->matchDel(match());
}
