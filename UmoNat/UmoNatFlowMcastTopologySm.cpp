#include "UmoNat/UmoNatFlowMcastTopologySm.h"

#include <algorithm>
#include <utility>
#include <variant>

#include "Mox/Assert.h"
#include "Mox/Trace.h"
#include "Skimtrace/Skimtrace.h"
#include "UmoNat/UmoNatFlowActionSm.h"
#include "UmoNat/UmoNatFlowMcastTopologySmReactors.h"

namespace {

constinit Mox::TraceHandle traceHandle("UmoNatFlowMcastTopologySm");

// The policy, match and action of an action state machine, as index traces
// show them.
struct ActionNames {
  const UmoNatFlowActionSm* actionSm;
};
std::ostream& operator<<(std::ostream& os, ActionNames n) {
  return os << ", policy: " << n.actionSm->policy() << ", match: " << n.actionSm->match()
            << ", action: " << n.actionSm->action();
}

// Inserts `actionSm` into the index entry of `key`, creating the entry.
template <class Coll, class Key, class Make>
void indexAdd(Coll& coll, const Key& key, UmoNatFlowActionSm* actionSm, Make make) {
  coll.isWith(key, [&] { return make(key); })->actionSmIs(actionSm);
}

// Takes `actionSm` out of the index entry of `key`; returns whether the entry
// became empty and was removed.
template <class Coll, class Key>
bool indexDel(Coll& coll, const Key& key, UmoNatFlowActionSm* actionSm) {
  auto* entry = coll.find(key);
  if (entry == nullptr) return false;
  (*entry)->actionSmDel(actionSm);
  if (!(*entry)->actionSm().empty()) return false;
  coll.del(key);
  return true;
}

}  // namespace

UmoNatFlowMcastTopologySm::UmoNatFlowMcastTopologySm(
    const Mox::Ptr<const Bridging::Config>& bridgingConfig,
    const Mox::Ptr<const Bridging::VlanStatusDir>& vlanStatusDir,
    const Mox::Ptr<const Bridging::Topology::Config>& bridgingTopo,
    const Mox::Ptr<const Bridging::Status>& bridgingStatus,
    const Mox::Ptr<const UmoL3Intf::Table>& umoL3IntfTable,
    const Mox::Ptr<const Ip::Status>& ipStatus)
    : Mox::Reactor("UmoNatFlowMcastTopologySm"),
      bridgingConfig_(bridgingConfig),
      vlanStatusDir_(vlanStatusDir),
      bridgingTopo_(bridgingTopo),
      bridgingStatus_(bridgingStatus),
      umoL3IntfTable_(umoL3IntfTable),
      ipStatus_(ipStatus) {
  initializeOrUnwind(this, &UmoNatFlowMcastTopologySm::initialize,
                     &UmoNatFlowMcastTopologySm::teardown);
}

void UmoNatFlowMcastTopologySm::initialize() {
  if (bridgingConfig_) {
    moxBridgingConfig_ = Mox::makePtr<MoxBridgingConfig>(bridgingConfig_, this);
    moxBridgingConfig_->hasNotificationActiveIs(true);
  }
  if (vlanStatusDir_) {
    moxVlanStatusDir_ = Mox::makePtr<MoxVlanStatusDir>(vlanStatusDir_, this);
    moxVlanStatusDir_->hasNotificationActiveIs(true);
  }
  if (bridgingStatus_) {
    moxBridgingStatus_ = Mox::makePtr<MoxBridgingStatus>(bridgingStatus_, this);
    moxBridgingStatus_->hasNotificationActiveIs(true);
  }
  if (ipStatus_) {
    moxIpStatus_ = Mox::makePtr<MoxIpStatus>(ipStatus_, this);
    moxIpStatus_->hasNotificationActiveIs(true);
  }
  if (bridgingTopo_) subscribe<&UmoNatFlowMcastTopologySm::bridgingTopoDispatch>(*bridgingTopo_);
  if (umoL3IntfTable_) {
    subscribe<&UmoNatFlowMcastTopologySm::umoL3IntfTableDispatch>(*umoL3IntfTable_);
  }

  if (bridgingConfig_) {
    for (const auto& [intf, config] : bridgingConfig_->switchIntfConfig()) {
      switchIntfConfigIs(config);
    }
  }
  if (vlanStatusDir_) {
    for (const auto& [vlan, status] : vlanStatusDir_->vlanStatus()) vlanStatusIs(status);
  }
  if (bridgingStatus_) {
    for (const auto& [fid, status] : bridgingStatus_->fdbStatus()) fdbStatusIs(status);
  }
  if (ipStatus_) {
    for (const auto& [intf, status] : ipStatus_->ipIntfStatus()) ipIntfStatusIs(status);
  }
  handleInitialized();
}

UmoNatFlowMcastTopologySm::~UmoNatFlowMcastTopologySm() { teardown(); }

void UmoNatFlowMcastTopologySm::teardown() {
  zombieIs();
  if (bridgingTopo_) unsubscribe(*bridgingTopo_);
  if (umoL3IntfTable_) unsubscribe(*umoL3IntfTable_);
  actionSmUpdateBacklogTaskDel();
  // Reverse order of declaration; as zombies, the reactors say nothing.
  actionSmUpdateBacklog_.delAll();
  actionRecirc_.delAll();
  actionMac_.delAll();
  actionVlan_.delAll();
  actionIntf_.delAll();
  ipIntfStatus_.delAll();
  intfL3Index_.delAll();
  fdbStatus_.delAll();
  moxTopoConfig_.delAll();
  vlanToTopoMap_.delAll();
  vlanStatus_.delAll();
  switchIntfConfig_.delAll();
  moxIpStatus_.reset();
  moxBridgingStatus_.reset();
  moxVlanStatusDir_.reset();
  moxBridgingConfig_.reset();
}

void UmoNatFlowMcastTopologySm::handleInitialized() {
  MOX_TRACE(traceHandle, 1, "UmoNatFlowMcastTopologySm::handleInitialized");
  SKIMTRACE("UmoNatFlowMcastTopologySm::handleInitialized");
  initialized_ = true;
  initializeVidToTopoMap();
  initializeL3Intf();
  actionSmUpdateBacklogTaskIs(Mox::makePtr<Vyr::TimerTask>(
      Vyr::TaskSchedulerRoot::findOrCreateScheduler(), 4, "actionSmUpdateBacklogTask"));
}

void UmoNatFlowMcastTopologySm::bridgingTopoDispatch(const Pelo::Publisher& /*publisher*/,
                                                     Pelo::AttrId attr, const Pelo::Key& key) {
  if (attr != Bridging::Topology::Config::Attr::vidToTopoMap || isMarkedForDeletion()) return;
  handleVidToTopoMap(key.get<Bridging::VlanId>());
}

void UmoNatFlowMcastTopologySm::umoL3IntfTableDispatch(const Pelo::Publisher& /*publisher*/,
                                                       Pelo::AttrId attr, const Pelo::Key& key) {
  if (attr != UmoL3Intf::Table::Attr::intfL3Index || isMarkedForDeletion()) return;
  handleL3Intf(key.get<Nexo::IntfId>());
}

// --- Reactor collections ---

void UmoNatFlowMcastTopologySm::switchIntfConfigIs(
    const Mox::Ptr<const Bridging::SwitchIntfConfig>& entry) {
  if (!entry) return;
  const Nexo::IntfId intf = entry->intfId();
  if (auto* existing = switchIntfConfig_.find(intf)) {
    if ((*existing)->switchIntfConfig() == entry) return;
    switchIntfConfigDel(intf);  // the platform replaced the record
  }
  switchIntfConfig_.is(intf, Mox::makePtr<NestedSm_SwitchIntfConfig>(entry, this));
}

void UmoNatFlowMcastTopologySm::switchIntfConfigDel(const Nexo::IntfId& intf) {
  auto* existing = switchIntfConfig_.find(intf);
  if (existing == nullptr) return;
  Mox::Ptr<NestedSm_SwitchIntfConfig> reactor = *existing;
  reactor->handleSwitchIntfConfigDel();
  switchIntfConfig_.del(intf);
}

void UmoNatFlowMcastTopologySm::switchIntfConfigDelAll() {
  for (const Nexo::IntfId& intf : switchIntfConfig_.keys()) switchIntfConfigDel(intf);
}

void UmoNatFlowMcastTopologySm::vlanStatusIs(const Mox::Ptr<const Bridging::VlanStatus>& entry) {
  if (!entry) return;
  const Bridging::VlanId vlan = entry->vlanId();
  if (auto* existing = vlanStatus_.find(vlan)) {
    if ((*existing)->vlanStatus() == entry) return;
    vlanStatus_.del(vlan);
  }
  vlanStatus_.is(vlan, Mox::makePtr<NestedSm_VlanStatus>(entry, this));
  handleVlanStatus(vlan);
}

void UmoNatFlowMcastTopologySm::vlanStatusDel(Bridging::VlanId vlan) {
  if (!vlanStatus_.del(vlan)) return;
  handleVlanStatus(vlan);
}

void UmoNatFlowMcastTopologySm::vlanStatusDelAll() {
  for (Bridging::VlanId vlan : vlanStatus_.keys()) vlanStatusDel(vlan);
}

void UmoNatFlowMcastTopologySm::fdbStatusIs(const Mox::Ptr<const Bridging::FdbStatus>& entry) {
  if (!entry) return;
  const Bridging::Fid fid = entry->fid();
  if (auto* existing = fdbStatus_.find(fid)) {
    if ((*existing)->fdbStatus() == entry) return;
    fdbStatus_.del(fid);
  }
  fdbStatus_.is(fid, Mox::makePtr<NestedSm_FdbStatus>(entry, this));
  handleFdbStatus(fid);
}

void UmoNatFlowMcastTopologySm::fdbStatusDel(Bridging::Fid fid) {
  if (!fdbStatus_.del(fid)) return;
  handleFdbStatus(fid);
}

void UmoNatFlowMcastTopologySm::fdbStatusDelAll() {
  for (Bridging::Fid fid : fdbStatus_.keys()) fdbStatusDel(fid);
}

void UmoNatFlowMcastTopologySm::ipIntfStatusIs(const Mox::Ptr<const Ip::IpIntfStatus>& entry) {
  if (!entry) return;
  const Nexo::IntfId intf = entry->intfId();
  if (auto* existing = ipIntfStatus_.find(intf)) {
    if ((*existing)->ipIntfStatus() == entry) return;
    ipIntfStatus_.del(intf);
  }
  ipIntfStatus_.is(intf, Mox::makePtr<NestedSm_IpIntfStatus>(entry, this));
}

void UmoNatFlowMcastTopologySm::ipIntfStatusDel(const Nexo::IntfId& intf) {
  ipIntfStatus_.del(intf);
}

void UmoNatFlowMcastTopologySm::ipIntfStatusDelAll() { ipIntfStatus_.delAll(); }

void UmoNatFlowMcastTopologySm::intfL3IndexIs(const Nexo::IntfId& intf, std::uint16_t vlan) {
  intfL3Index_.is(intf, vlan);
}

void UmoNatFlowMcastTopologySm::intfL3IndexDel(const Nexo::IntfId& intf) { intfL3Index_.del(intf); }

// --- Action index ---

bool UmoNatFlowMcastTopologySm::actionSmIndexed(const UmoNatFlowActionSm* actionSm) const {
  return !actionSm->indexKeys_.empty() || actionRecirc_.contains(actionSm);
}

void UmoNatFlowMcastTopologySm::addActionSmIntf(const Nexo::IntfId& intf,
                                                UmoNatFlowActionSm* actionSm) {
  MOX_TRACE(traceHandle, 4, "addActionSmIntf" << ActionNames{actionSm} << ", intf: " << intf);
  indexAdd(actionIntf_, intf, actionSm, UmoNatflowActionSmIntfIs);
  actionSm->indexKeys_.insert(intf);
}

void UmoNatFlowMcastTopologySm::addActionSmVlan(std::uint16_t vlan, UmoNatFlowActionSm* actionSm) {
  MOX_TRACE(traceHandle, 4, "addActionSmVlan" << ActionNames{actionSm} << ", vlan: " << vlan);
  indexAdd(actionVlan_, vlan, actionSm, UmoNatflowActionSmVlanIs);
  actionSm->indexKeys_.insert(vlan);
}

void UmoNatFlowMcastTopologySm::addActionSmMac(const Nexo::EthAddr& mac,
                                               UmoNatFlowActionSm* actionSm) {
  MOX_TRACE(traceHandle, 4, "addActionSmMac" << ActionNames{actionSm} << ", mac: " << mac);
  indexAdd(actionMac_, mac, actionSm, UmoNatflowActionSmMacIs);
  actionSm->indexKeys_.insert(mac);
}

void UmoNatFlowMcastTopologySm::addActionSmRecirc(UmoNatFlowActionSm* actionSm) {
  MOX_TRACE(traceHandle, 4, "addActionSmRecirc" << ActionNames{actionSm});
  actionRecirc_.is(actionSm);
}

void UmoNatFlowMcastTopologySm::delActionSm(UmoNatFlowActionSm* actionSm) {
  MOX_TRACE(traceHandle, 4, "delActionSm" << ActionNames{actionSm});
  withdraw(actionSm, true);
}

void UmoNatFlowMcastTopologySm::actionSmGone(UmoNatFlowActionSm* actionSm) {
  withdraw(actionSm, false);
  actionSmUpdateBacklog_.del(actionSm);
}

void UmoNatFlowMcastTopologySm::withdraw(UmoNatFlowActionSm* actionSm, bool traced) {
  // The keys of the action, interfaces, VLANs then MACs, each kind in ascending
  // order: the order in which a walk over the whole index would meet them.
  if (!actionSm->indexKeys_.empty()) {
    // The keys are taken out before the index changes. A pass keeps the list, and its room, for
    // the keys it registers next; a dying action takes it with it.
    UmoNatflowActionSmKeys keys = std::exchange(actionSm->indexKeys_, UmoNatflowActionSmKeys());
    for (const UmoNatflowActionSmKey& key : keys) {
      if (const auto* intf = std::get_if<Nexo::IntfId>(&key)) {
        if (indexDel(actionIntf_, *intf, actionSm) && traced) {
          MOX_TRACE(traceHandle, 4, "Removed actionIntf for intf " << *intf);
        }
      } else if (const auto* vlan = std::get_if<std::uint16_t>(&key)) {
        if (indexDel(actionVlan_, *vlan, actionSm) && traced) {
          MOX_TRACE(traceHandle, 4, "Removed actionVlan for vlan " << *vlan);
        }
      } else if (const auto* mac = std::get_if<Nexo::EthAddr>(&key)) {
        if (indexDel(actionMac_, *mac, actionSm) && traced) {
          MOX_TRACE(traceHandle, 4, "Removed actionMac for mac " << *mac);
        }
      }
    }
    if (traced && actionSm->indexKeys_.empty()) {
      keys.clear();
      actionSm->indexKeys_ = std::move(keys);
    }
  }
  actionRecirc_.del(actionSm);
}

// --- Change notification and the update backlog ---

void UmoNatFlowMcastTopologySm::queue(const Mox::PtrSet<UmoNatFlowActionSm>& actions) {
  for (UmoNatFlowActionSm* actionSm : actions) {
    actionSmUpdateBacklog_.is(actionSm);
    if (actionSmUpdateBacklogTask_ && !actionSmUpdateBacklogTask_->taskScheduled()) {
      MOX_TRACE(traceHandle, 9, "Scheduled task");
      actionSmUpdateBacklogTask_->scheduleTaskDelay(actionSmUpdateBacklogTaskInterval_);
    }
  }
}

void UmoNatFlowMcastTopologySm::notifyActionSmIntf(const Nexo::IntfId& intf) {
  MOX_TRACE(traceHandle, 5, "notifyActionSmIntf, intf: " << intf);
  if (const auto* entry = actionIntf_.find(intf)) queue((*entry)->actionSm());
}

void UmoNatFlowMcastTopologySm::notifyActionSmVlan(std::uint16_t vlan) {
  MOX_TRACE(traceHandle, 5, "notifyActionSmVlan, vlan: " << vlan);
  if (const auto* entry = actionVlan_.find(vlan)) queue((*entry)->actionSm());
}

void UmoNatFlowMcastTopologySm::notifyActionSmMac(const Nexo::EthAddr& mac) {
  MOX_TRACE(traceHandle, 5, "notifyActionSmMac, mac: " << mac);
  if (const auto* entry = actionMac_.find(mac)) queue((*entry)->actionSm());
}

void UmoNatFlowMcastTopologySm::notifyActionSmRecirc() {
  MOX_TRACE(traceHandle, 5, "notifyActionSmRecirc");
  queue(actionRecirc_);
}

void UmoNatFlowMcastTopologySm::actionSmUpdateBacklogIs(UmoNatFlowActionSm* actionSm) {
  actionSmUpdateBacklog_.is(actionSm);
}

void UmoNatFlowMcastTopologySm::actionSmUpdateBacklogDel(UmoNatFlowActionSm* actionSm) {
  actionSmUpdateBacklog_.del(actionSm);
}

void UmoNatFlowMcastTopologySm::actionSmUpdateBacklogTaskIs(const Mox::Ptr<Vyr::TimerTask>& task) {
  if (task == actionSmUpdateBacklogTask_) return;
  if (actionSmUpdateBacklogTask_) unsubscribe(*actionSmUpdateBacklogTask_);
  actionSmUpdateBacklogTask_ = task;
  if (!actionSmUpdateBacklogTask_) return;
  subscribe<&UmoNatFlowMcastTopologySm::actionSmUpdateBacklogTaskDispatch>(
      *actionSmUpdateBacklogTask_);
  if (!isMarkedForDeletion()) processActionSmUpdateBacklog();
}

void UmoNatFlowMcastTopologySm::actionSmUpdateBacklogTaskDel() {
  if (!actionSmUpdateBacklogTask_) return;
  unsubscribe(*actionSmUpdateBacklogTask_);
  actionSmUpdateBacklogTask_.reset();
}

void UmoNatFlowMcastTopologySm::actionSmUpdateBacklogTaskDispatch(
    const Pelo::Publisher& /*publisher*/, Pelo::AttrId attr, const Pelo::Key& /*key*/) {
  if (attr != Vyr::Task::Attr::run || isMarkedForDeletion()) return;
  processActionSmUpdateBacklog();
}

void UmoNatFlowMcastTopologySm::processActionSmUpdateBacklog() {
  MOX_TRACE(traceHandle, 9, "processActionSmUpdateBacklog");
  if (!initialized_) {
    MOX_TRACE(traceHandle, 9, "UmoNatFlowMcastTopologySm not initialized yet");
    return;
  }
  if (!actionSmUpdateBacklogTask_ || !actionSmUpdateBacklogTask_->taskCurrentlyRunning()) {
    MOX_TRACE(traceHandle, 9, "Task not running");
    return;
  }
  std::uint32_t reviewed = 0;
  for (auto it = actionSmUpdateBacklog_.begin(); it != actionSmUpdateBacklog_.end(); ++it) {
    UmoNatFlowActionSm* actionSm = *it;
    actionSm->handleNatFlowAction(true);
    ++reviewed;
    // After the handler: a machine that queued itself again is dequeued all
    // the same. A machine destroyed by the handler has already left.
    actionSmUpdateBacklog_.del(actionSm);
    if (reviewed == actionSmUpdateBacklogTaskLimit_) break;
  }
  MOX_TRACE(traceHandle, 9,
            "Entries reviewed: " << reviewed << ", left: " << actionSmUpdateBacklog_.size());
  actionSmUpdateBacklogTask_->taskWorkCountInc(reviewed);
  if (!actionSmUpdateBacklog_.empty()) {
    actionSmUpdateBacklogTask_->scheduleTaskDelay(actionSmUpdateBacklogTaskInterval_);
  }
}

Mox::Ptr<UmoNatFlowMcastTopologySm> umoNatFlowMcastTopologySmFactory(
    const Mox::Ptr<const Bridging::Config>& bridgingConfig,
    const Mox::Ptr<const Bridging::VlanStatusDir>& vlanStatusDir,
    const Mox::Ptr<const Bridging::Topology::Config>& bridgingTopo,
    const Mox::Ptr<const Bridging::Status>& bridgingStatus,
    const Mox::Ptr<const UmoL3Intf::Table>& umoL3IntfTable,
    const Mox::Ptr<const Ip::Status>& ipStatus) {
  return Mox::reactorIs<UmoNatFlowMcastTopologySm>(bridgingConfig, vlanStatusDir, bridgingTopo,
                                                   bridgingStatus, umoL3IntfTable, ipStatus);
}
