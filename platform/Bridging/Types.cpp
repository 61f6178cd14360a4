#include "Bridging/Types.h"

#include <array>
#include <ostream>

namespace Bridging {

namespace {

// Enumerator names indexed by value; each enumeration numbers its values from 0 without gaps.
constexpr std::array<std::string_view, 7> kSwitchportModeNames{
    "access", "trunk", "tunnel", "monitorSource", "monitorDestination", "voice", "routed",
};

constexpr std::array<std::string_view, 5> kPortStateNames{
    "disabled", "blocking", "learning", "forwarding", "discarding",
};

static_assert(kSwitchportModeNames.size() == static_cast<std::size_t>(SwitchportMode::routed) + 1);
static_assert(kPortStateNames.size() ==
              static_cast<std::size_t>(Topology::PortState::discarding) + 1);

template <typename Enum, std::size_t N>
std::ostream& printEnum(std::ostream& os, Enum value,
                        const std::array<std::string_view, N>& names) {
  const auto index = static_cast<std::size_t>(value);
  if (index < names.size()) return os << names[index];
  return os << static_cast<unsigned>(index);
}

template <typename Enum, std::size_t N>
bool enumFromString(std::string_view text, Enum& value,
                    const std::array<std::string_view, N>& names) {
  for (std::size_t index = 0; index < names.size(); ++index) {
    if (names[index] == text) {
      value = static_cast<Enum>(index);
      return true;
    }
  }
  return false;
}

}  // namespace

VlanIdRangeError::VlanIdRangeError()
    : std::out_of_range("Bridging::VlanId::value < 1 or > 4094 not allowed") {}

std::ostream& operator<<(std::ostream& os, const VlanId& vlan) { return os << vlan.value(); }

std::ostream& operator<<(std::ostream& os, const VlanIdOrNone& vlan) { return os << vlan.value(); }

std::ostream& operator<<(std::ostream& os, const Fid& fid) { return os << fid.value(); }

std::ostream& operator<<(std::ostream& os, SwitchportMode mode) {
  return printEnum(os, mode, kSwitchportModeNames);
}

bool switchportModeFromString(std::string_view text, SwitchportMode& mode) {
  return enumFromString(text, mode, kSwitchportModeNames);
}

namespace Topology {

std::ostream& operator<<(std::ostream& os, PortState state) {
  return printEnum(os, state, kPortStateNames);
}

bool portStateFromString(std::string_view text, PortState& state) {
  return enumFromString(text, state, kPortStateNames);
}

}  // namespace Topology

}  // namespace Bridging
