#include "sim/Shell.h"

#include <readline/history.h>
#include <readline/readline.h>
#include <sys/select.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <utility>

#include "sim/LineParser.h"

namespace Sim {

namespace {

constexpr const char* kPrompt = "umonat-sim> ";

volatile std::sig_atomic_t interrupted = 0;

void onInterrupt(int /*signal*/) { interrupted = 1; }

}  // namespace

Shell* Shell::active_ = nullptr;

std::string Shell::defaultHistoryFile() {
  if (const char* file = std::getenv("UMONAT_SIM_HISTORY")) return file;
  const char* home = std::getenv("HOME");
  if (home == nullptr || *home == '\0') return "";
  return std::string(home) + "/.umonat_sim_history";
}

Shell::Shell(Interpreter& interpreter, std::string historyFile)
    : interpreter_(interpreter),
      grammar_(Interpreter::commandForms()),
      names_(existingNames(interpreter.agent())),
      historyFile_(std::move(historyFile)) {}

void Shell::run() {
  active_ = this;
  done_ = false;
  // Words are separated by spaces and tabs only: ':' and '/' belong to addresses.
  static const char kWordBreaks[] = " \t";
  rl_readline_name = "umonat-sim";
  rl_instream = stdin;
  rl_outstream = stdout;
  rl_initialize();
  rl_completer_word_break_characters = kWordBreaks;
  rl_attempted_completion_function = &Shell::completeWord;
  rl_bind_key('?', &Shell::listChoices);
  // Ctrl-C reaches the loop below as a flag, whatever readline is doing.
  rl_catch_signals = 0;
  struct sigaction action {};
  action.sa_handler = onInterrupt;
  sigemptyset(&action.sa_mask);
  struct sigaction previous {};
  sigaction(SIGINT, &action, &previous);
  // SIGINT is let in only while the loop waits for input, so that none goes unseen between
  // the check of the flag and the wait.
  sigset_t interrupt;
  sigemptyset(&interrupt);
  sigaddset(&interrupt, SIGINT);
  sigset_t original;
  sigprocmask(SIG_BLOCK, &interrupt, &original);
  sigset_t waiting = original;
  sigdelset(&waiting, SIGINT);

  using_history();
  stifle_history(kHistoryLines);
  if (!historyFile_.empty()) read_history(historyFile_.c_str());

  interrupted = 0;
  rl_callback_handler_install(kPrompt, &Shell::acceptLine);
  const int input = fileno(rl_instream);
  while (!done_) {
    // Readline may let SIGINT in while it reads a key, so the flag is looked at before each wait.
    if (interrupted != 0) {
      interrupted = 0;
      cancelLine();
      continue;
    }
    fd_set ready;
    FD_ZERO(&ready);
    FD_SET(input, &ready);
    const int count = pselect(input + 1, &ready, nullptr, nullptr, nullptr, &waiting);
    if (count < 0) {
      if (errno == EINTR) continue;
      std::cerr << "umonat-sim: cannot read the terminal: " << std::strerror(errno) << "\n";
      break;
    }
    rl_callback_read_char();
  }
  if (!done_) rl_callback_handler_remove();
  if (!historyFile_.empty()) history_truncate_file(historyFile_.c_str(), kHistoryLines);
  // A Ctrl-C still pending is taken by the shell's handler, before the previous one is back.
  sigprocmask(SIG_SETMASK, &original, nullptr);
  sigaction(SIGINT, &previous, nullptr);
  active_ = nullptr;
}

void Shell::cancelLine() {
  rl_callback_sigcleanup();
  rl_free_line_state();
  std::fputs("^C", rl_outstream);
  rl_crlf();
  rl_replace_line("", 1);
  // Back at the newest history entry, as after any line.
  using_history();
  rl_on_new_line();
  rl_redisplay();
}

void Shell::acceptLine(char* line) {
  Shell& shell = *active_;
  if (line == nullptr) {
    // Ctrl-D on an empty line: leave on a line of its own.
    std::fputs("\n", rl_outstream);
    shell.done_ = true;
    rl_callback_handler_remove();
    return;
  }
  const std::string text(line);
  std::free(line);
  shell.remember(text);
  const Interpreter::Outcome outcome =
      shell.interpreter_.runLine(text, "interactive", ++shell.line_);
  std::cout.flush();
  if (outcome == Interpreter::Outcome::quit) {
    shell.done_ = true;
    rl_callback_handler_remove();
  }
}

void Shell::remember(const std::string& line) {
  if (LineParser::split(line).empty()) return;
  add_history(line.c_str());
  if (historyFile_.empty()) return;
  // The file is appended to line by line, so that two sessions keep both their lines.
  if (std::FILE* file = std::fopen(historyFile_.c_str(), "a")) std::fclose(file);
  const int error = append_history(1, historyFile_.c_str());
  if (error == 0 || historyWarned_) return;
  historyWarned_ = true;
  std::cerr << "umonat-sim: cannot write the history file " << historyFile_ << ": "
            << std::strerror(error) << "\n";
}

char** Shell::completeWord(const char* text, int /*start*/, int end) {
  Shell& shell = *active_;
  // Never file names: only the words the grammar offers.
  rl_attempted_completion_over = 1;
  shell.candidates_ = shell.grammar_.complete(
      std::string_view(rl_line_buffer, static_cast<std::size_t>(end)), shell.names_);
  shell.nextCandidate_ = 0;
  return rl_completion_matches(text, &Shell::nextCandidate);
}

char* Shell::nextCandidate(const char* /*text*/, int /*state*/) {
  Shell& shell = *active_;
  if (shell.nextCandidate_ == shell.candidates_.size()) return nullptr;
  // Readline frees what it is given.
  return strdup(shell.candidates_[shell.nextCandidate_++].c_str());
}

int Shell::listChoices(int /*count*/, int /*key*/) {
  Shell& shell = *active_;
  const CommandGrammar::Listing listing = shell.grammar_.next(
      std::string_view(rl_line_buffer, static_cast<std::size_t>(rl_point)), shell.names_);
  std::fputs("?", rl_outstream);
  rl_crlf();
  std::fputs(CommandGrammar::format(listing).c_str(), rl_outstream);
  std::fflush(rl_outstream);
  // The prompt and the line as typed, cursor where it was.
  rl_on_new_line();
  return 0;
}

}  // namespace Sim
