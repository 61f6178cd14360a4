#pragma once

#include "Bridging/Types.h"
#include "Mox/Collection.h"
#include "Mox/ConstView.h"
#include "Mox/Entity.h"
#include "Mox/Ptr.h"
#include "Nexo/IntfId.h"
#include "Pelo/Key.h"
#include "Pelo/String.h"

// The spanning-tree topologies: the state of each port in each topology instance, and the
// topology each VLAN follows. The platform side writes them; the system holds them as const.
// The records publish their changes as the other bridging records do (Bridging/Config.h).

namespace Bridging::Topology {

// The state of one port in one topology. Starts disabled.
class TopoPortConfig : public Mox::Entity {
 public:
  struct Attr {
    static constexpr Pelo::AttrId intfId = 1;
    static constexpr Pelo::AttrId portState = 2;
  };

  explicit TopoPortConfig(Nexo::IntfId intfId);

  const Nexo::IntfId& intfId() const { return intfId_; }

  PortState portState() const { return portState_; }
  void portStateIs(PortState portState);

 protected:
  ~TopoPortConfig() override = default;

 private:
  Nexo::IntfId intfId_;
  PortState portState_ = PortState::disabled;
};

// One topology instance: the states of its ports, by interface.
class TopoConfig : public Mox::Entity {
 public:
  struct Attr {
    static constexpr Pelo::AttrId name = 1;
    static constexpr Pelo::AttrId topoPortConfig = 2;
  };

  explicit TopoConfig(Pelo::String name);

  const Pelo::String& name() const { return nameString(); }

  Mox::ConstView<Nexo::IntfId, TopoPortConfig> topoPortConfig() const {
    return Mox::ConstView<Nexo::IntfId, TopoPortConfig>(topoPortConfig_);
  }
  // The port of `intf`, or null.
  Mox::Ptr<const TopoPortConfig> topoPortConfig(const Nexo::IntfId& intf) const;
  Mox::Ptr<TopoPortConfig> topoPortConfigIs(const Nexo::IntfId& intf);
  bool topoPortConfigDel(const Nexo::IntfId& intf);
  void topoPortConfigDelAll();

 protected:
  ~TopoConfig() override = default;

 private:
  Mox::Collection<Nexo::IntfId, Mox::Ptr<TopoPortConfig>> topoPortConfig_;
};

// The topologies that exist, by name, and the topology each VLAN follows. Several VLANs may
// follow one topology. The map holds its own references: removing a topology from topoConfig
// leaves the VLANs mapped to it until the writer maps them elsewhere or removes them.
class Config : public Mox::Entity {
 public:
  struct Attr {
    static constexpr Pelo::AttrId topoConfig = 1;
    static constexpr Pelo::AttrId vidToTopoMap = 2;
  };

  Config() = default;

  Mox::ConstView<Pelo::String, TopoConfig> topoConfig() const {
    return Mox::ConstView<Pelo::String, TopoConfig>(topoConfig_);
  }
  // The topology of `name`, or null.
  Mox::Ptr<const TopoConfig> topoConfig(const Pelo::String& name) const;
  Mox::Ptr<TopoConfig> topoConfigIs(const Pelo::String& name);
  bool topoConfigDel(const Pelo::String& name);
  void topoConfigDelAll();

  Mox::ConstView<VlanId, TopoConfig> vidToTopoMap() const {
    return Mox::ConstView<VlanId, TopoConfig>(vidToTopoMap_);
  }
  // The topology `vlan` follows, or null when it is not mapped.
  Mox::Ptr<const TopoConfig> vidToTopoMap(VlanId vlan) const;
  // Maps `vlan` to `topo`, which must not be null. Publishes (Attr::vidToTopoMap, vlan) when
  // the VLAN was not mapped or was mapped to another topology instance.
  void vidToTopoMapIs(VlanId vlan, Mox::Ptr<TopoConfig> topo);
  // Publishes (Attr::vidToTopoMap, vlan) when it removed a mapping.
  bool vidToTopoMapDel(VlanId vlan);
  void vidToTopoMapDelAll();

 protected:
  ~Config() override = default;

 private:
  Mox::Collection<Pelo::String, Mox::Ptr<TopoConfig>> topoConfig_;
  Mox::Collection<VlanId, Mox::Ptr<TopoConfig>> vidToTopoMap_;
};

}  // namespace Bridging::Topology
