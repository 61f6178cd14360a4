// umonat-sim: runs the NAT flow system against a simulated switch and chip, driven by scenario
// scripts (docs/scenario-language.md).

#include <readline/history.h>
#include <readline/readline.h>

#include <cerrno>
#include <charconv>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iostream>
#include <optional>
#include <random>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "sim/DefaultScenario.h"
#include "sim/HistoryGenerator.h"
#include "sim/Interpreter.h"
#include "sim/LineParser.h"

namespace {

constexpr int kExitOk = 0;
constexpr int kExitFailed = 1;
constexpr int kExitUsage = 2;

void printUsage(std::ostream& os) {
  os << "usage: umonat-sim [--keep-going] [FILE...]\n"
        "       umonat-sim -i | --interactive\n"
        "       umonat-sim --generate SEED [--lines N]\n"
        "       umonat-sim -h | --help\n"
        "\n"
        "Runs the multicast NAT flow system against a simulated switch and chip, driven by\n"
        "scenario scripts. Without a file it runs its built-in tour (examples/tour.scn).\n"
        "\n"
        "  FILE...            run each file in a fresh simulation, in order; '-' reads standard\n"
        "                     input. Each line is echoed (\"> line\") before its output. The run\n"
        "                     stops at the first error and exits with status 1.\n"
        "  --keep-going, -k   report every bad line and go on; still exit with status 1\n"
        "  --interactive, -i  read commands at a prompt, with line editing and history\n"
        "  --generate SEED    print a random scenario that the platform could publish: a small\n"
        "                     switch, two policies, then N (default 200) random changes of every\n"
        "                     input, the clock and the chip; the same SEED prints the same lines\n"
        "  --lines N          the number of random changes for --generate\n"
        "  --help, -h         print this text\n"
        "\n"
        "Exit status: 0 when every line ran and the chip saw no misuse, 1 otherwise, 2 for a bad\n"
        "command line. A failed assertion of the system aborts the run after naming the scenario\n"
        "line that led to it.\n"
        "\n"
        "Why is a flow not programmed? 'explain POLICY' says, in the system's trace words;\n"
        "docs/operators.md lists every condition in order, with the trace source and level that\n"
        "reports it. The environment variable MOX_TRACE turns traces on for a whole run, as the\n"
        "'trace' command does: MOX_TRACE='UmoNat*/0-9 SimChip/1' umonat-sim a.scn\n"
        "\n"
        "Scenario commands:\n";
  Sim::Interpreter::printHelp(os);
}

// Runs one scenario in a fresh simulation. Returns the exit status and whether it quit.
int runScenario(std::istream& in, std::string_view name, bool keepGoing, bool& quit) {
  Sim::Interpreter interpreter(std::cout, std::cerr);
  const Sim::Interpreter::Outcome outcome = interpreter.runStream(in, name, keepGoing);
  quit = outcome == Sim::Interpreter::Outcome::quit;
  const bool clean = interpreter.finish();
  std::cout.flush();
  return outcome != Sim::Interpreter::Outcome::error && clean ? kExitOk : kExitFailed;
}

int runFiles(const std::vector<std::string>& files, bool keepGoing) {
  bool quit = false;
  if (files.empty()) {
    std::istringstream in{std::string(Sim::defaultScenario())};
    return runScenario(in, Sim::kDefaultScenarioName, keepGoing, quit);
  }
  int status = kExitOk;
  for (const std::string& file : files) {
    if (files.size() > 1) std::cout << "=== " << file << "\n";
    int fileStatus = kExitOk;
    if (file == "-") {
      fileStatus = runScenario(std::cin, "<stdin>", keepGoing, quit);
    } else {
      std::ifstream in(file);
      if (!in) {
        std::cout.flush();
        std::cerr << "umonat-sim: cannot read " << file << ": " << std::strerror(errno) << "\n";
        return kExitUsage;
      }
      fileStatus = runScenario(in, file, keepGoing, quit);
    }
    if (fileStatus != kExitOk) {
      status = fileStatus;
      if (!keepGoing) return status;
    }
    if (quit) break;
  }
  return status;
}

// Prints a random history: the generator's lines, each run in a simulation first so that the
// history holds only lines that run (the simulation refuses the rare state the generator does not
// foresee, and that line is drawn again).
int generate(std::uint32_t seed, unsigned lines) {
  std::mt19937 rng(seed);
  Sim::HistoryGenerator generator([&rng](std::uint32_t bound) {
    return bound == 0 ? 0 : static_cast<std::uint32_t>(rng() % bound);
  });
  std::ostringstream discarded;
  Sim::Interpreter interpreter(discarded, discarded, /*echo=*/false);
  std::cout << "# A random history the platform could publish: umonat-sim --generate " << seed
            << " --lines " << lines << "\n";
  std::size_t number = 0;
  for (const std::string& line : generator.setup()) {
    interpreter.runLine(line, "generated", ++number);
    std::cout << line << "\n";
  }
  for (unsigned written = 0; written < lines;) {
    const std::string line = generator.next();
    if (interpreter.runLine(line, "generated", ++number) == Sim::Interpreter::Outcome::error) {
      generator.refused();
      continue;
    }
    std::cout << line << "\n";
    ++written;
  }
  interpreter.finish();
  std::cout.flush();
  return kExitOk;
}

std::optional<std::uint32_t> number(std::string_view text) {
  std::uint32_t value = 0;
  const auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (ec != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return value;
}

int runInteractive() {
  std::cout << "umonat-sim: 'help' lists the commands; 'quit' or Ctrl-D leaves.\n";
  rl_readline_name = "umonat-sim";
  using_history();
  Sim::Interpreter interpreter(std::cout, std::cerr, /*echo=*/false);
  std::size_t line = 0;
  while (char* input = readline("umonat-sim> ")) {
    const std::string text(input);
    std::free(input);
    ++line;
    if (!Sim::LineParser::split(text).empty()) add_history(text.c_str());
    if (interpreter.runLine(text, "interactive", line) == Sim::Interpreter::Outcome::quit) break;
  }
  const bool clean = interpreter.finish();
  std::cout.flush();
  return clean ? kExitOk : kExitFailed;
}

}  // namespace

int main(int argc, char** argv) {
  bool interactive = false;
  bool keepGoing = false;
  std::optional<std::uint32_t> seed;
  std::uint32_t lines = 200;
  std::vector<std::string> files;
  for (int i = 1; i < argc; ++i) {
    const std::string_view arg = argv[i];
    if (arg == "-h" || arg == "--help") {
      printUsage(std::cout);
      return kExitOk;
    }
    if (arg == "--generate" || arg == "--lines") {
      const std::optional<std::uint32_t> value = i + 1 < argc ? number(argv[i + 1]) : std::nullopt;
      if (!value) {
        std::cerr << "umonat-sim: " << arg << " takes a number; try umonat-sim --help\n";
        return kExitUsage;
      }
      ++i;
      if (arg == "--generate") {
        seed = value;
      } else {
        lines = *value;
      }
    } else if (arg == "-i" || arg == "--interactive") {
      interactive = true;
    } else if (arg == "-k" || arg == "--keep-going") {
      keepGoing = true;
    } else if (arg.size() > 1 && arg[0] == '-') {
      std::cerr << "umonat-sim: unknown option " << arg << "; try umonat-sim --help\n";
      return kExitUsage;
    } else {
      files.emplace_back(arg);
    }
  }
  if (interactive && !files.empty()) {
    std::cerr << "umonat-sim: --interactive takes no files\n";
    return kExitUsage;
  }
  if (seed) {
    if (interactive || !files.empty()) {
      std::cerr << "umonat-sim: --generate runs nothing else\n";
      return kExitUsage;
    }
    return generate(*seed, lines);
  }
  return interactive ? runInteractive() : runFiles(files, keepGoing);
}
