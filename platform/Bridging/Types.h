#pragma once

#include <compare>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <iosfwd>
#include <stdexcept>
#include <string_view>

namespace Bridging {

// Thrown when a VlanId is made from a number outside 1..4094.
class VlanIdRangeError : public std::out_of_range {
 public:
  VlanIdRangeError();
};

// A VLAN number that can carry traffic: always within 1..4094. Used wherever a VLAN must be
// real (flow programming, membership); VlanIdOrNone covers the places where it may be unset.
class VlanId {
 public:
  static constexpr std::uint16_t kMin = 1;
  static constexpr std::uint16_t kMax = 4094;

  // Throws VlanIdRangeError when value is outside kMin..kMax.
  constexpr explicit VlanId(std::uint16_t value) : value_(value) {
    if (value < kMin || value > kMax) throw VlanIdRangeError();
  }

  constexpr std::uint16_t value() const { return value_; }

  friend bool operator==(const VlanId& a, const VlanId& b) = default;
  friend constexpr std::strong_ordering operator<=>(const VlanId& a, const VlanId& b) {
    return a.value_ <=> b.value_;
  }

 private:
  std::uint16_t value_;
};

std::ostream& operator<<(std::ostream& os, const VlanId& vlan);

// A VLAN number as carried in records that may leave it unset: any 16-bit value, where 0 and
// 4095 mean "no VLAN".
class VlanIdOrNone {
 public:
  static constexpr std::uint16_t kReserved = 4095;

  constexpr VlanIdOrNone(std::uint16_t value = 0)  // NOLINT(google-explicit-constructor)
      : value_(value) {}
  constexpr VlanIdOrNone(VlanId vlan)  // NOLINT(google-explicit-constructor)
      : value_(vlan.value()) {}

  constexpr std::uint16_t value() const { return value_; }
  constexpr bool isNone() const { return value_ == 0 || value_ == kReserved; }

  friend bool operator==(const VlanIdOrNone& a, const VlanIdOrNone& b) = default;

 private:
  std::uint16_t value_;
};

std::ostream& operator<<(std::ostream& os, const VlanIdOrNone& vlan);

// A filtering database id: names the MAC table a VLAN learns into.
class Fid {
 public:
  constexpr Fid() = default;
  constexpr explicit Fid(std::uint16_t value) : value_(value) {}

  constexpr std::uint16_t value() const { return value_; }

  friend bool operator==(const Fid& a, const Fid& b) = default;
  friend constexpr std::strong_ordering operator<=>(const Fid& a, const Fid& b) {
    return a.value_ <=> b.value_;
  }

 private:
  std::uint16_t value_ = 0;
};

std::ostream& operator<<(std::ostream& os, const Fid& fid);

// How a switchport carries traffic, as configured on the interface.
enum class SwitchportMode : std::uint8_t {
  access = 0,
  trunk = 1,
  tunnel = 2,
  monitorSource = 3,
  monitorDestination = 4,
  voice = 5,
  routed = 6,
};

// Prints the enumerator name ("access"); a value outside the enumeration prints as its number.
std::ostream& operator<<(std::ostream& os, SwitchportMode mode);
// Sets mode from an enumerator name ("monitorSource") and returns true; returns false and
// leaves mode alone for any other text.
bool switchportModeFromString(std::string_view text, SwitchportMode& mode);

namespace Topology {

// The spanning-tree state of a port in a topology instance.
enum class PortState : std::uint8_t {
  disabled = 0,
  blocking = 1,
  learning = 2,
  forwarding = 3,
  discarding = 4,
};

// Prints the enumerator name ("forwarding"); a value outside the enumeration prints as its
// number.
std::ostream& operator<<(std::ostream& os, PortState state);
// Sets state from an enumerator name and returns true; returns false and leaves state alone
// for any other text.
bool portStateFromString(std::string_view text, PortState& state);

}  // namespace Topology

}  // namespace Bridging

template <>
struct std::hash<Bridging::VlanId> {
  std::size_t operator()(const Bridging::VlanId& vlan) const noexcept {
    return std::hash<std::uint16_t>{}(vlan.value());
  }
};

template <>
struct std::hash<Bridging::Fid> {
  std::size_t operator()(const Bridging::Fid& fid) const noexcept {
    return std::hash<std::uint16_t>{}(fid.value());
  }
};
