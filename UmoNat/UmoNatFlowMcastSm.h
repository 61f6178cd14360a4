#pragma once

#include <cstdint>

#include "Bridging/Config.h"
#include "Bridging/Topology.h"
#include "Ip/Nat/HwStatus.h"
#include "Ip/Nat/Status.h"
#include "Ip/Status.h"
#include "Mox/ChildCollection.h"
#include "Mox/PtrSet.h"
#include "Mox/Reactor.h"
#include "Mox/Seconds.h"
#include "UmoL3Intf/Table.h"
#include "UmoNat/UmoNatExport.h"
#include "UmoNat/UmoNatFlowMcastHelper.h"
#include "UmoNat/UmoNatFlowMcastTopologySm.h"
#include "UmoNat/UmoNatFlowPolicySm.h"
#include "Vyr/Task.h"

class UmoNatFlowMatchSm;

// The entry point of the plug-in: the agent creates exactly one through
// umoNatFlowMcastSmFactory and keeps it for the life of the feature.
//
// At start it wipes the hardware status left by an earlier run (without
// touching the hardware), creates the retry task "unprogrammedGroupTask" and
// the topology state machine, and creates one policy state machine per NAT flow policy of `status`,
// following policies as they come and go. It owns the retry of hardware group allocation: matches
// whose groups could not be allocated park themselves in `unprogrammedGroup`, and the retry task
// (scheduled by a match that frees its groups) tries them again in insertion order.
//
// Dropping the last reference tears the tree down top-down: the root's
// clean-up removes every policy (each removing its matches and their hardware
// groups), then empties the hardware status tree.
class UMONAT_EXPORT UmoNatFlowMcastSm : public Mox::Reactor {
 public:
  using PolicySmCollection =
      Mox::ChildCollection<Pelo::String, UmoNatFlowPolicySm,
                           Mox::Ptr<const Ip::Nat::NatFlowPolicyStatus>,
                           Mox::Ptr<Ip::Nat::HwNatFlowStatus>, UmoNatFlowMcastTopologySm*,
                           Mox::Ptr<UmoHelper::UmoNatFlowMcastHelper>,
                           Mox::Ptr<const Bridging::Config>, UmoNatFlowMcastSm*>;

  // Stores the inputs, subscribes to the policies of `status` and runs
  // handleInitialized. Use umoNatFlowMcastSmFactory, which also switches the
  // notifications on.
  UmoNatFlowMcastSm(const Mox::Ptr<const Ip::Nat::Status>& status,
                    const Mox::Ptr<Ip::Nat::HwNatFlowStatus>& hwStatus,
                    const Mox::Ptr<const Bridging::Config>& bridgingConfig,
                    const Mox::Ptr<const Bridging::Status>& bridgingStatus,
                    const Mox::Ptr<const Bridging::VlanStatusDir>& vlanStatusDir,
                    const Mox::Ptr<const Bridging::Topology::Config>& brTopo,
                    const Mox::Ptr<const UmoL3Intf::Table>& umoL3IntfTable,
                    const Mox::Ptr<const Ip::Status>& ipStatus,
                    const Mox::Ptr<UmoHelper::UmoNatFlowMcastHelper>& helper);
  ~UmoNatFlowMcastSm() override;

  const Mox::Ptr<const Ip::Nat::Status>& status() const { return status_; }
  const Mox::Ptr<Ip::Nat::HwNatFlowStatus>& hwStatus() const { return hwStatus_; }
  const Mox::Ptr<const Bridging::Config>& bridgingConfig() const { return bridgingConfig_; }
  const Mox::Ptr<const Bridging::Status>& bridgingStatus() const { return bridgingStatus_; }
  const Mox::Ptr<const Bridging::VlanStatusDir>& vlanStatusDir() const { return vlanStatusDir_; }
  const Mox::Ptr<const Bridging::Topology::Config>& brTopo() const { return brTopo_; }
  const Mox::Ptr<const UmoL3Intf::Table>& umoL3IntfTable() const { return umoL3IntfTable_; }
  const Mox::Ptr<const Ip::Status>& ipStatus() const { return ipStatus_; }
  const Mox::Ptr<UmoHelper::UmoNatFlowMcastHelper>& helper() const { return helper_; }
  // The topology state machine, created at start and handed down to every
  // policy, match and action.
  UmoNatFlowMcastTopologySm* topologySm() const { return topologySm_.get(); }
  bool initialized() const { return initialized_; }

  // Policy state machines, one per policy name of `status`.
  const PolicySmCollection& policySm() const { return policySm_; }
  Mox::Ptr<UmoNatFlowPolicySm> policySmIs(const Mox::Ptr<const Ip::Nat::NatFlowPolicyStatus>& ps,
                                          const Mox::Ptr<Ip::Nat::HwNatFlowStatus>& hwStatus,
                                          UmoNatFlowMcastTopologySm* topologySm,
                                          const Mox::Ptr<UmoHelper::UmoNatFlowMcastHelper>& helper,
                                          const Mox::Ptr<const Bridging::Config>& bridgingConfig,
                                          UmoNatFlowMcastSm* mcastSm);
  void policySmDel(const Pelo::String& name);
  void policySmDelAll();

  // Matches waiting for hardware groups, in the order they first failed.
  // Members are not owned; a match that dies withdraws itself.
  const Mox::PtrSet<UmoNatFlowMatchSm>& unprogrammedGroup() const { return unprogrammedGroup_; }
  void unprogrammedGroupIs(UmoNatFlowMatchSm* matchSm);
  void unprogrammedGroupDel(UmoNatFlowMatchSm* matchSm);
  void unprogrammedGroupDelAll();

  Mox::Seconds unprogrammedGroupTaskDelay() const { return unprogrammedGroupTaskDelay_; }
  void unprogrammedGroupTaskDelayIs(Mox::Seconds delay) { unprogrammedGroupTaskDelay_ = delay; }
  const Mox::Ptr<Vyr::TimerTask>& unprogrammedGroupTask() const { return unprogrammedGroupTask_; }
  // Holds `task` as the retry task and subscribes the retry handler to it.
  void unprogrammedGroupTaskIs(const Mox::Ptr<Vyr::TimerTask>& task);
  void unprogrammedGroupTaskDel();
  const Mox::Ptr<Vyr::TaskScheduler>& groupScheduler() const { return groupScheduler_; }

  // Parks a match whose group allocation failed; it stays until a retry run
  // allocates its groups. Does not schedule the retry task.
  void addUnprogrammedGroupTask(UmoNatFlowMatchSm* matchSm);

  // Scans the inputs; run once, as the last step of the constructor.
  void handleInitialized();
  // Creates or removes the policy state machine of `name` after a change of
  // `status.natFlow`.
  void handleNatFlowPolicy(const Pelo::String& name);
  // The retry task's run: retries parked matches until one fails again or the
  // time slice is used up. Does nothing when called other than by the task.
  void handleUnprogrammedGroup();

 protected:
  void doCleanup() override;

 private:
  void statusDispatch(const Pelo::Publisher& publisher, Pelo::AttrId attr, const Pelo::Key& key);
  void unprogrammedGroupTaskDispatch(const Pelo::Publisher& publisher, Pelo::AttrId attr,
                                     const Pelo::Key& key);
  // What destruction undoes after doCleanup: subscriptions, then the tree.
  void teardown();

  Mox::Ptr<const Ip::Nat::Status> status_;
  Mox::Ptr<Ip::Nat::HwNatFlowStatus> hwStatus_;
  Mox::Ptr<const Bridging::Config> bridgingConfig_;
  Mox::Ptr<const Bridging::Status> bridgingStatus_;
  Mox::Ptr<const Bridging::VlanStatusDir> vlanStatusDir_;
  Mox::Ptr<const Bridging::Topology::Config> brTopo_;
  Mox::Ptr<const UmoL3Intf::Table> umoL3IntfTable_;
  Mox::Ptr<const Ip::Status> ipStatus_;
  Mox::Ptr<UmoHelper::UmoNatFlowMcastHelper> helper_;
  Mox::Ptr<UmoNatFlowMcastTopologySm> topologySm_;
  PolicySmCollection policySm_;
  Mox::PtrSet<UmoNatFlowMatchSm> unprogrammedGroup_;
  Mox::Seconds unprogrammedGroupTaskDelay_ = 10.0;
  Mox::Ptr<Vyr::TimerTask> unprogrammedGroupTask_;
  Mox::Ptr<Vyr::TaskScheduler> groupScheduler_;
  bool initialized_ = false;
};

// Creates the root state machine with its inputs and the agent's hardware
// helper, and switches its notifications on.
UMONAT_EXPORT Mox::Ptr<UmoNatFlowMcastSm> umoNatFlowMcastSmFactory(
    const Mox::Ptr<const Ip::Nat::Status>& status,
    const Mox::Ptr<Ip::Nat::HwNatFlowStatus>& hwStatus,
    const Mox::Ptr<const Bridging::Config>& bridgingConfig,
    const Mox::Ptr<const Bridging::Status>& bridgingStatus,
    const Mox::Ptr<const Bridging::VlanStatusDir>& vlanStatusDir,
    const Mox::Ptr<const Bridging::Topology::Config>& brTopo,
    const Mox::Ptr<const UmoL3Intf::Table>& umoL3IntfTable,
    const Mox::Ptr<const Ip::Status>& ipStatus,
    const Mox::Ptr<UmoHelper::UmoNatFlowMcastHelper>& helper);
