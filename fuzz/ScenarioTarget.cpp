// Fuzz target: arbitrary text run as a scenario through the simulator's interpreter.

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "fuzz/ScenarioRun.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Fuzz::runScenario(std::string_view(reinterpret_cast<const char*>(data), size));
  return 0;
}
