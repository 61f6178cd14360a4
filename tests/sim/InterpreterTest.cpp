#include "sim/Interpreter.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "Mox/Assert.h"
#include "Mox/Trace.h"
#include "Pelo/Publisher.h"
#include "sim/Printers.h"

namespace {

using testing::HasSubstr;
using testing::StartsWith;
using Outcome = Sim::Interpreter::Outcome;

// State that every bad line below could partly change if it were applied before it is checked.
const std::vector<std::string> kBase = {
    "policy P",
    "match P M flow src 10.1.0.0/16:0 dst 239.1.1.1/32:5000",
    "action P M A src 10.9.9.9:0 dst 239.9.9.9:5000 version 1",
    "nexthop P M A Ethernet1 vlan 10 mac 01:00:5e:09:09:09",
    // Zero MACs the platform publishes: physical next hops of a multicast flow, one of them typed
    // by its match's destination only.
    "nexthop P M A Ethernet2 vlan 10 mac 00:00:00:00:00:00",
    "action P M D src 10.8.8.8 version 1",
    "nexthop P M D Ethernet2 vlan 10 mac 00:00:00:00:00:00",
    "match P U flow src 10.2.0.0/16:0 dst 10.2.2.2/32:80",
    "action P U A dst 10.5.5.5:6000 version 1",
    "nexthop P U A Ethernet1 vlan 10 mac 02:00:00:00:00:05",
    "intf Ethernet1 mode access native 10",
    "vlan 10 member Ethernet1 Ethernet2",
    "topology T port Ethernet1 state forwarding",
    "fdb 10 host 02:00:00:00:00:01 intf Ethernet1",
    "ip Vlan10 addr 10.0.10.1/24 routing on",
    "l3 Ethernet6 id 5000",
    "chip groups 4",
    "start",
};

class InterpreterTest : public testing::Test {
 protected:
  Outcome run(const std::string& line) { return sim.runLine(line, "t.scn", ++lines); }
  void runAll(const std::vector<std::string>& script) {
    for (const std::string& line : script) ASSERT_EQ(run(line), Outcome::ok) << err.str();
  }
  // Everything a line can change: the inputs, the system's output, the chip and the trace levels.
  std::string state() {
    std::ostringstream os;
    Sim::printInputs(os, sim.agent());
    Sim::printHwStatus(os, *sim.agent().hwStatus());
    sim.agent().chip().printTables(os);
    os << sim.agent().started() << " " << Mox::traceLevels() << "\n";
    return os.str();
  }

  std::ostringstream out;
  std::ostringstream err;
  Sim::Interpreter sim{out, err};
  std::size_t lines = 0;
};

class BadLineTest : public InterpreterTest, public testing::WithParamInterface<const char*> {};

TEST_P(BadLineTest, ReportsOneErrorWithItsLineAndChangesNothing) {
  runAll(kBase);
  run("trace UmoNat*/1");
  const std::string before = state();
  err.str("");
  EXPECT_EQ(run(GetParam()), Outcome::error);
  EXPECT_EQ(state(), before);
  EXPECT_THAT(err.str(), StartsWith("t.scn:" + std::to_string(lines) + ": error: "));
  EXPECT_EQ(sim.errors(), 1u);
}

INSTANTIATE_TEST_SUITE_P(
    Lines, BadLineTest,
    testing::Values("action P M A src 10.8.8.8:0 dst 239.1.1.1:70000",
                    "action P M A version 2 colour red", "action P M A src 10.8.8.8 src 10.7.7.7",
                    "match P M flow src 10.2.0.0/16:0 dst 239.1.1.1/33:5000",
                    "match P N flow src 10.2.0.0/16:0", "nexthop P M A Ethernet2 vlan 10 mac zz",
                    "nexthop P M B Ethernet2 vlan 10 mac 02:00:00:00:00:02",
                    "vlan 20 member Ethernet5 Ethernet5", "vlan 10 remove Ethernet1 Ethernet9",
                    "vlan 4095 member Ethernet1", "intf Ethernet1 mode trunk native 4096",
                    "intf Ethernet1 mode trunk speed 10", "topology T port Ethernet2 state melting",
                    "topology U port Ethernet2 delete", "fdb 10 host 02:00:00:00:00:01 intf",
                    "fdb 10 host 01:00:5e:00:00:01 intf Ethernet2",
                    "ip Vlan10 addr 10.0.0.2/24 routing maybe", "l3 Ethernet7 id 5000",
                    "l3 Ethernet7 id 100", "vlan-topology 10 U", "chip groups 5 6",
                    "chip fail unicast maybe", "trace SimChip/1 Foo/x", "start", "start now",
                    "show table P extra", "advance 1.5s", "policy", "polcy P",
                    // States the platform never publishes: a zero MAC on a physical next hop
                    // of a unicast flow, made by each line that can make one, and a complete
                    // action back at version 0.
                    "nexthop P U A Ethernet2 vlan 10 mac 00:00:00:00:00:00",
                    "action P M A dst 10.9.9.9:80",
                    "match P M flow src 10.1.0.0/16:0 dst 10.1.1.1/32:5000",
                    "action P M A version 0", "action P M A src 10.7.7.7 version 0",
                    // Packets come in on a port the switch has, with well-formed addresses, in a
                    // VLAN that carries traffic.
                    "send Ethernet9 src 10.1.1.1 dst 239.1.1.1:5000",
                    "send Vlan10 src 10.1.1.1 dst 239.1.1.1:5000",
                    "send Ethernet1 src 10.1.1 dst 239.1.1.1:5000",
                    "send Ethernet1 src 10.1.1.1 dst 239.1.1.1:70000",
                    "send Ethernet1 vlan 4095 src 10.1.1.1 dst 239.1.1.1:5000",
                    "send Ethernet1 vlan 0 src 10.1.1.1 dst 239.1.1.1:5000",
                    "send Ethernet1 dst 239.1.1.1:5000 src 10.1.1.1"));

TEST_F(InterpreterTest, SendTakesEveryKindOfPortAndChangesNothing) {
  runAll(kBase);
  const std::string before = state();
  // A switchport in its native VLAN, a VLAN member that is no switchport, an untagged routed port.
  runAll({"send Ethernet1 src 10.1.1.1:4000 dst 239.1.1.1:5000",
          "send Ethernet2 vlan 10 src 10.1.1.1:4000 dst 239.1.1.1:5000",
          "send Ethernet6 src 10.1.1.1:4000 dst 239.1.1.1:5000"});
  EXPECT_EQ(state(), before);
  EXPECT_THAT(out.str(), HasSubstr("in Ethernet1  vlan 10  src 10.1.1.1:4000"));
  EXPECT_THAT(out.str(), HasSubstr("in Ethernet6  untagged  src 10.1.1.1:4000"));
}

TEST_F(InterpreterTest, ZeroMacNextHopWaitsForTheVersionAfterALastPassAsUnicast) {
  runAll(kBase);
  // The destination turns multicast without a new version: topology updates still reprogram the
  // action as the unicast flow of its last pass.
  runAll({"action P U A dst 239.5.5.5:5000"});
  EXPECT_EQ(run("nexthop P U A Ethernet2 vlan 10 mac 00:00:00:00:00:00"), Outcome::error);
  EXPECT_THAT(err.str(), HasSubstr("the system last programmed the action as a unicast flow"));
  runAll({"action P U A version 2", "nexthop P U A Ethernet2 vlan 10 mac 00:00:00:00:00:00"});

  // An action that has not been through a pass records only a default, which does not count.
  runAll({"action P U B dst 10.6.6.6:6000", "action P U B dst 239.6.6.6:5000",
          "nexthop P U B Ethernet2 vlan 10 mac 00:00:00:00:00:00", "action P U B version 1"});
  EXPECT_EQ(sim.errors(), 1u);
}

class ShowInputsTest : public testing::TestWithParam<std::vector<std::string>> {};

// Builds inputs with `script`, then runs what 'show inputs' prints in a fresh simulation: it must
// run without an error and print the same again.
TEST_P(ShowInputsTest, PrintsLinesThatRebuildTheSameInputs) {
  std::string printed;
  {
    std::ostringstream out;
    Sim::Interpreter first(out, out, /*echo=*/false);
    for (const std::string& line : GetParam()) first.runLine(line, "a.scn", 1);
    ASSERT_EQ(first.errors(), 0u) << out.str();
    std::ostringstream os;
    Sim::printInputs(os, first.agent());
    printed = os.str();
  }
  std::ostringstream out;
  Sim::Interpreter second(out, out, /*echo=*/false);
  std::istringstream in(printed);
  EXPECT_EQ(second.runStream(in, "printed", false), Outcome::ok) << out.str() << printed;
  std::ostringstream os;
  Sim::printInputs(os, second.agent());
  EXPECT_EQ(os.str(), printed);
}

std::vector<std::string> withBase(const std::vector<std::string>& more) {
  std::vector<std::string> script = kBase;
  script.insert(script.end(), more.begin(), more.end());
  return script;
}

INSTANTIATE_TEST_SUITE_P(
    States, ShowInputsTest,
    testing::Values(
        std::vector<std::string>{},
        withBase({"topology T delete", "intf Ethernet2 mode monitorDestination native 4095",
                  "ip Ethernet6 addr 192.168.1.1/31", "action P M C version 0",
                  "nexthop P M C Vlan10 vlan 0 mac 00:00:00:00:00:00",
                  "bridge-mac 02:1c:00:00:00:01"}),
        // VLANs following deleted topologies, two of them named as the topology that exists.
        std::vector<std::string>{
            "topology T port Ethernet1 state forwarding", "vlan-topology 10 T",
            "vlan-topology 11 T", "topology T delete", "topology T port Ethernet2 state blocking",
            "vlan-topology 12 T", "topology T delete", "topology U", "vlan-topology 9 U",
            "topology U delete", "topology T", "vlan-topology 13 T", "vlan-topology 14 T"}));

TEST_F(InterpreterTest, BatchStopsAtTheFirstErrorUnlessToldToGoOn) {
  std::istringstream stops("policy A\nvlan 0\npolicy B\n");
  EXPECT_EQ(sim.runStream(stops, "s.scn", false), Outcome::error);
  EXPECT_TRUE(sim.agent().natStatus()->natFlow("A"));
  EXPECT_FALSE(sim.agent().natStatus()->natFlow("B"));
  EXPECT_THAT(err.str(), HasSubstr("s.scn:2: error: expected a VLAN id 1..4094, got '0'"));

  std::istringstream goesOn("vlan 0\npolicy B\nquit\npolicy C\n");
  EXPECT_EQ(sim.runStream(goesOn, "g.scn", true), Outcome::error);
  EXPECT_TRUE(sim.agent().natStatus()->natFlow("B"));
  EXPECT_FALSE(sim.agent().natStatus()->natFlow("C"));
}

TEST_F(InterpreterTest, EchoesCommandsAndCommentsIntoATranscript) {
  runAll({"# set up", "", "policy P  # inline", "time"});
  EXPECT_EQ(out.str(), "# set up\n\n> policy P  # inline\n> time\ntime 0 s\n");
}

TEST_F(InterpreterTest, FinishTearsDownAndPassesWhenTheChipSawNoMisuse) {
  runAll(kBase);
  EXPECT_FALSE(sim.agent().chip().empty());
  EXPECT_TRUE(sim.finish());
  EXPECT_FALSE(sim.agent().started());
  EXPECT_TRUE(sim.agent().chip().empty());
  EXPECT_TRUE(sim.agent().hwStatus()->natFlow().empty());
}

TEST_F(InterpreterTest, FinishFailsOnMisuseOfTheChip) {
  sim.agent().chip().deleteNatFlowGroup("P", "M", 3);
  EXPECT_FALSE(sim.finish());
  EXPECT_THAT(err.str(), HasSubstr("the chip refused 1 call(s)"));
  EXPECT_THAT(err.str(), HasSubstr("#1 deleteNatFlowGroup(P, M, group=3)  REFUSED"));
}

// The system's hardware status filled by hand: what actions will program once they exist.
void programPortSet(Sim::Agent& agent, const char* policy, std::size_t intfs) {
  auto action = agent.hwStatus()->natFlowIs(policy)->matchIs("M")->actionIs("A");
  auto portSets = Ip::Nat::natFlowVlanPortSetsFactory();
  auto ps = portSets->mcastPortSetIs(10);
  for (std::size_t i = 1; i <= intfs; ++i) {
    ps->intfIs(Nexo::IntfId("Ethernet" + std::to_string(i)));
  }
  action->vlanPortSetsIs(portSets);
}

TEST_F(InterpreterTest, ShowTableCopiesThePipeInOrderWithTraceLines) {
  runAll({"start", "trace UmoNatFlowMcastSmCli/8"});
  programPortSet(sim.agent(), "P1", 1);
  programPortSet(sim.agent(), "P2", 1);
  out.str("");
  ASSERT_EQ(run("show table"), Outcome::ok) << err.str();
  const std::string text = out.str();
  const auto row1 = text.find("\nP1 ");
  const auto trace2 = text.find(
      "trace UmoNatFlowMcastSmCli/8 "
      "UmoNatFlowMcastSmCliCallback::showMcastNatFlowActionHw, policy: P2");
  const auto row2 = text.find("\nP2 ");
  ASSERT_NE(row1, std::string::npos) << text;
  ASSERT_NE(row2, std::string::npos) << text;
  EXPECT_LT(row1, trace2);
  EXPECT_LT(trace2, row2);
}

TEST_F(InterpreterTest, ShowTableCopiesOutputLongerThanThePipeWhole) {
  run("start");
  programPortSet(sim.agent(), "P", 20000);
  out.str("");
  ASSERT_EQ(run("show table"), Outcome::ok) << err.str();
  const std::string text = out.str();
  // One row per interface, each starting with the policy name.
  std::size_t rows = 0;
  for (std::size_t at = text.find("\nP "); at != std::string::npos;
       at = text.find("\nP ", at + 1)) {
    ++rows;
  }
  EXPECT_EQ(rows, 20000u);
  EXPECT_THAT(text, HasSubstr(" Et20000 "));
}

// Subscribes to an input and fails an assertion on its first change.
class AssertingSubscriber : public Pelo::Subscriber {
 public:
  void handleChange(const Pelo::Publisher&, Pelo::AttrId, const Pelo::Key&) override {
    ++changes;
    MOX_ASSERT(changes == 0);
  }
  int changes = 0;
};

TEST(InterpreterDeathTest, FailedAssertionNamesTheScenarioLine) {
  const auto dies = [] {
    std::ostringstream out;
    Sim::Interpreter sim(out, out);
    sim.runLine("start", "tour.scn", 6);
    AssertingSubscriber subscriber;
    sim.agent().natStatus()->subscriberAdd(&subscriber);
    sim.runLine("policy P  # the seventh line", "tour.scn", 7);
  };
  EXPECT_DEATH(dies(), HasSubstr("assertion failed: changes == 0 (" __FILE__));
  EXPECT_DEATH(dies(), HasSubstr("\n  context: scenario tour.scn:7: policy P  # the seventh line\n"
                                 "  skimtrace: "));
}

TEST(InterpreterDeathTest, FullPortSetTableIsNamedWhenTheSystemStopsOnPsId) {
  const auto dies = [] {
    std::ostringstream out;
    Sim::Interpreter sim(out, out);
    std::istringstream in(
        "chip port-sets 0\n"
        "intf Ethernet1 mode trunk native 10\n"
        "vlan 10 member Ethernet1\n"
        "topology T port Ethernet1 state forwarding\n"
        "vlan-topology 10 T\n"
        "l3 Vlan10 id 10\n"
        "ip Vlan10 addr 10.0.10.1/24 routing on\n"
        "policy P\n"
        "match P m flow src 10.1.0.0/16:0 dst 239.1.1.1/32:5000\n"
        "action P m a dst 239.9.1.1:5000 version 1\n"
        "nexthop P m a Ethernet1 vlan 10 mac 02:00:00:00:00:01\n"
        "start\n");
    sim.runStream(in, "full.scn", false);
  };
  EXPECT_DEATH(
      dies(),
      testing::AllOf(HasSubstr("assertion failed: psId ("),
                     HasSubstr("\n  context: scenario full.scn:12: start\n"
                               "  context: the chip's port-set table is full (0 of 0 in use): the "
                               "system stops on \"psId\" when the chip has no port-set id to "
                               "give\n")));
}

}  // namespace
