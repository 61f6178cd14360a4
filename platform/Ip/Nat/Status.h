#pragma once

#include <cstdint>

#include "Ip/Nat/NatFlow.h"
#include "Mox/Collection.h"
#include "Mox/ConstView.h"
#include "Mox/Entity.h"
#include "Mox/Ptr.h"
#include "Nexo/IntfId.h"
#include "Nexo/IpAddr.h"
#include "Pelo/Key.h"
#include "Pelo/String.h"

// The NAT input tree: the flows, matches and actions that the platform has resolved from the
// configured NAT policies. The platform side (a simulator, tests) writes it; the system holds it
// as const and follows it.
//
// Every record publishes each change of each of its attributes as (attribute, key): the key is
// the collection key of the inserted, changed or removed element, empty for a scalar. A setter
// that stores the value already held publishes nothing. `xIs(k)` of an entity collection
// returns the element of k, creating and publishing it when absent. `xDelAll()` removes the
// keys present at the call in ascending key order and publishes each key right after its
// removal, so a subscriber looking the key up finds it gone. A change inside a nested entity is
// published by that entity only. Every operation may be called from inside a notification.

namespace Ip::Nat {

// One translation of a matched flow: the addresses the packets are rewritten to and the
// interfaces, each with its next hop, that the translated packets leave through. Created by the
// writer under its match; complete once `version` is non-zero.
class NatFlowActionStatus : public Mox::Entity {
 public:
  struct Attr {
    static constexpr Pelo::AttrId name = 1;
    static constexpr Pelo::AttrId src = 2;
    static constexpr Pelo::AttrId dst = 3;
    static constexpr Pelo::AttrId version = 4;
    static constexpr Pelo::AttrId intf = 5;
  };

  explicit NatFlowActionStatus(Pelo::String name);

  const Pelo::String& name() const { return nameString(); }

  // The translated source; address 0 means the source is not translated.
  Nexo::IpAndPort src() const { return src_; }
  void srcIs(Nexo::IpAndPort src);
  // The translated destination; address 0 means the destination is not translated.
  Nexo::IpAndPort dst() const { return dst_; }
  void dstIs(Nexo::IpAndPort dst);
  // 0 while the writer is still filling the action in.
  std::uint32_t version() const { return version_; }
  void versionIs(std::uint32_t version);

  // The outgoing interfaces with their next hops.
  const Mox::Collection<Nexo::IntfId, NatFlowNextHop>& intf() const { return intf_; }
  const NatFlowNextHop* intf(const Nexo::IntfId& intf) const { return intf_.find(intf); }
  // Publishes (Attr::intf, intf) when the interface is new or its next hop differs.
  void intfIs(const Nexo::IntfId& intf, NatFlowNextHop nextHop);
  // Publishes (Attr::intf, intf) when it removed the interface.
  bool intfDel(const Nexo::IntfId& intf);
  void intfDelAll();

 protected:
  ~NatFlowActionStatus() override = default;

 private:
  Nexo::IpAndPort src_;
  Nexo::IpAndPort dst_;
  std::uint32_t version_ = 0;
  Mox::Collection<Nexo::IntfId, NatFlowNextHop> intf_;
};

// A flow that a policy matches, with the actions applied to it, by action name.
class NatFlowMatchStatus : public Mox::Entity {
 public:
  struct Attr {
    static constexpr Pelo::AttrId name = 1;
    static constexpr Pelo::AttrId flow = 2;
    static constexpr Pelo::AttrId action = 3;
  };

  explicit NatFlowMatchStatus(Pelo::String name);

  const Pelo::String& name() const { return nameString(); }

  const NatFlow& flow() const { return flow_; }
  void flowIs(const NatFlow& flow);

  Mox::ConstView<Pelo::String, NatFlowActionStatus> action() const {
    return Mox::ConstView<Pelo::String, NatFlowActionStatus>(action_);
  }
  // The action of `name`, or null.
  Mox::Ptr<const NatFlowActionStatus> action(const Pelo::String& name) const;
  Mox::Ptr<NatFlowActionStatus> actionIs(const Pelo::String& name);
  bool actionDel(const Pelo::String& name);
  void actionDelAll();

 protected:
  ~NatFlowMatchStatus() override = default;

 private:
  NatFlow flow_;
  Mox::Collection<Pelo::String, Mox::Ptr<NatFlowActionStatus>> action_;
};

// The matches of one NAT policy, by match name.
class NatFlowPolicyStatus : public Mox::Entity {
 public:
  struct Attr {
    static constexpr Pelo::AttrId name = 1;
    static constexpr Pelo::AttrId match = 2;
  };

  explicit NatFlowPolicyStatus(Pelo::String name);

  const Pelo::String& name() const { return nameString(); }

  Mox::ConstView<Pelo::String, NatFlowMatchStatus> match() const {
    return Mox::ConstView<Pelo::String, NatFlowMatchStatus>(match_);
  }
  // The match of `name`, or null.
  Mox::Ptr<const NatFlowMatchStatus> match(const Pelo::String& name) const;
  Mox::Ptr<NatFlowMatchStatus> matchIs(const Pelo::String& name);
  bool matchDel(const Pelo::String& name);
  void matchDelAll();

 protected:
  ~NatFlowPolicyStatus() override = default;

 private:
  Mox::Collection<Pelo::String, Mox::Ptr<NatFlowMatchStatus>> match_;
};

// The root of the NAT input tree: the policies, by policy name. One per agent, made by the
// platform side before the system starts and kept for the agent's lifetime.
class Status : public Mox::Entity {
 public:
  struct Attr {
    static constexpr Pelo::AttrId natFlow = 1;
  };

  Status() = default;

  Mox::ConstView<Pelo::String, NatFlowPolicyStatus> natFlow() const {
    return Mox::ConstView<Pelo::String, NatFlowPolicyStatus>(natFlow_);
  }
  // The policy of `name`, or null.
  Mox::Ptr<const NatFlowPolicyStatus> natFlow(const Pelo::String& name) const;
  Mox::Ptr<NatFlowPolicyStatus> natFlowIs(const Pelo::String& name);
  bool natFlowDel(const Pelo::String& name);
  void natFlowDelAll();

 protected:
  ~Status() override = default;

 private:
  Mox::Collection<Pelo::String, Mox::Ptr<NatFlowPolicyStatus>> natFlow_;
};

}  // namespace Ip::Nat
