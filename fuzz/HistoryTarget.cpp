// Fuzz target: histories of scenario lines the platform could publish, chosen by the input's
// bytes through the history generator, run through the simulator's interpreter.

#include <cstddef>
#include <cstdint>

#include "fuzz/HistoryRun.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size > Fuzz::kMaxScenarioBytes) return 0;
  Fuzz::ScenarioRun run;
  Fuzz::runHistory(data, size, run);
  run.finish();
  return 0;
}
