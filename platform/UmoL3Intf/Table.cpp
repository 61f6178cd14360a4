#include "UmoL3Intf/Table.h"

#include <utility>
#include <vector>

#include "Bridging/Types.h"

namespace UmoL3Intf {

void Table::intfL3IndexIs(const Nexo::IntfId& intf, L3Id id) {
  if (const L3Id* old = intfL3Index_.find(intf); old != nullptr && *old == id) return;
  intfL3Index_.is(intf, id);
  publishChange(Attr::intfL3Index, intf);
}

bool Table::intfL3IndexDel(const Nexo::IntfId& intf) {
  if (!intfL3Index_.del(intf)) return false;
  publishChange(Attr::intfL3Index, intf);
  return true;
}

void Table::intfL3IndexDelAll() {
  for (const Nexo::IntfId& intf : intfL3Index_.keys()) intfL3IndexDel(intf);
}

void Table::routedPortNameIs(L3Id id, Nexo::IntfId intf) {
  if (const Nexo::IntfId* old = routedPortName_.find(id); old != nullptr && *old == intf) return;
  routedPortName_.is(id, std::move(intf));
  publishChange(Attr::routedPortName, id);
}

bool Table::routedPortNameDel(L3Id id) {
  if (!routedPortName_.del(id)) return false;
  publishChange(Attr::routedPortName, id);
  return true;
}

void Table::routedPortNameDelAll() {
  for (const L3Id id : routedPortName_.keys()) routedPortNameDel(id);
}

std::uint16_t Table::l3IdToVlanId(L3Id id) const {
  if (id < Bridging::VlanId::kMin || id > Bridging::VlanId::kMax) return 0;
  return id;
}

}  // namespace UmoL3Intf
