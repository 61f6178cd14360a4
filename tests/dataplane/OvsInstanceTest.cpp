#include "Instance.h"
#include "UdpFrame.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <stdlib.h>

#include <array>
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

namespace {

using Bytes = std::vector<std::uint8_t>;
using Clock = std::chrono::steady_clock;

// A UDP/IPv4 frame from 10.1.1.1:1234 to the group 239.1.1.1:5000, with valid checksums.
Bytes multicastUdpFrame() {
  Ovs::UdpFrame f;
  f.dstMac = {0x01, 0x00, 0x5e, 0x01, 0x01, 0x01};
  f.srcMac = {0x02, 0x00, 0x00, 0x00, 0x00, 0x01};
  f.srcIp = 0x0a010101;
  f.dstIp = 0xef010101;
  f.srcPort = 1234;
  f.dstPort = 5000;
  f.payload = {'u', 'm', 'o', 'n', 'a', 't'};
  return Ovs::encode(f);
}

// Processes whose command line mentions `text`: the daemons of an instance name its directory.
std::vector<std::string> processesMentioning(const std::string& text) {
  std::vector<std::string> found;
  std::error_code ec;
  for (const auto& entry : std::filesystem::directory_iterator("/proc", ec)) {
    std::ifstream in(entry.path() / "cmdline", std::ios::binary);
    std::string cmdline((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    if (cmdline.find(text) != std::string::npos) found.push_back(entry.path().filename().string());
  }
  return found;
}

double millisecondsSince(Clock::time_point start) {
  return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

Ovs::Instance::Options threePorts() {
  Ovs::Instance::Options options;
  options.ports = {{"p1", 1}, {"p2", 2}, {"p3", 3}};
  return options;
}

// One life cycle: start, replicate a frame through a group of type all (one copy as it came, one
// tagged and re-addressed), then stop and check that nothing is left running or on disk.
TEST(OvsInstanceTest, ReplicatesRewritesAndLeavesNothingBehind) {
  auto start = Clock::now();
  auto ovs = std::make_unique<Ovs::Instance>(threePorts());
  std::cout << "start: " << millisecondsSince(start) << " ms\n";
  std::string dir = ovs->directory();
  pid_t server = ovs->ovsdbServerPid();
  pid_t vswitchd = ovs->vswitchdPid();

  ovs->ofctl("add-group", {"group_id=1,type=all,bucket=output:2,"
                           "bucket=push_vlan:0x8100,set_field:4196->vlan_vid,"
                           "set_field:10.9.9.9->ip_dst,output:3"});
  ovs->ofctl("add-flow", {"in_port=1,ip,actions=group:1"});
  Bytes sent = multicastUdpFrame();
  ovs->inject("p1", sent);

  std::vector<Ovs::Frame> plain = ovs->awaitTransmitted("p2", 1);
  std::vector<Ovs::Frame> tagged = ovs->awaitTransmitted("p3", 1);
  ASSERT_EQ(plain.size(), 1u);
  ASSERT_EQ(tagged.size(), 1u);
  EXPECT_EQ(plain[0], sent);
  EXPECT_TRUE(ovs->transmitted("p1").empty());

  // The switch recomputed the checksums after rewriting the destination.
  std::string problem;
  const Ovs::UdpFrame f = Ovs::decode(tagged[0], problem);
  EXPECT_EQ(problem, "");
  EXPECT_EQ(f.vlan, 100);
  EXPECT_EQ(f.dstMac, (std::array<std::uint8_t, 6>{0x01, 0x00, 0x5e, 0x01, 0x01, 0x01}));
  EXPECT_EQ(f.srcIp, 0x0a010101u);
  EXPECT_EQ(f.dstIp, 0x0a090909u);  // 10.9.9.9
  EXPECT_EQ(f.payload, (Bytes{'u', 'm', 'o', 'n', 'a', 't'}));

  auto stop = Clock::now();
  ovs.reset();
  std::cout << "stop: " << millisecondsSince(stop) << " ms\n";
  EXPECT_NE(kill(server, 0), 0);
  EXPECT_NE(kill(vswitchd, 0), 0);
  EXPECT_TRUE(processesMentioning(dir).empty());
  EXPECT_FALSE(std::filesystem::exists(dir));
}

// Without the programs, the constructor fails at once and names what is missing.
TEST(OvsInstanceTest, MissingProgramIsNamed) {
  auto options = threePorts();
  options.searchPath = "/nonexistent";
  try {
    Ovs::Instance ovs(options);
    FAIL() << "started without Open vSwitch";
  } catch (const Ovs::Error& e) {
    EXPECT_NE(std::string(e.what()).find("ovsdb-tool is not installed"), std::string::npos)
        << e.what();
    EXPECT_NE(std::string(e.what()).find("openvswitch-switch"), std::string::npos);
  }
}

// A switch daemon that cannot start, because it exits or because it never answers: the error
// names it and what it said, and nothing it or the database server started is left.
struct BrokenDaemon {
  const char* script;
  const char* error;
};

void PrintTo(const BrokenDaemon& daemon, std::ostream* os) { *os << daemon.error; }

class OvsStartFailureTest : public testing::TestWithParam<BrokenDaemon> {};

TEST_P(OvsStartFailureTest, IsNamedAndCleanedUp) {
  auto bin =
      std::filesystem::temp_directory_path() / ("umonat-ovs-test." + std::to_string(getpid()));
  std::filesystem::create_directories(bin);
  for (const char* name : {"ovsdb-tool", "ovsdb-server", "ovs-vsctl", "ovs-ofctl", "ovs-appctl"}) {
    std::string real = Ovs::findProgram(name, "/usr/sbin:/usr/bin:/sbin:/bin");
    ASSERT_FALSE(real.empty()) << name;
    std::filesystem::create_symlink(real, bin / name);
  }
  {
    std::ofstream fake(bin / "ovs-vswitchd");
    fake << "#!/bin/bash\n" << GetParam().script << "\n";
  }
  std::filesystem::permissions(bin / "ovs-vswitchd", std::filesystem::perms::owner_all);

  auto options = threePorts();
  options.searchPath = bin.string();
  options.parentDirectory = bin.string();
  options.timeout = std::chrono::milliseconds(500);
  std::string message;
  try {
    Ovs::Instance ovs(options);
  } catch (const Ovs::Error& e) {
    message = e.what();
  }
  EXPECT_NE(message.find(GetParam().error), std::string::npos) << message;
  EXPECT_NE(message.find("permission denied"), std::string::npos) << message;
  EXPECT_TRUE(processesMentioning(bin.string() + "/").empty());
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(bin), {}), 6);
  std::filesystem::remove_all(bin);
}

INSTANTIATE_TEST_SUITE_P(
    Daemons, OvsStartFailureTest,
    testing::Values(BrokenDaemon{"echo 'ovs-vswitchd: permission denied' >&2; exit 1",
                                 "ovs-vswitchd exited at start"},
                    BrokenDaemon{
                        "echo 'ovs-vswitchd: permission denied' >&2; exec -a \"$0\" sleep 60",
                        "ovs-vswitchd was not ready within 500 ms"}));

}  // namespace
