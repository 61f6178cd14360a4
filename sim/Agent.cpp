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

// Copies the hardware status tree `from` into the empty `to`, record by record.
void copyHwStatus(const Ip::Nat::HwNatFlowStatus& from, Ip::Nat::HwNatFlowStatus& to) {
  for (const auto& [policyName, policy] : from.natFlow()) {
    auto toPolicy = to.natFlowIs(policyName);
    for (const auto& [matchName, match] : policy->match()) {
      auto toMatch = toPolicy->matchIs(matchName);
      toMatch->groupIdUcIs(match->groupIdUc());
      toMatch->groupIdMcIs(match->groupIdMc());
      toMatch->flowIs(match->flow());
      for (const auto& [actionName, action] : match->action()) {
        auto toAction = toMatch->actionIs(actionName);
        toAction->srcNatIs(action->srcNat());
        toAction->srcFlowIs(action->srcFlow());
        toAction->srcLenIs(action->srcLen());
        toAction->dstNatIs(action->dstNat());
        toAction->dstFlowIs(action->dstFlow());
        toAction->dstLenIs(action->dstLen());
        toAction->flowTypeIs(action->flowType());
        const auto& vps = action->vlanPortSets();
        if (!vps) continue;
        auto toVps = Ip::Nat::natFlowVlanPortSetsFactory();
        for (const bool unicast : {true, false}) {
          for (const auto& [vlan, ps] : unicast ? vps->ucastPortSet() : vps->mcastPortSet()) {
            auto toPs = unicast ? toVps->ucastPortSetIs(vlan) : toVps->mcastPortSetIs(vlan);
            for (const auto& [intf, present] : ps->intf()) toPs->intfIs(intf);
            toPs->dmacIs(ps->dmac());
            toPs->portSetIdIs(ps->portSetId());
            toPs->portSetId2Is(ps->portSetId2());
          }
        }
        toAction->vlanPortSetsIs(toVps);
      }
    }
  }
}

}  // namespace

// The hardware helper the system is given: it passes every call to the chip while connected. A
// restart disconnects it while the old system goes, so that its clean-up never reaches the chip.
class HelperLink : public UmoHelper::UmoNatFlowMcastHelper {
 public:
  explicit HelperLink(Mox::Ptr<Chip> chip)
      : UmoHelper::UmoNatFlowMcastHelper("HelperLink"), chip_(std::move(chip)) {}

  void connectedIs(bool connected) { connected_ = connected; }

  std::uint32_t createNatFlowGroup(const Pelo::String& policy, const Pelo::String& match,
                                   bool unicast) override {
    return connected_ ? chip_->createNatFlowGroup(policy, match, unicast) : 0;
  }
  void deleteNatFlowGroup(const Pelo::String& policy, const Pelo::String& match,
                          std::uint32_t groupId) override {
    if (connected_) chip_->deleteNatFlowGroup(policy, match, groupId);
  }
  std::uint32_t updateNatFlowVlanPortSet(
      std::uint32_t groupId, std::uint32_t portSetId,
      const Mox::Ptr<const Ip::Nat::NatFlowPortSet>& ps) override {
    return connected_ ? chip_->updateNatFlowVlanPortSet(groupId, portSetId, ps) : 0;
  }
  void deleteNatFlowVlanPortSet(std::uint32_t groupId, std::uint32_t portSetId) override {
    if (connected_) chip_->deleteNatFlowVlanPortSet(groupId, portSetId);
  }
  bool updateNatFlowSrcTranslation(std::uint32_t groupId, std::uint32_t portSetId,
                                   std::uint16_t vlan, const Nexo::IpAndPort& srcNat,
                                   const Nexo::IpAndPort& srcFlow, std::uint32_t pfxLen) override {
    return connected_ &&
           chip_->updateNatFlowSrcTranslation(groupId, portSetId, vlan, srcNat, srcFlow, pfxLen);
  }
  void deleteNatFlowSrcTranslation(std::uint32_t groupId, std::uint32_t portSetId) override {
    if (connected_) chip_->deleteNatFlowSrcTranslation(groupId, portSetId);
  }
  bool updateNatFlowDstTranslation(std::uint32_t groupId, std::uint32_t portSetId,
                                   std::uint16_t vlan, const Nexo::IpAndPort& dstNat,
                                   const Nexo::IpAndPort& dstFlow, std::uint32_t pfxLen,
                                   const Nexo::EthAddr& dmac) override {
    return connected_ && chip_->updateNatFlowDstTranslation(groupId, portSetId, vlan, dstNat,
                                                            dstFlow, pfxLen, dmac);
  }
  void deleteNatFlowDstTranslation(std::uint32_t groupId, std::uint32_t portSetId) override {
    if (connected_) chip_->deleteNatFlowDstTranslation(groupId, portSetId);
  }

 protected:
  ~HelperLink() override = default;

 private:
  Mox::Ptr<Chip> chip_;
  bool connected_ = true;
};

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
      chip_(Mox::makePtr<Chip>()),
      helperLink_(Mox::makePtr<HelperLink>(chip_)) {
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
                                   vlanStatusDir_, brTopo_, l3IntfTable_, ipStatus_, helperLink_);
  commands_.callbackIs(
      umoNatFlowMcastSmCliCallbackFactory(kShowCommandName, kShowCommandHelp, hwStatus_));
}

void Agent::stop() {
  if (!started()) throw std::logic_error("the agent is not started");
  commands_.callbackDel(kShowCommandName);
  root_.reset();
}

void Agent::restart() {
  if (!started()) throw std::logic_error("the agent is not started");
  // The tree outlives the process in the platform's state store; the clean-up of the system
  // that goes empties the entity, so it is put back as it was.
  auto kept = Mox::makePtr<Ip::Nat::HwNatFlowStatus>();
  copyHwStatus(*hwStatus_, *kept);
  helperLink_->connectedIs(false);
  try {
    stop();
  } catch (...) {
    helperLink_->connectedIs(true);
    throw;
  }
  helperLink_->connectedIs(true);
  copyHwStatus(*kept, *hwStatus_);
  start();
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
