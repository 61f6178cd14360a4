// Random histories of everything the platform can publish, with the chip filling up and failing,
// the system stopped and started again, and the clock moving, each run through a fresh scenario
// interpreter. Whatever the history, the system never stops on an assertion or throws, never
// breaks the chip's contract, keeps the chip holding exactly what its hardware status records
// once the tasks have run out, makes no call when re-evaluating unchanged state, and frees
// everything when it stops.
//
// A failing history prints its seed and its lines as a scenario file, which umonat-sim replays;
// an assertion or a sanitizer report prints them as the process dies.

#include <gtest/gtest.h>

#include <unistd.h>
#include <array>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <iostream>
#include <map>
#include <random>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "sim/HistoryGenerator.h"
#include "sim/Interpreter.h"

#if defined(__SANITIZE_ADDRESS__)
#define UMONAT_HISTORY_SANITIZED 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(undefined_behavior_sanitizer)
#define UMONAT_HISTORY_SANITIZED 1
#endif
#endif
#if defined(UMONAT_HISTORY_SANITIZED)
#include <sanitizer/common_interface_defs.h>
#endif

namespace {

using Chip = Sim::Chip;
using Ip::Nat::NatFlowType;

// Each test runs kHistories histories of kLines random lines, seeded kHistories * block + i.
constexpr unsigned kBlocks = 16;
constexpr unsigned kHistories = 125;
constexpr int kLines = 400;
// A port set whose destination MAC address alone changed (a next hop's MAC, or the bridge MAC of
// a recirculation port set) is not reprogrammed, on purpose: only its destination translation
// carries the new MAC. So the chip's port sets are compared without their MAC address.
constexpr bool kPortSetMacChecked = false;
// The tasks are let run out, and the chip checked, every kSettleEvery lines.
constexpr int kSettleEvery = 25;

// ---- what the chip must hold
// ---------------------------------------------------------------------

// What the hardware status tree says the chip must hold.
struct Expected {
  std::set<std::uint32_t> groups;
  std::map<Chip::PortSetKey, Chip::PortSet> portSets;
  std::map<Chip::PortSetKey, Chip::SrcTranslation> src;
  // Destination translations that must be there, and those that may be (a unicast port set gets
  // one whenever its translation is reprogrammed).
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

// The groups a half-failed pair request left allocated: when a match needs a unicast and a
// multicast group and gets only one of them, it keeps neither in its status and waits for a
// retry, and the group it got stays in the chip, by design. Read from the call log: the two
// requests of a pair are consecutive calls for the same match.
std::set<std::uint32_t> strandedGroups(const Chip& chip) {
  struct Create {
    std::string owner;  // "policy, match"
    bool unicast = false;
    std::uint32_t id = 0;
  };
  auto parse = [](const std::string& text, Create& create) {
    static const std::string kPrefix = "createNatFlowGroup(";
    if (text.rfind(kPrefix, 0) != 0) return false;
    const std::size_t unicast = text.find(", unicast=");
    const std::size_t result = text.find(") = ");
    create.owner = text.substr(kPrefix.size(), unicast - kPrefix.size());
    create.unicast = text.compare(unicast, 15, ", unicast=true)") == 0;
    create.id = static_cast<std::uint32_t>(std::stoul(text.substr(result + 4)));
    return true;
  };
  std::set<std::uint32_t> stranded;
  const auto& calls = chip.calls();
  for (std::size_t i = 0; i < calls.size(); ++i) {
    if (!calls[i].violation.empty()) continue;
    Create first;
    if (parse(calls[i].text, first)) {
      Create second;
      if (first.unicast && i + 1 < calls.size() && parse(calls[i + 1].text, second) &&
          !second.unicast && second.owner == first.owner) {
        ++i;
        if ((first.id == 0) != (second.id == 0)) stranded.insert(first.id + second.id);
      }
      continue;
    }
    static const std::string kDelete = "deleteNatFlowGroup(";
    if (calls[i].text.rfind(kDelete, 0) == 0) {
      const std::size_t group = calls[i].text.find("group=");
      stranded.erase(static_cast<std::uint32_t>(std::stoul(calls[i].text.substr(group + 6))));
    }
  }
  return stranded;
}

// ---- a report when the process dies
// ---------------------------------------------------------------

// The history being run, as a scenario, for a report when an assertion or a sanitizer ends the
// process; written with write(2) only.
std::string dyingReport;

void writeDyingReport() {
  static const char kHead[] = "\nthe random history being run, as a scenario:\n";
  if (write(STDERR_FILENO, kHead, sizeof kHead - 1) < 0) return;
  if (write(STDERR_FILENO, dyingReport.data(), dyingReport.size()) < 0) return;
}

extern "C" void onAbort(int signal) {
  writeDyingReport();
  std::signal(signal, SIG_DFL);
  std::raise(signal);
}

// ---- one history
// ---------------------------------------------------------------------------------

// What the histories of one test did, for its summary.
struct Figures {
  std::size_t histories = 0;
  std::size_t lines = 0;
  std::size_t refused = 0;
  std::size_t stranded = 0;
  std::array<std::uint64_t, Chip::kOpCount> calls{};
  std::uint64_t failedCalls = 0;
};

class History {
 public:
  History(unsigned seed, Figures& figures)
      : seed_(seed),
        file_("random-history-" + std::to_string(seed) + ".scn"),
        rng_(seed),
        generator_([this](std::uint32_t bound) {
          return std::uniform_int_distribution<std::uint32_t>(0, bound - 1)(rng_);
        }),
        figures_(figures) {
    dyingReport = "# seed " + std::to_string(seed) + "\n";
  }
  ~History() { dyingReport.clear(); }

  void run() {
    for (const std::string& line : generator_.setup()) mustRun(line);
    for (int i = 1; i <= kLines && !testing::Test::HasFailure(); ++i) {
      change(generator_.next());
      if (i % kSettleEvery == 0) settle();
    }
    if (testing::Test::HasFailure()) return report();
    finish();
    if (testing::Test::HasFailure()) report();
  }

 private:
  // Runs a line that must be carried out.
  void mustRun(const std::string& line) {
    EXPECT_EQ(runLine(line), Sim::Interpreter::Outcome::ok) << line << "\n" << err_.str();
  }

  // Runs a random line. The simulator refuses a line the platform could not publish; the
  // generator then forgets it.
  void change(const std::string& line) {
    ++figures_.lines;
    const std::size_t errorsBefore = err_.str().size();
    const auto outcome = runLine(line);
    if (outcome == Sim::Interpreter::Outcome::ok) return;
    ASSERT_EQ(outcome, Sim::Interpreter::Outcome::error) << line;
    // An exception from the system reaches the interpreter as a failed command.
    ASSERT_EQ(err_.str().find("the command failed", errorsBefore), std::string::npos)
        << err_.str().substr(errorsBefore);
    ++figures_.refused;
    generator_.refused();
  }

  Sim::Interpreter::Outcome runLine(const std::string& line) {
    lines_.push_back(line);
    dyingReport += line + "\n";
    const auto outcome = sim_.runLine(line, file_, lines_.size());
    // Nothing reads what the show commands print; only the errors are kept.
    out_.str("");
    return outcome;
  }

  // Lets the backlog and any retry run out, then checks the chip against the hardware status:
  // always when `always`, else while no port set or translation has failed for want of room (the
  // hardware status records translations per action, not per port set, so it cannot show one
  // that failed on a single port set).
  void settle(bool always = false) {
    mustRun("advance 11");
    mustRun("run");
    const Chip& chip = sim_.agent().chip();
    const std::uint64_t failed = chip.counter(Chip::Op::updateNatFlowVlanPortSet).failed +
                                 chip.counter(Chip::Op::updateNatFlowSrcTranslation).failed +
                                 chip.counter(Chip::Op::updateNatFlowDstTranslation).failed;
    if (generator_.started() && (always || failed == 0)) checkChipMatchesHardwareStatus();
  }

  // The chip holds exactly what the hardware status records, plus the groups half-failed pair
  // requests left, and has refused no call.
  void checkChipMatchesHardwareStatus() {
    const Chip& chip = sim_.agent().chip();
    EXPECT_EQ(chip.violationCount(), 0u);
    Expected e = expectedFrom(*sim_.agent().hwStatus());
    for (std::uint32_t g : strandedGroups(chip)) {
      EXPECT_FALSE(e.groups.count(g)) << "group " << g << " is recorded and stranded";
      e.groups.insert(g);
    }
    std::set<std::uint32_t> chipGroups;
    for (const auto& [id, group] : chip.groups()) chipGroups.insert(id);
    EXPECT_EQ(chipGroups, e.groups);
    auto where = [](const Chip::PortSetKey& key) {
      return "group " + std::to_string(key.first) + " port set " + std::to_string(key.second);
    };
    for (auto [key, ps] : e.portSets) {
      auto it = chip.portSets().find(key);
      if (!kPortSetMacChecked && it != chip.portSets().end()) ps.dmac = it->second.dmac;
      EXPECT_TRUE(it != chip.portSets().end() && it->second == ps) << "port set at " << where(key);
    }
    for (const auto& [key, src] : e.src) {
      auto it = chip.srcTranslations().find(key);
      EXPECT_TRUE(it != chip.srcTranslations().end() && it->second == src)
          << "source translation at " << where(key);
    }
    for (const auto& [key, dst] : e.dst) {
      auto it = chip.dstTranslations().find(key);
      EXPECT_TRUE(it != chip.dstTranslations().end() && it->second == dst)
          << "destination translation at " << where(key);
    }
    EXPECT_EQ(chip.portSets().size(), e.portSets.size());
    EXPECT_EQ(chip.srcTranslations().size(), e.src.size());
    for (const auto& [key, dst] : chip.dstTranslations()) {
      if (e.dst.count(key)) continue;
      // A unicast port set may carry one whenever its translation was redone.
      auto allowed = e.dstAllowed.find(key);
      EXPECT_TRUE(allowed != e.dstAllowed.end() && allowed->second.dmac == dst.dmac)
          << "unexpected destination translation at " << where(key);
    }
  }

  // Publishes a new version of every complete action, as the platform does when it re-publishes
  // one; incomplete actions stay at version 0.
  void bumpEveryVersion() {
    std::vector<std::string> lines;
    for (const auto& [p, policy] : sim_.agent().natStatus()->natFlow()) {
      for (const auto& [m, match] : policy->match()) {
        for (const auto& [a, action] : match->action()) {
          if (action->version() == 0) continue;
          lines.push_back("action " + p.str() + " " + m.str() + " " + a.str() + " version " +
                          std::to_string(action->version() + 1000));
        }
      }
    }
    for (const std::string& line : lines) mustRun(line);
  }

  // Gives the chip its room back, brings every action up to date and checks that re-evaluating
  // them all again makes no call; then stops the system, which frees all it holds.
  void finish() {
    if (!generator_.started()) mustRun("start");
    for (const char* line :
         {"chip groups unlimited", "chip port-sets unlimited", "chip translations unlimited",
          "chip fail-groups 0", "chip fail unicast off", "chip fail multicast off"}) {
      mustRun(line);
    }
    bumpEveryVersion();
    settle(true);
    const Chip& chip = sim_.agent().chip();
    const std::size_t callsBefore = chip.calls().size();
    bumpEveryVersion();
    settle(true);
    std::string extra;
    for (std::size_t i = callsBefore; i < chip.calls().size(); ++i) {
      extra += chip.calls()[i].text + "\n";
    }
    EXPECT_EQ(extra, "") << "re-evaluating unchanged actions made calls";
    mustRun("stop");
    const std::set<std::uint32_t> stranded = strandedGroups(chip);
    std::set<std::uint32_t> left;
    for (const auto& [id, group] : chip.groups()) left.insert(id);
    EXPECT_EQ(left, stranded) << "groups left after stop";
    EXPECT_TRUE(chip.portSets().empty());
    EXPECT_EQ(chip.translationCount(), 0u);
    EXPECT_EQ(chip.violationCount(), 0u);
    ++figures_.histories;
    figures_.stranded += stranded.size();
    for (std::size_t op = 0; op < Chip::kOpCount; ++op) {
      const Chip::Counter& counter = chip.counter(static_cast<Chip::Op>(op));
      figures_.calls[op] += counter.calls;
      figures_.failedCalls += counter.failed;
    }
  }

  void report() {
    std::string scenario;
    for (const std::string& line : lines_) scenario += line + "\n";
    ADD_FAILURE() << "seed " << seed_ << ": the history, as a scenario (" << file_ << "):\n"
                  << scenario << "show leftovers\n"
                  << "errors:\n"
                  << err_.str();
  }

  unsigned seed_;
  std::string file_;
  std::mt19937 rng_;
  Sim::HistoryGenerator generator_;
  Figures& figures_;
  std::vector<std::string> lines_;
  std::ostringstream out_;
  std::ostringstream err_;
  Sim::Interpreter sim_{out_, err_, false};
};

class RandomHistoryTest : public testing::TestWithParam<unsigned> {
 protected:
  static void SetUpTestSuite() {
    std::signal(SIGABRT, onAbort);
#if defined(UMONAT_HISTORY_SANITIZED)
    __sanitizer_set_death_callback(writeDyingReport);
#endif
  }
};

TEST_P(RandomHistoryTest, NothingPublishableStopsOrCorruptsTheSystem) {
  Figures figures;
  for (unsigned i = 0; i < kHistories && !HasFailure(); ++i) {
    History(GetParam() * kHistories + i, figures).run();
  }
  if (HasFailure()) return;
  std::cout << "histories " << figures.histories << ", lines " << figures.lines << ", refused "
            << figures.refused << ", groups stranded by half-failed pairs " << figures.stranded
            << ", failed chip calls " << figures.failedCalls << "\n";
  // The simulator refuses only what the generator could not foresee.
  EXPECT_LT(figures.refused * 100, figures.lines);
  // The histories reached the chip in every kind of call, and filled it up.
  for (std::size_t op = 0; op < Chip::kOpCount; ++op) {
    EXPECT_GT(figures.calls[op], 0u) << Chip::opName(static_cast<Chip::Op>(op));
  }
  EXPECT_GT(figures.failedCalls, 0u);
}

INSTANTIATE_TEST_SUITE_P(Seeds, RandomHistoryTest, testing::Range(0u, kBlocks));

}  // namespace
