// umonat-sim: runs the NAT flow system against a simulated switch and chip, driven by scenario
// scripts (docs/scenario-language.md).

#include <readline/history.h>
#include <readline/readline.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iostream>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "sim/DefaultScenario.h"
#include "sim/Interpreter.h"
#include "sim/LineParser.h"

namespace {

constexpr int kExitOk = 0;
constexpr int kExitFailed = 1;
constexpr int kExitUsage = 2;

void printUsage(std::ostream& os) {
  os << "usage: umonat-sim [--keep-going] [FILE...]\n"
        "       umonat-sim -i | --interactive\n"
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
        "  --help, -h         print this text\n"
        "\n"
        "Exit status: 0 when every line ran and the chip saw no misuse, 1 otherwise, 2 for a bad\n"
        "command line. A failed assertion of the system aborts the run after naming the scenario\n"
        "line that led to it.\n"
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
  std::vector<std::string> files;
  for (int i = 1; i < argc; ++i) {
    const std::string_view arg = argv[i];
    if (arg == "-h" || arg == "--help") {
      printUsage(std::cout);
      return kExitOk;
    }
    if (arg == "-i" || arg == "--interactive") {
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
  return interactive ? runInteractive() : runFiles(files, keepGoing);
}
