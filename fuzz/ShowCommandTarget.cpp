// Fuzz target: the show command's text over a populated hardware status tree.
//
// The tree comes from a small scenario run once per process through the simulator: policies with
// unicast, multicast and source-only actions, port sets on several VLANs and interfaces, a
// policy and a match without actions, actions without port sets, and names that are printf
// conversions or wider than their column. Each input is the text after the command's name;
// an input that names the command itself is the whole line, since the command answers any line
// that contains its name. The output goes to an in-memory file and must consist of lines of the
// full table: a filter can only leave rows out.

#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ostream>
#include <set>
#include <sstream>
#include <string>
#include <string_view>

#include "UmoNat/UmoNatFlowMcastSmCli.h"
#include "fuzz/DiscardBuffer.h"
#include "sim/Agent.h"
#include "sim/Interpreter.h"

namespace {

// Longer command texts are not run.
constexpr std::size_t kMaxCommandBytes = 4096;

constexpr std::string_view kTreeScenario = R"(
bridge-mac 00:1c:73:00:00:01
intf Ethernet1 mode access native 10
intf Ethernet2 mode access native 10
intf Ethernet3 mode trunk native 1
intf Ethernet4 mode access native 20
intf Ethernet10/1 mode trunk native 1
intf Port-Channel5 mode trunk native 1
vlan 10 member Ethernet1 Ethernet2 Ethernet3 Ethernet10/1 Port-Channel5
vlan 20 member Ethernet3 Ethernet4 Port-Channel5
vlan 30 member Ethernet10/1
topology MST0 port Ethernet1 state forwarding
topology MST0 port Ethernet2 state forwarding
topology MST0 port Ethernet3 state forwarding
topology MST0 port Ethernet4 state forwarding
topology MST0 port Ethernet10/1 state forwarding
topology MST0 port Port-Channel5 state forwarding
vlan-topology 10 MST0
vlan-topology 20 MST0
vlan-topology 30 MST0
ip Vlan10 addr 10.0.10.1/24 routing on
ip Vlan20 addr 10.0.20.1/24 routing on
l3 Vlan10 id 10
l3 Vlan20 id 20
fdb 10 host 02:00:00:00:0a:14 intf Ethernet1
fdb 20 host 02:00:00:00:14:01 intf Port-Channel5
policy video
match video news flow src 10.1.0.0/16:0 dst 239.1.1.1/32:5000
action video news mcast dst 239.100.1.1:5000 version 1
nexthop video news mcast Ethernet1 vlan 10 mac 01:00:5e:64:01:01
nexthop video news mcast Ethernet2 vlan 10 mac 01:00:5e:64:01:01
nexthop video news mcast Ethernet4 vlan 20 mac 01:00:5e:64:01:01
nexthop video news mcast Port-Channel5 vlan 20 mac 01:00:5e:64:01:02
action video news host dst 10.0.10.20:6000 version 1
nexthop video news host Vlan10 vlan 10 mac 02:00:00:00:0a:14
match video sports flow src 10.2.0.0/16:0 dst 0.0.0.0/0:0
action video sports relay src 10.200.0.1:0 version 1
nexthop video sports relay Ethernet3 vlan 20 mac 02:00:00:00:14:01
match video sports-empty flow src 10.3.0.0/16:0 dst 239.3.3.3/32:0
policy audio
match audio m1 flow src 10.4.0.0/24:1000 dst 239.4.4.4/32:5004
action audio m1 a1 src 10.44.0.9:1001 dst 239.44.4.4:5005 version 3
nexthop audio m1 a1 Ethernet10/1 vlan 30 mac 01:00:5e:2c:04:04
nexthop audio m1 a1 Ethernet3 vlan 10 mac 01:00:5e:2c:04:04
action audio m1 a0 dst 239.44.4.5:5005 version 0
action audio m1 unreachable dst 239.44.4.6:5005 version 2
nexthop audio m1 unreachable Ethernet9 vlan 10 mac 01:00:5e:2c:04:06
policy empty
policy %s%n%x-a-policy-name-wider-than-its-column
match %s%n%x-a-policy-name-wider-than-its-column %d flow src 10.5.0.0/16:0 dst 239.5.5.5/32:5000
action %s%n%x-a-policy-name-wider-than-its-column %d %p dst 239.55.5.5:5000 version 1
nexthop %s%n%x-a-policy-name-wider-than-its-column %d %p Port-Channel5 vlan 10 mac 01:00:5e:37:05:05
start
)";

[[noreturn]] void fail(const std::string& what) {
  std::fprintf(stderr, "fuzz: %s\n", what.c_str());
  std::fflush(stderr);
  std::abort();
}

// One simulation that has programmed the tree, and the show command over its hardware status.
// Built on the first input and kept for the life of the process.
class ShowCommandFixture {
 public:
  ShowCommandFixture() : out_(&discard_), interpreter_(out_, errors_, /*echo=*/false) {
    std::istringstream in{std::string(kTreeScenario)};
    if (interpreter_.runStream(in, "tree", /*keepGoing=*/false) != Sim::Interpreter::Outcome::ok) {
      fail("the tree scenario does not run: " + errors_.str());
    }
    callback_ = umoNatFlowMcastSmCliCallbackFactory(Sim::Agent::kShowCommandName,
                                                    Sim::Agent::kShowCommandHelp,
                                                    interpreter_.agent().hwStatus());
    fd_ = ::memfd_create("fuzz-show-command", MFD_CLOEXEC);
    if (fd_ < 0) fail("cannot make an in-memory file");
    std::istringstream table(show(Sim::Agent::kShowCommandName));
    for (std::string line; std::getline(table, line);) tableLines_.insert(line);
    // Three lines of header, then at least a row.
    if (tableLines_.size() < 4) fail("the tree scenario programs no row");
  }

  // What the show command writes for `line`.
  std::string show(const std::string& line) {
    if (::ftruncate(fd_, 0) != 0 || ::lseek(fd_, 0, SEEK_SET) != 0) fail("cannot reset the file");
    callback_->handleCommand(static_cast<std::uint32_t>(fd_), line);
    std::string written;
    char chunk[4096];
    for (ssize_t n; (n = ::pread(fd_, chunk, sizeof chunk, written.size())) > 0;) {
      written.append(chunk, n);
    }
    return written;
  }

  bool isTableLine(const std::string& line) const { return tableLines_.count(line) != 0; }

 private:
  Fuzz::DiscardBuffer discard_;
  std::ostream out_;
  std::ostringstream errors_;
  Sim::Interpreter interpreter_;
  Mox::Ptr<UmoNatFlowMcastSmCliCallback> callback_;
  int fd_ = -1;
  std::set<std::string> tableLines_;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size > kMaxCommandBytes) return 0;
  static ShowCommandFixture* const fixture = new ShowCommandFixture();
  const std::string input(reinterpret_cast<const char*>(data), size);
  const std::string line = input.find(Sim::Agent::kShowCommandName) != std::string::npos
                               ? input
                               : std::string(Sim::Agent::kShowCommandName) + " " + input;
  std::istringstream written(fixture->show(line));
  for (std::string row; std::getline(written, row);) {
    if (!fixture->isTableLine(row)) fail("a line the full table does not have: " + row);
  }
  return 0;
}
