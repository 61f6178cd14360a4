#include "UmoNat/UmoNatFlowActionSm.h"

#include "Mox/Assert.h"
#include "Mox/Trace.h"
#include "Skimtrace/Skimtrace.h"
#include "UmoNat/UmoNatFlowMcastTopologySm.h"

namespace {

constinit Mox::TraceHandle traceHandle("UmoNatFlowActionSm");

const Pelo::String kNoName;

using Ip::Nat::NatFlowType;

}  // namespace

// The head of every entry trace: the class, the operation and the three names.
#define ACTION_ENTRY(fn)                                                       \
  "UmoNatFlowActionSm::" fn ", policy: " << policy() << ", match: " << match() \
                                         << ", action: " << action()

UmoNatFlowActionSmContext::UmoNatFlowActionSmContext(
    const Pelo::String& policy, const Pelo::String& match,
    const Mox::Ptr<const Ip::Nat::NatFlowMatchStatus>& matchStatus,
    const Mox::Ptr<Ip::Nat::HwNatFlowMatchStatus>& hwMatchStatus,
    const Mox::Ptr<UmoNatFlowMatchSmStatus>& matchSmStatus, UmoNatFlowMcastTopologySm* topologySm,
    const Mox::Ptr<UmoHelper::UmoNatFlowMcastHelper>& helper,
    const Mox::Ptr<const Bridging::Config>& bridgingConfig)
    : policy_(policy),
      match_(match),
      matchStatus_(matchStatus),
      hwMatchStatus_(hwMatchStatus),
      matchSmStatus_(matchSmStatus),
      topologySm_(topologySm),
      helper_(helper),
      bridgingConfig_(bridgingConfig) {}

bool UmoNatFlowActionSmContext::holds(
    const Pelo::String& policy, const Pelo::String& match,
    const Mox::Ptr<const Ip::Nat::NatFlowMatchStatus>& matchStatus,
    const Mox::Ptr<Ip::Nat::HwNatFlowMatchStatus>& hwMatchStatus,
    const Mox::Ptr<UmoNatFlowMatchSmStatus>& matchSmStatus,
    const UmoNatFlowMcastTopologySm* topologySm,
    const Mox::Ptr<UmoHelper::UmoNatFlowMcastHelper>& helper,
    const Mox::Ptr<const Bridging::Config>& bridgingConfig) const {
  return policy_ == policy && match_ == match && matchStatus_ == matchStatus &&
         hwMatchStatus_ == hwMatchStatus && matchSmStatus_ == matchSmStatus &&
         topologySm_ == topologySm && helper_ == helper && bridgingConfig_ == bridgingConfig;
}

bool UmoNatFlowActionSmContext::holdsSameAs(const UmoNatFlowActionSmContext& other) const {
  return this == &other ||
         holds(other.policy_, other.match_, other.matchStatus_, other.hwMatchStatus_,
               other.matchSmStatus_, other.topologySm_, other.helper_, other.bridgingConfig_);
}

UmoNatFlowActionSm::UmoNatFlowActionSm(
    const Pelo::String& policy, const Pelo::String& match,
    const Mox::Ptr<const Ip::Nat::NatFlowMatchStatus>& matchStatus,
    const Mox::Ptr<const Ip::Nat::NatFlowActionStatus>& actionStatus,
    const Mox::Ptr<Ip::Nat::HwNatFlowMatchStatus>& hwMatchStatus,
    const Mox::Ptr<UmoNatFlowMatchSmStatus>& matchSmStatus, UmoNatFlowMcastTopologySm* topologySm,
    const Mox::Ptr<UmoHelper::UmoNatFlowMcastHelper>& helper,
    const Mox::Ptr<const Bridging::Config>& bridgingConfig)
    : UmoNatFlowActionSm(Mox::makePtr<const UmoNatFlowActionSmContext>(
                             policy, match, matchStatus, hwMatchStatus, matchSmStatus, topologySm,
                             helper, bridgingConfig),
                         actionStatus) {}

UmoNatFlowActionSm::UmoNatFlowActionSm(
    const Mox::Ptr<const UmoNatFlowActionSmContext>& context,
    const Mox::Ptr<const Ip::Nat::NatFlowActionStatus>& actionStatus)
    : Mox::Reactor(actionStatus ? actionStatus->name() : kNoName),
      context_(context),
      actionStatus_(actionStatus) {
  if (actionStatus_) subscribe<&UmoNatFlowActionSm::actionStatusDispatch>(*actionStatus_);
  // What the first pass programmed is freed and the machine leaves the
  // index and the backlog before the exception goes on.
  initializeOrUnwind(this, &UmoNatFlowActionSm::handleInitialized, &UmoNatFlowActionSm::teardown);
}

UmoNatFlowActionSm::~UmoNatFlowActionSm() { teardown(); }

void UmoNatFlowActionSm::teardown() {
  // Nothing may reach this machine once it is gone: not the index (which a
  // version-0 clean-up leaves alone) and not the update backlog.
  if (topologySm() != nullptr) topologySm()->actionSmGone(this);
  if (actionStatus_) unsubscribe(*actionStatus_);
}

std::uint32_t UmoNatFlowActionSm::version() const {
  return actionStatus_ ? actionStatus_->version() : 0;
}

void UmoNatFlowActionSm::actionStatusDispatch(const Pelo::Publisher& /*publisher*/,
                                              Pelo::AttrId attr, const Pelo::Key& /*key*/) {
  if (attr != Ip::Nat::NatFlowActionStatus::Attr::version || isMarkedForDeletion()) return;
  handleNatFlowAction(false);
}

UmoNatFlowActionSm::GroupUses UmoNatFlowActionSm::groupUses(NatFlowType ft) const {
  // The first group carries the port sets of the action's own type (unicast
  // ones without a destination type). With two groups, a typed action holds a
  // second id for the same port sets in the second group, while an action
  // without a destination puts its multicast port sets there.
  GroupUses uses;
  uses.use[uses.count++] = {hwMatchStatus()->groupIdUc(), ft != NatFlowType::natFlowTypeMulticast,
                            false};
  if (matchSmStatus()->groupNum() == 2) {
    uses.use[uses.count++] = {hwMatchStatus()->groupIdMc(), ft == NatFlowType::natFlowTypeUnicast,
                              ft != NatFlowType::natFlowTypeNone};
  }
  return uses;
}

Nexo::IpAddr UmoNatFlowActionSm::flowTypeAddr() const {
  Nexo::IpAddr dip = actionStatus_->dst().ip();
  if (dip.isZero()) dip = hwMatchStatus()->flow().dstAddr();
  return dip;
}

Ip::Nat::NatFlowType UmoNatFlowActionSm::deriveFlowType() const {
  const Nexo::IpAddr dip = flowTypeAddr();
  if (dip.isZero()) return NatFlowType::natFlowTypeNone;
  return dip.isMulticast() ? NatFlowType::natFlowTypeMulticast : NatFlowType::natFlowTypeUnicast;
}

Ip::Nat::NatFlowType UmoNatFlowActionSm::getFlowType() const {
  const NatFlowType type = deriveFlowType();
  MOX_TRACE(traceHandle, 2, "Flow type: " << type << " (dip: " << flowTypeAddr() << ")");
  return type;
}

std::uint32_t UmoNatFlowActionSm::getGroupNum() const {
  if (!hwMatchStatus()->flow().dstAddr().isZero()) return 1;
  for (const auto& [name, action] : matchStatus()->action()) {
    if (action->dst().ip().isZero()) return 2;
  }
  return 1;
}

void UmoNatFlowActionSm::handleInitialized() {
  MOX_TRACE(traceHandle, 1, ACTION_ENTRY("handleInitialized"));
  SKIMTRACE("UmoNatFlowActionSm::handleInitialized policy %s match %s action %s", policy(), match(),
            action());
  initialized_ = true;
  hwActionStatus_ = hwMatchStatus()->actionIs(action());
  handleNatFlowAction(false);
}

void UmoNatFlowActionSm::handleNatFlowAction(bool skipChecks) {
  MOX_TRACE(traceHandle, 2,
            ACTION_ENTRY("handleNatFlowAction")
                << ", version: " << version() << ", skipChecks: " << skipChecks);
  SKIMTRACE("UmoNatFlowActionSm::handleNatFlowAction policy %s match %s action %s version %u",
            policy(), match(), action(), version());
  if (!initialized_ || version() == 0) {
    MOX_TRACE(traceHandle, 2, "Version not initialized yet, skip update");
    return;
  }
  if (matchSmStatus()->groupNum() == 0) {
    MOX_TRACE(traceHandle, 2, "Group not initialized yet, skip update");
    return;
  }
  if (!skipChecks) {
    const std::uint32_t groups = getGroupNum();
    if (groups != matchSmStatus()->groupNum()) {
      // The match re-allocates its groups and calls back.
      MOX_TRACE(traceHandle, 2,
                "Change in the group number, old: " << matchSmStatus()->groupNum()
                                                    << ", new: " << groups);
      matchSmStatus()->groupNumUpdateIs(matchSmStatus()->groupNumUpdate() + 1);
      return;
    }
    const NatFlowType type = getFlowType();
    if (type != hwActionStatus_->flowType()) {
      resetHwGroups();
      hwActionStatus_->flowTypeIs(type);
    }
  }
  auto vps = Ip::Nat::natFlowVlanPortSetsFactory();
  MOX_ASSERT(vps);
  // The hardware step compares with the port sets still recorded, so the new
  // ones are recorded only after it; translations go last, against the ids
  // just recorded.
  updateSwPortSet(vps);
  try {
    updateHwPortSet(vps);
  } catch (...) {
    // The helper gave up part way: record every port set the chip may still
    // hold, so that a reset or the clean-up frees them all.
    keepProgrammedPortSets(*vps);
    hwActionStatus_->vlanPortSetsIs(vps);
    throw;
  }
  hwActionStatus_->vlanPortSetsIs(vps);
  updateHwTranslation();
}

void UmoNatFlowActionSm::handleNatFlow() {
  MOX_TRACE(traceHandle, 2, ACTION_ENTRY("handleNatFlow"));
  SKIMTRACE("UmoNatFlowActionSm::handleNatFlow policy %s match %s action %s", policy(), match(),
            action());
  if (!initialized_ || version() == 0) return;
  const NatFlowType type = getFlowType();
  if (type == hwActionStatus_->flowType()) {
    updateHwTranslation();  // only the translations can have changed
    return;
  }
  resetHwGroups();
  hwActionStatus_->flowTypeIs(type);
  handleNatFlowAction(false);
}

void UmoNatFlowActionSm::handleGroupNum(std::uint32_t num) {
  MOX_TRACE(traceHandle, 2, ACTION_ENTRY("handleGroupNum") << ", num: " << num);
  SKIMTRACE("UmoNatFlowActionSm::handleGroupNum policy %s match %s action %s num %u", policy(),
            match(), action(), num);
  if (initialized_ && version() != 0) resetHwGroups();
}

void UmoNatFlowActionSm::resetHwGroup(std::uint32_t group, bool unicast, bool portSetId2) {
  MOX_TRACE(traceHandle, 2,
            "UmoNatFlowActionSm::resetHwGroup, group: " << group << ", unicast: " << unicast
                                                        << ", portSetId2: " << portSetId2);
  MOX_ASSERT(initialized() && actionStatus()->version());
  if (group == 0) return;
  const auto& vps = hwActionStatus_->vlanPortSets();
  if (!vps) return;
  const bool srcNat = !hwActionStatus_->srcNat().ip().isZero();
  const bool dstNat = !hwActionStatus_->dstNat().ip().isZero();
  const auto portSets = unicast ? vps->ucastPortSet() : vps->mcastPortSet();
  for (const auto& [vlan, ps] : portSets) {
    const std::uint32_t id = portSetId2 ? ps->portSetId2() : ps->portSetId();
    if (id == 0) continue;  // never programmed in this group
    MOX_TRACE(traceHandle, 2,
              (unicast ? "Delete ucast portSet, group: " : "Delete mcast portSet, group: ")
                  << group << ", portSetId: " << id);
    helper()->deleteNatFlowVlanPortSet(group, id);
    if (srcNat) helper()->deleteNatFlowSrcTranslation(group, id);
    // Every unicast port set carries a destination translation; a multicast
    // one only when a destination translation is recorded.
    if (unicast || dstNat) helper()->deleteNatFlowDstTranslation(group, id);
  }
}

void UmoNatFlowActionSm::resetHwGroups() {
  const NatFlowType ft =
      hwActionStatus_ ? hwActionStatus_->flowType() : NatFlowType::natFlowTypeUnicast;
  MOX_TRACE(traceHandle, 2, ACTION_ENTRY("resetHwGroups") << ", ft: " << ft);
  if (!initialized_ || version() == 0) return;
  for (const GroupUse& use : groupUses(ft)) resetHwGroup(use.group, use.unicast, use.portSetId2);
  hwActionStatus_->srcNatIs(Nexo::IpAndPort());
  hwActionStatus_->dstNatIs(Nexo::IpAndPort());
  hwActionStatus_->srcFlowIs(Nexo::IpAndPort());
  hwActionStatus_->dstFlowIs(Nexo::IpAndPort());
  hwActionStatus_->srcLenIs(0);
  hwActionStatus_->dstLenIs(0);
  if (const auto vps = hwActionStatus_->vlanPortSets()) {
    vps->ucastPortSetDelAll();
    vps->mcastPortSetDelAll();
    hwActionStatus_->vlanPortSetsIs(nullptr);
  }
}

void UmoNatFlowActionSm::doCleanup() {
  MOX_TRACE(traceHandle, 2, ACTION_ENTRY("doCleanup") << ", version: " << version());
  SKIMTRACE("UmoNatFlowActionSm::doCleanup policy %s match %s action %s version %u", policy(),
            match(), action(), version());
  // With version 0 nothing is done, and the hardware action entry made at
  // start stays in the match's hardware status.
  if (!initialized_ || version() == 0) return;
  if (topologySm() != nullptr) topologySm()->delActionSm(this);
  if (matchSmStatus()->groupNum() != 0) resetHwGroups();
  hwMatchStatus()->actionDel(action());
}
