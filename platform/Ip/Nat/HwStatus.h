#pragma once

#include <cstddef>
#include <cstdint>
#include <iterator>
#include <utility>

#include "Ip/Nat/NatFlow.h"
#include "Mox/Collection.h"
#include "Mox/ConstView.h"
#include "Mox/Entity.h"
#include "Mox/FlatCollection.h"
#include "Mox/Ptr.h"
#include "Nexo/EthAddr.h"
#include "Nexo/IntfId.h"
#include "Nexo/IpAddr.h"
#include "Pelo/Key.h"
#include "Pelo/String.h"

// The NAT hardware status tree: what the system has programmed into the chip for each policy,
// match and action, and the port sets the translated copies are replicated to. The system
// writes it; the show command, the simulator and tests read it.
//
// The records follow the conventions of the NAT input tree (Ip/Nat/Status.h): every change of
// an attribute is published as (attribute, key), an unchanged value publishes nothing, `xIs(k)`
// returns the element of k and creates it when absent, `xDelAll()` removes in ascending key
// order publishing each key after its removal, and a nested entity publishes its own changes.
// The writer gets a mutable element through `xIs(k)` and tests presence with the const lookup.

namespace Ip::Nat {

// The ports of one VLAN that a translated flow is sent to, with the destination MAC address
// the copies carry and the ids of the hardware port sets programmed for them. Starts with no
// interface, the zero MAC address and both ids 0.
class NatFlowPortSet : public Mox::ValueEntity {
 public:
  struct Attr {
    static constexpr Pelo::AttrId vlan = 1;
    static constexpr Pelo::AttrId intf = 2;
    static constexpr Pelo::AttrId dmac = 3;
    static constexpr Pelo::AttrId portSetId = 4;
    static constexpr Pelo::AttrId portSetId2 = 5;
  };

  explicit NatFlowPortSet(std::uint16_t vlan);

  std::uint16_t vlan() const { return vlan_; }

  // The member interfaces: a set, walked as (interface, true).
  const Mox::FlatCollection<Nexo::IntfId, Mox::Present>& intf() const { return intf_; }
  bool intf(const Nexo::IntfId& intf) const { return intf_.contains(intf); }
  // Publishes (Attr::intf, intf) when the interface was not a member.
  void intfIs(const Nexo::IntfId& intf);
  // Publishes (Attr::intf, intf) when the interface was a member.
  bool intfDel(const Nexo::IntfId& intf);
  void intfDelAll();

  Nexo::EthAddr dmac() const { return dmac_; }
  void dmacIs(Nexo::EthAddr dmac);
  std::uint32_t portSetId() const { return portSetId_; }
  void portSetIdIs(std::uint32_t portSetId);
  std::uint32_t portSetId2() const { return portSetId2_; }
  void portSetId2Is(std::uint32_t portSetId2);

 protected:
  ~NatFlowPortSet() override = default;

 private:
  // Port sets hold one or two interfaces mostly: a flat set keeps them inside the object.
  Mox::FlatCollection<Nexo::IntfId, Mox::Present> intf_;
  std::uint32_t portSetId_ = 0;
  std::uint32_t portSetId2_ = 0;
  std::uint16_t vlan_;
  Nexo::EthAddr dmac_;
};

// The port sets of an action by VLAN, split into the VLANs whose copies are sent as unicast
// (one known next hop) and those sent as multicast. Shared by reference: the actions that
// replicate to the same ports may point to one instance.
class NatFlowVlanPortSets : public Mox::ValueEntity {
  // Both kinds in one flat collection, keyed by kind and VLAN (the kind in the upper 16 bits,
  // unicast first): an action has a port set or two, and one small collection holds them
  // inside the object.
  using Entries = Mox::FlatCollection<std::uint32_t, Mox::Ptr<NatFlowPortSet>>;
  static constexpr std::uint32_t kUcast = 0;
  static constexpr std::uint32_t kMcast = 1;
  static std::uint32_t keyOf(std::uint32_t kind, std::uint16_t vlan) { return kind << 16 | vlan; }

 public:
  struct Attr {
    static constexpr Pelo::AttrId ucastPortSet = 1;
    static constexpr Pelo::AttrId mcastPortSet = 2;
  };

  // A read-only view of the port sets of one kind, by VLAN: walks yield (vlan, port set) in
  // ascending VLAN order with the walk guarantees of a collection (Mox/Collection.h), and
  // lookups give the port set or null. Valid while the NatFlowVlanPortSets lives.
  class PortSetView {
   public:
    class const_iterator {
     public:
      using iterator_category = std::forward_iterator_tag;
      using value_type = std::pair<const std::uint16_t&, Mox::Ptr<const NatFlowPortSet>>;
      using difference_type = std::ptrdiff_t;
      using reference = value_type;

      const_iterator() = default;
      const_iterator(const Entries* entries, std::uint32_t kind, Entries::const_iterator it)
          : entries_(entries), kind_(kind), it_(it) {
        while (it_ != entries_->end() && (it_.key() >> 16) < kind_) ++it_;
        settle();
      }
      // The VLAN is the iterator's own copy: it stays valid until the iterator moves on.
      value_type operator*() const { return {vlan_, Mox::Ptr<const NatFlowPortSet>(it_->second)}; }
      const std::uint16_t& key() const { return vlan_; }
      const_iterator& operator++() {
        ++it_;
        settle();
        return *this;
      }
      const_iterator operator++(int) {
        const_iterator old = *this;
        ++*this;
        return old;
      }
      friend bool operator==(const const_iterator& a, const const_iterator& b) {
        return a.it_ == b.it_;
      }

     private:
      // Ends the walk where the kind's run ends.
      void settle() {
        if (it_ == entries_->end()) return;
        if ((it_.key() >> 16) != kind_) {
          it_ = entries_->end();
        } else {
          vlan_ = static_cast<std::uint16_t>(it_.key());
        }
      }

      const Entries* entries_ = nullptr;
      std::uint32_t kind_ = 0;
      Entries::const_iterator it_;
      std::uint16_t vlan_ = 0;
    };

    PortSetView(const Entries& entries, std::uint32_t kind) : entries_(&entries), kind_(kind) {}

    const_iterator begin() const { return const_iterator(entries_, kind_, entries_->begin()); }
    const_iterator end() const { return const_iterator(entries_, kind_, entries_->end()); }
    std::size_t size() const {
      std::size_t n = 0;
      for (const auto& entry : *entries_) n += (entry.first >> 16) == kind_ ? 1 : 0;
      return n;
    }
    bool empty() const { return begin() == end(); }
    bool contains(std::uint16_t vlan) const { return entries_->contains(keyOf(kind_, vlan)); }
    // The port set of `vlan`, or null.
    Mox::Ptr<const NatFlowPortSet> find(std::uint16_t vlan) const {
      const Mox::Ptr<NatFlowPortSet>* p = entries_->find(keyOf(kind_, vlan));
      return p != nullptr ? Mox::Ptr<const NatFlowPortSet>(*p) : Mox::Ptr<const NatFlowPortSet>();
    }

   private:
    const Entries* entries_;  // not owned
    std::uint32_t kind_;
  };

  NatFlowVlanPortSets() = default;

  PortSetView ucastPortSet() const { return PortSetView(portSet_, kUcast); }
  // The unicast port set of `vlan`, or null.
  Mox::Ptr<const NatFlowPortSet> ucastPortSet(std::uint16_t vlan) const;
  Mox::Ptr<NatFlowPortSet> ucastPortSetIs(std::uint16_t vlan);
  bool ucastPortSetDel(std::uint16_t vlan);
  void ucastPortSetDelAll();

  PortSetView mcastPortSet() const { return PortSetView(portSet_, kMcast); }
  // The multicast port set of `vlan`, or null.
  Mox::Ptr<const NatFlowPortSet> mcastPortSet(std::uint16_t vlan) const;
  Mox::Ptr<NatFlowPortSet> mcastPortSetIs(std::uint16_t vlan);
  bool mcastPortSetDel(std::uint16_t vlan);
  void mcastPortSetDelAll();

 protected:
  ~NatFlowVlanPortSets() override = default;

 private:
  Mox::Ptr<NatFlowPortSet> portSetIs(std::uint32_t kind, std::uint16_t vlan, Pelo::AttrId attr);
  bool portSetDel(std::uint32_t kind, std::uint16_t vlan, Pelo::AttrId attr);
  void portSetDelAll(std::uint32_t kind, Pelo::AttrId attr);

  Entries portSet_;
};

// Returns a new, empty NatFlowVlanPortSets.
Mox::Ptr<NatFlowVlanPortSets> natFlowVlanPortSetsFactory();

// One action as programmed: the matched source and destination with their prefix lengths, the
// addresses they are translated to, how the translated packets are forwarded and the port sets
// they are replicated to.
class HwNatFlowActionStatus : public Mox::Entity {
 public:
  struct Attr {
    static constexpr Pelo::AttrId name = 1;
    static constexpr Pelo::AttrId srcNat = 2;
    static constexpr Pelo::AttrId srcFlow = 3;
    static constexpr Pelo::AttrId srcLen = 4;
    static constexpr Pelo::AttrId dstNat = 5;
    static constexpr Pelo::AttrId dstFlow = 6;
    static constexpr Pelo::AttrId dstLen = 7;
    static constexpr Pelo::AttrId flowType = 8;
    static constexpr Pelo::AttrId vlanPortSets = 9;
  };

  explicit HwNatFlowActionStatus(Pelo::String name);

  const Pelo::String& name() const { return nameString(); }

  // The translated source.
  Nexo::IpAndPort srcNat() const { return {srcNatIp_, srcNatPort_}; }
  void srcNatIs(Nexo::IpAndPort srcNat);
  // The matched source and its prefix length (0..32).
  Nexo::IpAndPort srcFlow() const { return {srcFlowIp_, srcFlowPort_}; }
  void srcFlowIs(Nexo::IpAndPort srcFlow);
  std::uint32_t srcLen() const { return srcLen_; }
  void srcLenIs(std::uint32_t srcLen);
  // The translated destination.
  Nexo::IpAndPort dstNat() const { return {dstNatIp_, dstNatPort_}; }
  void dstNatIs(Nexo::IpAndPort dstNat);
  // The matched destination and its prefix length (0..32).
  Nexo::IpAndPort dstFlow() const { return {dstFlowIp_, dstFlowPort_}; }
  void dstFlowIs(Nexo::IpAndPort dstFlow);
  std::uint32_t dstLen() const { return dstLen_; }
  void dstLenIs(std::uint32_t dstLen);
  NatFlowType flowType() const { return flowType_; }
  void flowTypeIs(NatFlowType flowType);

  // The port sets the translated packets are replicated to; null until the action has any.
  const Mox::Ptr<NatFlowVlanPortSets>& vlanPortSets() const { return vlanPortSets_; }
  // Publishes (Attr::vlanPortSets) when `vlanPortSets` is another instance (or null) than the
  // one held; changes inside the port sets are published by them.
  void vlanPortSetsIs(Mox::Ptr<NatFlowVlanPortSets> vlanPortSets);

 protected:
  ~HwNatFlowActionStatus() override = default;

 private:
  // One of these per programmed action: the endpoints are kept as addresses and ports apart,
  // which leaves no padding between the fields.
  Mox::Ptr<NatFlowVlanPortSets> vlanPortSets_;
  Nexo::IpAddr srcNatIp_;
  Nexo::IpAddr srcFlowIp_;
  Nexo::IpAddr dstNatIp_;
  Nexo::IpAddr dstFlowIp_;
  std::uint16_t srcNatPort_ = 0;
  std::uint16_t srcFlowPort_ = 0;
  std::uint16_t dstNatPort_ = 0;
  std::uint16_t dstFlowPort_ = 0;
  std::uint8_t srcLen_ = 0;
  std::uint8_t dstLen_ = 0;
  NatFlowType flowType_ = NatFlowType::natFlowTypeUnicast;
};

// One match as programmed: its flow, the hardware groups allocated for its unicast and
// multicast copies (0: none), and its actions by name.
class HwNatFlowMatchStatus : public Mox::Entity {
 public:
  struct Attr {
    static constexpr Pelo::AttrId name = 1;
    static constexpr Pelo::AttrId groupIdUc = 2;
    static constexpr Pelo::AttrId groupIdMc = 3;
    static constexpr Pelo::AttrId flow = 4;
    static constexpr Pelo::AttrId action = 5;
  };

  explicit HwNatFlowMatchStatus(Pelo::String name);

  const Pelo::String& name() const { return nameString(); }

  std::uint32_t groupIdUc() const { return groupIdUc_; }
  void groupIdUcIs(std::uint32_t groupIdUc);
  std::uint32_t groupIdMc() const { return groupIdMc_; }
  void groupIdMcIs(std::uint32_t groupIdMc);
  const NatFlow& flow() const { return flow_; }
  void flowIs(const NatFlow& flow);

  Mox::BlockConstView<Pelo::String, HwNatFlowActionStatus> action() const {
    return Mox::BlockConstView<Pelo::String, HwNatFlowActionStatus>(action_);
  }
  // The action of `name`, or null.
  Mox::Ptr<const HwNatFlowActionStatus> action(const Pelo::String& name) const;
  Mox::Ptr<HwNatFlowActionStatus> actionIs(const Pelo::String& name);
  bool actionDel(const Pelo::String& name);
  void actionDelAll();

 protected:
  ~HwNatFlowMatchStatus() override = default;

 private:
  std::uint32_t groupIdUc_ = 0;
  std::uint32_t groupIdMc_ = 0;
  NatFlow flow_;
  // A match may have thousands of actions: blocks hold them at a fraction of a tree node each.
  Mox::BlockCollection<Pelo::String, Mox::Ptr<HwNatFlowActionStatus>> action_;
};

// The programmed matches of one policy, by match name.
class HwNatFlowPolicyStatus : public Mox::Entity {
 public:
  struct Attr {
    static constexpr Pelo::AttrId name = 1;
    static constexpr Pelo::AttrId match = 2;
  };

  explicit HwNatFlowPolicyStatus(Pelo::String name);

  const Pelo::String& name() const { return nameString(); }

  Mox::ConstView<Pelo::String, HwNatFlowMatchStatus> match() const {
    return Mox::ConstView<Pelo::String, HwNatFlowMatchStatus>(match_);
  }
  // The match of `name`, or null.
  Mox::Ptr<const HwNatFlowMatchStatus> match(const Pelo::String& name) const;
  Mox::Ptr<HwNatFlowMatchStatus> matchIs(const Pelo::String& name);
  bool matchDel(const Pelo::String& name);
  void matchDelAll();

 protected:
  ~HwNatFlowPolicyStatus() override = default;

 private:
  Mox::Collection<Pelo::String, Mox::Ptr<HwNatFlowMatchStatus>> match_;
};

// The root of the NAT hardware status tree: the programmed policies, by policy name. One per
// agent, handed to the system when it starts.
class HwNatFlowStatus : public Mox::Entity {
 public:
  struct Attr {
    static constexpr Pelo::AttrId natFlow = 1;
  };

  HwNatFlowStatus() = default;

  Mox::ConstView<Pelo::String, HwNatFlowPolicyStatus> natFlow() const {
    return Mox::ConstView<Pelo::String, HwNatFlowPolicyStatus>(natFlow_);
  }
  // The policy of `name`, or null.
  Mox::Ptr<const HwNatFlowPolicyStatus> natFlow(const Pelo::String& name) const;
  Mox::Ptr<HwNatFlowPolicyStatus> natFlowIs(const Pelo::String& name);
  bool natFlowDel(const Pelo::String& name);
  void natFlowDelAll();

 protected:
  ~HwNatFlowStatus() override = default;

 private:
  Mox::Collection<Pelo::String, Mox::Ptr<HwNatFlowPolicyStatus>> natFlow_;
};

}  // namespace Ip::Nat
