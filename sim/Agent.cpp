#include "sim/Agent.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ostream>
#include <stdexcept>
#include <utility>

#include "Mox/Trace.h"
#include "UmoNat/UmoNatFlowActionSm.h"
#include "UmoNat/UmoNatFlowMatchSm.h"
#include "UmoNat/UmoNatFlowMcastTopologySm.h"
#include "UmoNat/UmoNatFlowPolicySm.h"

namespace Sim {

namespace {

// The file a command writes its output to, as to a requester's connection: an unlinked file
// in memory. What has been written so far is read back from where the last read stopped, so
// output and trace lines keep the order in which they were made. A file never fills up, so a
// long table needs no reader running beside the writer.
class CommandOutputFile {
 public:
  CommandOutputFile() : fd_(::memfd_create("umonat-sim-command", MFD_CLOEXEC)) {
    if (fd_ < 0) {
      throw std::runtime_error(std::string("cannot make a command output file: ") +
                               std::strerror(errno));
    }
  }
  ~CommandOutputFile() { ::close(fd_); }
  CommandOutputFile(const CommandOutputFile&) = delete;
  CommandOutputFile& operator=(const CommandOutputFile&) = delete;

  int writeFd() const { return fd_; }

  // Moves every byte written since the last call to `out`; returns how many.
  std::size_t moveWrittenTo(std::ostream& out) {
    char chunk[4096];
    std::size_t moved = 0;
    for (;;) {
      const ssize_t n = ::pread(fd_, chunk, sizeof chunk, readOffset_);
      if (n < 0 && errno == EINTR) continue;
      if (n <= 0) return moved;
      out.write(chunk, n);
      readOffset_ += n;
      moved += static_cast<std::size_t>(n);
    }
  }

 private:
  int fd_;
  off_t readOffset_ = 0;
};

// Puts the sink that was installed back when it goes.
class TraceSinkRestorer {
 public:
  explicit TraceSinkRestorer(Mox::TraceSink previous) : previous_(std::move(previous)) {}
  ~TraceSinkRestorer() { Mox::traceSinkIs(std::move(previous_)); }
  TraceSinkRestorer(const TraceSinkRestorer&) = delete;
  TraceSinkRestorer& operator=(const TraceSinkRestorer&) = delete;

 private:
  Mox::TraceSink previous_;
};

}  // namespace

Agent::Agent()
    : scheduler_(Mox::makePtr<Vyr::TaskScheduler>("simulator")),
      natStatus_(Mox::makePtr<Ip::Nat::Status>()),
      hwStatus_(Mox::makePtr<Ip::Nat::HwNatFlowStatus>()),
      bridgingConfig_(Mox::makePtr<Bridging::Config>()),
      bridgingStatus_(Mox::makePtr<Bridging::Status>()),
      vlanStatusDir_(Mox::makePtr<Bridging::VlanStatusDir>()),
      brTopo_(Mox::makePtr<Bridging::Topology::Config>()),
      l3IntfTable_(Mox::makePtr<UmoL3Intf::Table>()),
      ipStatus_(Mox::makePtr<Ip::Status>()),
      chip_(Mox::makePtr<Chip>()) {
  // The chip learns the flows of the matches it holds groups for from the NAT status.
  chip_->natStatusIs(natStatus_);
  Vyr::TaskSchedulerRoot::schedulerIs(scheduler_);
}

Agent::~Agent() {
  if (started()) stop();
  Vyr::TaskSchedulerRoot::schedulerIs(nullptr);
}

void Agent::start() {
  if (started()) throw std::logic_error("the agent is already started");
  root_ = umoNatFlowMcastSmFactory(natStatus_, hwStatus_, bridgingConfig_, bridgingStatus_,
                                   vlanStatusDir_, brTopo_, l3IntfTable_, ipStatus_, chip_);
  commands_.callbackIs(
      umoNatFlowMcastSmCliCallbackFactory(kShowCommandName, kShowCommandHelp, hwStatus_));
}

void Agent::stop() {
  if (!started()) throw std::logic_error("the agent is not started");
  commands_.callbackDel(kShowCommandName);
  root_.reset();
}

std::optional<Ip::Nat::NatFlowType> Agent::programmedFlowType(const std::string& policy,
                                                              const std::string& match,
                                                              const std::string& action) const {
  if (!started()) return std::nullopt;
  const auto policySm = root_->policySm().find(policy);
  const auto matchSm = policySm ? policySm->matchSm().find(match) : nullptr;
  const auto actionSm = matchSm ? matchSm->actionSm().find(action) : nullptr;
  if (!actionSm || !actionSm->hwActionStatus()) return std::nullopt;
  const UmoNatFlowMcastTopologySm* topology = root_->topologySm();
  if (topology == nullptr || !topology->actionSmIndexed(actionSm.get())) return std::nullopt;
  return actionSm->hwActionStatus()->flowType();
}

std::size_t Agent::runCommand(const std::string& line, std::ostream& out) {
  if (!started()) throw std::logic_error("the agent is not started");
  CommandOutputFile file;
  std::size_t copied = 0;
  {
    const Mox::TraceSink previous = Mox::traceSink();
    const TraceSinkRestorer restorer(previous);
    Mox::traceSinkIs([&file, &out, &copied, previous](const Mox::TraceLine& traceLine) {
      copied += file.moveWrittenTo(out);
      if (previous) {
        previous(traceLine);
        return;
      }
      std::fprintf(stderr, "%s/%d %s\n", traceLine.handle, traceLine.level, traceLine.text.c_str());
    });
    commands_.dispatch(static_cast<std::uint32_t>(file.writeFd()), line);
  }
  return copied + file.moveWrittenTo(out);
}

}  // namespace Sim
