#pragma once

#include "Bridging/Config.h"
#include "Ip/Nat/HwStatus.h"
#include "Ip/Nat/Status.h"
#include "Mox/ChildCollection.h"
#include "Mox/Reactor.h"
#include "UmoNat/UmoNatExport.h"
#include "UmoNat/UmoNatFlowMatchSm.h"
#include "UmoNat/UmoNatFlowMcastHelper.h"

class UmoNatFlowMcastSm;
class UmoNatFlowMcastTopologySm;

// The state machine of one NAT flow policy, owned by the root under the policy
// name. It mirrors the policy into the hardware status tree (one
// HwNatFlowPolicyStatus element) and owns one match state machine per match of
// the policy, following matches as they come and go.
//
// Its clean-up stops the root's retry task and empties the root's whole retry
// set (the waiting matches of other policies included), removes its matches
// (freeing their hardware groups) and then its hardware policy element.
class UMONAT_EXPORT UmoNatFlowPolicySm : public Mox::Reactor {
 public:
  using MatchSmCollection =
      Mox::ChildCollection<Pelo::String, UmoNatFlowMatchSm, Pelo::String,
                           Mox::Ptr<const Ip::Nat::NatFlowMatchStatus>,
                           Mox::Ptr<Ip::Nat::HwNatFlowPolicyStatus>, UmoNatFlowMcastTopologySm*,
                           Mox::Ptr<UmoHelper::UmoNatFlowMcastHelper>,
                           Mox::Ptr<const Bridging::Config>, UmoNatFlowMcastSm*>;

  // `topologySm` and `mcastSm` are not owned; both outlive the policy.
  UmoNatFlowPolicySm(const Mox::Ptr<const Ip::Nat::NatFlowPolicyStatus>& policyStatus,
                     const Mox::Ptr<Ip::Nat::HwNatFlowStatus>& hwStatus,
                     UmoNatFlowMcastTopologySm* topologySm,
                     const Mox::Ptr<UmoHelper::UmoNatFlowMcastHelper>& helper,
                     const Mox::Ptr<const Bridging::Config>& bridgingConfig,
                     UmoNatFlowMcastSm* mcastSm);
  ~UmoNatFlowPolicySm() override;

  // Whether this machine was made with these arguments.
  bool constructedWith(const Mox::Ptr<const Ip::Nat::NatFlowPolicyStatus>& policyStatus,
                       const Mox::Ptr<Ip::Nat::HwNatFlowStatus>& hwStatus,
                       const UmoNatFlowMcastTopologySm* topologySm,
                       const Mox::Ptr<UmoHelper::UmoNatFlowMcastHelper>& helper,
                       const Mox::Ptr<const Bridging::Config>& bridgingConfig,
                       const UmoNatFlowMcastSm* mcastSm) const {
    return policyStatus == policyStatus_ && hwStatus == hwStatus_ && topologySm == topologySm_ &&
           helper == helper_ && bridgingConfig == bridgingConfig_ && mcastSm == mcastSm_;
  }

  const Mox::Ptr<const Ip::Nat::NatFlowPolicyStatus>& policyStatus() const { return policyStatus_; }
  const Mox::Ptr<Ip::Nat::HwNatFlowStatus>& hwStatus() const { return hwStatus_; }
  UmoNatFlowMcastTopologySm* topologySm() const { return topologySm_; }
  const Mox::Ptr<UmoHelper::UmoNatFlowMcastHelper>& helper() const { return helper_; }
  const Mox::Ptr<const Bridging::Config>& bridgingConfig() const { return bridgingConfig_; }
  UmoNatFlowMcastSm* mcastSm() const { return mcastSm_; }
  const Mox::Ptr<Ip::Nat::HwNatFlowPolicyStatus>& hwPolicyStatus() const { return hwPolicyStatus_; }
  bool initialized() const { return initialized_; }

  const MatchSmCollection& matchSm() const { return matchSm_; }
  Mox::Ptr<UmoNatFlowMatchSm> matchSmIs(
      const Pelo::String& name, const Mox::Ptr<const Ip::Nat::NatFlowMatchStatus>& matchStatus,
      const Mox::Ptr<Ip::Nat::HwNatFlowPolicyStatus>& hwPolicyStatus,
      UmoNatFlowMcastTopologySm* topologySm,
      const Mox::Ptr<UmoHelper::UmoNatFlowMcastHelper>& helper,
      const Mox::Ptr<const Bridging::Config>& bridgingConfig, UmoNatFlowMcastSm* mcastSm);
  void matchSmDel(const Pelo::String& name);
  void matchSmDelAll();

  // Creates the hardware policy element and the match state machines; run
  // once, as the last step of the constructor.
  void handleInitialized();
  // Creates or removes the match state machine of `name` after a change of the
  // policy's `match` collection.
  void handleNatFlowMatch(const Pelo::String& name);

 protected:
  void doCleanup() override;

 private:
  void policyStatusDispatch(const Pelo::Publisher& publisher, Pelo::AttrId attr,
                            const Pelo::Key& key);
  // What destruction undoes after doCleanup: the subscription, then the matches.
  void teardown();
  const Pelo::String& policyName() const;

  Mox::Ptr<const Ip::Nat::NatFlowPolicyStatus> policyStatus_;
  Mox::Ptr<Ip::Nat::HwNatFlowStatus> hwStatus_;
  UmoNatFlowMcastTopologySm* topologySm_;  // not owned
  Mox::Ptr<UmoHelper::UmoNatFlowMcastHelper> helper_;
  Mox::Ptr<const Bridging::Config> bridgingConfig_;
  UmoNatFlowMcastSm* mcastSm_;  // not owned: the root, which owns this policy
  Mox::Ptr<Ip::Nat::HwNatFlowPolicyStatus> hwPolicyStatus_;
  MatchSmCollection matchSm_;
  bool initialized_ = false;
};
