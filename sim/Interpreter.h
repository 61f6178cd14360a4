#pragma once

#include <cstddef>
#include <iosfwd>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "Mox/Trace.h"
#include "sim/Agent.h"
#include "sim/CommandGrammar.h"
#include "sim/OvsDataplane.h"
#include "sim/Views.h"

namespace Sim {

// Runs scenario lines (docs/scenario-language.md) against one simulation: an Agent with its
// inputs, the system and the simulated chip, on a virtual clock that starts at 0.
//
// Each line is parsed and checked completely, against the words and against the current state,
// before anything changes: a bad line reports one error with its file and line and changes
// nothing. Results go to `out` in the order they happen, trace lines included (prefixed "trace ");
// errors go to `err`, after `out` is flushed. With echo on, every line is copied to `out` first:
// commands as "> <line>", comments and blank lines as they are, so the output reads as a
// transcript.
//
// While it lives the interpreter owns the process's trace sink and assertion context: a failed
// MOX_ASSERT reports the scenario line being run (or the last one run) and, when the chip has run
// out of port sets, says that the system stops on "psId" then. Destruction puts back the
// trace sink and trace levels that were current before and clears the assertion context. One
// interpreter at a time, on the thread that runs the event loop.
class Interpreter {
 public:
  enum class Outcome {
    ok,     // carried out (or nothing to do)
    error,  // reported on `err`; nothing changed
    quit,   // `quit`: the session ends
  };

  // What forwards the packets of `send`.
  enum class Dataplane {
    chip,  // the simulated chip's model alone
    ovs,   // also a private Open vSwitch, kept in step with the chip after every line
  };

  // `out` and `err` may be the same stream; both must outlive the interpreter. With the ovs
  // dataplane, throws Ovs::Error when Open vSwitch cannot start.
  Interpreter(std::ostream& out, std::ostream& err, bool echo = true,
              Dataplane dataplane = Dataplane::chip);
  ~Interpreter();
  Interpreter(const Interpreter&) = delete;
  Interpreter& operator=(const Interpreter&) = delete;

  Agent& agent() { return agent_; }
  // The real dataplane; null with the chip alone.
  OvsDataplane* ovs() { return ovs_.get(); }
  // Errors reported so far.
  std::size_t errors() const { return errors_; }
  // Whether the lines run from now on are echoed (a session reads them on its terminal).
  void echoIs(bool echo) { echo_ = echo; }

  // Runs one line; `file` and `line` locate it in reports.
  Outcome runLine(std::string_view text, std::string_view file, std::size_t line);
  // Runs the lines of `in` in order until the end, a quit, or (unless `keepGoing`) the first
  // error. Returns error when any line failed, else quit or ok.
  Outcome runStream(std::istream& in, std::string_view file, bool keepGoing);
  // Ends the simulation: stops the system when it runs (its teardown) and reports, as an error,
  // every call the chip refused as a violation of the helper contract during the whole
  // simulation. Returns false when there were any. Call once, last.
  bool finish();

  // One line per command: its forms and what it does.
  static void printHelp(std::ostream& os);
  // Every form of every command, in the order `help` lists them.
  static std::vector<CommandForm> commandForms();

 private:
  void reportError(std::string_view message);
  // Brings the real dataplane up to date and reports what disagrees or fails; false when
  // anything did.
  bool syncDataplane();
  std::string assertionContext() const;

  std::ostream& out_;
  std::ostream& err_;
  bool echo_;
  // Declared before the agent, so that it outlives the system's teardown, which it follows.
  std::unique_ptr<OvsDataplane> ovs_;
  Agent agent_;
  BacklogWatch backlogWatch_;
  Mox::TraceSink previousTraceSink_;
  std::string previousTraceLevels_;
  std::size_t errors_ = 0;
  // The line being run or, between lines, the last one run.
  std::string file_;
  std::size_t line_ = 0;
  std::string text_;
  bool running_ = false;
  bool finishing_ = false;
};

}  // namespace Sim
