// umonat-sim: runs the NAT flow system against a simulated switch and chip, driven by scenario
// scripts (docs/scenario-language.md).

#include <sys/stat.h>
#include <unistd.h>

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

#include "UmoNat/UmoNatModule.h"
#include "sim/DefaultScenario.h"
#include "sim/HistoryGenerator.h"
#include "sim/Interpreter.h"
#include "sim/Shell.h"

namespace {

constexpr int kExitOk = 0;
constexpr int kExitFailed = 1;
constexpr int kExitUsage = 2;

// The name reports give to the lines of -c.
constexpr std::string_view kCommandLineName = "<-c>";

void printUsage(std::ostream& os) {
  os << "usage: umonat-sim [--keep-going] [--no-echo] [--dataplane chip|ovs] [FILE...]\n"
        "       umonat-sim [--keep-going] [--no-echo] [--dataplane chip|ovs] -c COMMAND...\n"
        "       umonat-sim -i | --interactive [--dataplane chip|ovs] [FILE | -c COMMAND...]\n"
        "       umonat-sim --generate SEED [--lines N]\n"
        "       umonat-sim --version | -h | --help\n"
        "\n"
        "Runs the multicast NAT flow system against a simulated switch and chip, driven by\n"
        "scenario scripts. Without a file it reads standard input when that is a pipe or a file\n"
        "(umonat-sim < my.scn), else it runs its built-in tour (examples/tour.scn).\n"
        "\n"
        "  FILE...            run each file in a fresh simulation, in order; '-' reads standard\n"
        "                     input. Each line is echoed (\"> line\") before its output. The run\n"
        "                     stops at the first error and exits with status 1.\n"
        "  -c COMMAND         run COMMAND as a scenario line; repeat it for more lines, which run\n"
        "                     in order in one simulation (reports name them <-c>:N)\n"
        "  --keep-going, -k   report every bad line and go on; still exit with status 1\n"
        "  --no-echo          print the output of the lines without echoing them\n"
        "  --interactive, -i  read commands at a prompt (line editing, Tab completion, '?' lists\n"
        "                     what may come next, 'help COMMAND', history across sessions in\n"
        "                     $UMONAT_SIM_HISTORY, default ~/.umonat_sim_history; Ctrl-C drops\n"
        "                     the line, 'exit' or Ctrl-D leaves). With a FILE or -c, runs them\n"
        "                     first (as a scenario: --keep-going and --no-echo apply), then\n"
        "                     prompts in the same simulation\n"
        "  --dataplane ovs    also program a private Open vSwitch (started in a temporary\n"
        "                     directory and stopped at the end) through its own hardware helper,\n"
        "                     kept in step with the chip after every line; 'send' then injects a\n"
        "                     real frame and prints the copies the switch transmits. Needs the\n"
        "                     package openvswitch-switch. 'chip' (the default): the model alone\n"
        "  --generate SEED    print a random scenario that the platform could publish: a small\n"
        "                     switch, two policies, then N (default 200) random changes of every\n"
        "                     input, the clock and the chip; the same SEED prints the same lines\n"
        "  --lines N          the number of random changes for --generate\n"
        "  --version          print the version of the library\n"
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

struct Options {
  bool interactive = false;
  bool keepGoing = false;
  bool echo = true;
  Sim::Interpreter::Dataplane dataplane = Sim::Interpreter::Dataplane::chip;
  std::vector<std::string> files;
  std::vector<std::string> commands;  // of -c, in order
};

// Runs one scenario in a fresh simulation. Returns the exit status and whether it quit.
int runScenario(const Options& options, std::istream& in, std::string_view name, bool& quit) {
  Sim::Interpreter interpreter(std::cout, std::cerr, options.echo, options.dataplane);
  const Sim::Interpreter::Outcome outcome = interpreter.runStream(in, name, options.keepGoing);
  quit = outcome == Sim::Interpreter::Outcome::quit;
  const bool clean = interpreter.finish();
  std::cout.flush();
  return outcome != Sim::Interpreter::Outcome::error && clean ? kExitOk : kExitFailed;
}

// The lines of -c, one scenario.
std::string commandLines(const std::vector<std::string>& commands) {
  std::string lines;
  for (const std::string& command : commands) lines += command + "\n";
  return lines;
}

// Whether standard input holds a scenario: a pipe, a file or a socket, not a terminal or a
// device such as /dev/null.
bool stdinHoldsScenario() {
  struct stat status {};
  if (isatty(STDIN_FILENO) != 0 || fstat(STDIN_FILENO, &status) != 0) return false;
  return S_ISFIFO(status.st_mode) || S_ISREG(status.st_mode) || S_ISSOCK(status.st_mode);
}

int runBatch(const Options& options) {
  bool quit = false;
  if (!options.commands.empty()) {
    std::istringstream in(commandLines(options.commands));
    return runScenario(options, in, kCommandLineName, quit);
  }
  if (options.files.empty()) {
    if (stdinHoldsScenario()) return runScenario(options, std::cin, "<stdin>", quit);
    std::istringstream in{std::string(Sim::defaultScenario())};
    return runScenario(options, in, Sim::kDefaultScenarioName, quit);
  }
  int status = kExitOk;
  for (const std::string& file : options.files) {
    if (options.files.size() > 1) std::cout << "=== " << file << "\n";
    int fileStatus = kExitOk;
    if (file == "-") {
      fileStatus = runScenario(options, std::cin, "<stdin>", quit);
    } else {
      std::ifstream in(file);
      if (!in) {
        std::cout.flush();
        std::cerr << "umonat-sim: cannot read " << file << ": " << std::strerror(errno) << "\n";
        return kExitUsage;
      }
      fileStatus = runScenario(options, in, file, quit);
    }
    if (fileStatus != kExitOk) {
      status = fileStatus;
      if (!options.keepGoing) return status;
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

// Runs the file or the -c lines first, as a scenario, then prompts in the same simulation unless
// they quit. The first error stops them (unless --keep-going), not the session.
int runInteractive(const Options& options) {
  Sim::Interpreter interpreter(std::cout, std::cerr, options.echo, options.dataplane);
  Sim::Interpreter::Outcome outcome = Sim::Interpreter::Outcome::ok;
  if (!options.files.empty()) {
    std::ifstream in(options.files.front());
    if (!in) {
      std::cerr << "umonat-sim: cannot read " << options.files.front() << ": "
                << std::strerror(errno) << "\n";
      return kExitUsage;
    }
    outcome = interpreter.runStream(in, options.files.front(), options.keepGoing);
  } else if (!options.commands.empty()) {
    std::istringstream in(commandLines(options.commands));
    outcome = interpreter.runStream(in, kCommandLineName, options.keepGoing);
  }
  const bool failed = outcome == Sim::Interpreter::Outcome::error;
  if (outcome != Sim::Interpreter::Outcome::quit) {
    std::cout << "umonat-sim: 'help' lists the commands, '?' what may come next, Tab completes; "
                 "'exit' or Ctrl-D leaves.\n";
    std::cout.flush();
    interpreter.echoIs(false);
    Sim::Shell shell(interpreter, Sim::Shell::defaultHistoryFile());
    shell.run();
  }
  const bool clean = interpreter.finish();
  std::cout.flush();
  return clean && !failed ? kExitOk : kExitFailed;
}

int usageError(std::string_view problem) {
  std::cerr << "umonat-sim: " << problem << "; try umonat-sim --help\n";
  return kExitUsage;
}

}  // namespace

int main(int argc, char** argv) {
  Options options;
  std::optional<std::uint32_t> seed;
  std::uint32_t lines = 200;
  for (int i = 1; i < argc; ++i) {
    const std::string_view arg = argv[i];
    if (arg == "-h" || arg == "--help") {
      printUsage(std::cout);
      return kExitOk;
    }
    if (arg == "--version") {
      std::cout << "umonat-sim " << UmoNat::version() << "\n";
      return kExitOk;
    }
    if (arg == "--generate" || arg == "--lines") {
      const std::optional<std::uint32_t> value = i + 1 < argc ? number(argv[i + 1]) : std::nullopt;
      if (!value) return usageError(std::string(arg) + " takes a number");
      ++i;
      if (arg == "--generate") {
        seed = value;
      } else {
        lines = *value;
      }
    } else if (arg == "--dataplane") {
      const std::string_view kind = i + 1 < argc ? argv[i + 1] : "";
      if (kind != "chip" && kind != "ovs") return usageError("--dataplane takes chip or ovs");
      ++i;
      options.dataplane =
          kind == "ovs" ? Sim::Interpreter::Dataplane::ovs : Sim::Interpreter::Dataplane::chip;
    } else if (arg == "-c") {
      if (i + 1 == argc) return usageError("-c takes a command");
      options.commands.emplace_back(argv[++i]);
    } else if (arg == "-i" || arg == "--interactive") {
      options.interactive = true;
    } else if (arg == "-k" || arg == "--keep-going") {
      options.keepGoing = true;
    } else if (arg == "--no-echo") {
      options.echo = false;
    } else if (arg.size() > 1 && arg[0] == '-') {
      return usageError("unknown option " + std::string(arg));
    } else {
      options.files.emplace_back(arg);
    }
  }
  if (seed) {
    if (options.interactive || !options.files.empty() || !options.commands.empty()) {
      return usageError("--generate runs nothing else");
    }
    return generate(*seed, lines);
  }
  if (!options.commands.empty() && !options.files.empty()) {
    return usageError("-c and files exclude each other");
  }
  if (options.interactive) {
    if (options.files.size() > 1) return usageError("--interactive runs at most one file first");
    if (!options.files.empty() && options.files.front() == "-") {
      return usageError("--interactive reads the terminal; give it a file, not '-'");
    }
  }
  try {
    return options.interactive ? runInteractive(options) : runBatch(options);
  } catch (const Ovs::Error& e) {
    std::cout.flush();
    std::cerr << "umonat-sim: the Open vSwitch dataplane failed: " << e.what() << "\n";
    return kExitFailed;
  }
}
