#include "fuzz/ScenarioRun.h"

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "sim/LineParser.h"

namespace Fuzz {

namespace {

bool skipped(std::string_view line) {
  const std::vector<std::string> words = Sim::LineParser::split(line);
  return words.size() >= 2 && words[0] == "chip" && words[1] == "port-sets";
}

[[noreturn]] void systemFailed(const std::string& what) {
  std::fprintf(stderr, "fuzz: the system failed: %s\n", what.c_str());
  std::fflush(stderr);
  std::abort();
}

}  // namespace

ScenarioRun::ScenarioRun() : out_(&discard_), interpreter_(out_, err_, /*echo=*/false) {}

Sim::Interpreter::Outcome ScenarioRun::runLine(std::string_view line) {
  ++line_;
  if (skipped(line)) return Sim::Interpreter::Outcome::ok;
  err_.str("");
  const Sim::Interpreter::Outcome outcome = interpreter_.runLine(line, "fuzz", line_);
  // A checked line that fails while it runs is the system's fault, not the input's.
  if (outcome == Sim::Interpreter::Outcome::error &&
      err_.str().find(": error: the command failed: ") != std::string::npos) {
    systemFailed(err_.str());
  }
  return outcome;
}

void ScenarioRun::finish() {
  err_.str("");
  if (!interpreter_.finish()) systemFailed(err_.str());
  // After the teardown the chip holds nothing, except the group a pair keeps when the chip
  // refused its other half.
  const Sim::Chip& chip = interpreter_.agent().chip();
  if (chip.empty() || chip.counter(Sim::Chip::Op::createNatFlowGroup).failed != 0) return;
  std::ostringstream leftovers;
  chip.printLeftovers(leftovers);
  systemFailed("after the teardown " + leftovers.str());
}

void runScenario(std::string_view text) {
  if (text.size() > kMaxScenarioBytes) return;
  ScenarioRun run;
  for (std::size_t line = 0; !text.empty() && line < kMaxScenarioLines; ++line) {
    const std::size_t newline = text.find('\n');
    const std::string_view current = text.substr(0, newline);
    text.remove_prefix(newline == std::string_view::npos ? text.size() : newline + 1);
    if (run.runLine(current) == Sim::Interpreter::Outcome::quit) break;
  }
  run.finish();
}

}  // namespace Fuzz
