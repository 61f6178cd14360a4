#pragma once

#include <iosfwd>
#include <optional>
#include <string>

#include "Agent/AgentCommandCallback.h"
#include "Bridging/Config.h"
#include "Bridging/Topology.h"
#include "Ip/Nat/HwStatus.h"
#include "Ip/Nat/Status.h"
#include "Ip/Status.h"
#include "Mox/Ptr.h"
#include "UmoL3Intf/Table.h"
#include "UmoNat/UmoNatFlowMcastSm.h"
#include "UmoNat/UmoNatFlowMcastSmCli.h"
#include "Vyr/Task.h"
#include "sim/Chip.h"

namespace Sim {

class HelperLink;

// The agent side of one simulation, the part of the switch's forwarding agent the system plugs
// into: it owns every input entity the system follows, the hardware status tree it writes, the
// simulated chip behind its hardware helper, the agent's command registry and a virtual clock.
//
// Construction installs a fresh task scheduler as the process's scheduler (TaskSchedulerRoot);
// destruction stops the system when it runs and uninstalls the scheduler, so one agent at a time
// may live. Writers change the inputs through the entity accessors; each setter publishes its
// change as the platform does. start() creates the system's root state machine and registers its
// show command, stop() unregisters the command and drops the root, which tears the system down.
class Agent {
 public:
  // The name and help the show command is registered under.
  static constexpr const char* kShowCommandName = "showNatFlowActionHw";
  static constexpr const char* kShowCommandHelp =
      "Show the NAT flow actions programmed in hardware";

  Agent();
  ~Agent();
  Agent(const Agent&) = delete;
  Agent& operator=(const Agent&) = delete;

  // The inputs, written by the simulator and read by the system.
  const Mox::Ptr<Ip::Nat::Status>& natStatus() const { return natStatus_; }
  const Mox::Ptr<Bridging::Config>& bridgingConfig() const { return bridgingConfig_; }
  const Mox::Ptr<Bridging::Status>& bridgingStatus() const { return bridgingStatus_; }
  const Mox::Ptr<Bridging::VlanStatusDir>& vlanStatusDir() const { return vlanStatusDir_; }
  const Mox::Ptr<Bridging::Topology::Config>& brTopo() const { return brTopo_; }
  const Mox::Ptr<UmoL3Intf::Table>& l3IntfTable() const { return l3IntfTable_; }
  const Mox::Ptr<Ip::Status>& ipStatus() const { return ipStatus_; }
  // The output: what the system has programmed.
  const Mox::Ptr<Ip::Nat::HwNatFlowStatus>& hwStatus() const { return hwStatus_; }
  Chip& chip() const { return *chip_; }
  Vyr::TaskScheduler& scheduler() const { return *scheduler_; }

  bool started() const { return root_ != nullptr; }
  // The root state machine; null while stopped.
  const Mox::Ptr<UmoNatFlowMcastSm>& root() const { return root_; }
  // Creates the root (which scans the inputs) and registers the show command. Precondition: not
  // started. May be called again after stop().
  void start();
  // Unregisters the show command and drops the root, which frees what the system holds in the
  // chip. Precondition: started.
  void stop();
  // The agent restarts, as after a crash: the system goes without its calls reaching the chip
  // (the process that made them is gone), the hardware status tree and the chip keep what they
  // held, and the system starts again on the same inputs; its start-up wipe clears that tree
  // without calling the hardware helper. Precondition: started.
  void restart();

  // The flow type the system recorded for an action in its hardware status at the action's last
  // programming pass: the type that topology updates keep programming it with until its version
  // or its match's flow changes. Nothing while stopped, or when the action has not been through a
  // pass (the topology tracker's action index does not hold its state machine): a record made
  // before any pass holds only a default.
  std::optional<Ip::Nat::NatFlowType> programmedFlowType(const std::string& policy,
                                                         const std::string& match,
                                                         const std::string& action) const;

  // Sends `line` to the agent's command registry as a requester's command, with a descriptor of
  // an in-memory file as the requester's connection, and copies what the callbacks write to
  // `out`, bytes unchanged, whatever its length. Trace lines emitted meanwhile reach the trace
  // sink in order with that output: what was written before a trace line is copied before it.
  // Returns the number of bytes copied. Throws std::runtime_error when no file can be made.
  // Precondition: started.
  std::size_t runCommand(const std::string& line, std::ostream& out);

 private:
  Mox::Ptr<Vyr::TaskScheduler> scheduler_;
  Mox::Ptr<Ip::Nat::Status> natStatus_;
  Mox::Ptr<Ip::Nat::HwNatFlowStatus> hwStatus_;
  Mox::Ptr<Bridging::Config> bridgingConfig_;
  Mox::Ptr<Bridging::Status> bridgingStatus_;
  Mox::Ptr<Bridging::VlanStatusDir> vlanStatusDir_;
  Mox::Ptr<Bridging::Topology::Config> brTopo_;
  Mox::Ptr<UmoL3Intf::Table> l3IntfTable_;
  Mox::Ptr<Ip::Status> ipStatus_;
  Mox::Ptr<Chip> chip_;
  Mox::Ptr<HelperLink> helperLink_;    // the system's hardware helper: the chip, while connected
  ::Agent::CommandRegistry commands_;  // the agent's command framework
  Mox::Ptr<UmoNatFlowMcastSm> root_;
};

}  // namespace Sim
