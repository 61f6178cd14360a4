#pragma once

#include <cstdint>

#include "Bridging/Config.h"
#include "Ip/Nat/HwStatus.h"
#include "Ip/Nat/Status.h"
#include "Mox/ChildCollection.h"
#include "Mox/Entity.h"
#include "Mox/Reactor.h"
#include "UmoNat/UmoNatExport.h"
#include "UmoNat/UmoNatFlowMcastHelper.h"

class UmoNatFlowActionSm;
class UmoNatFlowActionSmContext;
class UmoNatFlowMcastSm;
class UmoNatFlowMcastTopologySm;

// The status a match state machine shares with its action state machines:
// the number of hardware groups the match uses (`groupNum`: 0, 1 or 2), and a
// request counter (`groupNumUpdate`) that an action raises when it finds the
// group count out of date. Each setter stores and publishes only a change.
class UMONAT_EXPORT UmoNatFlowMatchSmStatus : public Mox::Entity {
 public:
  struct Attr {
    static constexpr Pelo::AttrId groupNum = 1;
    static constexpr Pelo::AttrId groupNumUpdate = 2;
  };

  UmoNatFlowMatchSmStatus();

  std::uint32_t groupNum() const { return groupNum_; }
  void groupNumIs(std::uint32_t groupNum);
  std::uint32_t groupNumUpdate() const { return groupNumUpdate_; }
  void groupNumUpdateIs(std::uint32_t groupNumUpdate);

 private:
  std::uint32_t groupNum_ = 0;
  std::uint32_t groupNumUpdate_ = 0;
};

// Creates a match status with both counters at 0.
UMONAT_EXPORT Mox::Ptr<UmoNatFlowMatchSmStatus> UmoNatFlowMatchSmStatusIs();
// The same, for the type framework's generic construction.
UMONAT_EXPORT Mox::Ptr<UmoNatFlowMatchSmStatus> umoNatFlowMatchSmStatusFactory();

// The state machine of one match of a NAT flow policy, owned by the policy
// state machine under the match name.
//
// It decides how many hardware NAT flow groups the match needs (none; one
// shared group; or a unicast and a multicast group), allocates and frees them
// through the hardware helper, records them in the match's hardware status,
// and parks itself in the root's retry set when the hardware has no free group.
// `groupNum` records the count the match wants, also while it waits.
//
// States: not initialized (inside the constructor); no groups (groupNum 0);
// programmed (groupNum 1 or 2 with non-zero group ids); waiting (groupNum 1 or
// 2, group ids 0, parked with the root).
class UMONAT_EXPORT UmoNatFlowMatchSm : public Mox::Reactor {
 public:
  // The actions share one context of the match-wide inputs.
  using ActionSmCollection = Mox::ChildCollection<Pelo::String, UmoNatFlowActionSm,
                                                  Mox::Ptr<const UmoNatFlowActionSmContext>,
                                                  Mox::Ptr<const Ip::Nat::NatFlowActionStatus>>;

  // `topologySm` and `mcastSm` are not owned; both outlive the match.
  UmoNatFlowMatchSm(const Pelo::String& policy,
                    const Mox::Ptr<const Ip::Nat::NatFlowMatchStatus>& matchStatus,
                    const Mox::Ptr<Ip::Nat::HwNatFlowPolicyStatus>& hwPolicyStatus,
                    UmoNatFlowMcastTopologySm* topologySm,
                    const Mox::Ptr<UmoHelper::UmoNatFlowMcastHelper>& helper,
                    const Mox::Ptr<const Bridging::Config>& bridgingConfig,
                    UmoNatFlowMcastSm* mcastSm);
  ~UmoNatFlowMatchSm() override;

  // Whether this machine was made with these arguments.
  bool constructedWith(const Pelo::String& policy,
                       const Mox::Ptr<const Ip::Nat::NatFlowMatchStatus>& matchStatus,
                       const Mox::Ptr<Ip::Nat::HwNatFlowPolicyStatus>& hwPolicyStatus,
                       const UmoNatFlowMcastTopologySm* topologySm,
                       const Mox::Ptr<UmoHelper::UmoNatFlowMcastHelper>& helper,
                       const Mox::Ptr<const Bridging::Config>& bridgingConfig,
                       const UmoNatFlowMcastSm* mcastSm) const {
    return policy == policy_ && matchStatus == matchStatus_ && hwPolicyStatus == hwPolicyStatus_ &&
           topologySm == topologySm_ && helper == helper_ && bridgingConfig == bridgingConfig_ &&
           mcastSm == mcastSm_;
  }

  const Pelo::String& policy() const { return policy_; }
  const Pelo::String& match() const { return nameString(); }
  const Mox::Ptr<const Ip::Nat::NatFlowMatchStatus>& matchStatus() const { return matchStatus_; }
  const Mox::Ptr<Ip::Nat::HwNatFlowPolicyStatus>& hwPolicyStatus() const { return hwPolicyStatus_; }
  UmoNatFlowMcastTopologySm* topologySm() const { return topologySm_; }
  const Mox::Ptr<UmoHelper::UmoNatFlowMcastHelper>& helper() const { return helper_; }
  const Mox::Ptr<const Bridging::Config>& bridgingConfig() const { return bridgingConfig_; }
  UmoNatFlowMcastSm* mcastSm() const { return mcastSm_; }
  const Mox::Ptr<Ip::Nat::HwNatFlowMatchStatus>& hwMatchStatus() const { return hwMatchStatus_; }
  const Mox::Ptr<UmoNatFlowMatchSmStatus>& matchSmStatus() const { return matchSmStatus_; }
  bool initialized() const { return initialized_; }

  // Action state machines, one per action of the match.
  const ActionSmCollection& actionSm() const { return actionSm_; }
  Mox::Ptr<UmoNatFlowActionSm> actionSmIs(
      const Pelo::String& policy, const Pelo::String& name,
      const Mox::Ptr<const Ip::Nat::NatFlowMatchStatus>& matchStatus,
      const Mox::Ptr<const Ip::Nat::NatFlowActionStatus>& actionStatus,
      const Mox::Ptr<Ip::Nat::HwNatFlowMatchStatus>& hwMatchStatus,
      const Mox::Ptr<UmoNatFlowMatchSmStatus>& matchSmStatus, UmoNatFlowMcastTopologySm* topologySm,
      const Mox::Ptr<UmoHelper::UmoNatFlowMcastHelper>& helper,
      const Mox::Ptr<const Bridging::Config>& bridgingConfig);
  void actionSmDel(const Pelo::String& name);
  void actionSmDelAll();

  // Stores the match status and follows its `groupNumUpdate`; re-evaluates the
  // group count unless the match is being deleted.
  void matchSmStatusIs(const Mox::Ptr<UmoNatFlowMatchSmStatus>& status);

  // The number of groups the match needs: 2 when its flow names no
  // destination and one of its actions names none either; otherwise 1 when it
  // has actions, else 0.
  std::uint32_t getGroupNum() const;
  // Allocates `groups` (1 or 2) groups and records them in the hardware
  // status. Returns false, parking the match with the root, when the helper
  // has no group; a group allocated by a failed pair request stays in the
  // hardware and is not recorded. Returns false at once for 0 groups or before
  // the match is initialized.
  bool createNatFlowGroups(std::uint32_t groups);
  // Frees the recorded groups (a shared group once) and sets both ids to 0;
  // schedules the root's retry when other matches wait and no retry is pending.
  void deleteNatFlowGroups();
  // Re-evaluates the group count; when it changed, frees the old groups and
  // allocates the new ones. Returns true when it dealt with the actions itself
  // (count changed, or not initialized), false when the count is unchanged.
  bool handleGroupNumUpdate();
  // The match's flow changed.
  void handleNatFlow();
  // The match's action `name` was added, changed or removed.
  void handleNatFlowAction(const Pelo::String& name);
  // Allocates the first groups and scans the actions; run once, as the last
  // step of the constructor.
  void handleInitialized();

 protected:
  void doCleanup() override;

 private:
  // handleGroupNumUpdate and handleNatFlowAction with the group count the NAT
  // status gives, counted by the caller (getGroupNum walks every action).
  bool handleGroupNumUpdate(std::uint32_t wanted);
  void handleNatFlowAction(const Pelo::String& name, std::uint32_t groupNum);
  void matchStatusDispatch(const Pelo::Publisher& publisher, Pelo::AttrId attr,
                           const Pelo::Key& key);
  // What destruction undoes after doCleanup: the retry entry, the
  // subscriptions, then the actions.
  void teardown();
  void matchSmStatusDispatch(const Pelo::Publisher& publisher, Pelo::AttrId attr,
                             const Pelo::Key& key);

  Pelo::String policy_;
  Mox::Ptr<const Ip::Nat::NatFlowMatchStatus> matchStatus_;
  Mox::Ptr<Ip::Nat::HwNatFlowPolicyStatus> hwPolicyStatus_;
  UmoNatFlowMcastTopologySm* topologySm_;  // not owned
  Mox::Ptr<UmoHelper::UmoNatFlowMcastHelper> helper_;
  Mox::Ptr<const Bridging::Config> bridgingConfig_;
  UmoNatFlowMcastSm* mcastSm_;  // not owned: the root, which outlives every match
  Mox::Ptr<Ip::Nat::HwNatFlowMatchStatus> hwMatchStatus_;
  Mox::Ptr<UmoNatFlowMatchSmStatus> matchSmStatus_;
  ActionSmCollection actionSm_;
  // The context handed to new actions; replaced when their inputs change (an
  // existing action keeps the one it was made with).
  Mox::Ptr<const UmoNatFlowActionSmContext> actionContext_;
  bool initialized_ = false;
};
