#pragma once

#include <cstdint>

#include "Mox/Collection.h"
#include "Mox/Reactor.h"
#include "UmoNat/UmoNatFlowMcastTopologySm.h"

// The reactors nested in the topology state machine. Each follows one input
// record on the topology state machine's behalf, holds a counted reference to
// it and a non-owning back-reference to its owner, and is switched on and off
// and turned into a zombie along with its owner. None decides whether a change
// matters: each tells the topology state machine which key changed.

// Follows the bridging configuration's switch interfaces.
class UMONAT_EXPORT UmoNatFlowMcastTopologySm::MoxBridgingConfig : public Mox::Reactor {
 public:
  MoxBridgingConfig(const Mox::Ptr<const Bridging::Config>& input,
                    UmoNatFlowMcastTopologySm* owner);

 private:
  void dispatch(const Pelo::Publisher& publisher, Pelo::AttrId attr, const Pelo::Key& key);
  Mox::Ptr<const Bridging::Config> input_;
  UmoNatFlowMcastTopologySm* topology_;  // not owned: owns this reactor
};

// Follows the VLAN status directory.
class UMONAT_EXPORT UmoNatFlowMcastTopologySm::MoxVlanStatusDir : public Mox::Reactor {
 public:
  MoxVlanStatusDir(const Mox::Ptr<const Bridging::VlanStatusDir>& input,
                   UmoNatFlowMcastTopologySm* owner);

 private:
  void dispatch(const Pelo::Publisher& publisher, Pelo::AttrId attr, const Pelo::Key& key);
  Mox::Ptr<const Bridging::VlanStatusDir> input_;
  UmoNatFlowMcastTopologySm* topology_;  // not owned
};

// Follows the bridging status's FDBs.
class UMONAT_EXPORT UmoNatFlowMcastTopologySm::MoxBridgingStatus : public Mox::Reactor {
 public:
  MoxBridgingStatus(const Mox::Ptr<const Bridging::Status>& input,
                    UmoNatFlowMcastTopologySm* owner);

 private:
  void dispatch(const Pelo::Publisher& publisher, Pelo::AttrId attr, const Pelo::Key& key);
  Mox::Ptr<const Bridging::Status> input_;
  UmoNatFlowMcastTopologySm* topology_;  // not owned
};

// Follows the IP status's interfaces.
class UMONAT_EXPORT UmoNatFlowMcastTopologySm::MoxIpStatus : public Mox::Reactor {
 public:
  MoxIpStatus(const Mox::Ptr<const Ip::Status>& input, UmoNatFlowMcastTopologySm* owner);

 private:
  void dispatch(const Pelo::Publisher& publisher, Pelo::AttrId attr, const Pelo::Key& key);
  Mox::Ptr<const Ip::Status> input_;
  UmoNatFlowMcastTopologySm* topology_;  // not owned
};

// One switch interface's configuration: a change of its switchport mode or
// native VLAN, its appearance and its removal notify by interface.
class UMONAT_EXPORT UmoNatFlowMcastTopologySm::NestedSm_SwitchIntfConfig : public Mox::Reactor {
 public:
  NestedSm_SwitchIntfConfig(const Mox::Ptr<const Bridging::SwitchIntfConfig>& config,
                            UmoNatFlowMcastTopologySm* owner);
  const Mox::Ptr<const Bridging::SwitchIntfConfig>& switchIntfConfig() const { return config_; }
  void handleInitialized();
  void handleSwitchportModeAndNativeVlan();
  void handleSwitchIntfConfigDel();

 private:
  void dispatch(const Pelo::Publisher& publisher, Pelo::AttrId attr, const Pelo::Key& key);
  Nexo::IntfId intf() const;
  Mox::Ptr<const Bridging::SwitchIntfConfig> config_;
  UmoNatFlowMcastTopologySm* topology_;  // not owned
};

// One VLAN's status: a change of its members notifies by interface.
class UMONAT_EXPORT UmoNatFlowMcastTopologySm::NestedSm_VlanStatus : public Mox::Reactor {
 public:
  NestedSm_VlanStatus(const Mox::Ptr<const Bridging::VlanStatus>& status,
                      UmoNatFlowMcastTopologySm* owner);
  const Mox::Ptr<const Bridging::VlanStatus>& vlanStatus() const { return status_; }
  void handleVlanPortStatus(const Nexo::IntfId& intf);

 private:
  void dispatch(const Pelo::Publisher& publisher, Pelo::AttrId attr, const Pelo::Key& key);
  Mox::Ptr<const Bridging::VlanStatus> status_;
  UmoNatFlowMcastTopologySm* topology_;  // not owned
};

// One filtering id's FDB: a learned host that comes, moves or goes notifies by
// its MAC address.
class UMONAT_EXPORT UmoNatFlowMcastTopologySm::NestedSm_FdbStatus : public Mox::Reactor {
 public:
  NestedSm_FdbStatus(const Mox::Ptr<const Bridging::FdbStatus>& status,
                     UmoNatFlowMcastTopologySm* owner);
  const Mox::Ptr<const Bridging::FdbStatus>& fdbStatus() const { return status_; }
  void handleLearnedHost(const Nexo::EthAddr& mac);

 private:
  void dispatch(const Pelo::Publisher& publisher, Pelo::AttrId attr, const Pelo::Key& key);
  Mox::Ptr<const Bridging::FdbStatus> status_;
  UmoNatFlowMcastTopologySm* topology_;  // not owned
};

// One interface's IP status: its routing flag and address decide whether its
// VLAN is usable and may move the recirculation VLAN.
class UMONAT_EXPORT UmoNatFlowMcastTopologySm::NestedSm_IpIntfStatus : public Mox::Reactor {
 public:
  NestedSm_IpIntfStatus(const Mox::Ptr<const Ip::IpIntfStatus>& status,
                        UmoNatFlowMcastTopologySm* owner);
  const Mox::Ptr<const Ip::IpIntfStatus>& ipIntfStatus() const { return status_; }
  void handleIpIntfStatus();

 private:
  void dispatch(const Pelo::Publisher& publisher, Pelo::AttrId attr, const Pelo::Key& key);
  Mox::Ptr<const Ip::IpIntfStatus> status_;
  UmoNatFlowMcastTopologySm* topology_;  // not owned
};

// One bridging topology in use by at least one mirrored VLAN: its VLANs and
// one port reactor per interface of the topology.
class UMONAT_EXPORT UmoNatFlowMcastTopologySm::MoxTopoConfig : public Mox::Reactor {
 public:
  MoxTopoConfig(const Mox::Ptr<const Bridging::Topology::TopoConfig>& config,
                UmoNatFlowMcastTopologySm* owner);
  ~MoxTopoConfig() override;

  const Mox::Ptr<const Bridging::Topology::TopoConfig>& topoConfig() const { return config_; }
  UmoNatFlowMcastTopologySm* topology() const { return topology_; }
  const Mox::Collection<Bridging::VlanId, bool>& vlanList() const { return vlanList_; }
  void vlanListIs(Bridging::VlanId vlan) { vlanList_.is(vlan, true); }
  void vlanListDel(Bridging::VlanId vlan) { vlanList_.del(vlan); }
  const Mox::Collection<Nexo::IntfId, Mox::Ptr<MoxTopoPortConfig>>& moxTopoPortConfig() const {
    return moxTopoPortConfig_;
  }

  // A port of the topology changed between forwarding and not forwarding.
  void handleTopoPort(const Nexo::IntfId& intf);
  // The reactor is retired: every VLAN of the topology is told.
  void handleTopologyDel();

 private:
  void dispatch(const Pelo::Publisher& publisher, Pelo::AttrId attr, const Pelo::Key& key);
  void topoPortConfigIs(const Nexo::IntfId& intf);
  void topoPortConfigDel(const Nexo::IntfId& intf);

  Mox::Ptr<const Bridging::Topology::TopoConfig> config_;
  UmoNatFlowMcastTopologySm* topology_;  // not owned
  Mox::Collection<Bridging::VlanId, bool> vlanList_;
  Mox::Collection<Nexo::IntfId, Mox::Ptr<MoxTopoPortConfig>> moxTopoPortConfig_;
};

// One port of a topology, with its cached forwarding flag.
class UMONAT_EXPORT UmoNatFlowMcastTopologySm::MoxTopoPortConfig : public Mox::Reactor {
 public:
  MoxTopoPortConfig(const Mox::Ptr<const Bridging::Topology::TopoPortConfig>& config,
                    MoxTopoConfig* owner);
  const Mox::Ptr<const Bridging::Topology::TopoPortConfig>& topoPortConfig() const {
    return config_;
  }
  bool forwarding() const { return forwarding_; }
  void handlePortState();
  // The port reactor is retired: users of a forwarding port re-check.
  void handleTopologyIntfDel();

 private:
  void dispatch(const Pelo::Publisher& publisher, Pelo::AttrId attr, const Pelo::Key& key);
  Mox::Ptr<const Bridging::Topology::TopoPortConfig> config_;
  MoxTopoConfig* topoConfig_;  // not owned: owns this reactor
  bool forwarding_ = false;
};
