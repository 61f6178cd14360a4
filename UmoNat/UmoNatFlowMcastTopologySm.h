#pragma once

#include <cstdint>
#include <set>
#include <vector>

#include "Bridging/Config.h"
#include "Bridging/Topology.h"
#include "Ip/Nat/HwStatus.h"
#include "Ip/Status.h"
#include "Mox/Collection.h"
#include "Mox/HashCollection.h"
#include "Mox/PtrSet.h"
#include "Mox/Reactor.h"
#include "Mox/Seconds.h"
#include "UmoL3Intf/Table.h"
#include "UmoNat/UmoNatExport.h"
#include "UmoNat/UmoNatFlowPortSetProbe.h"
#include "UmoNat/UmoNatflowActionSmIndex.h"
#include "Vyr/Task.h"

class UmoNatFlowActionSm;

// The one object that knows the switch's layer-2 and layer-3 topology on
// behalf of every NAT action state machine. The root creates it at start and
// hands a non-owning pointer to every policy, match and action.
//
// It follows the bridging configuration (switchport mode and native VLAN per
// interface), the VLAN status directory (members per VLAN), the bridging
// topology configuration (VLAN to topology, port states), the FDBs (learned
// hosts), the IP interface status and the L3 interface table, through one
// nested reactor per followed record. From these it answers whether a VLAN
// or port may carry NAT traffic, builds port sets for the actions, chooses the
// recirculation VLAN, and keeps an index from interfaces, VLANs, MACs and the
// recirculation VLAN to the actions whose port sets depend on them. A change
// queues the dependent actions in a backlog that a timer task drains in
// bounded batches.
class UMONAT_EXPORT UmoNatFlowMcastTopologySm : public Mox::Reactor {
 public:
  class NestedSm_SwitchIntfConfig;
  class NestedSm_VlanStatus;
  class NestedSm_FdbStatus;
  class NestedSm_IpIntfStatus;
  class MoxTopoConfig;
  class MoxTopoPortConfig;
  class MoxBridgingConfig;
  class MoxVlanStatusDir;
  class MoxBridgingStatus;
  class MoxIpStatus;

  // Stores the inputs (any may be null), follows them, loads their current
  // state and runs handleInitialized.
  UmoNatFlowMcastTopologySm(const Mox::Ptr<const Bridging::Config>& bridgingConfig,
                            const Mox::Ptr<const Bridging::VlanStatusDir>& vlanStatusDir,
                            const Mox::Ptr<const Bridging::Topology::Config>& bridgingTopo,
                            const Mox::Ptr<const Bridging::Status>& bridgingStatus,
                            const Mox::Ptr<const UmoL3Intf::Table>& umoL3IntfTable,
                            const Mox::Ptr<const Ip::Status>& ipStatus);
  ~UmoNatFlowMcastTopologySm() override;

  const Mox::Ptr<const Bridging::Config>& bridgingConfig() const { return bridgingConfig_; }
  const Mox::Ptr<const Bridging::VlanStatusDir>& vlanStatusDir() const { return vlanStatusDir_; }
  const Mox::Ptr<const Bridging::Topology::Config>& bridgingTopo() const { return bridgingTopo_; }
  const Mox::Ptr<const Bridging::Status>& bridgingStatus() const { return bridgingStatus_; }
  const Mox::Ptr<const UmoL3Intf::Table>& umoL3IntfTable() const { return umoL3IntfTable_; }
  const Mox::Ptr<const Ip::Status>& ipStatus() const { return ipStatus_; }
  bool initialized() const { return initialized_; }

  // --- Nested reactors on the bridging state ---
  const Mox::Collection<Nexo::IntfId, Mox::Ptr<NestedSm_SwitchIntfConfig>>& switchIntfConfig()
      const {
    return switchIntfConfig_;
  }
  void switchIntfConfigIs(const Mox::Ptr<const Bridging::SwitchIntfConfig>& entry);
  void switchIntfConfigDel(const Nexo::IntfId& intf);
  void switchIntfConfigDelAll();
  const Mox::Collection<Bridging::VlanId, Mox::Ptr<NestedSm_VlanStatus>>& vlanStatus() const {
    return vlanStatus_;
  }
  void vlanStatusIs(const Mox::Ptr<const Bridging::VlanStatus>& entry);
  void vlanStatusDel(Bridging::VlanId vlan);
  void vlanStatusDelAll();
  const Mox::Collection<Bridging::Fid, Mox::Ptr<NestedSm_FdbStatus>>& fdbStatus() const {
    return fdbStatus_;
  }
  void fdbStatusIs(const Mox::Ptr<const Bridging::FdbStatus>& entry);
  void fdbStatusDel(Bridging::Fid fid);
  void fdbStatusDelAll();
  const Mox::Collection<Nexo::IntfId, Mox::Ptr<NestedSm_IpIntfStatus>>& ipIntfStatus() const {
    return ipIntfStatus_;
  }
  void ipIntfStatusIs(const Mox::Ptr<const Ip::IpIntfStatus>& entry);
  void ipIntfStatusDel(const Nexo::IntfId& intf);
  void ipIntfStatusDelAll();
  // A VLAN's status was added or removed.
  void handleVlanStatus(Bridging::VlanId vlan);
  // A filtering id's FDB was added or removed.
  void handleFdbStatus(Bridging::Fid fid);

  // --- VLAN-to-topology mapping ---
  const Mox::Collection<Bridging::VlanId, Pelo::String>& vlanToTopoMap() const {
    return vlanToTopoMap_;
  }
  const Mox::Collection<Pelo::String, Mox::Ptr<MoxTopoConfig>>& moxTopoConfig() const {
    return moxTopoConfig_;
  }
  // Mirrors the topology of `vlan` after a change of the input's map.
  void handleVidToTopoMap(Bridging::VlanId vlan);
  void initializeVidToTopoMap();
  Mox::Ptr<MoxTopoConfig> topoConfigIs(const Mox::Ptr<const Bridging::Topology::TopoConfig>& tc);
  void topoConfigDel(const Pelo::String& name);

  // --- Validity ---
  // Each check traces its steps, or with a `probe` reports them to it and
  // traces nothing (a dry computation, see UmoNatFlowPortSetProbe).
  // The VLAN has status, a bridging topology with a reactor, and an L3
  // interface that is up. Any number outside 1..4094 is not a valid VLAN.
  bool validVlan(std::uint16_t vlan, UmoNatFlowPortSetProbe* probe = nullptr) const;
  // The interface is a forwarding member of the VLAN's topology. Call only
  // for a VLAN that validVlan accepted.
  bool validPort(std::uint16_t vlan, const Nexo::IntfId& intf,
                 UmoNatFlowPortSetProbe* probe = nullptr) const;
  // The VLAN on which `intf` carries this request (`vlan` 0: the caller has
  // none), or 0 when the interface is unusable.
  std::uint16_t validSwitchIntf(std::uint16_t vlan, const Nexo::IntfId& intf, bool rejectRouted,
                                UmoNatFlowPortSetProbe* probe = nullptr) const;

  // --- L3 interfaces and the recirculation VLAN ---
  const Mox::Collection<Nexo::IntfId, std::uint16_t>& intfL3Index() const { return intfL3Index_; }
  void intfL3IndexIs(const Nexo::IntfId& intf, std::uint16_t vlan);
  void intfL3IndexDel(const Nexo::IntfId& intf);
  std::uint16_t natFlowRecircVlan() const { return natFlowRecircVlan_; }
  void natFlowRecircVlanIs(std::uint16_t vlan) { natFlowRecircVlan_ = vlan; }
  // The input table's entry of `intf` was added, changed or removed.
  void handleL3Intf(const Nexo::IntfId& intf);
  // Chooses a replacement recirculation VLAN that does not come from `oldIntf`.
  void setNewNatFlowRecircVlan(const Nexo::IntfId& oldIntf);

  // --- Port-set building ---
  // With a `probe` both compute the same answer but register nothing and
  // trace nothing: each step goes to the probe instead.
  // Adds the ports of `vlan` reached through its VLAN interface to `vps`, as
  // unicast copies to `mac` or as multicast copies, and registers `actionSm`
  // under everything the answer depended on. True when an interface was added.
  bool addSviPorts(std::uint16_t vlan, const Nexo::EthAddr& mac, Ip::Nat::NatFlowVlanPortSets* vps,
                   bool unicast, UmoNatFlowActionSm* actionSm,
                   UmoNatFlowPortSetProbe* probe = nullptr);
  // The VLAN on which `intf` may be used (0: not usable); registers `actionSm`
  // under the interface (and `vlan` when non-zero).
  std::uint16_t addPhysicalPort(const Nexo::IntfId& intf, std::uint16_t vlan,
                                UmoNatFlowActionSm* actionSm,
                                UmoNatFlowPortSetProbe* probe = nullptr);

  // --- Action index ---
  // Looked up by key only, at a cost independent of the number of actions.
  const Mox::HashCollection<Nexo::IntfId, Mox::Ptr<UmoNatflowActionSmIntf>>& actionIntf() const {
    return actionIntf_;
  }
  const Mox::HashCollection<std::uint16_t, Mox::Ptr<UmoNatflowActionSmVlan>>& actionVlan() const {
    return actionVlan_;
  }
  const Mox::HashCollection<Nexo::EthAddr, Mox::Ptr<UmoNatflowActionSmMac>>& actionMac() const {
    return actionMac_;
  }
  const Mox::PtrSet<UmoNatFlowActionSm>& actionRecirc() const { return actionRecirc_; }
  // Whether `actionSm` is registered under any key: only then can a change
  // notification queue it for a pass with the flow type it last recorded.
  bool actionSmIndexed(const UmoNatFlowActionSm* actionSm) const;
  void addActionSmIntf(const Nexo::IntfId& intf, UmoNatFlowActionSm* actionSm);
  void addActionSmVlan(std::uint16_t vlan, UmoNatFlowActionSm* actionSm);
  void addActionSmMac(const Nexo::EthAddr& mac, UmoNatFlowActionSm* actionSm);
  void addActionSmRecirc(UmoNatFlowActionSm* actionSm);
  // Withdraws `actionSm` from the whole index (not from the backlog). Costs
  // only the keys it is registered under.
  void delActionSm(UmoNatFlowActionSm* actionSm);
  // An action state machine is being destroyed: withdraws it from the index
  // and the backlog without a trace, so that nothing can reach it afterwards.
  void actionSmGone(UmoNatFlowActionSm* actionSm);

  // --- Change notification and the update backlog ---
  void notifyActionSmIntf(const Nexo::IntfId& intf);
  void notifyActionSmVlan(std::uint16_t vlan);
  void notifyActionSmMac(const Nexo::EthAddr& mac);
  void notifyActionSmRecirc();
  const Mox::PtrSet<UmoNatFlowActionSm>& actionSmUpdateBacklog() const {
    return actionSmUpdateBacklog_;
  }
  void actionSmUpdateBacklogIs(UmoNatFlowActionSm* actionSm);
  void actionSmUpdateBacklogDel(UmoNatFlowActionSm* actionSm);
  Mox::Seconds actionSmUpdateBacklogTaskInterval() const {
    return actionSmUpdateBacklogTaskInterval_;
  }
  void actionSmUpdateBacklogTaskIntervalIs(Mox::Seconds interval) {
    actionSmUpdateBacklogTaskInterval_ = interval;
  }
  std::uint32_t actionSmUpdateBacklogTaskLimit() const { return actionSmUpdateBacklogTaskLimit_; }
  void actionSmUpdateBacklogTaskLimitIs(std::uint32_t limit) {
    actionSmUpdateBacklogTaskLimit_ = limit;
  }
  const Mox::Ptr<Vyr::TimerTask>& actionSmUpdateBacklogTask() const {
    return actionSmUpdateBacklogTask_;
  }
  void actionSmUpdateBacklogTaskIs(const Mox::Ptr<Vyr::TimerTask>& task);
  void actionSmUpdateBacklogTaskDel();
  // The backlog task's run: re-evaluates up to the limit of queued actions.
  void processActionSmUpdateBacklog();

  void handleInitialized();

 private:
  // The constructor's work: the wrapper reactors and subscriptions, the scan
  // of the inputs, then handleInitialized.
  void initialize();
  // What destruction undoes: subscriptions, the backlog task, the index and
  // the reactors, in that order.
  void teardown();

  void bridgingTopoDispatch(const Pelo::Publisher& publisher, Pelo::AttrId attr,
                            const Pelo::Key& key);
  void umoL3IntfTableDispatch(const Pelo::Publisher& publisher, Pelo::AttrId attr,
                              const Pelo::Key& key);
  void actionSmUpdateBacklogTaskDispatch(const Pelo::Publisher& publisher, Pelo::AttrId attr,
                                         const Pelo::Key& key);
  void queue(const Mox::PtrSet<UmoNatFlowActionSm>& actions);
  void withdraw(UmoNatFlowActionSm* actionSm, bool traced);
  // Notifies every member interface of `vlan` when the VLAN has status.
  void notifyVlanMembers(std::uint16_t vlan);
  bool l3IntfUp(const Nexo::IntfId& intf) const;
  void initializeL3Intf();

  Mox::Ptr<const Bridging::Config> bridgingConfig_;
  Mox::Ptr<const Bridging::VlanStatusDir> vlanStatusDir_;
  Mox::Ptr<const Bridging::Topology::Config> bridgingTopo_;
  Mox::Ptr<const Bridging::Status> bridgingStatus_;
  Mox::Ptr<const UmoL3Intf::Table> umoL3IntfTable_;
  Mox::Ptr<const Ip::Status> ipStatus_;
  Mox::Ptr<MoxBridgingConfig> moxBridgingConfig_;
  Mox::Ptr<MoxVlanStatusDir> moxVlanStatusDir_;
  Mox::Ptr<MoxBridgingStatus> moxBridgingStatus_;
  Mox::Ptr<MoxIpStatus> moxIpStatus_;

  Mox::Collection<Nexo::IntfId, Mox::Ptr<NestedSm_SwitchIntfConfig>> switchIntfConfig_;
  Mox::Collection<Bridging::VlanId, Mox::Ptr<NestedSm_VlanStatus>> vlanStatus_;
  Mox::Collection<Bridging::VlanId, Pelo::String> vlanToTopoMap_;
  Mox::Collection<Pelo::String, Mox::Ptr<MoxTopoConfig>> moxTopoConfig_;
  Mox::Collection<Bridging::Fid, Mox::Ptr<NestedSm_FdbStatus>> fdbStatus_;
  Mox::Collection<Nexo::IntfId, std::uint16_t> intfL3Index_;
  std::uint16_t natFlowRecircVlan_ = 0;
  Mox::Collection<Nexo::IntfId, Mox::Ptr<NestedSm_IpIntfStatus>> ipIntfStatus_;
  Mox::HashCollection<Nexo::IntfId, Mox::Ptr<UmoNatflowActionSmIntf>> actionIntf_;
  Mox::HashCollection<std::uint16_t, Mox::Ptr<UmoNatflowActionSmVlan>> actionVlan_;
  Mox::HashCollection<Nexo::EthAddr, Mox::Ptr<UmoNatflowActionSmMac>> actionMac_;
  Mox::PtrSet<UmoNatFlowActionSm> actionRecirc_;
  Mox::PtrSet<UmoNatFlowActionSm> actionSmUpdateBacklog_;
  Mox::Seconds actionSmUpdateBacklogTaskInterval_ = 0.1;
  std::uint32_t actionSmUpdateBacklogTaskLimit_ = 100;
  Mox::Ptr<Vyr::TimerTask> actionSmUpdateBacklogTask_;
  bool initialized_ = false;
  // The keys each action is registered under live in the action
  // (UmoNatFlowActionSm::indexKeys_).
};

// Creates a topology state machine from its six inputs (any may be null) and
// switches its notifications on.
UMONAT_EXPORT Mox::Ptr<UmoNatFlowMcastTopologySm> umoNatFlowMcastTopologySmFactory(
    const Mox::Ptr<const Bridging::Config>& bridgingConfig,
    const Mox::Ptr<const Bridging::VlanStatusDir>& vlanStatusDir,
    const Mox::Ptr<const Bridging::Topology::Config>& bridgingTopo,
    const Mox::Ptr<const Bridging::Status>& bridgingStatus,
    const Mox::Ptr<const UmoL3Intf::Table>& umoL3IntfTable,
    const Mox::Ptr<const Ip::Status>& ipStatus);
