#pragma once

#include <cstddef>
#include <string_view>

namespace Fuzz {

// Inputs longer than this are not run: a scenario's cost grows with its length, and the fuzzer
// looks for faults, not for slow inputs.
inline constexpr std::size_t kMaxScenarioBytes = 16384;
// Lines after this many are not run.
inline constexpr std::size_t kMaxScenarioLines = 512;

// Runs `text` as a scenario, one line at a time, in a fresh simulation whose output and error
// reports are discarded, going on past bad lines until the end, `quit` or kMaxScenarioLines; then
// ends the simulation as umonat-sim does (the system's teardown included).
//
// Bad lines are the input's fault and pass. The process aborts, after writing the line and why to
// stderr, when the system itself fails: an exception escapes it while a checked line runs, or the
// chip refused calls as violations of the hardware helper's contract. The system's own assertions
// abort the process as well.
//
// Lines setting `chip port-sets` are skipped: the system treats a port-set request the chip
// refuses for lack of room as a broken invariant, so a full port-set table is an abort by design
// and not a fault to look for.
//
// Nothing the scenario language offers touches files or the terminal; a command's output goes to
// an in-memory file.
void runScenario(std::string_view text);

}  // namespace Fuzz
