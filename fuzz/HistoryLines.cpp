// Prints the scenario lines that an input of the history fuzz target chooses, so that a failing
// input becomes a scenario umonat-sim replays: each line is printed, and flushed, just before it
// runs, so the output ends with the line during which the system fails. Lines the interpreter
// refuses are printed too; they change nothing, so `umonat-sim --keep-going` replays the output.
//
// usage: fuzz_history_lines FILE > history.scn

#include <cstdint>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>

#include "fuzz/HistoryRun.h"

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: %s FILE\n", argv[0]);
    return 2;
  }
  std::ifstream in(argv[1], std::ios::binary);
  if (!in) {
    std::fprintf(stderr, "%s: cannot read %s\n", argv[0], argv[1]);
    return 1;
  }
  const std::string data{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
  Fuzz::ScenarioRun run;
  Fuzz::runHistory(reinterpret_cast<const std::uint8_t*>(data.data()), data.size(), run,
                   [](const std::string& line) {
                     std::printf("%s\n", line.c_str());
                     std::fflush(stdout);
                   });
  run.finish();
  return 0;
}
