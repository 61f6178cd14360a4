#include "Process.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <sstream>
#include <thread>
#include <utility>

namespace Ovs {
namespace {

using Clock = std::chrono::steady_clock;
constexpr auto kPollInterval = std::chrono::milliseconds(5);

// argv and envp for execve, built before fork: the child only calls async-signal-safe functions.
struct ExecArgs {
  std::vector<std::string> strings;
  std::vector<char*> argv;
  std::vector<char*> envp;

  ExecArgs(const std::string& program, const std::vector<std::string>& args,
           const std::vector<std::string>& env) {
    strings.reserve(1 + args.size() + env.size());
    strings.push_back(program);
    strings.insert(strings.end(), args.begin(), args.end());
    strings.insert(strings.end(), env.begin(), env.end());
    for (std::size_t i = 0; i < strings.size(); ++i) {
      (i <= args.size() ? argv : envp).push_back(strings[i].data());
    }
    argv.push_back(nullptr);
    envp.push_back(nullptr);
  }
};

// In the child: dies with the parent, takes `out` as standard output and error and /dev/null as
// input, and runs the program. Never returns.
[[noreturn]] void execChild(const ExecArgs& exec, int in, int out, pid_t parent) {
  prctl(PR_SET_PDEATHSIG, SIGTERM);
  if (getppid() != parent) _exit(126);
  dup2(in, STDIN_FILENO);
  dup2(out, STDOUT_FILENO);
  dup2(out, STDERR_FILENO);
  execve(exec.argv[0], exec.argv.data(), exec.envp.data());
  _exit(127);
}

std::string errnoText() { return std::strerror(errno); }

}  // namespace

std::string findProgram(const std::string& name, const std::string& searchPath) {
  std::stringstream dirs(searchPath);
  std::string dir;
  while (std::getline(dirs, dir, ':')) {
    if (dir.empty()) continue;
    std::string candidate = dir + "/" + name;
    struct stat st {};
    if (stat(candidate.c_str(), &st) == 0 && S_ISREG(st.st_mode) &&
        access(candidate.c_str(), X_OK) == 0) {
      return candidate;
    }
  }
  return {};
}

CommandResult runCommand(const std::string& program, const std::vector<std::string>& args,
                         const std::vector<std::string>& env, std::chrono::milliseconds timeout) {
  ExecArgs exec(program, args, env);
  int in = open("/dev/null", O_RDONLY | O_CLOEXEC);
  if (in < 0) throw Error("cannot open /dev/null: " + errnoText());
  int pipeFds[2];
  if (pipe2(pipeFds, O_CLOEXEC) != 0) {
    close(in);
    throw Error("cannot create a pipe for " + program + ": " + errnoText());
  }
  pid_t parent = getpid();
  pid_t pid = fork();
  if (pid == 0) execChild(exec, in, pipeFds[1], parent);
  close(in);
  close(pipeFds[1]);
  if (pid < 0) {
    close(pipeFds[0]);
    throw Error("cannot fork to run " + program + ": " + errnoText());
  }

  CommandResult result;
  auto deadline = Clock::now() + timeout;
  bool timedOut = false;
  char buffer[4096];
  for (;;) {
    auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
    if (left.count() <= 0) {
      timedOut = true;
      break;
    }
    pollfd pfd{pipeFds[0], POLLIN, 0};
    int ready = poll(&pfd, 1, static_cast<int>(left.count()));
    if (ready < 0 && errno == EINTR) continue;
    if (ready <= 0) continue;
    ssize_t n = read(pipeFds[0], buffer, sizeof buffer);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) break;
    result.output.append(buffer, static_cast<std::size_t>(n));
  }
  close(pipeFds[0]);
  if (timedOut) kill(pid, SIGKILL);
  int status = 0;
  while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
  }
  if (timedOut) {
    throw Error(program + " did not finish within " + std::to_string(timeout.count()) +
                " ms and was killed");
  }
  if (WIFEXITED(status)) result.status = WEXITSTATUS(status);
  if (result.status == 127) throw Error("cannot run " + program);
  return result;
}

Child::Child(Child&& other) noexcept : pid_(std::exchange(other.pid_, -1)) {}

Child& Child::operator=(Child&& other) noexcept {
  if (this != &other) {
    if (pid_ > 0) stop(SIGKILL, std::chrono::milliseconds(1000));
    pid_ = std::exchange(other.pid_, -1);
  }
  return *this;
}

Child::~Child() {
  if (pid_ > 0) stop(SIGKILL, std::chrono::milliseconds(1000));
}

Child Child::spawn(const std::string& program, const std::vector<std::string>& args,
                   const std::vector<std::string>& env, const std::string& outputFile) {
  ExecArgs exec(program, args, env);
  int in = open("/dev/null", O_RDONLY | O_CLOEXEC);
  if (in < 0) throw Error("cannot open /dev/null: " + errnoText());
  int out = open(outputFile.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
  if (out < 0) {
    close(in);
    throw Error("cannot open " + outputFile + ": " + errnoText());
  }
  pid_t parent = getpid();
  pid_t pid = fork();
  if (pid == 0) execChild(exec, in, out, parent);
  close(in);
  close(out);
  if (pid < 0) throw Error("cannot fork to start " + program + ": " + errnoText());
  Child child;
  child.pid_ = pid;
  return child;
}

bool Child::running() {
  if (pid_ <= 0) return false;
  int status = 0;
  pid_t done = waitpid(pid_, &status, WNOHANG);
  if (done == pid_ || (done < 0 && errno == ECHILD)) {
    pid_ = -1;
    return false;
  }
  return true;
}

bool Child::waitExit(std::chrono::milliseconds timeout) {
  auto deadline = Clock::now() + timeout;
  while (running()) {
    if (Clock::now() >= deadline) return false;
    std::this_thread::sleep_for(kPollInterval);
  }
  return true;
}

void Child::stop(int signal, std::chrono::milliseconds timeout) {
  if (!running()) return;
  kill(pid_, signal);
  if (waitExit(timeout)) return;
  kill(pid_, SIGKILL);
  int status = 0;
  while (waitpid(pid_, &status, 0) < 0 && errno == EINTR) {
  }
  pid_ = -1;
}

}  // namespace Ovs
