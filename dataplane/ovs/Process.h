#pragma once

#include <sys/types.h>

#include <chrono>
#include <stdexcept>
#include <string>
#include <vector>

namespace Ovs {

// Raised when Open vSwitch cannot start or a command against it fails; the message names what
// failed and, for a daemon, ends with the last lines of its log.
class Error : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Returns the absolute path of the executable `name` in the colon-separated `searchPath`, or an
// empty string when no directory holds it.
std::string findProgram(const std::string& name, const std::string& searchPath);

// What a finished command printed (standard output and error together) and its exit status
// (-1 when a signal ended it).
struct CommandResult {
  int status = -1;
  std::string output;
};

// Runs `program` (an absolute path) with `args` and the environment `env` ("NAME=value"
// entries, the whole environment of the child) to completion. Throws Error when it cannot start
// or is still running after `timeout`, in which case it is killed first.
CommandResult runCommand(const std::string& program, const std::vector<std::string>& args,
                         const std::vector<std::string>& env, std::chrono::milliseconds timeout);

// A daemon started in the background as a child of this process, its output going to a file.
// The owner stops it; destroying a Child that still runs kills it and reaps it, so no child
// outlives its owner. The child also gets SIGTERM if this process dies first.
class Child {
 public:
  Child() = default;
  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;
  Child(Child&& other) noexcept;
  Child& operator=(Child&& other) noexcept;
  ~Child();

  // Starts `program` (an absolute path); throws Error when fork fails. An exec failure shows as
  // an exit with status 127.
  static Child spawn(const std::string& program, const std::vector<std::string>& args,
                     const std::vector<std::string>& env, const std::string& outputFile);

  pid_t pid() const { return pid_; }
  // True while the child has not exited; reaps it once it has.
  bool running();
  // Waits up to `timeout` for the child to exit; true when it has (and is reaped).
  bool waitExit(std::chrono::milliseconds timeout);
  // Sends `signal`, then waits up to `timeout`; SIGKILL and a final reap when that is not enough.
  void stop(int signal, std::chrono::milliseconds timeout);

 private:
  pid_t pid_ = -1;  // -1 once reaped or never started
};

}  // namespace Ovs
