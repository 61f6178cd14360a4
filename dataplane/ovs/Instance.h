#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "Pcap.h"
#include "Process.h"

namespace Ovs {

// A private Open vSwitch: its own database server and switch daemon (userspace datapath, dummy
// network devices, no kernel module, no system service), one bridge, and named ports whose
// transmitted frames are captured to files.
//
// The constructor creates a temporary directory holding everything the daemons use (database,
// sockets, pid files, logs, captures), starts ovsdb-server and ovs-vswitchd as children of this
// process and creates the bridge and its ports; on any failure it stops whatever it started,
// removes the directory and throws Error naming what failed. The destructor stops both daemons,
// reaps them and removes the directory: nothing is left running or on disk. Every command runs
// with a time limit, so no call hangs. Not thread-safe; one owner.
class Instance {
 public:
  struct Port {
    std::string name;
    std::uint16_t ofport = 0;  // the OpenFlow port number the port gets
  };

  struct Options {
    std::string bridge = "br0";
    std::vector<Port> ports;
    // Directories searched for the Open vSwitch programs; empty means $PATH, then the system
    // directories the package installs to.
    std::string searchPath;
    // Where the private directory is created; empty means the system's temporary directory.
    std::string parentDirectory;
    // Limit on every single command and on each daemon's start and stop.
    std::chrono::milliseconds timeout{10000};
  };

  explicit Instance(Options options);
  Instance(const Instance&) = delete;
  Instance& operator=(const Instance&) = delete;
  ~Instance();

  const std::string& directory() const { return dir_; }
  const std::string& bridge() const { return options_.bridge; }
  pid_t ovsdbServerPid() const { return ovsdb_.pid(); }
  pid_t vswitchdPid() const { return vswitchd_.pid(); }

  // Runs ovs-ofctl (OpenFlow 1.3) `command` against the bridge's management socket, with the
  // operands `args`: ofctl("add-flow", {"in_port=1,actions=drop"}). Returns its output; throws
  // Error when it fails.
  std::string ofctl(const std::string& command, const std::vector<std::string>& args = {}) const;
  // Applies `mods` (lines "flow add ...", "flow delete_strict ...", "group add ...", "group
  // modify ...", "group delete ...") as one atomic OpenFlow 1.5 bundle: all of them or, when the
  // switch refuses one, none (Error names the refusal).
  std::string bundle(const std::string& mods) const;
  // Adds ports to the bridge, each captured like the ports of the options.
  void addPorts(const std::vector<Port>& ports);
  const std::vector<Port>& ports() const { return options_.ports; }
  // Runs ovs-appctl against ovs-vswitchd; returns its output, throws Error when it fails.
  std::string appctl(const std::vector<std::string>& args) const;
  // Runs ovs-vsctl against the private database; returns its output, throws Error when it fails.
  std::string vsctl(const std::vector<std::string>& args) const;

  // Hands `frame` (a whole Ethernet frame) to the bridge as if it arrived on port `port`.
  void inject(const std::string& port, std::span<const std::uint8_t> frame) const;
  // The frames port `port` has transmitted so far, oldest first.
  std::vector<Frame> transmitted(const std::string& port) const;
  // Waits, up to the command time limit, until port `port` has transmitted at least `count`
  // frames, and returns them all; throws Error when fewer arrive in time. Forwarding runs in the
  // switch daemon's own thread, after inject() returns.
  std::vector<Frame> awaitTransmitted(const std::string& port, std::size_t count) const;

 private:
  std::string program(const char* name) const;
  std::string capturePath(const std::string& port) const;
  void appendAddPorts(const std::vector<Port>& ports, std::vector<std::string>& args) const;
  std::vector<std::string> environment() const;
  std::string run(const std::string& programPath, const std::vector<std::string>& args) const;
  void start();
  void startDaemon(Child& child, const char* name, const std::vector<std::string>& args);
  void stop() noexcept;

  Options options_;
  std::string dir_;
  std::string ovsdbTool_, ovsdbServer_, vswitchdProgram_, vsctl_, ofctl_, appctl_;
  Child ovsdb_;
  Child vswitchd_;
};

}  // namespace Ovs
