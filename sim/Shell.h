#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "sim/CommandGrammar.h"
#include "sim/Interpreter.h"

namespace Sim {

// The interactive session of umonat-sim on a terminal, with GNU readline: a prompt with line
// editing; Tab completes the word being typed from the command grammar and the names that exist
// in the simulation; `?` lists what may come next at the cursor and keeps the line as typed;
// Ctrl-C drops the line being typed and nothing else; `exit`, `quit` and Ctrl-D (on an empty
// line) end the session. The lines typed are kept in a history file, read when the session
// starts and appended to after every line, so that they survive a restart.
//
// Readline is process-wide: one shell at a time. While it runs, the shell owns readline's
// bindings and the process's SIGINT handler, which it puts back when run() returns.
class Shell {
 public:
  // The lines the history file keeps.
  static constexpr int kHistoryLines = 1000;

  // The history file of the user: $UMONAT_SIM_HISTORY when set ("" when it is empty: no file),
  // else ~/.umonat_sim_history ("" without $HOME).
  static std::string defaultHistoryFile();

  // `interpreter` runs the lines and must outlive the shell; an empty `historyFile` keeps the
  // history for the session only.
  Shell(Interpreter& interpreter, std::string historyFile);
  Shell(const Shell&) = delete;
  Shell& operator=(const Shell&) = delete;

  // Reads and runs lines until the session ends.
  void run();

 private:
  static void acceptLine(char* line);
  static char** completeWord(const char* text, int start, int end);
  static char* nextCandidate(const char* text, int state);
  static int listChoices(int count, int key);
  // Drops the line being typed after Ctrl-C and prompts again.
  void cancelLine();
  void remember(const std::string& line);

  static Shell* active_;  // the shell that runs, for readline's callbacks; not owned

  Interpreter& interpreter_;
  CommandGrammar grammar_;
  CommandGrammar::NameLookup names_;
  std::string historyFile_;
  bool historyWarned_ = false;
  std::size_t line_ = 0;
  bool done_ = false;
  std::vector<std::string> candidates_;  // of the completion under way
  std::size_t nextCandidate_ = 0;
};

}  // namespace Sim
