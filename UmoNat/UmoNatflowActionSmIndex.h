#pragma once

#include <cstdint>
#include <variant>
#include <vector>

#include "Mox/Entity.h"
#include "Mox/PtrSet.h"
#include "Nexo/EthAddr.h"
#include "Nexo/IntfId.h"
#include "UmoNat/UmoNatExport.h"

class UmoNatFlowActionSm;

// A key of the action index: an interface, a VLAN or a host MAC. Keys order by
// kind (interfaces, then VLANs, then MACs), then by value.
using UmoNatflowActionSmKey = std::variant<Nexo::IntfId, std::uint16_t, Nexo::EthAddr>;
// The keys one action is registered under, ascending and without duplicates:
// withdrawing the action costs only its own keys. A sorted vector: the few
// keys of an action fit, and clearing it keeps its room for the next pass.
using UmoNatflowActionSmKeys = std::vector<UmoNatflowActionSmKey>;

// An entry of the topology tracker's action index: the action state machines
// whose port sets were built from one key (an interface, a VLAN or a host MAC).
// The set holds plain, non-owning references in insertion order: the index
// never keeps an action state machine alive, and a dying one withdraws itself.
template <class Key>
class UmoNatflowActionSmEntry : public Mox::Entity {
 public:
  const Key& key() const { return key_; }
  const Mox::PtrSet<UmoNatFlowActionSm>& actionSm() const { return actionSm_; }
  // Inserts `actionSm`; inserting a member already there changes nothing.
  void actionSmIs(UmoNatFlowActionSm* actionSm) { actionSm_.is(actionSm); }
  void actionSmDel(UmoNatFlowActionSm* actionSm) { actionSm_.del(actionSm); }
  void actionSmDelAll() { actionSm_.delAll(); }

 protected:
  explicit UmoNatflowActionSmEntry(Key key) : key_(std::move(key)) {}

 private:
  Key key_;
  Mox::PtrSet<UmoNatFlowActionSm> actionSm_;
};

// Actions by physical or aggregate interface.
class UMONAT_EXPORT UmoNatflowActionSmIntf : public UmoNatflowActionSmEntry<Nexo::IntfId> {
 public:
  explicit UmoNatflowActionSmIntf(const Nexo::IntfId& intf);
  const Nexo::IntfId& intf() const { return key(); }
};

// Actions by VLAN.
class UMONAT_EXPORT UmoNatflowActionSmVlan : public UmoNatflowActionSmEntry<std::uint16_t> {
 public:
  explicit UmoNatflowActionSmVlan(std::uint16_t vlan);
  std::uint16_t vlan() const { return key(); }
};

// Actions by host MAC address.
class UMONAT_EXPORT UmoNatflowActionSmMac : public UmoNatflowActionSmEntry<Nexo::EthAddr> {
 public:
  explicit UmoNatflowActionSmMac(const Nexo::EthAddr& mac);
  const Nexo::EthAddr& mac() const { return key(); }
};

UMONAT_EXPORT Mox::Ptr<UmoNatflowActionSmIntf> UmoNatflowActionSmIntfIs(const Nexo::IntfId& intf);
UMONAT_EXPORT Mox::Ptr<UmoNatflowActionSmVlan> UmoNatflowActionSmVlanIs(std::uint16_t vlan);
UMONAT_EXPORT Mox::Ptr<UmoNatflowActionSmMac> UmoNatflowActionSmMacIs(const Nexo::EthAddr& mac);
// The same, for the type framework's generic construction.
UMONAT_EXPORT Mox::Ptr<UmoNatflowActionSmIntf> umoNatflowActionSmIntfFactory(
    const Nexo::IntfId& intf);
UMONAT_EXPORT Mox::Ptr<UmoNatflowActionSmVlan> umoNatflowActionSmVlanFactory(std::uint16_t vlan);
UMONAT_EXPORT Mox::Ptr<UmoNatflowActionSmMac> umoNatflowActionSmMacFactory(
    const Nexo::EthAddr& mac);
