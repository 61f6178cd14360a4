#include "fuzz/HistoryRun.h"

#include <fuzzer/FuzzedDataProvider.h>

#include <vector>

#include "sim/HistoryGenerator.h"

namespace Fuzz {

void runHistory(const std::uint8_t* data, std::size_t size, ScenarioRun& run,
                const std::function<void(const std::string&)>& before) {
  FuzzedDataProvider bytes(data, size);
  Sim::HistoryGenerator generator([&bytes](std::uint32_t bound) {
    return bound == 0 ? 0 : bytes.ConsumeIntegralInRange<std::uint32_t>(0, bound - 1);
  });
  std::vector<std::string> setup;
  if (bytes.ConsumeBool()) setup = generator.setup();
  std::size_t lines = 0;
  for (const std::string& line : setup) {
    if (before) before(line);
    run.runLine(line);
    ++lines;
  }
  // Once the bytes run out every choice would be 0: the history ends there.
  while (bytes.remaining_bytes() > 0 && lines < kMaxScenarioLines) {
    const std::string line = generator.next();
    if (before) before(line);
    if (run.runLine(line) == Sim::Interpreter::Outcome::error) generator.refused();
    ++lines;
  }
}

}  // namespace Fuzz
