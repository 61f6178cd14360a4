#pragma once

#include <cstddef>
#include <ostream>
#include <sstream>
#include <string_view>

#include "fuzz/DiscardBuffer.h"
#include "sim/Interpreter.h"

namespace Fuzz {

// Inputs longer than this are not run: a scenario's cost grows with its length, and the fuzzer
// looks for faults, not for slow inputs.
inline constexpr std::size_t kMaxScenarioBytes = 16384;
// Lines after this many are not run.
inline constexpr std::size_t kMaxScenarioLines = 512;

// One simulation driven by a fuzz target, a line at a time, whose output and error reports are
// discarded. Bad lines are the input's fault and pass. The process aborts, after writing the line
// and why to stderr, when the system itself fails: an exception escapes it while a checked line
// runs, or, at the end, the chip refused calls as violations of the hardware helper's contract or
// still holds anything after the system's teardown (unless a group request failed: a pair keeps
// the group it got when the chip refuses its other half). The system's own assertions abort the
// process as well.
//
// Lines setting `chip port-sets` are skipped: the system treats a port-set request the chip
// refuses for lack of room as a broken invariant, so a full port-set table is an abort by design
// and not a fault to look for.
//
// Nothing the scenario language offers touches files or the terminal: a command's output goes to
// an in-memory file. One at a time, as the interpreter it holds.
class ScenarioRun {
 public:
  ScenarioRun();
  ScenarioRun(const ScenarioRun&) = delete;
  ScenarioRun& operator=(const ScenarioRun&) = delete;

  // Runs `line` as the next line of the scenario; a skipped line is ok.
  Sim::Interpreter::Outcome runLine(std::string_view line);
  // Ends the simulation as umonat-sim does, the system's teardown included. Call once, last.
  void finish();

 private:
  DiscardBuffer discard_;
  std::ostream out_;
  std::ostringstream err_;
  Sim::Interpreter interpreter_;
  std::size_t line_ = 0;
};

// Runs `text` as a scenario in a fresh ScenarioRun, going on past bad lines until the end, `quit`
// or kMaxScenarioLines, then finishes it. Does nothing for text longer than kMaxScenarioBytes.
void runScenario(std::string_view text);

}  // namespace Fuzz
