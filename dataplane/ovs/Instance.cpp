#include "Instance.h"

#include <signal.h>
#include <stdlib.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <thread>

extern char** environ;

namespace Ovs {
namespace {

using Clock = std::chrono::steady_clock;
constexpr auto kPollInterval = std::chrono::milliseconds(5);
constexpr const char* kSystemPath = "/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin";

// The last `count` lines of the file at `path`, each indented; empty when there is none.
std::string lastLines(const std::string& path, std::size_t count) {
  std::ifstream in(path);
  std::vector<std::string> lines;
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  std::string text;
  for (std::size_t i = lines.size() > count ? lines.size() - count : 0; i < lines.size(); ++i) {
    text += "\n    " + lines[i];
  }
  return text;
}

std::string schemaPath(const std::string& ovsdbTool) {
  std::vector<std::filesystem::path> candidates;
  if (const char* dir = getenv("OVS_PKGDATADIR")) candidates.emplace_back(dir);
  candidates.push_back(std::filesystem::path(ovsdbTool).parent_path() / "../share/openvswitch");
  candidates.emplace_back("/usr/share/openvswitch");
  for (const auto& dir : candidates) {
    auto schema = dir / "vswitch.ovsschema";
    std::error_code ec;
    if (std::filesystem::is_regular_file(schema, ec)) return schema.string();
  }
  return {};
}

std::string hex(std::span<const std::uint8_t> bytes) {
  static constexpr char kDigits[] = "0123456789abcdef";
  std::string text;
  text.reserve(bytes.size() * 2);
  for (std::uint8_t byte : bytes) {
    text += kDigits[byte >> 4];
    text += kDigits[byte & 0xf];
  }
  return text;
}

}  // namespace

Instance::Instance(Options options) : options_(std::move(options)) {
  try {
    start();
  } catch (...) {
    stop();
    throw;
  }
}

Instance::~Instance() { stop(); }

std::string Instance::program(const char* name) const {
  std::string searchPath = options_.searchPath;
  if (searchPath.empty()) {
    const char* path = getenv("PATH");
    searchPath = std::string(path ? path : "") + ":" + kSystemPath;
  }
  std::string found = findProgram(name, searchPath);
  if (found.empty()) {
    throw Error(std::string("Open vSwitch cannot start: ") + name + " is not installed (not in " +
                searchPath + "); install the package openvswitch-switch");
  }
  return found;
}

std::string Instance::capturePath(const std::string& port) const {
  return dir_ + "/" + port + ".pcap";
}

std::vector<std::string> Instance::environment() const {
  std::vector<std::string> env;
  for (char** entry = environ; *entry; ++entry) {
    if (std::string_view(*entry).starts_with("OVS_")) continue;
    env.emplace_back(*entry);
  }
  for (const char* name : {"OVS_RUNDIR", "OVS_DBDIR", "OVS_LOGDIR", "OVS_SYSCONFDIR"}) {
    env.push_back(std::string(name) + "=" + dir_);
  }
  return env;
}

std::string Instance::run(const std::string& programPath,
                          const std::vector<std::string>& args) const {
  CommandResult result = runCommand(programPath, args, environment(), options_.timeout);
  if (result.status != 0) {
    std::string command = programPath;
    for (const auto& arg : args) command += " " + arg;
    throw Error("Open vSwitch command failed: " + command + "\n" + result.output);
  }
  return result.output;
}

void Instance::start() {
  ovsdbTool_ = program("ovsdb-tool");
  ovsdbServer_ = program("ovsdb-server");
  vswitchdProgram_ = program("ovs-vswitchd");
  vsctl_ = program("ovs-vsctl");
  ofctl_ = program("ovs-ofctl");
  appctl_ = program("ovs-appctl");
  std::string schema = schemaPath(ovsdbTool_);
  if (schema.empty()) {
    throw Error("Open vSwitch cannot start: the database schema vswitch.ovsschema is missing");
  }

  std::string parent = options_.parentDirectory.empty()
                           ? std::filesystem::temp_directory_path().string()
                           : options_.parentDirectory;
  std::string base = parent + "/umonat-ovs.XXXXXX";
  if (!mkdtemp(base.data())) {
    throw Error("Open vSwitch cannot start: cannot create a temporary directory " + base);
  }
  dir_ = base;

  run(ovsdbTool_, {"create", dir_ + "/conf.db", schema});
  startDaemon(ovsdb_, "ovsdb-server",
              {dir_ + "/conf.db", "--remote=punix:" + dir_ + "/db.sock",
               "--unixctl=" + dir_ + "/ovsdb-server.ctl", "--pidfile=" + dir_ + "/ovsdb-server.pid",
               "--log-file=" + dir_ + "/ovsdb-server.log", "-vconsole:off", "--no-chdir"});
  startDaemon(vswitchd_, "ovs-vswitchd",
              {"unix:" + dir_ + "/db.sock", "--enable-dummy=override", "--disable-system",
               "--unixctl=" + dir_ + "/ovs-vswitchd.ctl", "--pidfile=" + dir_ + "/ovs-vswitchd.pid",
               "--log-file=" + dir_ + "/ovs-vswitchd.log", "-vconsole:off", "--no-chdir"});

  const std::string& br = options_.bridge;
  std::vector<std::string> args{"add-br",
                                br,
                                "--",
                                "set",
                                "bridge",
                                br,
                                "datapath_type=dummy",
                                "protocols=OpenFlow13,OpenFlow14,OpenFlow15"};
  appendAddPorts(options_.ports, args);
  vsctl(args);
}

void Instance::appendAddPorts(const std::vector<Port>& ports,
                              std::vector<std::string>& args) const {
  const std::string& br = options_.bridge;
  for (const Port& port : ports) {
    for (std::string arg :
         {std::string("--"), std::string("add-port"), br, port.name, std::string("--"),
          std::string("set"), std::string("interface"), port.name, std::string("type=dummy"),
          "ofport_request=" + std::to_string(port.ofport),
          "options:tx_pcap=" + capturePath(port.name)}) {
      args.push_back(std::move(arg));
    }
  }
}

void Instance::addPorts(const std::vector<Port>& ports) {
  if (ports.empty()) return;
  std::vector<std::string> args;
  appendAddPorts(ports, args);
  args.erase(args.begin());  // the leading "--"
  vsctl(args);
  options_.ports.insert(options_.ports.end(), ports.begin(), ports.end());
}

std::string Instance::bundle(const std::string& mods) const {
  const std::string path = dir_ + "/bundle.txt";
  {
    std::ofstream file(path, std::ios::trunc);
    file << mods;
    if (!file.flush()) throw Error("cannot write the bundle file " + path);
  }
  return run(ofctl_, {"-O", "OpenFlow15", "bundle",
                      "unix:" + dir_ + "/" + options_.bridge + ".mgmt", path});
}

void Instance::startDaemon(Child& child, const char* name, const std::vector<std::string>& args) {
  std::string logs = dir_ + "/" + name;
  std::string path = name == std::string("ovsdb-server") ? ovsdbServer_ : vswitchdProgram_;
  child = Child::spawn(path, args, environment(), logs + ".out");
  // The daemon is ready once its control socket exists.
  auto deadline = Clock::now() + options_.timeout;
  std::error_code ec;
  while (!std::filesystem::exists(logs + ".ctl", ec)) {
    if (!child.running()) {
      throw Error(std::string("Open vSwitch cannot start: ") + name + " exited at start; its log:" +
                  lastLines(logs + ".log", 8) + lastLines(logs + ".out", 8));
    }
    if (Clock::now() >= deadline) {
      throw Error(std::string("Open vSwitch cannot start: ") + name + " was not ready within " +
                  std::to_string(options_.timeout.count()) +
                  " ms; its log:" + lastLines(logs + ".log", 8) + lastLines(logs + ".out", 8));
    }
    std::this_thread::sleep_for(kPollInterval);
  }
}

void Instance::stop() noexcept {
  auto grace = std::min(options_.timeout, std::chrono::milliseconds(3000));
  auto exitDaemon = [&](Child& child, const std::string& control) {
    if (!child.running()) return;
    try {
      runCommand(appctl_, {"-t", control, "exit"}, environment(), grace);
    } catch (const Error&) {
      // Not answering: the signal below stops it.
    }
    child.stop(SIGTERM, grace);
  };
  exitDaemon(vswitchd_, dir_ + "/ovs-vswitchd.ctl");
  exitDaemon(ovsdb_, dir_ + "/ovsdb-server.ctl");
  if (!dir_.empty()) {
    std::error_code ec;
    std::filesystem::remove_all(dir_, ec);
  }
}

std::string Instance::ofctl(const std::string& command,
                            const std::vector<std::string>& args) const {
  std::vector<std::string> all{"-O", "OpenFlow13", command,
                               "unix:" + dir_ + "/" + options_.bridge + ".mgmt"};
  all.insert(all.end(), args.begin(), args.end());
  return run(ofctl_, all);
}

std::string Instance::appctl(const std::vector<std::string>& args) const {
  std::vector<std::string> all{
      "-t", dir_ + "/ovs-vswitchd.ctl",
      "--timeout=" + std::to_string((options_.timeout.count() + 999) / 1000)};
  all.insert(all.end(), args.begin(), args.end());
  return run(appctl_, all);
}

std::string Instance::vsctl(const std::vector<std::string>& args) const {
  std::vector<std::string> all{
      "--db=unix:" + dir_ + "/db.sock",
      "--timeout=" + std::to_string((options_.timeout.count() + 999) / 1000)};
  all.insert(all.end(), args.begin(), args.end());
  return run(vsctl_, all);
}

void Instance::inject(const std::string& port, std::span<const std::uint8_t> frame) const {
  appctl({"netdev-dummy/receive", port, hex(frame)});
}

std::vector<Frame> Instance::transmitted(const std::string& port) const {
  return readPcap(capturePath(port));
}

std::vector<Frame> Instance::awaitTransmitted(const std::string& port, std::size_t count) const {
  auto deadline = Clock::now() + options_.timeout;
  for (;;) {
    std::vector<Frame> frames = transmitted(port);
    if (frames.size() >= count) return frames;
    if (Clock::now() >= deadline) {
      throw Error("port " + port + " transmitted " + std::to_string(frames.size()) +
                  " frames, not " + std::to_string(count) + ", within " +
                  std::to_string(options_.timeout.count()) + " ms");
    }
    std::this_thread::sleep_for(kPollInterval);
  }
}

}  // namespace Ovs
