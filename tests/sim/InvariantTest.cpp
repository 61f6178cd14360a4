// Many random changes of every input, driven through the scenario language:
// once the backlog and retry tasks have run out, the chip holds exactly what
// the hardware status tree records, no call ever broke the chip's contract,
// and re-evaluating unchanged state makes no call.

#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <random>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "sim/Interpreter.h"

namespace {

using Chip = Sim::Chip;
using Ip::Nat::NatFlowType;

// Writes random but valid scenario lines over a small, fixed universe so that
// changes keep hitting the same VLANs, ports, hosts, matches and actions.
class ChangeMaker {
 public:
  // `complete(policy, match, action)` tells whether the action exists with a
  // non-zero version: the platform never takes a complete action back to
  // version 0 (only a new one starts there).
  using Complete = std::function<bool(const std::string&, const std::string&, const std::string&)>;
  ChangeMaker(unsigned seed, Complete complete) : rng_(seed), complete_(std::move(complete)) {}

  // Creations come more often than removals, so that the NAT tree keeps
  // growing back while the switch changes under it.
  std::string next() {
    static constexpr int kKinds[] = {0, 1, 2, 3, 4, 5, 6, 7, 7, 7, 8, 8, 8, 8, 9, 9, 9, 9, 10, 11};
    switch (kKinds[pick(static_cast<int>(std::size(kKinds)))]) {
      case 0:
        return "intf " + port() + " mode " + oneOf({"access", "trunk", "routed"}) + " native " +
               oneOf({"1", "10", "20", "30", "4095"});
      case 1:
        return "vlan " + vlan() + (pick(3) == 0 ? " remove " : " member ") + port();
      case 2:
        return "topology T port " + port() + " state " +
               oneOf({"forwarding", "forwarding", "blocking", "discarding"});
      case 3:
        return pick(4) == 0 ? "vlan-topology " + vlan() + " delete"
                            : "vlan-topology " + vlan() + " " + oneOf({"T", "U"});
      case 4:
        return "fdb " + vlan() + " host " + host() + " intf " + port();
      case 5:
        return "ip Vlan" + vlan() + " routing " + oneOf({"on", "on", "off"});
      case 6: {
        const std::string v = vlan();
        return "l3 Vlan" + v + (pick(4) == 0 ? " delete" : " id " + v);
      }
      case 7:
        return "match " + policy() + " " + match() + " flow src 10.1.0.0/16:0 dst " +
               oneOf({"239.1.1.1/32:5000", "0.0.0.0/0:0", "10.9.9.9/32:80"});
      case 8: {
        const std::string p = policy(), m = match(), a = action();
        const bool incomplete = pick(3) == 0 && !complete_(p, m, a);
        return "action " + p + " " + m + " " + a + " dst " +
               oneOf({"0.0.0.0", "239.5.5.5:5000", "10.5.5.5:6000"}) + " src " +
               oneOf({"0.0.0.0", "100.1.1.1", "100.1.1.1:7"}) + " version " +
               std::to_string(incomplete ? 0 : ++version_);
      }
      case 9: {
        const std::string hop = oneOf({"Vlan10", "Vlan20", "Vlan30", "Ethernet1", "Ethernet2",
                                       "Ethernet3", "Ethernet4", "Ethernet5"});
        return "nexthop " + policy() + " " + match() + " " + action() + " " + hop +
               (pick(4) == 0 ? " delete" : " vlan " + oneOf({"0", "10", "20"}) + " mac " + host());
      }
      case 10:
        return "action " + policy() + " " + match() + " " + action() + " delete";
      default:
        return "match " + policy() + " " + match() + " delete";
    }
  }

 private:
  int pick(int n) { return std::uniform_int_distribution<int>(0, n - 1)(rng_); }
  std::string oneOf(std::initializer_list<const char*> words) {
    return *(words.begin() + pick(static_cast<int>(words.size())));
  }
  std::string port() { return "Ethernet" + std::to_string(1 + pick(5)); }
  std::string vlan() { return oneOf({"10", "20", "30"}); }
  std::string host() { return oneOf({"02:00:00:00:00:01", "02:00:00:00:00:02"}); }
  std::string policy() { return oneOf({"P", "Q"}); }
  std::string match() { return oneOf({"m1", "m2", "m3"}); }
  std::string action() { return oneOf({"a1", "a2", "a3"}); }

  std::mt19937 rng_;
  Complete complete_;
  unsigned version_ = 1;
};

// What the hardware status tree says the chip must hold.
struct Expected {
  std::set<std::uint32_t> groups;
  std::map<Chip::PortSetKey, Chip::PortSet> portSets;
  std::map<Chip::PortSetKey, Chip::SrcTranslation> src;
  // Destination translations that must be there, and those that may be (a
  // unicast port set gets one whenever its translation is reprogrammed).
  std::map<Chip::PortSetKey, Chip::DstTranslation> dst;
  std::map<Chip::PortSetKey, Chip::DstTranslation> dstAllowed;
};

Expected expectedFrom(const Ip::Nat::HwNatFlowStatus& hw) {
  Expected e;
  for (const auto& [policyName, policy] : hw.natFlow()) {
    for (const auto& [matchName, match] : policy->match()) {
      const std::uint32_t uc = match->groupIdUc();
      const std::uint32_t mc = match->groupIdMc();
      if (uc != 0) e.groups.insert(uc);
      if (mc != 0) e.groups.insert(mc);
      for (const auto& [actionName, action] : match->action()) {
        const auto& vps = action->vlanPortSets();
        if (!vps || uc == 0) continue;
        const NatFlowType ft = action->flowType();
        struct Use {
          std::uint32_t group;
          bool unicast;
          bool second;
        };
        std::vector<Use> uses{{uc, ft != NatFlowType::natFlowTypeMulticast, false}};
        if (mc != uc) {
          uses.push_back(
              {mc, ft == NatFlowType::natFlowTypeUnicast, ft != NatFlowType::natFlowTypeNone});
        }
        for (const Use& use : uses) {
          for (const auto& [vlan, ps] : use.unicast ? vps->ucastPortSet() : vps->mcastPortSet()) {
            const std::uint32_t id = use.second ? ps->portSetId2() : ps->portSetId();
            if (id == 0) continue;
            const Chip::PortSetKey key{use.group, id};
            e.portSets[key] = Chip::PortSet{vlan, ps->intf().keys(), ps->dmac()};
            if (!action->srcNat().ip().isZero()) {
              e.src[key] = {vlan, action->srcNat(), action->srcFlow(), action->srcLen()};
            }
            const Chip::DstTranslation dst{vlan, action->dstNat(), action->dstFlow(),
                                           action->dstLen(), ps->dmac()};
            const bool recorded =
                !action->dstNat().ip().isZero() || !action->dstFlow().ip().isZero();
            if (recorded && (use.unicast || !action->dstNat().ip().isZero())) e.dst[key] = dst;
            if (use.unicast) e.dstAllowed[key] = dst;
          }
        }
      }
    }
  }
  return e;
}

class InvariantTest : public testing::TestWithParam<unsigned> {
 protected:
  void run(const std::string& line) {
    ++lineNo_;
    ASSERT_EQ(sim_.runLine(line, "random", lineNo_), Sim::Interpreter::Outcome::ok) << line << "\n"
                                                                                    << err_.str();
  }
  // A random change: one that names something absent is refused as a whole
  // and changes nothing, which is fine here.
  void change(const std::string& line) {
    ++lineNo_;
    history_ += line + "\n";
    const auto outcome = sim_.runLine(line, "random", lineNo_);
    ASSERT_NE(outcome, Sim::Interpreter::Outcome::quit) << line;
  }
  // Lets the backlog and a retry run out.
  void settle() {
    run("advance 11");
    run("run");
  }
  // The chip holds exactly what the hardware status records, but for groups
  // when `exactGroups` is false (a chip that fills up): a half-failed pair
  // request leaves its other group behind, by design.
  void checkChipMatchesHardwareStatus(bool exactGroups) {
    const Chip& chip = sim_.agent().chip();
    const Expected e = expectedFrom(*sim_.agent().hwStatus());
    EXPECT_EQ(chip.violationCount(), 0u);
    std::set<std::uint32_t> chipGroups;
    for (const auto& [id, group] : chip.groups()) chipGroups.insert(id);
    for (std::uint32_t g : e.groups) EXPECT_TRUE(chipGroups.count(g)) << "group " << g;
    for (const auto& [key, ps] : e.portSets) {
      auto it = chip.portSets().find(key);
      ASSERT_NE(it, chip.portSets().end()) << key.first << "/" << key.second;
      EXPECT_EQ(it->second, ps);
    }
    for (const auto& [key, src] : e.src) {
      auto it = chip.srcTranslations().find(key);
      ASSERT_NE(it, chip.srcTranslations().end()) << key.first << "/" << key.second;
      EXPECT_EQ(it->second, src);
    }
    for (const auto& [key, dst] : e.dst) {
      auto it = chip.dstTranslations().find(key);
      ASSERT_NE(it, chip.dstTranslations().end()) << key.first << "/" << key.second;
      EXPECT_EQ(it->second, dst);
    }
    if (exactGroups) {
      EXPECT_EQ(chipGroups, e.groups);
    }
    EXPECT_EQ(chip.portSets().size(), e.portSets.size());
    EXPECT_EQ(chip.srcTranslations().size(), e.src.size());
    for (const auto& [key, dst] : chip.dstTranslations()) {
      if (e.dst.count(key)) continue;
      // A unicast port set may carry one whenever its translation was redone.
      auto allowed = e.dstAllowed.find(key);
      ASSERT_NE(allowed, e.dstAllowed.end()) << key.first << "/" << key.second;
      EXPECT_EQ(allowed->second.dmac, dst.dmac);
    }
  }

  // Publishes a new version of every complete action, as the platform does
  // when it re-publishes an action.
  void bumpEveryVersion() {
    const auto& status = sim_.agent().natStatus();
    for (const auto& [p, policy] : status->natFlow()) {
      for (const auto& [m, match] : policy->match()) {
        for (const auto& [a, action] : match->action()) {
          if (action->version() == 0) continue;
          status->natFlowIs(p)->matchIs(m)->actionIs(a)->versionIs(action->version() + 1000);
        }
      }
    }
  }

  ChangeMaker changeMaker(unsigned seed) {
    return ChangeMaker(seed,
                       [this](const std::string& p, const std::string& m, const std::string& a) {
                         auto policy = sim_.agent().natStatus()->natFlow(p);
                         auto match = policy ? policy->match(m) : nullptr;
                         auto action = match ? match->action(a) : nullptr;
                         return action && action->version() != 0;
                       });
  }

  std::string history_;  // the random changes so far, for a failure report
  std::ostringstream out_;
  std::ostringstream err_;
  Sim::Interpreter sim_{out_, err_, false};
  std::size_t lineNo_ = 0;
};

constexpr const char* kSwitch[] = {
    "bridge-mac 00:1c:00:00:00:01",
    "intf Ethernet1 mode trunk native 1",
    "intf Ethernet2 mode access native 10",
    "intf Ethernet3 mode trunk native 1",
    "intf Ethernet4 mode access native 20",
    "intf Ethernet5 mode trunk native 1",
    "vlan 10 member Ethernet1 Ethernet2 Ethernet3",
    "vlan 20 member Ethernet3 Ethernet4 Ethernet5",
    "vlan 30 member Ethernet1 Ethernet5",
    "topology T port Ethernet1 state forwarding",
    "topology T port Ethernet2 state forwarding",
    "topology T port Ethernet3 state forwarding",
    "topology T port Ethernet4 state forwarding",
    "topology T port Ethernet5 state forwarding",
    "topology U port Ethernet1 state forwarding",
    "vlan-topology 10 T",
    "vlan-topology 20 T",
    "vlan-topology 30 U",
    "ip Vlan10 addr 10.0.10.1/24 routing on",
    "ip Vlan20 addr 10.0.20.1/24 routing on",
    "ip Vlan30 addr 10.0.30.1/24 routing on",
    "l3 Vlan10 id 10",
    "l3 Vlan20 id 20",
    "l3 Vlan30 id 30",
    "policy P",
    "policy Q",
};

TEST_P(InvariantTest, ChipHoldsExactlyWhatTheHardwareStatusRecords) {
  for (const char* line : kSwitch) run(line);
  run("start");
  ChangeMaker changes = changeMaker(GetParam());
  for (int round = 0; round < 60; ++round) {
    for (int i = 0; i < 8; ++i) change(changes.next());
    settle();
    checkChipMatchesHardwareStatus(true);
    if (HasFatalFailure()) return;
  }
  // The changes did reach the chip, in all kinds of calls.
  const Chip& chip = sim_.agent().chip();
  EXPECT_GT(chip.counter(Chip::Op::updateNatFlowVlanPortSet).calls, 20u);
  EXPECT_GT(chip.counter(Chip::Op::deleteNatFlowVlanPortSet).calls, 5u);
  EXPECT_GT(chip.counter(Chip::Op::updateNatFlowSrcTranslation).calls, 5u);
  EXPECT_GT(chip.counter(Chip::Op::createNatFlowGroup).calls, 5u);
  // Next-hop changes reach an action with its next version: bring every
  // action up to date, then re-evaluating them all again makes no call.
  bumpEveryVersion();
  settle();
  checkChipMatchesHardwareStatus(true);
  const std::size_t callsBefore = chip.calls().size();
  bumpEveryVersion();
  settle();
  std::string extra;
  for (std::size_t i = callsBefore; i < chip.calls().size(); ++i) {
    extra += chip.calls()[i].text + "\n";
  }
  EXPECT_EQ(extra, "");
  run("stop");
  // Teardown frees everything: no group was left half-allocated here.
  EXPECT_TRUE(sim_.agent().chip().empty());
}

TEST_P(InvariantTest, AFullChipAndItsRetryKeepTheChipConsistent) {
  for (const char* line : kSwitch) run(line);
  run("chip groups 4");
  run("start");
  ChangeMaker changes = changeMaker(GetParam() + 1000);
  for (int round = 0; round < 40; ++round) {
    for (int i = 0; i < 8; ++i) change(changes.next());
    settle();
    checkChipMatchesHardwareStatus(false);
    if (HasFailure()) {
      std::ostringstream state;
      Sim::Interpreter(state, state);
      run("show hw");
      run("show chip");
      run("show leftovers");
      ADD_FAILURE() << history_ << out_.str();
      return;
    }
  }
  run("stop");
  EXPECT_TRUE(sim_.agent().chip().portSets().empty());
  EXPECT_EQ(sim_.agent().chip().translationCount(), 0u);
}

INSTANTIATE_TEST_SUITE_P(Seeds, InvariantTest, testing::Range(1u, 13u));

}  // namespace
