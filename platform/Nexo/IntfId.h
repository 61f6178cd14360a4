#pragma once

#include <compare>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <iosfwd>

#include "Pelo/String.h"

namespace Nexo {

// Identifies a network interface by its printable name ("Ethernet3/1", "Port-Channel10",
// "Vlan100"). A value type: copied freely and used as a key in ordered and hashed collections.
// The empty id names no interface. Ids order naturally, so tables list "Ethernet2" before
// "Ethernet10" and "Ethernet10" before "Ethernet10/1".
class IntfId {
 public:
  static constexpr std::size_t kMaxNameLength = 64;

  IntfId() = default;
  // Throws std::invalid_argument when name holds whitespace or a control character or is
  // longer than kMaxNameLength bytes. The empty name gives the empty id.
  explicit IntfId(const Pelo::String& name);

  const Pelo::String& name() const { return name_; }
  bool empty() const { return name_.empty(); }
  Pelo::String stringValue() const { return name_; }
  // Returns the name with a known kind prefix abbreviated when a digit follows it
  // ("Ethernet3/1" -> "Et3/1", "Port-Channel10" -> "Po10"); other names come back unchanged.
  Pelo::String shortName() const;

  friend bool operator==(const IntfId& a, const IntfId& b) = default;
  // Natural order: runs of decimal digits compare by numeric value, other bytes compare
  // bytewise and sort below or above every digit as their byte value says. Names equal under
  // that rule ("Et01", "Et1") fall back to plain bytewise order, so the order is total and
  // agrees with ==.
  friend std::strong_ordering operator<=>(const IntfId& a, const IntfId& b);

 private:
  Pelo::String name_;
};

std::ostream& operator<<(std::ostream& os, const IntfId& id);

// Recognises VLAN interfaces ("Vlan" followed by 1 to 4 decimal digits with value at most
// 4095) and extracts their VLAN number. "Vlan0" and "Vlan4095" are recognised although they
// carry no usable VLAN; callers needing a valid VLAN check the number themselves.
struct VlanIntfId {
  static bool isVlanIntfId(const IntfId& id);
  // Returns the VLAN number of a VLAN interface, 0 for any other id.
  static std::uint16_t vlanId(const IntfId& id);
};

}  // namespace Nexo

template <>
struct std::hash<Nexo::IntfId> {
  std::size_t operator()(const Nexo::IntfId& id) const noexcept {
    return std::hash<Pelo::String>{}(id.name());
  }
};
