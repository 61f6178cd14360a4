#include "Bridging/Config.h"

#include <string>
#include <utility>
#include <vector>

namespace Bridging {

// SwitchIntfConfig

SwitchIntfConfig::SwitchIntfConfig(Nexo::IntfId intfId)
    : Mox::Entity(intfId.name()), intfId_(std::move(intfId)) {}

void SwitchIntfConfig::switchportModeIs(SwitchportMode switchportMode) {
  if (switchportMode_ == switchportMode) return;
  switchportMode_ = switchportMode;
  publishChange(Attr::switchportMode);
}

void SwitchIntfConfig::nativeVlanIs(VlanIdOrNone nativeVlan) {
  if (nativeVlan_ == nativeVlan) return;
  nativeVlan_ = nativeVlan;
  publishChange(Attr::nativeVlan);
}

// Config

Mox::Ptr<const SwitchIntfConfig> Config::switchIntfConfig(const Nexo::IntfId& intf) const {
  const Mox::Ptr<SwitchIntfConfig>* config = switchIntfConfig_.find(intf);
  return config != nullptr ? *config : nullptr;
}

Mox::Ptr<SwitchIntfConfig> Config::switchIntfConfigIs(const Nexo::IntfId& intf) {
  if (const Mox::Ptr<SwitchIntfConfig>* config = switchIntfConfig_.find(intf)) return *config;
  auto config = Mox::makePtr<SwitchIntfConfig>(intf);
  switchIntfConfig_.is(intf, config);
  publishChange(Attr::switchIntfConfig, intf);
  return config;
}

bool Config::switchIntfConfigDel(const Nexo::IntfId& intf) {
  if (!switchIntfConfig_.del(intf)) return false;
  publishChange(Attr::switchIntfConfig, intf);
  return true;
}

void Config::switchIntfConfigDelAll() {
  for (const Nexo::IntfId& intf : switchIntfConfig_.keys()) switchIntfConfigDel(intf);
}

void Config::bridgeMacAddrIs(Nexo::EthAddr bridgeMacAddr) {
  if (bridgeMacAddr_ == bridgeMacAddr) return;
  bridgeMacAddr_ = bridgeMacAddr;
  publishChange(Attr::bridgeMacAddr);
}

// VlanStatus

VlanStatus::VlanStatus(VlanId vlanId)
    : Mox::Entity(std::to_string(vlanId.value())), vlanId_(vlanId) {}

void VlanStatus::vlanPortStatusIs(const Nexo::IntfId& intf, VlanPortStatus status) {
  if (const VlanPortStatus* old = vlanPortStatus_.find(intf); old != nullptr && *old == status) {
    return;
  }
  vlanPortStatus_.is(intf, status);
  publishChange(Attr::vlanPortStatus, intf);
}

bool VlanStatus::vlanPortStatusDel(const Nexo::IntfId& intf) {
  if (!vlanPortStatus_.del(intf)) return false;
  publishChange(Attr::vlanPortStatus, intf);
  return true;
}

void VlanStatus::vlanPortStatusDelAll() {
  for (const Nexo::IntfId& intf : vlanPortStatus_.keys()) vlanPortStatusDel(intf);
}

// VlanStatusDir

Mox::Ptr<const VlanStatus> VlanStatusDir::vlanStatus(VlanId vlan) const {
  const Mox::Ptr<VlanStatus>* status = vlanStatus_.find(vlan);
  return status != nullptr ? *status : nullptr;
}

Mox::Ptr<VlanStatus> VlanStatusDir::vlanStatusIs(VlanId vlan) {
  if (const Mox::Ptr<VlanStatus>* status = vlanStatus_.find(vlan)) return *status;
  auto status = Mox::makePtr<VlanStatus>(vlan);
  vlanStatus_.is(vlan, status);
  publishChange(Attr::vlanStatus, vlan);
  return status;
}

bool VlanStatusDir::vlanStatusDel(VlanId vlan) {
  if (!vlanStatus_.del(vlan)) return false;
  publishChange(Attr::vlanStatus, vlan);
  return true;
}

void VlanStatusDir::vlanStatusDelAll() {
  for (const VlanId vlan : vlanStatus_.keys()) vlanStatusDel(vlan);
}

// FdbStatus

FdbStatus::FdbStatus(Fid fid) : Mox::Entity(std::to_string(fid.value())), fid_(fid) {}

void FdbStatus::learnedHostIs(Nexo::EthAddr mac, LearnedHost host) {
  if (const LearnedHost* old = learnedHost_.find(mac); old != nullptr && *old == host) return;
  learnedHost_.is(mac, std::move(host));
  publishChange(Attr::learnedHost, mac);
}

bool FdbStatus::learnedHostDel(Nexo::EthAddr mac) {
  if (!learnedHost_.del(mac)) return false;
  publishChange(Attr::learnedHost, mac);
  return true;
}

void FdbStatus::learnedHostDelAll() {
  for (const Nexo::EthAddr mac : learnedHost_.keys()) learnedHostDel(mac);
}

// Status

Mox::Ptr<const FdbStatus> Status::fdbStatus(Fid fid) const {
  const Mox::Ptr<FdbStatus>* status = fdbStatus_.find(fid);
  return status != nullptr ? *status : nullptr;
}

Mox::Ptr<FdbStatus> Status::fdbStatusIs(Fid fid) {
  if (const Mox::Ptr<FdbStatus>* status = fdbStatus_.find(fid)) return *status;
  auto status = Mox::makePtr<FdbStatus>(fid);
  fdbStatus_.is(fid, status);
  publishChange(Attr::fdbStatus, fid);
  return status;
}

bool Status::fdbStatusDel(Fid fid) {
  if (!fdbStatus_.del(fid)) return false;
  publishChange(Attr::fdbStatus, fid);
  return true;
}

void Status::fdbStatusDelAll() {
  for (const Fid fid : fdbStatus_.keys()) fdbStatusDel(fid);
}

}  // namespace Bridging
