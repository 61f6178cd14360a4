#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>

#include "fuzz/ScenarioRun.h"

namespace Fuzz {

// Runs, in `run`, the history of scenario lines that `data` chooses through the history generator
// (sim/HistoryGenerator.h), which writes only lines the platform could publish. The first
// choice says whether the history starts from the generator's small switch, started, or from
// nothing; then each choice the generator makes takes bytes of `data` until they run out or
// kMaxScenarioLines lines have run. A line the interpreter refuses is taken back from the
// generator's model. `before(line)`, when given, sees each line just before it runs. Does not
// finish `run`.
void runHistory(const std::uint8_t* data, std::size_t size, ScenarioRun& run,
                const std::function<void(const std::string&)>& before = {});

}  // namespace Fuzz
