#pragma once

#include <array>
#include <cstdint>
#include <vector>

#include "Bridging/Config.h"
#include "Ip/Nat/HwStatus.h"
#include "Ip/Nat/Status.h"
#include "Mox/Reactor.h"
#include "UmoNat/UmoNatExport.h"
#include "UmoNat/UmoNatFlowMatchSm.h"
#include "UmoNat/UmoNatFlowMcastHelper.h"
#include "UmoNat/UmoNatFlowPortSetProbe.h"
#include "UmoNat/UmoNatflowActionSmIndex.h"

class UmoNatFlowMcastTopologySm;

// The inputs every action of one match shares: the policy and match names and
// the match-wide objects. The match state machine makes one and hands it to
// each of its actions, which hold it by reference count.
class UMONAT_EXPORT UmoNatFlowActionSmContext : public Mox::PtrInterface {
 public:
  // `topologySm` is not owned and outlives the actions.
  UmoNatFlowActionSmContext(const Pelo::String& policy, const Pelo::String& match,
                            const Mox::Ptr<const Ip::Nat::NatFlowMatchStatus>& matchStatus,
                            const Mox::Ptr<Ip::Nat::HwNatFlowMatchStatus>& hwMatchStatus,
                            const Mox::Ptr<UmoNatFlowMatchSmStatus>& matchSmStatus,
                            UmoNatFlowMcastTopologySm* topologySm,
                            const Mox::Ptr<UmoHelper::UmoNatFlowMcastHelper>& helper,
                            const Mox::Ptr<const Bridging::Config>& bridgingConfig);

  const Pelo::String& policy() const { return policy_; }
  const Pelo::String& match() const { return match_; }
  const Mox::Ptr<const Ip::Nat::NatFlowMatchStatus>& matchStatus() const { return matchStatus_; }
  const Mox::Ptr<Ip::Nat::HwNatFlowMatchStatus>& hwMatchStatus() const { return hwMatchStatus_; }
  const Mox::Ptr<UmoNatFlowMatchSmStatus>& matchSmStatus() const { return matchSmStatus_; }
  UmoNatFlowMcastTopologySm* topologySm() const { return topologySm_; }
  const Mox::Ptr<UmoHelper::UmoNatFlowMcastHelper>& helper() const { return helper_; }
  const Mox::Ptr<const Bridging::Config>& bridgingConfig() const { return bridgingConfig_; }

  // Whether this context holds these names and these objects.
  bool holds(const Pelo::String& policy, const Pelo::String& match,
             const Mox::Ptr<const Ip::Nat::NatFlowMatchStatus>& matchStatus,
             const Mox::Ptr<Ip::Nat::HwNatFlowMatchStatus>& hwMatchStatus,
             const Mox::Ptr<UmoNatFlowMatchSmStatus>& matchSmStatus,
             const UmoNatFlowMcastTopologySm* topologySm,
             const Mox::Ptr<UmoHelper::UmoNatFlowMcastHelper>& helper,
             const Mox::Ptr<const Bridging::Config>& bridgingConfig) const;
  bool holdsSameAs(const UmoNatFlowActionSmContext& other) const;

 private:
  Pelo::String policy_;
  Pelo::String match_;
  Mox::Ptr<const Ip::Nat::NatFlowMatchStatus> matchStatus_;
  Mox::Ptr<Ip::Nat::HwNatFlowMatchStatus> hwMatchStatus_;
  Mox::Ptr<UmoNatFlowMatchSmStatus> matchSmStatus_;
  UmoNatFlowMcastTopologySm* topologySm_;  // not owned
  Mox::Ptr<UmoHelper::UmoNatFlowMcastHelper> helper_;
  Mox::Ptr<const Bridging::Config> bridgingConfig_;
};

// The state machine of one NAT action of one match, owned by the match state
// machine under the action's name.
//
// For its action it derives the flow type (unicast, multicast or none) and the
// number of groups its match needs, keeps the action's hardware status record
// under the match's hardware status, and programs the action in a fixed
// order: software port sets from the topology, hardware port sets, then
// translations. The match owns the groups; this machine reads their ids,
// takes out of them what it programmed (resetHwGroups), and tells the match
// through `groupNumUpdate` when the group count the match needs has changed.
//
// It follows its action status's `version`; version 0 means the action is not
// complete and nothing is done for it. A machine destroyed while queued for a
// topology update leaves the queue at once: nothing reaches it afterwards.
class UMONAT_EXPORT UmoNatFlowActionSm : public Mox::Reactor {
 public:
  // `topologySm` is not owned and outlives the action.
  UmoNatFlowActionSm(const Pelo::String& policy, const Pelo::String& match,
                     const Mox::Ptr<const Ip::Nat::NatFlowMatchStatus>& matchStatus,
                     const Mox::Ptr<const Ip::Nat::NatFlowActionStatus>& actionStatus,
                     const Mox::Ptr<Ip::Nat::HwNatFlowMatchStatus>& hwMatchStatus,
                     const Mox::Ptr<UmoNatFlowMatchSmStatus>& matchSmStatus,
                     UmoNatFlowMcastTopologySm* topologySm,
                     const Mox::Ptr<UmoHelper::UmoNatFlowMcastHelper>& helper,
                     const Mox::Ptr<const Bridging::Config>& bridgingConfig);
  // The same with the match-wide inputs in `context` (not null), as the match
  // state machine creates its actions.
  UmoNatFlowActionSm(const Mox::Ptr<const UmoNatFlowActionSmContext>& context,
                     const Mox::Ptr<const Ip::Nat::NatFlowActionStatus>& actionStatus);
  ~UmoNatFlowActionSm() override;

  // Whether this machine was made with these arguments (the same context
  // contents and the same action status).
  bool constructedWith(const Mox::Ptr<const UmoNatFlowActionSmContext>& context,
                       const Mox::Ptr<const Ip::Nat::NatFlowActionStatus>& actionStatus) const {
    return actionStatus == actionStatus_ && context_->holdsSameAs(*context);
  }

  const Mox::Ptr<const UmoNatFlowActionSmContext>& context() const { return context_; }
  const Pelo::String& policy() const { return context_->policy(); }
  const Pelo::String& match() const { return context_->match(); }
  // The action's name (empty when there is no action status).
  const Pelo::String& action() const { return nameString(); }
  const Mox::Ptr<const Ip::Nat::NatFlowMatchStatus>& matchStatus() const {
    return context_->matchStatus();
  }
  const Mox::Ptr<const Ip::Nat::NatFlowActionStatus>& actionStatus() const { return actionStatus_; }
  const Mox::Ptr<Ip::Nat::HwNatFlowMatchStatus>& hwMatchStatus() const {
    return context_->hwMatchStatus();
  }
  const Mox::Ptr<UmoNatFlowMatchSmStatus>& matchSmStatus() const {
    return context_->matchSmStatus();
  }
  UmoNatFlowMcastTopologySm* topologySm() const { return context_->topologySm(); }
  const Mox::Ptr<UmoHelper::UmoNatFlowMcastHelper>& helper() const { return context_->helper(); }
  const Mox::Ptr<const Bridging::Config>& bridgingConfig() const {
    return context_->bridgingConfig();
  }
  const Mox::Ptr<Ip::Nat::HwNatFlowActionStatus>& hwActionStatus() const { return hwActionStatus_; }
  void hwActionStatusIs(const Mox::Ptr<Ip::Nat::HwNatFlowActionStatus>& status) {
    hwActionStatus_ = status;
  }
  bool initialized() const { return initialized_; }

  // Unicast, multicast, or none: from the action's destination, else the
  // match flow's destination. Traces what it found.
  Ip::Nat::NatFlowType getFlowType() const;
  // The same without a trace line.
  Ip::Nat::NatFlowType deriveFlowType() const;
  // The groups the match needs: 2 when neither the flow nor some action of
  // the match names a destination, else 1.
  std::uint32_t getGroupNum() const;

  // Re-evaluates and reprograms the whole action. Unless `skipChecks`, a
  // changed group count is handed to the match (which calls back) and a
  // changed flow type resets the groups first.
  void handleNatFlowAction(bool skipChecks);
  // The match's flow changed: with the same flow type only the translations
  // are redone, otherwise the groups are reset and the action reprogrammed.
  void handleNatFlow();
  // The match's group count changes to `num`: takes out what was programmed.
  void handleGroupNum(std::uint32_t num);
  // Takes out of `group` the port sets of one kind (identified by portSetId
  // or portSetId2) and their translations. Requires an initialized machine
  // with a non-zero version.
  void resetHwGroup(std::uint32_t group, bool unicast, bool portSetId2);
  // Takes everything this action programmed out of its match's groups and
  // clears the hardware status record (the flow type stays).
  void resetHwGroups();

  // Fills `vps` with the action's egress ports per VLAN and kind of copy, from
  // its next hops and the topology, registering the action in the topology's
  // index under everything it used (after withdrawing it first).
  void updateSwPortSet(const Mox::Ptr<Ip::Nat::NatFlowVlanPortSets>& vps);
  // The port sets a pass with flow type `ft` would compute on today's
  // topology, into `vps` (fresh and empty), without any side effect: nothing
  // is registered in the topology's index, no hardware is called, no trace is
  // written; each step goes to `probe`. Requires an initialized machine with a
  // non-zero version.
  void computeSwPortSet(Ip::Nat::NatFlowVlanPortSets& vps, Ip::Nat::NatFlowType ft,
                        UmoNatFlowPortSetProbe& probe) const;
  // Brings the hardware port sets of the match's groups from those recorded in
  // the hardware status to `vps`, giving every port set of `vps` its ids.
  void updateHwPortSet(const Mox::Ptr<Ip::Nat::NatFlowVlanPortSets>& vps);
  // The same for one group and one kind of port set.
  void updateHwPortSetGroup(const Mox::Ptr<Ip::Nat::NatFlowVlanPortSets>& vps, std::uint32_t group,
                            bool unicast, bool portSetId2);
  // Reprograms the source and destination translations of every port set
  // when the addresses to translate changed, and records what is programmed.
  void updateHwTranslation();
  void updateHwTranslationSrc(std::uint32_t group, bool unicast, bool portSetId2);
  void updateHwTranslationDst(std::uint32_t group, bool unicast, bool portSetId2);
  void handleInitialized();

 protected:
  void doCleanup() override;

 private:
  // The topology's action index keeps the keys of an action here.
  friend class UmoNatFlowMcastTopologySm;

  void actionStatusDispatch(const Pelo::Publisher& publisher, Pelo::AttrId attr,
                            const Pelo::Key& key);
  // What destruction undoes after doCleanup: the index and backlog entries,
  // then the subscription.
  void teardown();
  // After a port-set step that did not finish: gives `vps` every port-set id
  // of the recorded port sets that the step had not yet carried over or
  // deleted, so that nothing the chip holds is forgotten.
  void keepProgrammedPortSets(Ip::Nat::NatFlowVlanPortSets& vps) const;
  std::uint32_t version() const;
  // The address the flow type is derived from (zero when there is none).
  Nexo::IpAddr flowTypeAddr() const;
  // The port-set walk of updateSwPortSet: live (`probe` null) it registers
  // this machine and traces, dry it only reports to `probe`.
  void fillSwPortSet(Ip::Nat::NatFlowVlanPortSets& vps, Ip::Nat::NatFlowType ft,
                     UmoNatFlowPortSetProbe* probe);

  // How the action uses one of its match's groups: which kind of port sets
  // and which of their ids. The first group is always used; the second only
  // when the match has two.
  struct GroupUse {
    std::uint32_t group;
    bool unicast;
    bool portSetId2;
  };
  // One or two uses, kept in place: a pass asks for them twice.
  struct GroupUses {
    std::array<GroupUse, 2> use{};
    std::size_t count = 0;
    const GroupUse* begin() const { return use.data(); }
    const GroupUse* end() const { return use.data() + count; }
  };
  GroupUses groupUses(Ip::Nat::NatFlowType ft) const;

  // First: it fits in the room the reactor's flags leave.
  bool initialized_ = false;
  Mox::Ptr<const UmoNatFlowActionSmContext> context_;
  Mox::Ptr<const Ip::Nat::NatFlowActionStatus> actionStatus_;
  Mox::Ptr<Ip::Nat::HwNatFlowActionStatus> hwActionStatus_;
  // The keys the topology's index holds this machine under (see
  // UmoNatFlowMcastTopologySm).
  UmoNatflowActionSmKeys indexKeys_;
};
