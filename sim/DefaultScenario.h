#pragma once

#include <string_view>

namespace Sim {

// The scenario umonat-sim runs when it is given no file: examples/tour.scn, built into the
// program when it is compiled.
inline constexpr std::string_view kDefaultScenarioName = "tour.scn";
std::string_view defaultScenario();

}  // namespace Sim
