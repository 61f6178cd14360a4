#include "fuzz/ScenarioRun.h"

#include <cstdio>
#include <cstdlib>
#include <ostream>
#include <sstream>
#include <string>
#include <vector>

#include "fuzz/DiscardBuffer.h"
#include "sim/Interpreter.h"
#include "sim/LineParser.h"

namespace Fuzz {

namespace {

// A line the fuzzer must not run; see runScenario.
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

void runScenario(std::string_view text) {
  if (text.size() > kMaxScenarioBytes) return;
  DiscardBuffer discard;
  std::ostream out(&discard);
  std::ostringstream err;
  Sim::Interpreter interpreter(out, err, /*echo=*/false);
  std::size_t line = 0;
  while (!text.empty() && line < kMaxScenarioLines) {
    const std::size_t newline = text.find('\n');
    const std::string_view current = text.substr(0, newline);
    text.remove_prefix(newline == std::string_view::npos ? text.size() : newline + 1);
    ++line;
    if (skipped(current)) continue;
    err.str("");
    const Sim::Interpreter::Outcome outcome = interpreter.runLine(current, "fuzz", line);
    if (outcome == Sim::Interpreter::Outcome::quit) break;
    // A checked line that fails while it runs is the system's fault, not the input's.
    if (outcome == Sim::Interpreter::Outcome::error &&
        err.str().find(": error: the command failed: ") != std::string::npos) {
      systemFailed(err.str());
    }
  }
  err.str("");
  if (!interpreter.finish()) systemFailed(err.str());
}

}  // namespace Fuzz
