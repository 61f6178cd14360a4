// Random histories run with a private Open vSwitch behind the chip: after every few lines the same
// packets go through the chip's model and through the switch as real frames, and the copies that
// leave must be the same. The histories change every input the system follows, so the switch's
// tables go through many reprogrammings, each pushed as the difference from the last, and what
// the bridge holds must always be what a full rendering of the helper's tables says.

#include <gtest/gtest.h>

#include <iostream>
#include <random>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "sim/Forwarding.h"
#include "sim/HistoryGenerator.h"
#include "sim/Interpreter.h"

namespace {

constexpr int kHistories = 4;
constexpr int kLines = 240;
constexpr int kSendEvery = 15;
constexpr int kPacketsPerLook = 8;

std::string describe(const std::vector<Sim::Copy>& copies) {
  std::ostringstream os;
  for (const Sim::Copy& copy : copies) {
    Sim::printCopy(os, copy);
    os << "\n";
  }
  return copies.empty() ? "nothing\n" : os.str();
}

template <std::size_t N>
const char* oneOf(std::mt19937& rng, const char* const (&words)[N]) {
  return words[rng() % N];
}

// A random change that keeps the switch of the generator's setup programmable: flows, actions
// with and without translations, next hops over ports and VLAN interfaces, learned hosts, port
// states, and the clock, which runs the backlog.
std::string randomLine(std::mt19937& rng, unsigned& version) {
  static const char* const kPolicies[] = {"P", "Q"};
  static const char* const kMatches[] = {"m1", "m2", "m3"};
  static const char* const kActions[] = {"a1", "a2"};
  static const char* const kSources[] = {"10.1.0.0/16:0", "0.0.0.0/0:0", "10.1.1.1/32:1234",
                                         "10.1.7.0/24:4000"};
  static const char* const kDestinations[] = {"239.1.1.1/32:5000", "224.0.0.0/4:0",
                                              "10.9.9.9/32:80",    "0.0.0.0/0:0",
                                              "239.1.0.0/16:0",    "10.8.0.0/16:53"};
  static const char* const kSrcNat[] = {"", " src 10.200.0.1", " src 10.200.0.2:7000",
                                        " src 0.0.0.0"};
  static const char* const kDstNat[] = {"", " dst 239.100.1.1:6000", " dst 239.100.1.2",
                                        " dst 10.0.20.30:7000", " dst 0.0.0.0"};
  static const char* const kIntfs[] = {"Ethernet1", "Ethernet2", "Ethernet3", "Ethernet4",
                                       "Ethernet5", "Vlan10",    "Vlan20",    "Vlan30"};
  static const char* const kVlans[] = {"10", "20", "30"};
  static const char* const kMacs[] = {"02:00:00:00:0a:14", "02:00:00:00:14:1e",
                                      "02:00:00:00:1e:28"};
  static const char* const kStates[] = {"forwarding", "forwarding", "blocking"};
  // Each word is drawn in its own statement, so that the history is the same whatever order a
  // compiler evaluates operands in.
  std::string line;
  const auto add = [&line](std::string_view word) { line += word; };
  const std::uint32_t kind = rng() % 10;
  if (kind == 9) return "advance 0.2";
  if (kind == 7) {
    add("fdb ");
    add(oneOf(rng, kVlans));
    add(" host ");
    add(oneOf(rng, kMacs));
    add(" intf ");
    add(kIntfs[rng() % 5]);
    return line;
  }
  if (kind == 8) {
    add("topology T port ");
    add(kIntfs[rng() % 5]);
    add(" state ");
    add(oneOf(rng, kStates));
    return line;
  }
  add(kind == 0 ? "match " : kind <= 2 ? "action " : "nexthop ");
  add(oneOf(rng, kPolicies));
  add(" ");
  add(oneOf(rng, kMatches));
  add(" ");
  if (kind == 0) {
    add("flow src ");
    add(oneOf(rng, kSources));
    add(" dst ");
    add(oneOf(rng, kDestinations));
    return line;
  }
  add(oneOf(rng, kActions));
  if (kind <= 2) {
    add(oneOf(rng, kSrcNat));
    add(oneOf(rng, kDstNat));
    add(" version " + std::to_string(++version));
    return line;
  }
  add(" ");
  add(oneOf(rng, kIntfs));
  if (kind == 6) {
    add(" delete");
    return line;
  }
  add(" vlan ");
  add(oneOf(rng, kVlans));
  add(" mac ");
  add(oneOf(rng, kMacs));
  return line;
}

// A packet near those flows: sources and destinations inside and just outside them, multicast
// and unicast, on any port, tagged or not.
Sim::Packet randomPacket(std::mt19937& rng) {
  // The stream most flows take comes up most often.
  static const char* const kSources[] = {"10.1.1.1:1234", "10.1.7.7:4000", "10.2.0.1:4000",
                                         "10.1.1.1:999", "10.200.0.1:1234"};
  static const char* const kDestinations[] = {"239.1.1.1:5000", "239.1.1.1:5000", "239.1.1.1:5000",
                                              "239.1.1.1:5001", "10.9.9.9:80",    "224.5.5.5:5000",
                                              "10.8.8.8:53",    "239.1.9.9:5000", "10.5.5.5:6000"};
  static const std::uint16_t kVlans[] = {0, 10, 20, 30};
  Sim::Packet packet;
  packet.intf = Nexo::IntfId(Pelo::String("Ethernet" + std::to_string(1 + rng() % 5)));
  packet.vlan = kVlans[rng() % 4];
  packet.src = Nexo::IpAndPort(oneOf(rng, kSources));
  packet.dst = Nexo::IpAndPort(oneOf(rng, kDestinations));  // each drawn in its own statement
  return packet;
}

TEST(OvsDifferentialTest, RandomHistoriesForwardTheSameCopiesOnBothDataplanes) {
  int compared = 0;
  int withCopies = 0;
  for (int seed = 1; seed <= kHistories; ++seed) {
    std::mt19937 rng(static_cast<std::uint32_t>(seed));
    Sim::HistoryGenerator generator([&rng](std::uint32_t bound) {
      return bound == 0 ? 0 : static_cast<std::uint32_t>(rng() % bound);
    });
    std::ostringstream transcript;
    Sim::Interpreter interpreter(transcript, transcript, /*echo=*/true,
                                 Sim::Interpreter::Dataplane::ovs);
    std::size_t number = 0;
    for (const std::string& line : generator.setup()) {
      ASSERT_NE(interpreter.runLine(line, "setup", ++number), Sim::Interpreter::Outcome::error)
          << transcript.str();
    }
    unsigned version = 0;
    for (int i = 1; i <= kLines; ++i) {
      // A line the simulator refuses changes nothing; the dataplane must never fail.
      interpreter.runLine(randomLine(rng, version), "history", ++number);
      ASSERT_EQ(transcript.str().find("the dataplane"), std::string::npos) << transcript.str();
      if (i % kSendEvery != 0) continue;
      // Syncs render only what changed; the bridge must hold what a full rendering says.
      ASSERT_TRUE(interpreter.ovs()->helper().bridgeState() == interpreter.ovs()->helper().render())
          << "seed " << seed << ", after line " << number;
      for (int k = 0; k < kPacketsPerLook; ++k) {
        const Sim::Packet packet = randomPacket(rng);
        const std::vector<Sim::Copy> model = interpreter.agent().chip().forward(packet).leaving();
        const Sim::OvsDataplane::Sent sent = interpreter.ovs()->send(packet);
        EXPECT_TRUE(sent.problems.empty()) << sent.problems.front();
        ASSERT_EQ(describe(model), describe(sent.copies))
            << "seed " << seed << ", after line " << number << ", packet in " << packet.intf
            << " vlan " << packet.vlan << " src " << packet.src << " dst " << packet.dst << "\n"
            << transcript.str() << [&] {
                 std::ostringstream os;
                 interpreter.agent().chip().printTables(os);
                 interpreter.ovs()->print(os);
                 return os.str();
               }();
        ++compared;
        withCopies += model.empty() ? 0 : 1;
      }
    }
    EXPECT_TRUE(interpreter.finish()) << transcript.str();
  }
  // The histories must reach programmed states, or the comparison proves little. (The draws do
  // not depend on the compiler: 512 packets, 155 of them with copies.)
  EXPECT_GT(withCopies, compared / 8) << withCopies << " of " << compared << " packets had copies";
  std::cout << compared << " packets compared, " << withCopies << " with copies\n";
}

}  // namespace
