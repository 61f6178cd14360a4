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
//
// Names are interned: an id is one pointer to the process-wide record of its name, made the
// first time the name is seen and kept for the life of the process. Copying an id copies the
// pointer, equality compares pointers, and ordering compares two integers that the registry
// keeps in the natural order of all names seen, so ids cost a few instructions as map keys. Not
// thread-safe, like the rest of the platform: ids are made on the event loop's thread.
class IntfId {
 public:
  static constexpr std::size_t kMaxNameLength = 64;

  IntfId() = default;
  // Throws std::invalid_argument when name holds whitespace or a control character or is
  // longer than kMaxNameLength bytes. The empty name gives the empty id.
  explicit IntfId(const Pelo::String& name);

  const Pelo::String& name() const;
  bool empty() const { return entry_ == nullptr; }
  Pelo::String stringValue() const { return name(); }
  // Returns the name with a known kind prefix abbreviated when a digit follows it
  // ("Ethernet3/1" -> "Et3/1", "Port-Channel10" -> "Po10"); other names come back unchanged.
  Pelo::String shortName() const;

  // The id as one word: the address of its interned record (0 for the empty id), aligned to at
  // least 8 bytes, so compact containers can pack ids with other values in a word's low bits.
  // fromHandle(handle()) gives the id back.
  std::uintptr_t handle() const { return reinterpret_cast<std::uintptr_t>(entry_); }
  static IntfId fromHandle(std::uintptr_t handle) {
    IntfId id;
    id.entry_ = reinterpret_cast<const Label*>(handle);
    return id;
  }

  friend bool operator==(const IntfId& a, const IntfId& b) { return a.entry_ == b.entry_; }
  // Natural order: runs of decimal digits compare by numeric value, other bytes compare
  // bytewise and sort below or above every digit as their byte value says. Names equal under
  // that rule ("Et01", "Et1") fall back to plain bytewise order, so the order is total and
  // agrees with ==.
  friend std::strong_ordering operator<=>(const IntfId& a, const IntfId& b) {
    if (a.entry_ == b.entry_) return std::strong_ordering::equal;
    return label(a) <=> label(b);
  }

  // The part of a name's interned record that ordering reads: its place in the natural order of
  // all names seen (labels ascend as the names do; the registry may spread them out again, in
  // the same order). The rest of the record is IntfId.cpp's.
  struct Label {
    std::uint64_t label = 0;
  };
  struct Entry;

 private:
  friend struct std::hash<IntfId>;
  // The empty id sorts first: every name's label is above 0.
  static std::uint64_t label(const IntfId& id) {
    return id.entry_ == nullptr ? 0 : id.entry_->label;
  }
  // The interned name; null for the empty id.
  const Label* entry_ = nullptr;
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
  // The hash of the name, computed once when the name was interned.
  std::size_t operator()(const Nexo::IntfId& id) const noexcept;
};
