#include "UmoNat/UmoNatFlowMcastTopologySmReactors.h"

#include <ostream>

#include "Mox/Assert.h"
#include "Mox/Trace.h"
#include "Skimtrace/Skimtrace.h"

namespace {

constinit Mox::TraceHandle traceHandle("UmoNatFlowMcastTopologySm");

// A VLAN number from an input that may lie outside the VLAN range (an L3 id
// of a routed port): such a number has no VLAN status to look at.
bool inVlanRange(std::uint16_t vlan) { return vlan >= 1 && vlan <= 4094; }

// The same test as for the VLAN's L3 interface: routing on and an address.
bool ipIntfUp(const Ip::IpIntfStatus& status) {
  return status.routing() && !(status.addrWithMask() == Nexo::IpAddrWithMask());
}

}  // namespace

// --- Wrapper reactors on the input directories ---

UmoNatFlowMcastTopologySm::MoxBridgingConfig::MoxBridgingConfig(
    const Mox::Ptr<const Bridging::Config>& input, UmoNatFlowMcastTopologySm* owner)
    : Mox::Reactor("MoxBridgingConfig", owner), input_(input), topology_(owner) {
  subscribe<&MoxBridgingConfig::dispatch>(*input_);
}

void UmoNatFlowMcastTopologySm::MoxBridgingConfig::dispatch(const Pelo::Publisher& /*publisher*/,
                                                            Pelo::AttrId attr,
                                                            const Pelo::Key& key) {
  if (attr != Bridging::Config::Attr::switchIntfConfig || !input_ || topology_ == nullptr) return;
  const auto& intf = key.get<Nexo::IntfId>();
  if (auto entry = input_->switchIntfConfig(intf)) {
    topology_->switchIntfConfigIs(entry);
  } else {
    topology_->switchIntfConfigDel(intf);
  }
}

UmoNatFlowMcastTopologySm::MoxVlanStatusDir::MoxVlanStatusDir(
    const Mox::Ptr<const Bridging::VlanStatusDir>& input, UmoNatFlowMcastTopologySm* owner)
    : Mox::Reactor("MoxVlanStatusDir", owner), input_(input), topology_(owner) {
  subscribe<&MoxVlanStatusDir::dispatch>(*input_);
}

void UmoNatFlowMcastTopologySm::MoxVlanStatusDir::dispatch(const Pelo::Publisher& /*publisher*/,
                                                           Pelo::AttrId attr,
                                                           const Pelo::Key& key) {
  if (attr != Bridging::VlanStatusDir::Attr::vlanStatus || !input_ || topology_ == nullptr) {
    return;
  }
  const auto vlan = key.get<Bridging::VlanId>();
  if (auto entry = input_->vlanStatus(vlan)) {
    topology_->vlanStatusIs(entry);
  } else {
    topology_->vlanStatusDel(vlan);
  }
}

UmoNatFlowMcastTopologySm::MoxBridgingStatus::MoxBridgingStatus(
    const Mox::Ptr<const Bridging::Status>& input, UmoNatFlowMcastTopologySm* owner)
    : Mox::Reactor("MoxBridgingStatus", owner), input_(input), topology_(owner) {
  subscribe<&MoxBridgingStatus::dispatch>(*input_);
}

void UmoNatFlowMcastTopologySm::MoxBridgingStatus::dispatch(const Pelo::Publisher& /*publisher*/,
                                                            Pelo::AttrId attr,
                                                            const Pelo::Key& key) {
  if (attr != Bridging::Status::Attr::fdbStatus || !input_ || topology_ == nullptr) return;
  const auto fid = key.get<Bridging::Fid>();
  if (auto entry = input_->fdbStatus(fid)) {
    topology_->fdbStatusIs(entry);
  } else {
    topology_->fdbStatusDel(fid);
  }
}

UmoNatFlowMcastTopologySm::MoxIpStatus::MoxIpStatus(const Mox::Ptr<const Ip::Status>& input,
                                                    UmoNatFlowMcastTopologySm* owner)
    : Mox::Reactor("MoxIpStatus", owner), input_(input), topology_(owner) {
  subscribe<&MoxIpStatus::dispatch>(*input_);
}

void UmoNatFlowMcastTopologySm::MoxIpStatus::dispatch(const Pelo::Publisher& /*publisher*/,
                                                      Pelo::AttrId attr, const Pelo::Key& key) {
  if (attr != Ip::Status::Attr::ipIntfStatus || !input_ || topology_ == nullptr) return;
  const auto& intf = key.get<Nexo::IntfId>();
  if (auto entry = input_->ipIntfStatus(intf)) {
    topology_->ipIntfStatusIs(entry);
  } else {
    topology_->ipIntfStatusDel(intf);
  }
}

// --- Switch interface configuration ---

UmoNatFlowMcastTopologySm::NestedSm_SwitchIntfConfig::NestedSm_SwitchIntfConfig(
    const Mox::Ptr<const Bridging::SwitchIntfConfig>& config, UmoNatFlowMcastTopologySm* owner)
    : Mox::Reactor("NestedSm_SwitchIntfConfig", owner), config_(config), topology_(owner) {
  subscribe<&NestedSm_SwitchIntfConfig::dispatch>(*config_);
  handleInitialized();
}

Nexo::IntfId UmoNatFlowMcastTopologySm::NestedSm_SwitchIntfConfig::intf() const {
  return config_ ? config_->intfId() : Nexo::IntfId();
}

void UmoNatFlowMcastTopologySm::NestedSm_SwitchIntfConfig::dispatch(
    const Pelo::Publisher& /*publisher*/, Pelo::AttrId attr, const Pelo::Key& /*key*/) {
  if (isMarkedForDeletion()) return;
  if (attr == Bridging::SwitchIntfConfig::Attr::switchportMode ||
      attr == Bridging::SwitchIntfConfig::Attr::nativeVlan) {
    handleSwitchportModeAndNativeVlan();
  }
}

void UmoNatFlowMcastTopologySm::NestedSm_SwitchIntfConfig::handleInitialized() {
  MOX_TRACE(traceHandle, 3,
            "MoxSwitchIntfConfig::handleInitialized, intf: "
                << intf() << ", mode: " << config_->switchportMode()
                << ", native vlan: " << config_->nativeVlan());
  topology_->notifyActionSmIntf(intf());
}

void UmoNatFlowMcastTopologySm::NestedSm_SwitchIntfConfig::handleSwitchportModeAndNativeVlan() {
  MOX_TRACE(traceHandle, 3,
            "MoxSwitchIntfConfig::handleSwitchportModeAndNativeVlan, intf: "
                << intf() << ", mode: " << config_->switchportMode()
                << ", native vlan: " << config_->nativeVlan());
  topology_->notifyActionSmIntf(intf());
}

void UmoNatFlowMcastTopologySm::NestedSm_SwitchIntfConfig::handleSwitchIntfConfigDel() {
  MOX_TRACE(traceHandle, 3, "MoxSwitchIntfConfig::handleSwitchIntfConfigDel, intf: " << intf());
  topology_->notifyActionSmIntf(intf());
}

// --- VLAN status ---

UmoNatFlowMcastTopologySm::NestedSm_VlanStatus::NestedSm_VlanStatus(
    const Mox::Ptr<const Bridging::VlanStatus>& status, UmoNatFlowMcastTopologySm* owner)
    : Mox::Reactor("NestedSm_VlanStatus", owner), status_(status), topology_(owner) {
  subscribe<&NestedSm_VlanStatus::dispatch>(*status_);
}

void UmoNatFlowMcastTopologySm::NestedSm_VlanStatus::dispatch(const Pelo::Publisher& /*publisher*/,
                                                              Pelo::AttrId attr,
                                                              const Pelo::Key& key) {
  if (attr != Bridging::VlanStatus::Attr::vlanPortStatus || isMarkedForDeletion()) return;
  handleVlanPortStatus(key.get<Nexo::IntfId>());
}

void UmoNatFlowMcastTopologySm::NestedSm_VlanStatus::handleVlanPortStatus(
    const Nexo::IntfId& intf) {
  if (status_->vlanPortStatus(intf) != nullptr) {
    MOX_TRACE(traceHandle, 3,
              "handleVlanPortStatus, vlan: " << status_->vlanId() << ", add/modify intf " << intf);
  } else {
    MOX_TRACE(traceHandle, 3,
              "handleVlanPortStatus, vlan: " << status_->vlanId() << ", delete intf " << intf);
  }
  topology_->notifyActionSmIntf(intf);
}

void UmoNatFlowMcastTopologySm::handleVlanStatus(Bridging::VlanId vlan) {
  if (vlanStatusDir_ && vlanStatusDir_->vlanStatus(vlan)) {
    MOX_TRACE(traceHandle, 3, "handleVlanStatus, add vlan " << vlan);
  } else {
    MOX_TRACE(traceHandle, 3, "handleVlanStatus, delete vlan " << vlan);
  }
  notifyActionSmVlan(vlan.value());
}

// --- FDBs ---

UmoNatFlowMcastTopologySm::NestedSm_FdbStatus::NestedSm_FdbStatus(
    const Mox::Ptr<const Bridging::FdbStatus>& status, UmoNatFlowMcastTopologySm* owner)
    : Mox::Reactor("NestedSm_FdbStatus", owner), status_(status), topology_(owner) {
  subscribe<&NestedSm_FdbStatus::dispatch>(*status_);
}

void UmoNatFlowMcastTopologySm::NestedSm_FdbStatus::dispatch(const Pelo::Publisher& /*publisher*/,
                                                             Pelo::AttrId attr,
                                                             const Pelo::Key& key) {
  if (attr != Bridging::FdbStatus::Attr::learnedHost || isMarkedForDeletion()) return;
  handleLearnedHost(key.get<Nexo::EthAddr>());
}

void UmoNatFlowMcastTopologySm::NestedSm_FdbStatus::handleLearnedHost(const Nexo::EthAddr& mac) {
  MOX_TRACE(traceHandle, 3, "handleLearnedHost, vlan: " << status_->fid() << ", mac: " << mac);
  if (const Bridging::LearnedHost* host = status_->learnedHost(mac)) {
    MOX_TRACE(traceHandle, 3, "Add mac address, intf: " << host->intf());
  } else {
    MOX_TRACE(traceHandle, 3, "Del mac address");
  }
  // The MAC index is keyed by address alone: every action registered under
  // the address is queued, whatever its VLAN.
  topology_->notifyActionSmMac(mac);
}

void UmoNatFlowMcastTopologySm::handleFdbStatus(Bridging::Fid fid) {
  if (bridgingStatus_ && bridgingStatus_->fdbStatus(fid)) {
    MOX_TRACE(traceHandle, 3, "handleFdbStatus, add mac table for vlan " << fid);
  } else {
    MOX_TRACE(traceHandle, 3, "handleFdbStatus, del mac table for vlan " << fid);
  }
  notifyActionSmVlan(fid.value());
}

// --- VLAN-to-topology mapping ---

void UmoNatFlowMcastTopologySm::handleVidToTopoMap(Bridging::VlanId vlan) {
  MOX_TRACE(traceHandle, 3, "handleVidToTopoMap, vlan: " << vlan);
  if (const Pelo::String* old = vlanToTopoMap_.find(vlan)) {
    const Pelo::String oldName = *old;
    MOX_TRACE(traceHandle, 3, "Old vlan topology: " << oldName);
    auto* ttc = moxTopoConfig_.find(oldName);
    MOX_ASSERT(ttc);
    Mox::Ptr<MoxTopoConfig> topo = *ttc;
    topo->vlanListDel(vlan);
    if (topo->vlanList().empty()) {
      MOX_TRACE(traceHandle, 3, "Empty vlan list, deleting topology");
      topoConfigDel(oldName);
    }
    vlanToTopoMap_.del(vlan);
  }
  if (auto tc = bridgingTopo_ ? bridgingTopo_->vidToTopoMap(vlan) : nullptr) {
    MOX_TRACE(traceHandle, 3, "New vlan topology: " << tc->name());
    Mox::Ptr<MoxTopoConfig> topo;
    if (auto* existing = moxTopoConfig_.find(tc->name())) {
      topo = *existing;
    } else {
      MOX_TRACE(traceHandle, 3, "Creating topology");
      topo = topoConfigIs(tc);
    }
    topo->vlanListIs(vlan);
    vlanToTopoMap_.is(vlan, tc->name());
  }
  notifyActionSmVlan(vlan.value());
}

void UmoNatFlowMcastTopologySm::initializeVidToTopoMap() {
  MOX_TRACE(traceHandle, 1, "initializeVidToTopoMap");
  if (!bridgingTopo_) return;
  for (const auto& [vlan, tc] : bridgingTopo_->vidToTopoMap()) handleVidToTopoMap(vlan);
}

Mox::Ptr<UmoNatFlowMcastTopologySm::MoxTopoConfig> UmoNatFlowMcastTopologySm::topoConfigIs(
    const Mox::Ptr<const Bridging::Topology::TopoConfig>& tc) {
  if (auto* existing = moxTopoConfig_.find(tc->name())) return *existing;
  return moxTopoConfig_.is(tc->name(), Mox::makePtr<MoxTopoConfig>(tc, this));
}

void UmoNatFlowMcastTopologySm::topoConfigDel(const Pelo::String& name) {
  auto* existing = moxTopoConfig_.find(name);
  if (existing == nullptr) return;
  Mox::Ptr<MoxTopoConfig> topo = *existing;
  moxTopoConfig_.del(name);
  topo->handleTopologyDel();
}

UmoNatFlowMcastTopologySm::MoxTopoConfig::MoxTopoConfig(
    const Mox::Ptr<const Bridging::Topology::TopoConfig>& config, UmoNatFlowMcastTopologySm* owner)
    : Mox::Reactor(config->name(), owner), config_(config), topology_(owner) {
  subscribe<&MoxTopoConfig::dispatch>(*config_);
  for (const auto& [intf, port] : config_->topoPortConfig()) topoPortConfigIs(intf);
}

UmoNatFlowMcastTopologySm::MoxTopoConfig::~MoxTopoConfig() = default;

void UmoNatFlowMcastTopologySm::MoxTopoConfig::dispatch(const Pelo::Publisher& /*publisher*/,
                                                        Pelo::AttrId attr, const Pelo::Key& key) {
  if (attr != Bridging::Topology::TopoConfig::Attr::topoPortConfig || isMarkedForDeletion()) {
    return;
  }
  const auto& intf = key.get<Nexo::IntfId>();
  if (config_->topoPortConfig(intf)) {
    topoPortConfigIs(intf);
  } else {
    topoPortConfigDel(intf);
  }
}

void UmoNatFlowMcastTopologySm::MoxTopoConfig::topoPortConfigIs(const Nexo::IntfId& intf) {
  auto port = config_->topoPortConfig(intf);
  if (auto* existing = moxTopoPortConfig_.find(intf)) {
    if ((*existing)->topoPortConfig() == port) return;
    topoPortConfigDel(intf);
  }
  auto reactor = Mox::makePtr<MoxTopoPortConfig>(port, this);
  moxTopoPortConfig_.is(intf, reactor);
  // A port reactor starts as not forwarding; one that already forwards takes
  // the change path.
  reactor->handlePortState();
}

void UmoNatFlowMcastTopologySm::MoxTopoConfig::topoPortConfigDel(const Nexo::IntfId& intf) {
  auto* existing = moxTopoPortConfig_.find(intf);
  if (existing == nullptr) return;
  Mox::Ptr<MoxTopoPortConfig> reactor = *existing;
  moxTopoPortConfig_.del(intf);
  reactor->handleTopologyIntfDel();
}

void UmoNatFlowMcastTopologySm::MoxTopoConfig::handleTopoPort(const Nexo::IntfId& intf) {
  MOX_TRACE(traceHandle, 3, "handleTopoPort, state changed for intf " << intf);
  for (const auto& [vlan, present] : vlanList_) {
    MOX_TRACE(traceHandle, 3, "Updated vlan " << vlan);
    topology_->notifyActionSmVlan(vlan.value());
  }
  topology_->notifyActionSmIntf(intf);
}

void UmoNatFlowMcastTopologySm::MoxTopoConfig::handleTopologyDel() {
  if (!config_) return;
  MOX_TRACE(traceHandle, 3, "handleTopologyDel, topology: " << config_->name());
  for (const auto& [vlan, present] : vlanList_) {
    MOX_TRACE(traceHandle, 3, "Updated vlan " << vlan);
    topology_->notifyActionSmVlan(vlan.value());
  }
  // The ports of the retired topology go with it.
  for (const Nexo::IntfId& intf : moxTopoPortConfig_.keys()) topoPortConfigDel(intf);
}

UmoNatFlowMcastTopologySm::MoxTopoPortConfig::MoxTopoPortConfig(
    const Mox::Ptr<const Bridging::Topology::TopoPortConfig>& config, MoxTopoConfig* owner)
    : Mox::Reactor("MoxTopoPortConfig", owner), config_(config), topoConfig_(owner) {
  subscribe<&MoxTopoPortConfig::dispatch>(*config_);
}

void UmoNatFlowMcastTopologySm::MoxTopoPortConfig::dispatch(const Pelo::Publisher& /*publisher*/,
                                                            Pelo::AttrId attr,
                                                            const Pelo::Key& /*key*/) {
  if (attr != Bridging::Topology::TopoPortConfig::Attr::portState || isMarkedForDeletion()) {
    return;
  }
  handlePortState();
}

void UmoNatFlowMcastTopologySm::MoxTopoPortConfig::handlePortState() {
  const auto state = config_->portState();
  const bool fwd = state == Bridging::Topology::PortState::forwarding;
  MOX_TRACE(traceHandle, 3,
            "handlePortState, intf: " << config_->intfId() << ", fwd old: " << forwarding_
                                      << ", fwd new: " << fwd << " (" << state << ")");
  if (fwd == forwarding_) return;
  forwarding_ = fwd;
  topoConfig_->handleTopoPort(config_->intfId());
}

void UmoNatFlowMcastTopologySm::MoxTopoPortConfig::handleTopologyIntfDel() {
  if (!config_) return;
  MOX_TRACE(traceHandle, 3,
            "handleTopologyIntfDel, intf: " << config_->intfId() << ", fwd: " << forwarding_);
  if (forwarding_) topoConfig_->handleTopoPort(config_->intfId());
}

// --- Validity ---

// Each step is traced, or in a dry computation reported to the probe.
#define STEP(level, kind, streamExpr) UMONAT_PROBE_STEP(probe, traceHandle, level, kind, streamExpr)

bool UmoNatFlowMcastTopologySm::validVlan(std::uint16_t vlan, UmoNatFlowPortSetProbe* probe) const {
  STEP(6, check, "UmoNatFlowMcastTopologySm::validVlan, vlan: " << vlan);
  // A number outside the VLAN range can have no VLAN status.
  if (!inVlanRange(vlan) || !vlanStatusDir_ ||
      !vlanStatusDir_->vlanStatus(Bridging::VlanId(vlan))) {
    STEP(6, refused, "Vlan status not found for vlan " << vlan);
    return false;
  }
  const Pelo::String* topo = vlanToTopoMap_.find(Bridging::VlanId(vlan));
  if (topo == nullptr) {
    STEP(6, refused, "No bridging topology for vlan " << vlan);
    return false;
  }
  if (!moxTopoConfig_.contains(*topo)) {
    STEP(6, refused, "No moxTopo config for vlan " << vlan);
    return false;
  }
  const Nexo::IntfId* svi = umoL3IntfTable_ ? umoL3IntfTable_->routedPortName(vlan) : nullptr;
  if (svi == nullptr) {
    STEP(6, refused, "Vlan not found in the l3 intf table");
    return false;
  }
  auto ip = ipStatus_ ? ipStatus_->ipIntfStatus(*svi) : nullptr;
  if (!ip) {
    STEP(6, refused, "No ipIntfStatus found for the vlan");
    return false;
  }
  if (ipIntfUp(*ip)) return true;
  STEP(6, refused, "L3 intf disabled");
  return false;
}

bool UmoNatFlowMcastTopologySm::validPort(std::uint16_t vlan, const Nexo::IntfId& intf,
                                          UmoNatFlowPortSetProbe* probe) const {
  STEP(6, check, "UmoNatFlowMcastTopologySm::validPort, vlan: " << vlan << ", intf: " << intf);
  const auto* sic = switchIntfConfig_.find(intf);
  if (sic == nullptr || !(*sic)->switchIntfConfig()) {
    STEP(6, refused, "Intf " << intf << " not found in switchIntfConfig");
    return false;
  }
  const Bridging::VlanId vlanId(vlan);
  auto vlanStatus = vlanStatusDir_ ? vlanStatusDir_->vlanStatus(vlanId) : nullptr;
  MOX_ASSERT(vlanStatus);
  if (vlanStatus->vlanPortStatus(intf) == nullptr) {
    STEP(6, refused, "Intf " << intf << " not found in vlan port status " << vlan);
    return false;
  }
  const Pelo::String* name = vlanToTopoMap_.find(vlanId);
  const auto* ttc = moxTopoConfig_.find(name ? *name : Pelo::String());
  MOX_ASSERT(ttc);
  const auto* port = (*ttc)->moxTopoPortConfig().find(intf);
  if (port == nullptr) {
    STEP(6, refused, "Intf " << intf << " not found in the topology");
    return false;
  }
  if ((*port)->forwarding()) return true;
  STEP(6, refused, "Intf " << intf << " not in forwarding state");
  return false;
}

std::uint16_t UmoNatFlowMcastTopologySm::validSwitchIntf(std::uint16_t vlan,
                                                         const Nexo::IntfId& intf,
                                                         bool rejectRouted,
                                                         UmoNatFlowPortSetProbe* probe) const {
  STEP(6, check,
       "UmoNatFlowMcastTopologySm::validSwitchIntf, vlan: " << vlan << ", intf: " << intf);
  const auto* sic = switchIntfConfig_.find(intf);
  if (sic == nullptr || !(*sic)->switchIntfConfig()) {
    STEP(6, refused, "Intf " << intf << " not found in switchIntfConfig");
    return 0;
  }
  const auto& config = (*sic)->switchIntfConfig();
  const Bridging::SwitchportMode mode = config->switchportMode();
  const Bridging::VlanIdOrNone native = config->nativeVlan();
  STEP(6, check, "Switchport mode: " << mode << ", native vlan: " << native);
  if (native.isNone() || !inVlanRange(native.value())) {
    STEP(6, refused, "Invalid vlan");
    return 0;
  }
  const bool routed = mode == Bridging::SwitchportMode::routed;
  if (rejectRouted && routed) {
    STEP(6, refused, "Intf in routed mode");
    return 0;
  }
  if (mode != Bridging::SwitchportMode::access && !routed) {
    // A multi-VLAN port carries the VLAN it is asked for; 4095 and numbers
    // beyond it are no VLAN.
    if (vlan != 0 && !inVlanRange(vlan)) {
      STEP(6, refused, "Invalid vlan");
      return 0;
    }
    return vlan != 0 ? vlan : native.value();
  }
  if (vlan == 0 || vlan == native.value()) return native.value();
  STEP(6, refused, "Native vlan different from configured vlan");
  return 0;
}

// --- L3 interfaces and the recirculation VLAN ---

void UmoNatFlowMcastTopologySm::notifyVlanMembers(std::uint16_t vlan) {
  if (!inVlanRange(vlan) || !vlanStatusDir_) return;
  auto status = vlanStatusDir_->vlanStatus(Bridging::VlanId(vlan));
  if (!status) return;
  for (const Nexo::IntfId& intf : status->vlanPortStatus().keys()) notifyActionSmIntf(intf);
}

void UmoNatFlowMcastTopologySm::handleL3Intf(const Nexo::IntfId& intf) {
  const UmoL3Intf::L3Id* id = umoL3IntfTable_ ? umoL3IntfTable_->intfL3Index(intf) : nullptr;
  // 0 for an L3 id outside the VLAN range.
  std::uint16_t vlan = id != nullptr ? umoL3IntfTable_->l3IdToVlanId(*id) : 0;
  if (id != nullptr && vlan == 0) {
    // A routed port's L3 id is no VLAN: it is never mirrored, notified or
    // taken as the recirculation VLAN. An interface that stood for a VLAN
    // until now leaves it as if its entry had been removed.
    MOX_TRACE(traceHandle, 3, "No vlan found for the l3 intf");
  }
  if (vlan != 0) {
    MOX_TRACE(traceHandle, 3, "handleL3Intf, add l3 intf " << intf << " for vlan " << vlan);
    intfL3IndexIs(intf, vlan);
    notifyActionSmVlan(vlan);
    if (natFlowRecircVlan_ == 0) {
      // The first L3 VLAN seen is taken as it is, valid or not.
      MOX_TRACE(traceHandle, 5, "handleL3Intf, set natFlowRecircVlan to " << vlan);
      natFlowRecircVlan_ = vlan;
      notifyActionSmRecirc();
    }
  } else {
    const std::uint16_t* mirrored = intfL3Index_.find(intf);
    if (mirrored == nullptr) return;
    vlan = *mirrored;
    MOX_ASSERT(vlan);  // only VLAN numbers are mirrored
    if (vlan == natFlowRecircVlan_) setNewNatFlowRecircVlan(intf);
    MOX_TRACE(traceHandle, 3, "handleL3Intf, delete l3 intf " << intf << " for vlan " << vlan);
    intfL3IndexDel(intf);
    notifyActionSmVlan(vlan);
  }
  notifyVlanMembers(vlan);
}

void UmoNatFlowMcastTopologySm::NestedSm_IpIntfStatus::handleIpIntfStatus() {
  const Nexo::IntfId& intf = status_->intfId();
  const bool up = ipIntfUp(*status_);
  MOX_TRACE(traceHandle, 3,
            "handleIpIntfStatus, intf: " << intf << ", routing: " << status_->routing()
                                         << ", addrMask: " << status_->addrWithMask()
                                         << ", up: " << up);
  const auto& table = topology_->umoL3IntfTable();
  const UmoL3Intf::L3Id* id = table ? table->intfL3Index(intf) : nullptr;
  const std::uint16_t vlan = id != nullptr ? *id : 0;
  if (!inVlanRange(vlan)) {
    MOX_TRACE(traceHandle, 3, "No vlan found for the l3 intf");
    return;
  }
  topology_->notifyActionSmVlan(vlan);
  topology_->notifyVlanMembers(vlan);
  if (!up && vlan == topology_->natFlowRecircVlan()) {
    topology_->setNewNatFlowRecircVlan(intf);
    topology_->notifyActionSmRecirc();
  } else if (up && topology_->natFlowRecircVlan() == 0) {
    MOX_TRACE(traceHandle, 5, "handleIpIntfStatus, set natFlowRecircVlan to " << vlan);
    topology_->natFlowRecircVlanIs(vlan);
    topology_->notifyActionSmRecirc();
  }
}

UmoNatFlowMcastTopologySm::NestedSm_IpIntfStatus::NestedSm_IpIntfStatus(
    const Mox::Ptr<const Ip::IpIntfStatus>& status, UmoNatFlowMcastTopologySm* owner)
    : Mox::Reactor("NestedSm_IpIntfStatus", owner), status_(status), topology_(owner) {
  subscribe<&NestedSm_IpIntfStatus::dispatch>(*status_);
  handleIpIntfStatus();
}

void UmoNatFlowMcastTopologySm::NestedSm_IpIntfStatus::dispatch(
    const Pelo::Publisher& /*publisher*/, Pelo::AttrId attr, const Pelo::Key& /*key*/) {
  if (isMarkedForDeletion()) return;
  if (attr == Ip::IpIntfStatus::Attr::routing || attr == Ip::IpIntfStatus::Attr::addrWithMask) {
    handleIpIntfStatus();
  }
}

void UmoNatFlowMcastTopologySm::setNewNatFlowRecircVlan(const Nexo::IntfId& oldIntf) {
  std::uint16_t chosen = 0;
  for (const auto& [intf, vlan] : intfL3Index_) {
    if (intf == oldIntf || vlan == 0) continue;
    if (validVlan(vlan)) {
      chosen = vlan;
      break;
    }
  }
  MOX_TRACE(traceHandle, 5, "setNewNatFlowRecircVlan, set natFlowRecircVlan to " << chosen);
  natFlowRecircVlan_ = chosen;
  notifyActionSmRecirc();
}

void UmoNatFlowMcastTopologySm::initializeL3Intf() {
  if (umoL3IntfTable_) {
    for (const auto& [intf, id] : umoL3IntfTable_->intfL3Index()) {
      if (inVlanRange(id)) {
        intfL3IndexIs(intf, id);
      } else {
        MOX_TRACE(traceHandle, 3, "No vlan found for the l3 intf");
      }
    }
  }
  for (const auto& [intf, vlan] : intfL3Index_) {
    if (intf.empty() || vlan == 0) continue;
    if (!validVlan(vlan)) continue;
    MOX_TRACE(traceHandle, 5, "handleInitialized, set natFlowRecircVlan to " << vlan);
    natFlowRecircVlan_ = vlan;
    notifyActionSmRecirc();
    return;
  }
}

// --- Port-set building ---

bool UmoNatFlowMcastTopologySm::addSviPorts(std::uint16_t vlan, const Nexo::EthAddr& mac,
                                            Ip::Nat::NatFlowVlanPortSets* vps, bool unicast,
                                            UmoNatFlowActionSm* actionSm,
                                            UmoNatFlowPortSetProbe* probe) {
  STEP(6, check,
       "UmoNatFlowMcastTopologySm::addSviPorts, vlan: " << vlan << ", mac: " << mac
                                                        << ", unicast: " << unicast);
  // A dry computation registers nothing.
  const bool live = probe == nullptr;
  if (live) addActionSmVlan(vlan, actionSm);
  if (unicast) {
    // Only a physical next hop of a unicast flow is sure to have a MAC: a
    // VLAN interface's may be zero, and there is no host to send to.
    if (mac.isZero()) return false;
    if (live) addActionSmMac(mac, actionSm);
    if (!validVlan(vlan, probe)) return false;
    auto fdb = bridgingStatus_ ? bridgingStatus_->fdbStatus(Bridging::Fid(vlan)) : nullptr;
    const Bridging::LearnedHost* host = fdb ? fdb->learnedHost(mac) : nullptr;
    if (host != nullptr) {
      const Nexo::IntfId intf = host->intf();
      if (!validPort(vlan, intf, probe) || validSwitchIntf(vlan, intf, true, probe) == 0) {
        return false;
      }
      STEP(6, added, "Added intf " << intf << " in port set of vlan " << vlan);
      auto ps = vps->ucastPortSetIs(vlan);
      MOX_ASSERT(ps);
      const Nexo::EthAddr dmac = ps->dmac();
      if (!dmac.isZero() && dmac != mac) {
        STEP(2, refused, "Different mac already found in the vlan (" << dmac << "), skip intf");
        return false;
      }
      ps->intfIs(intf);
      ps->dmacIs(mac);
      if (probe != nullptr) probe->member(true, vlan, intf);
      return true;
    }
  } else if (!validVlan(vlan, probe)) {
    return false;
  }
  // Flood to the VLAN's ports.
  auto status = vlanStatusDir_ ? vlanStatusDir_->vlanStatus(Bridging::VlanId(vlan)) : nullptr;
  if (!status) return false;
  bool added = false;
  for (const Nexo::IntfId& intf : status->vlanPortStatus().keys()) {
    if (!validPort(vlan, intf, probe) || validSwitchIntf(vlan, intf, true, probe) == 0) continue;
    STEP(6, added, "Added intf " << intf << " in port set of vlan " << vlan);
    auto ps = unicast ? vps->ucastPortSetIs(vlan) : vps->mcastPortSetIs(vlan);
    MOX_ASSERT(ps);
    ps->intfIs(intf);
    ps->dmacIs(mac);
    if (probe != nullptr) probe->member(unicast, vlan, intf);
    added = true;
  }
  return added;
}

std::uint16_t UmoNatFlowMcastTopologySm::addPhysicalPort(const Nexo::IntfId& intf,
                                                         std::uint16_t vlan,
                                                         UmoNatFlowActionSm* actionSm,
                                                         UmoNatFlowPortSetProbe* probe) {
  STEP(6, check,
       "UmoNatFlowMcastTopologySm::addPhysicalPort, intf; " << intf << ", vlan: " << vlan);
  if (probe == nullptr) {
    addActionSmIntf(intf, actionSm);
    if (vlan != 0) addActionSmVlan(vlan, actionSm);
  }
  const std::uint16_t v = validSwitchIntf(vlan, intf, false, probe);
  if (v == 0) return 0;
  if (!validVlan(v, probe)) return 0;
  if (!validPort(v, intf, probe)) return 0;
  return v;
}
