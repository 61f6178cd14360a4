#include "Bridging/Topology.h"

#include <utility>
#include <vector>

#include "Mox/Assert.h"

namespace Bridging::Topology {

// TopoPortConfig

TopoPortConfig::TopoPortConfig(Nexo::IntfId intfId)
    : Mox::Entity(intfId.name()), intfId_(std::move(intfId)) {}

void TopoPortConfig::portStateIs(PortState portState) {
  if (portState_ == portState) return;
  portState_ = portState;
  publishChange(Attr::portState);
}

// TopoConfig

TopoConfig::TopoConfig(Pelo::String name) : Mox::Entity(std::move(name)) {}

Mox::Ptr<const TopoPortConfig> TopoConfig::topoPortConfig(const Nexo::IntfId& intf) const {
  const Mox::Ptr<TopoPortConfig>* port = topoPortConfig_.find(intf);
  return port != nullptr ? *port : nullptr;
}

Mox::Ptr<TopoPortConfig> TopoConfig::topoPortConfigIs(const Nexo::IntfId& intf) {
  if (const Mox::Ptr<TopoPortConfig>* port = topoPortConfig_.find(intf)) return *port;
  auto port = Mox::makePtr<TopoPortConfig>(intf);
  topoPortConfig_.is(intf, port);
  publishChange(Attr::topoPortConfig, intf);
  return port;
}

bool TopoConfig::topoPortConfigDel(const Nexo::IntfId& intf) {
  if (!topoPortConfig_.del(intf)) return false;
  publishChange(Attr::topoPortConfig, intf);
  return true;
}

void TopoConfig::topoPortConfigDelAll() {
  for (const Nexo::IntfId& intf : topoPortConfig_.keys()) topoPortConfigDel(intf);
}

// Config

Mox::Ptr<const TopoConfig> Config::topoConfig(const Pelo::String& name) const {
  const Mox::Ptr<TopoConfig>* topo = topoConfig_.find(name);
  return topo != nullptr ? *topo : nullptr;
}

Mox::Ptr<TopoConfig> Config::topoConfigIs(const Pelo::String& name) {
  if (const Mox::Ptr<TopoConfig>* topo = topoConfig_.find(name)) return *topo;
  auto topo = Mox::makePtr<TopoConfig>(name);
  topoConfig_.is(name, topo);
  publishChange(Attr::topoConfig, name);
  return topo;
}

bool Config::topoConfigDel(const Pelo::String& name) {
  if (!topoConfig_.del(name)) return false;
  publishChange(Attr::topoConfig, name);
  return true;
}

void Config::topoConfigDelAll() {
  for (const Pelo::String& name : topoConfig_.keys()) topoConfigDel(name);
}

Mox::Ptr<const TopoConfig> Config::vidToTopoMap(VlanId vlan) const {
  const Mox::Ptr<TopoConfig>* topo = vidToTopoMap_.find(vlan);
  return topo != nullptr ? *topo : nullptr;
}

void Config::vidToTopoMapIs(VlanId vlan, Mox::Ptr<TopoConfig> topo) {
  MOX_ASSERT(topo != nullptr);
  if (const Mox::Ptr<TopoConfig>* old = vidToTopoMap_.find(vlan); old != nullptr && *old == topo) {
    return;
  }
  vidToTopoMap_.is(vlan, std::move(topo));
  publishChange(Attr::vidToTopoMap, vlan);
}

bool Config::vidToTopoMapDel(VlanId vlan) {
  if (!vidToTopoMap_.del(vlan)) return false;
  publishChange(Attr::vidToTopoMap, vlan);
  return true;
}

void Config::vidToTopoMapDelAll() {
  for (const VlanId vlan : vidToTopoMap_.keys()) vidToTopoMapDel(vlan);
}

}  // namespace Bridging::Topology
