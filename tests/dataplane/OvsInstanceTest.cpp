#include "Instance.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <stdlib.h>

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

constexpr std::size_t kEthernetHeader = 14;
constexpr std::size_t kVlanTag = 4;

std::uint16_t at16(const Bytes& b, std::size_t at) {
  return static_cast<std::uint16_t>(b[at] << 8 | b[at + 1]);
}

// The ones' complement sum of `b[begin, end)` folded to 16 bits, added to `sum`.
std::uint32_t addWords(const Bytes& b, std::size_t begin, std::size_t end, std::uint32_t sum) {
  for (std::size_t i = begin; i < end; i += 2) {
    sum += static_cast<std::uint32_t>(b[i] << 8 | (i + 1 < end ? b[i + 1] : 0));
  }
  while (sum >> 16) sum = (sum & 0xffff) + (sum >> 16);
  return sum;
}

// True when the IPv4 header at `ip` and the UDP datagram after it carry valid checksums.
bool ipv4Valid(const Bytes& f, std::size_t ip) { return addWords(f, ip, ip + 20, 0) == 0xffff; }
bool udpValid(const Bytes& f, std::size_t ip) {
  std::size_t udp = ip + 20;
  std::uint16_t length = at16(f, udp + 4);
  std::uint32_t pseudo = addWords(f, ip + 12, ip + 20, 17 + length);
  return at16(f, udp + 6) != 0 && addWords(f, udp, udp + length, pseudo) == 0xffff;
}

// An Ethernet frame carrying UDP/IPv4 from 10.1.1.1:1234 to the group 239.1.1.1:5000, with valid
// checksums.
Bytes multicastUdpFrame() {
  Bytes payload{'u', 'm', 'o', 'n', 'a', 't'};
  Bytes f{0x01, 0x00, 0x5e, 0x01, 0x01, 0x01, 0x02, 0x00, 0x00, 0x00, 0x00, 0x01, 0x08, 0x00};
  std::uint16_t udpLength = static_cast<std::uint16_t>(8 + payload.size());
  std::uint16_t ipLength = static_cast<std::uint16_t>(20 + udpLength);
  Bytes ip{0x45,
           0,
           static_cast<std::uint8_t>(ipLength >> 8),
           static_cast<std::uint8_t>(ipLength),
           0,
           0,
           0x40,
           0,
           64,
           17,
           0,
           0,
           10,
           1,
           1,
           1,
           239,
           1,
           1,
           1};
  Bytes udp{0x04,
            0xd2,
            0x13,
            0x88,
            static_cast<std::uint8_t>(udpLength >> 8),
            static_cast<std::uint8_t>(udpLength),
            0,
            0};
  f.insert(f.end(), ip.begin(), ip.end());
  f.insert(f.end(), udp.begin(), udp.end());
  f.insert(f.end(), payload.begin(), payload.end());
  std::size_t ipAt = kEthernetHeader;
  std::uint16_t ipSum = static_cast<std::uint16_t>(~addWords(f, ipAt, ipAt + 20, 0));
  f[ipAt + 10] = static_cast<std::uint8_t>(ipSum >> 8);
  f[ipAt + 11] = static_cast<std::uint8_t>(ipSum);
  std::uint32_t pseudo = addWords(f, ipAt + 12, ipAt + 20, 17 + udpLength);
  std::uint16_t udpSum =
      static_cast<std::uint16_t>(~addWords(f, ipAt + 20, ipAt + 20 + udpLength, pseudo));
  f[ipAt + 26] = static_cast<std::uint8_t>(udpSum >> 8);
  f[ipAt + 27] = static_cast<std::uint8_t>(udpSum);
  return f;
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

  const Bytes& f = tagged[0];
  ASSERT_EQ(f.size(), sent.size() + kVlanTag);
  EXPECT_EQ(Bytes(f.begin(), f.begin() + 12), Bytes(sent.begin(), sent.begin() + 12));
  EXPECT_EQ(at16(f, 12), 0x8100);
  EXPECT_EQ(at16(f, 14) & 0x0fff, 100);
  EXPECT_EQ(at16(f, 16), 0x0800);
  std::size_t ip = kEthernetHeader + kVlanTag;
  EXPECT_EQ(Bytes(f.begin() + ip + 12, f.begin() + ip + 16), (Bytes{10, 1, 1, 1}));
  EXPECT_EQ(Bytes(f.begin() + ip + 16, f.begin() + ip + 20), (Bytes{10, 9, 9, 9}));
  EXPECT_TRUE(ipv4Valid(f, ip));
  EXPECT_TRUE(udpValid(f, ip));
  EXPECT_EQ(Bytes(f.end() - 6, f.end()), (Bytes{'u', 'm', 'o', 'n', 'a', 't'}));

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
