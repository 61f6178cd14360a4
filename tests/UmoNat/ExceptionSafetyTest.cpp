// A helper that throws from any one of its calls: whichever call it is, the
// exception leaves the system whole. A constructor that fails leaves nothing
// registered and nothing behind in the chip that its clean-up could not find;
// a task run that fails leaves the scheduler able to run again; a running
// system keeps working after a failed handler.

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

#include "NatFixture.h"

namespace {

using PortState = Bridging::Topology::PortState;
using UmoNatTest::intf;

const Nexo::EthAddr kHostA("00:00:00:00:00:0a");

// Throws std::runtime_error instead of making call number `throwAt` (counted
// from 1 over every operation); calls after it go through again.
class ThrowingHelper : public UmoNatTest::RecordingHelper {
 public:
  void throwAtIs(unsigned n) {
    throwAt_ = n;
    count_ = 0;
  }
  unsigned count() const { return count_; }
  // Whether the call that threw asked for the multicast half of a pair whose
  // unicast half was allocated: that group is left allocated on purpose.
  bool threwInPair() const { return threwInPair_; }

  std::uint32_t createNatFlowGroup(const Pelo::String& policy, const Pelo::String& match,
                                   bool unicast) override {
    const bool pairHalf = !unicast && lastWasUnicastGroup_;
    lastWasUnicastGroup_ = false;
    if (hit()) {
      threwInPair_ = pairHalf;
      throw std::runtime_error("helper failure");
    }
    const std::uint32_t id = RecordingHelper::createNatFlowGroup(policy, match, unicast);
    lastWasUnicastGroup_ = unicast && id != 0;
    return id;
  }
  void deleteNatFlowGroup(const Pelo::String& policy, const Pelo::String& match,
                          std::uint32_t groupId) override {
    check();
    RecordingHelper::deleteNatFlowGroup(policy, match, groupId);
  }
  std::uint32_t updateNatFlowVlanPortSet(
      std::uint32_t groupId, std::uint32_t portSetId,
      const Mox::Ptr<const Ip::Nat::NatFlowPortSet>& ps) override {
    check();
    return RecordingHelper::updateNatFlowVlanPortSet(groupId, portSetId, ps);
  }
  void deleteNatFlowVlanPortSet(std::uint32_t groupId, std::uint32_t portSetId) override {
    check();
    RecordingHelper::deleteNatFlowVlanPortSet(groupId, portSetId);
  }
  bool updateNatFlowSrcTranslation(std::uint32_t groupId, std::uint32_t portSetId,
                                   std::uint16_t vlan, const Nexo::IpAndPort& srcNat,
                                   const Nexo::IpAndPort& srcFlow, std::uint32_t pfxLen) override {
    check();
    return RecordingHelper::updateNatFlowSrcTranslation(groupId, portSetId, vlan, srcNat, srcFlow,
                                                        pfxLen);
  }
  void deleteNatFlowSrcTranslation(std::uint32_t groupId, std::uint32_t portSetId) override {
    check();
    RecordingHelper::deleteNatFlowSrcTranslation(groupId, portSetId);
  }
  bool updateNatFlowDstTranslation(std::uint32_t groupId, std::uint32_t portSetId,
                                   std::uint16_t vlan, const Nexo::IpAndPort& dstNat,
                                   const Nexo::IpAndPort& dstFlow, std::uint32_t pfxLen,
                                   const Nexo::EthAddr& dmac) override {
    check();
    return RecordingHelper::updateNatFlowDstTranslation(groupId, portSetId, vlan, dstNat, dstFlow,
                                                        pfxLen, dmac);
  }
  void deleteNatFlowDstTranslation(std::uint32_t groupId, std::uint32_t portSetId) override {
    check();
    RecordingHelper::deleteNatFlowDstTranslation(groupId, portSetId);
  }

 private:
  bool hit() { return ++count_ == throwAt_; }
  void check() {
    lastWasUnicastGroup_ = false;
    if (hit()) {
      threwInPair_ = false;
      throw std::runtime_error("helper failure");
    }
  }

  unsigned throwAt_ = 0;
  unsigned count_ = 0;
  bool lastWasUnicastGroup_ = false;
  bool threwInPair_ = false;
};

// Every kind of object the system programs: one- and two-group matches,
// physical, VLAN-interface and recirculation next hops, both translations,
// two policies.
class ExceptionSafetyTest : public UmoNatTest::NatFixture {
 protected:
  ExceptionSafetyTest() {
    vlanIs(10, {"Ethernet1", "Ethernet2"});
    vlanIs(20, {"Ethernet3"});
    for (const char* p : {"Ethernet1", "Ethernet2", "Ethernet3"}) portIs(p, PortState::forwarding);
    matchIs("P", "M1", "239.1.1.1");
    auto a = actionIs("P", "M1", "a", "239.9.9.9");
    a->srcIs(Nexo::IpAndPort(Nexo::IpAddr("100.1.1.1"), 0));
    a->intfIs(intf("Ethernet1"), Ip::Nat::NatFlowNextHop(10, kHostA));
    a->intfIs(intf("Vlan20"), Ip::Nat::NatFlowNextHop(0, kHostA));
    actionIs("P", "M1", "recirc", "239.8.8.8");
    matchIs("P", "M2", "0.0.0.0");
    auto c = actionIs("P", "M2", "c", "0.0.0.0");
    c->intfIs(intf("Ethernet3"), Ip::Nat::NatFlowNextHop(20, kHostA));
    auto d = actionIs("P", "M2", "d", "10.5.5.5");
    d->intfIs(intf("Ethernet2"), Ip::Nat::NatFlowNextHop(10, kHostA));
    matchIs("Q", "M", "239.2.2.2");
    auto e = actionIs("Q", "M", "e", "239.7.7.7");
    e->intfIs(intf("Vlan10"), Ip::Nat::NatFlowNextHop(0, kHostA));
    helper = thrower;
  }

  // No input is followed any more: the system let go of all of them.
  void expectUnsubscribed() {
    EXPECT_EQ(status->subscriberCount(), 0u);
    for (const auto& [pname, policy] : status->natFlow()) {
      EXPECT_EQ(policy->subscriberCount(), 0u) << pname;
      for (const auto& [mname, match] : policy->match()) {
        EXPECT_EQ(match->subscriberCount(), 0u) << mname;
        for (const auto& [aname, action] : match->action()) {
          EXPECT_EQ(action->subscriberCount(), 0u) << aname;
        }
      }
    }
    EXPECT_EQ(bridgingConfig->subscriberCount(), 0u);
    EXPECT_EQ(vlanStatusDir->subscriberCount(), 0u);
    EXPECT_EQ(brTopo->subscriberCount(), 0u);
    EXPECT_EQ(l3IntfTable->subscriberCount(), 0u);
    EXPECT_EQ(ipStatus->subscriberCount(), 0u);
  }

  Mox::Ptr<ThrowingHelper> thrower = Mox::makePtr<ThrowingHelper>();
};

TEST_F(ExceptionSafetyTest, AFailedStartLeavesNothingRegisteredOrProgrammed) {
  start();
  const unsigned calls = thrower->count();
  ASSERT_GT(calls, 15u);
  root.reset();
  ASSERT_TRUE(thrower->groups().empty());
  for (unsigned n = 1; n <= calls; ++n) {
    SCOPED_TRACE("helper throws at call " + std::to_string(n));
    thrower->throwAtIs(n);
    EXPECT_THROW(start(), std::runtime_error);
    EXPECT_FALSE(root);
    expectUnsubscribed();
    EXPECT_TRUE(hwStatus->natFlow().empty());
    EXPECT_TRUE(thrower->portSets().empty());
    // A pair allocation cut in half keeps its unicast group, as a refused
    // multicast request does.
    EXPECT_EQ(thrower->groups().size(), thrower->threwInPair() ? 1u : 0u);
    EXPECT_TRUE(scheduler->tasks().empty());
    thrower = Mox::makePtr<ThrowingHelper>();
    helper = thrower;
  }
}

TEST_F(ExceptionSafetyTest, AFailedHandlerOrTaskRunLeavesTheSystemWorking) {
  // Count the calls of a topology change, its backlog run and a new policy.
  auto change = [&] {
    brTopo->topoConfigIs("T")
        ->topoPortConfigIs(intf("Ethernet2"))
        ->portStateIs(PortState::blocking);
    scheduler->advance(1);
    matchIs("R", "M", "239.3.3.3");
    auto f = actionIs("R", "M", "f", "239.6.6.6");
    f->intfIs(intf("Ethernet1"), Ip::Nat::NatFlowNextHop(10, kHostA));
  };
  start();
  thrower->throwAtIs(0);
  change();
  const unsigned calls = thrower->count();
  ASSERT_GT(calls, 5u);
  for (unsigned n = 1; n <= calls; ++n) {
    SCOPED_TRACE("helper throws at call " + std::to_string(n));
    status->natFlowDel("R");
    brTopo->topoConfigIs("T")
        ->topoPortConfigIs(intf("Ethernet2"))
        ->portStateIs(PortState::forwarding);
    root.reset();
    thrower = Mox::makePtr<ThrowingHelper>();
    helper = thrower;
    start();
    thrower->throwAtIs(n);
    EXPECT_THROW(change(), std::runtime_error);
    // The scheduler runs again and the system takes the next changes.
    thrower->throwAtIs(0);
    scheduler->advance(20);
    auto g = actionIs("P", "M1", "g", "239.5.5.5");
    g->intfIs(intf("Ethernet3"), Ip::Nat::NatFlowNextHop(20, kHostA));
    EXPECT_TRUE(hwStatus->natFlow("P")->match("M1")->action("g")->vlanPortSets());
    status->natFlowIs("P")->matchIs("M1")->actionDel("g");
    root.reset();
    expectUnsubscribed();
    EXPECT_TRUE(thrower->portSets().empty());
    EXPECT_LE(thrower->groups().size(), thrower->threwInPair() ? 1u : 0u);
  }
}

}  // namespace
