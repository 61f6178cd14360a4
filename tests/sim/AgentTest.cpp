#include "sim/Agent.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "Mox/Assert.h"
#include "Mox/Trace.h"
#include "Pelo/Publisher.h"
#include "sim/Interpreter.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

// A state that makes the system hold groups, a waiting match and a pending retry.
const char* const kScript =
    "chip groups 2\n"
    "policy P\n"
    "match P a flow src 10.1.0.0/16:0 dst 239.1.1.1/32:5000\n"
    "action P a x dst 239.9.1.1:5000 version 1\n"
    "match P b flow src 10.2.0.0/16:0 dst 239.2.2.2/32:5000\n"
    "action P b x dst 239.9.2.2:5000 version 1\n"
    "match P c flow src 10.3.0.0/16:0 dst 239.3.3.3/32:5000\n"
    "action P c x dst 239.9.3.3:5000 version 1\n"
    "match P d flow src 10.4.0.0/16:0 dst 239.4.4.4/32:5000\n"
    "action P d x dst 239.9.4.4:5000 version 1\n"
    "vlan 10 member Ethernet1\n"
    "start\n";

TEST(AgentTest, StopLeavesACleanStateAndNothingLeaks) {
  const std::int64_t before = Mox::PtrInterface::instances();
  {
    std::ostringstream out;
    Sim::Interpreter sim(out, out);
    std::istringstream in(kScript);
    ASSERT_EQ(sim.runStream(in, "s", false), Sim::Interpreter::Outcome::ok) << out.str();
    Sim::Agent& agent = sim.agent();
    ASSERT_TRUE(agent.scheduler().pendingCount() != 0);
    ASSERT_FALSE(agent.chip().empty());

    agent.stop();
    EXPECT_TRUE(agent.chip().empty());
    EXPECT_EQ(agent.chip().violationCount(), 0u);
    EXPECT_TRUE(agent.hwStatus()->natFlow().empty());
    EXPECT_TRUE(agent.scheduler().tasks().empty());
    EXPECT_EQ(agent.scheduler().pendingCount(), 0u);
    EXPECT_EQ(agent.natStatus()->subscriberCount(), 0u);
    EXPECT_EQ(agent.natStatus()->natFlow("P")->match("a")->subscriberCount(), 0u);
    EXPECT_EQ(agent.vlanStatusDir()->subscriberCount(), 0u);

    // A second life on the same inputs ends just as clean.
    agent.start();
    agent.stop();
    EXPECT_TRUE(agent.chip().empty());
  }
  EXPECT_EQ(Mox::PtrInterface::instances(), before);
}

TEST(AgentTest, RestartLeavesTheChipAsItWasAndTheWipeCallsNothing) {
  const std::int64_t before = Mox::PtrInterface::instances();
  {
    std::ostringstream out;
    Sim::Interpreter sim(out, out);
    std::istringstream in(kScript);
    ASSERT_EQ(sim.runStream(in, "s", false), Sim::Interpreter::Outcome::ok) << out.str();
    Sim::Agent& agent = sim.agent();
    ASSERT_EQ(agent.chip().groups().size(), 2u);
    const std::size_t calls = agent.chip().calls().size();
    {
      // The old system's clean-up still decides to free its groups, but no call reaches the
      // chip; the new system starts, wipes the records and asks for groups of its own.
      Mox::TraceCapture capture("UmoNatFlowMcastSm/1 UmoNatFlowMatchSm/2");
      agent.restart();
      EXPECT_TRUE(capture.contains("Delete unicast group 1 for match a"));
      EXPECT_TRUE(capture.contains("NatFlowMcastSm::handleInitialized"));
    }
    for (std::size_t i = calls; i < agent.chip().calls().size(); ++i) {
      EXPECT_THAT(agent.chip().calls()[i].text, StartsWith("createNatFlowGroup"));
    }
    // Both groups stay with the chip, owned by no state: the new system finds it full.
    EXPECT_EQ(agent.chip().groups().size(), 2u);
    ASSERT_TRUE(agent.hwStatus()->natFlow("P"));
    EXPECT_EQ(agent.hwStatus()->natFlow("P")->match("a")->groupIdUc(), 0u);
    agent.stop();
    EXPECT_EQ(agent.chip().groups().size(), 2u);
    EXPECT_EQ(agent.chip().violationCount(), 0u);
    EXPECT_TRUE(agent.hwStatus()->natFlow().empty());
  }
  EXPECT_EQ(Mox::PtrInterface::instances(), before);
}

TEST(AgentTest, InterpreterPutsBackTheTraceSinkAndLevels) {
  Mox::TraceCapture capture("Sim*/1");
  {
    std::ostringstream out;
    Sim::Interpreter sim(out, out);
    sim.runLine("trace SimChip/1", "s", 1);
    sim.agent().chip().createNatFlowGroup("P", "m", false);
    EXPECT_THAT(out.str(), HasSubstr("trace SimChip/1 createNatFlowGroup(P, m, unicast=false)"));
  }
  EXPECT_EQ(Mox::traceLevels(), "Sim*/1");
  // The chip of a new agent traces into the capture again, not into a dead interpreter.
  Sim::Agent agent;
  agent.chip().createNatFlowGroup("P", "m", false);
  EXPECT_TRUE(capture.contains("createNatFlowGroup(P, m, unicast=false) = 1"));
}

TEST(AgentDeathTest, AssertionContextEndsWithTheInterpreter) {
  const auto dies = [] {
    {
      std::ostringstream out;
      Sim::Interpreter sim(out, out);
      sim.runLine("time", "gone.scn", 1);
    }
    MOX_ASSERT(Mox::PtrInterface::instances() < 0);
  };
  EXPECT_DEATH(dies(), Not(HasSubstr("context:")));
}

// Records the attributes a publisher publishes, in order.
class Recorder : public Pelo::Subscriber {
 public:
  void handleChange(const Pelo::Publisher&, Pelo::AttrId attr, const Pelo::Key&) override {
    attrs.push_back(attr);
  }
  std::vector<Pelo::AttrId> attrs;
};

TEST(AgentTest, LinesPublishLikeThePlatformWriter) {
  using Action = Ip::Nat::NatFlowActionStatus;
  using Table = UmoL3Intf::Table;
  std::ostringstream out;
  Sim::Interpreter sim(out, out);
  std::istringstream setup("policy P\nmatch P M\naction P M A\n");
  ASSERT_EQ(sim.runStream(setup, "s", false), Sim::Interpreter::Outcome::ok) << out.str();
  const auto action = sim.agent().natStatus()->natFlow("P")->match("M")->action("A");
  Recorder actionChanges;
  action->subscriberAdd(&actionChanges);
  Recorder l3Changes;
  sim.agent().l3IntfTable()->subscriberAdd(&l3Changes);

  // The version goes last, whatever the order of the words; unchanged fields publish nothing.
  sim.runLine("action P M A version 2 dst 239.1.1.1 src 10.1.1.1", "s", 4);
  sim.runLine("action P M A version 2 src 10.1.1.1", "s", 5);
  EXPECT_THAT(actionChanges.attrs,
              ElementsAre(Action::Attr::src, Action::Attr::dst, Action::Attr::version));

  // An L3 id is listed both ways, and an id change leaves no stale entry.
  sim.runLine("l3 Ethernet5 id 5000", "s", 6);
  sim.runLine("l3 Ethernet5 id 5001", "s", 7);
  const Table& table = *sim.agent().l3IntfTable();
  EXPECT_EQ(table.routedPortName(5000), nullptr);
  ASSERT_NE(table.routedPortName(5001), nullptr);
  EXPECT_EQ(*table.routedPortName(5001), Nexo::IntfId("Ethernet5"));
  sim.runLine("l3 Ethernet5 delete", "s", 8);
  EXPECT_TRUE(table.routedPortName().empty());
  // A VLAN interface is listed both ways too, under the id equal to its VLAN.
  sim.runLine("l3 Vlan10 id 10", "s", 9);
  ASSERT_NE(table.routedPortName(10), nullptr);
  EXPECT_EQ(*table.routedPortName(10), Nexo::IntfId("Vlan10"));
  EXPECT_THAT(l3Changes.attrs, ElementsAre(Table::Attr::intfL3Index, Table::Attr::routedPortName,
                                           Table::Attr::routedPortName, Table::Attr::intfL3Index,
                                           Table::Attr::routedPortName, Table::Attr::routedPortName,
                                           Table::Attr::intfL3Index, Table::Attr::intfL3Index,
                                           Table::Attr::routedPortName));
  action->subscriberRemove(&actionChanges);
  sim.agent().l3IntfTable()->subscriberRemove(&l3Changes);
  EXPECT_EQ(sim.errors(), 0u) << out.str();
}

}  // namespace
