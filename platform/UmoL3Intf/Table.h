#pragma once

#include <cstdint>

#include "Mox/Collection.h"
#include "Mox/Entity.h"
#include "Nexo/IntfId.h"
#include "Pelo/Key.h"

namespace UmoL3Intf {

// The hardware's number for a layer-3 interface. Ids 1..4094 stand for the VLAN interface of
// that VLAN; higher ids belong to routed ports.
using L3Id = std::uint16_t;

// The layer-3 interface table of the chip: the L3 id of each routed interface and, for routed
// ports, the interface behind each id. The platform side writes it; the system holds it as
// const. Publishes (Attr::x, key) when an entry is inserted, changed or removed; storing the
// value already held publishes nothing. `xDelAll()` removes the keys present at the call in
// ascending order, publishing each right after its removal.
class Table : public Mox::Entity {
 public:
  struct Attr {
    static constexpr Pelo::AttrId intfL3Index = 1;
    static constexpr Pelo::AttrId routedPortName = 2;
  };

  Table() = default;

  const Mox::Collection<Nexo::IntfId, L3Id>& intfL3Index() const { return intfL3Index_; }
  // The L3 id of `intf`, or null.
  const L3Id* intfL3Index(const Nexo::IntfId& intf) const { return intfL3Index_.find(intf); }
  void intfL3IndexIs(const Nexo::IntfId& intf, L3Id id);
  bool intfL3IndexDel(const Nexo::IntfId& intf);
  void intfL3IndexDelAll();

  const Mox::Collection<L3Id, Nexo::IntfId>& routedPortName() const { return routedPortName_; }
  // The routed port of `id`, or null.
  const Nexo::IntfId* routedPortName(L3Id id) const { return routedPortName_.find(id); }
  void routedPortNameIs(L3Id id, Nexo::IntfId intf);
  bool routedPortNameDel(L3Id id);
  void routedPortNameDelAll();

  // Returns the VLAN `id` stands for: the id itself when it is within 1..4094, else 0.
  std::uint16_t l3IdToVlanId(L3Id id) const;

 protected:
  ~Table() override = default;

 private:
  Mox::Collection<Nexo::IntfId, L3Id> intfL3Index_;
  Mox::Collection<L3Id, Nexo::IntfId> routedPortName_;
};

}  // namespace UmoL3Intf
