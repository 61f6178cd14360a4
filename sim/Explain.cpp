#include "sim/Explain.h"

#include <algorithm>
#include <map>
#include <ostream>
#include <set>
#include <sstream>
#include <tuple>
#include <utility>
#include <vector>

#include <nlohmann/json.hpp>

#include "UmoNat/UmoNatFlowActionSm.h"
#include "UmoNat/UmoNatFlowMatchSm.h"
#include "UmoNat/UmoNatFlowMcastSm.h"
#include "UmoNat/UmoNatFlowMcastTopologySm.h"
#include "UmoNat/UmoNatFlowPolicySm.h"
#include "UmoNat/UmoNatFlowPortSetProbe.h"
#include "sim/LineParser.h"
#include "sim/Printers.h"

namespace Sim {

namespace {

using Json = nlohmann::json;
using Ip::Nat::NatFlowType;

template <class T>
std::string text(const T& value) {
  std::ostringstream os;
  os << value;
  return os.str();
}

const char* flowTypeName(NatFlowType ft) {
  switch (ft) {
    case NatFlowType::natFlowTypeUnicast:
      return "unicast";
    case NatFlowType::natFlowTypeMulticast:
      return "multicast";
    case NatFlowType::natFlowTypeNone:
      break;
  }
  return "none";
}

// A step of the system in its own words: the trace text, with the source and level it is traced
// under.
Json says(std::string words, const char* source, int level) {
  return Json{{"text", std::move(words)}, {"source", source}, {"level", level}};
}

// A reason of the simulator's own, for a state no trace line reports.
Json observes(std::string words) {
  return Json{{"text", std::move(words)}, {"source", Json()}, {"level", Json()}};
}

std::string saysText(const Json& step) {
  if (step.at("source").is_null()) return step.at("text").get<std::string>();
  return step.at("text").get<std::string>() + " (" + step.at("source").get<std::string>() + "/" +
         std::to_string(step.at("level").get<int>()) + ")";
}

// One member of a port set: kind ("ucast", "mcast"), VLAN and interface.
using Member = std::tuple<std::string, std::uint16_t, std::string>;

std::set<Member> membersOf(const Ip::Nat::NatFlowVlanPortSets& vps) {
  std::set<Member> members;
  for (const bool unicast : {true, false}) {
    for (const auto& [vlan, ps] : unicast ? vps.ucastPortSet() : vps.mcastPortSet()) {
      for (const auto& [intf, present] : ps->intf()) {
        members.emplace(unicast ? "ucast" : "mcast", vlan, intf.name().str());
      }
    }
  }
  return members;
}

Json memberJson(const Member& m) {
  return Json{{"kind", std::get<0>(m)}, {"vlan", std::get<1>(m)}, {"intf", std::get<2>(m)}};
}

// Takes the steps of a dry port-set computation apart by next hop: the members each next hop
// put into a port set (also those another next hop had put there first) and the checks that
// refused it.
class HopProbe : public UmoNatFlowPortSetProbe {
 public:
  struct Hop {
    std::vector<Member> added;
    Json refusals = Json::array();
  };

  void step(Step step, const char* source, int level, const std::string& words) override {
    if (step == Step::nextHop) {
      hops_.emplace_back();
      return;
    }
    if (step == Step::refused && !hops_.empty()) {
      hops_.back().refusals.push_back(says(words, source, level));
    }
  }

  void member(bool unicast, std::uint16_t vlan, const Nexo::IntfId& intf) override {
    if (hops_.empty()) return;
    const Member m{unicast ? "ucast" : "mcast", vlan, intf.name().str()};
    std::vector<Member>& added = hops_.back().added;
    if (std::find(added.begin(), added.end(), m) == added.end()) added.push_back(m);
  }

  const std::vector<Hop>& hops() const { return hops_; }

 private:
  std::vector<Hop> hops_;
};

// Keeps only the refusals, for a check asked on its own.
class RefusalProbe : public UmoNatFlowPortSetProbe {
 public:
  void step(Step step, const char* source, int level, const std::string& words) override {
    if (step == Step::refused && first.is_null()) first = says(words, source, level);
  }
  Json first;
};

struct Machines {
  const UmoNatFlowMatchSm* match;
  const UmoNatFlowActionSm* action;
};

// Every action state machine the filter selects, in ascending names.
std::vector<Machines> selected(const Agent& agent, const std::optional<ActionFilter>& filter) {
  std::vector<Machines> out;
  for (const auto& [policyName, policySm] : agent.root()->policySm()) {
    if (filter && policyName.str() != filter->policy) continue;
    for (const auto& [matchName, matchSm] : policySm->matchSm()) {
      if (filter && filter->match && matchName.str() != *filter->match) continue;
      for (const auto& [actionName, actionSm] : matchSm->actionSm()) {
        if (filter && filter->action && actionName.str() != *filter->action) continue;
        out.push_back({matchSm.get(), actionSm.get()});
      }
    }
  }
  return out;
}

// The port-set kinds the groups of a match program for flow type `ft`: the first group's
// (unicast unless the flow is multicast) and, with two groups, the second's (unicast only for a
// unicast flow).
std::set<std::string> programmedKinds(NatFlowType ft, std::uint32_t groupNum) {
  std::set<std::string> kinds;
  kinds.insert(ft == NatFlowType::natFlowTypeMulticast ? "mcast" : "ucast");
  if (groupNum == 2) kinds.insert(ft == NatFlowType::natFlowTypeUnicast ? "ucast" : "mcast");
  return kinds;
}

// Whether a port set of a kind its groups program holds an interface and a port-set id.
bool hasProgrammedPorts(const UmoNatFlowActionSm& sm, std::uint32_t groupNum) {
  const auto& vps = sm.hwActionStatus() ? sm.hwActionStatus()->vlanPortSets() : nullptr;
  if (!vps) return false;
  const std::set<std::string> kinds = programmedKinds(sm.hwActionStatus()->flowType(), groupNum);
  for (const bool unicast : {true, false}) {
    if (!kinds.contains(unicast ? "ucast" : "mcast")) continue;
    for (const auto& [vlan, ps] : unicast ? vps->ucastPortSet() : vps->mcastPortSet()) {
      if (!ps->intf().empty() && (ps->portSetId() != 0 || ps->portSetId2() != 0)) return true;
    }
  }
  return false;
}

// What a waiting match waits on: the chip's groups, the retry task, and its place in the retry
// set, which is retried in order and stops at the first match that fails again.
Json waitingJson(const Agent& agent, const UmoNatFlowMatchSm& matchSm) {
  const Chip& chip = agent.chip();
  const UmoNatFlowMcastSm& root = *agent.root();
  Json chipState{{"groupsInUse", chip.groups().size()},
                 {"failNextGroups", chip.failNextGroups()},
                 {"failUnicast", chip.failUnicastGroups()},
                 {"failMulticast", chip.failMulticastGroups()}};
  chipState["groupCapacity"] =
      chip.groupCapacity() == Chip::kUnlimited ? Json() : Json(chip.groupCapacity());
  Json waiting{{"chip", chipState}, {"retryDelay", root.unprogrammedGroupTaskDelay()}};
  std::size_t position = 0;
  std::size_t index = 0;
  for (const UmoNatFlowMatchSm* parked : root.unprogrammedGroup()) {
    ++index;
    if (parked == &matchSm) position = index;
  }
  waiting["retryPosition"] = position == 0 ? Json() : Json(position);
  waiting["retrySetSize"] = root.unprogrammedGroup().size();
  const auto& task = root.unprogrammedGroupTask();
  if (task && task->taskScheduled()) {
    waiting["retryDue"] = task->dueTime();
  } else {
    waiting["retryDue"] = Json();
  }
  return waiting;
}

Json explainAction(const Agent& agent, const Machines& m) {
  const UmoNatFlowActionSm& sm = *m.action;
  const UmoNatFlowMatchSm& matchSm = *m.match;
  Json e{{"policy", sm.policy().str()},
         {"match", sm.match().str()},
         {"action", sm.action().str()},
         {"reason", Json()},
         {"nextHops", Json::array()},
         {"recirculation", Json()},
         {"waiting", Json()}};
  const auto& status = sm.actionStatus();
  const std::uint32_t groupNum = sm.matchSmStatus()->groupNum();
  const auto& hwMatch = sm.hwMatchStatus();
  e["groups"] = Json{{"num", groupNum}, {"uc", hwMatch->groupIdUc()}, {"mc", hwMatch->groupIdMc()}};
  e["version"] = status->version();
  const bool passed = agent.root()->topologySm()->actionSmIndexed(&sm);
  e["flowType"] =
      Json{{"today", flowTypeName(sm.deriveFlowType())},
           {"recorded", passed ? Json(flowTypeName(sm.hwActionStatus()->flowType())) : Json()}};
  if (status->version() == 0) {
    e["state"] = "version0";
    e["reason"] = says("Version not initialized yet, skip update", "UmoNatFlowActionSm", 2);
    return e;
  }
  if (groupNum == 0) {
    e["state"] = "waitingForGroups";
    e["reason"] = says("Group not initialized yet, skip update", "UmoNatFlowActionSm", 2);
  } else if (sm.getGroupNum() != groupNum) {
    e["state"] = "groupCountPending";
    e["reason"] = says("Change in the group number, old: " + std::to_string(groupNum) +
                           ", new: " + std::to_string(sm.getGroupNum()),
                       "UmoNatFlowActionSm", 2);
  } else if (hwMatch->groupIdUc() == 0 || (groupNum == 2 && hwMatch->groupIdMc() == 0)) {
    e["state"] = "waitingForGroups";
    e["reason"] = says(groupNum == 1 ? "Failed to allocate group" : "Failed to allocate group(s)",
                       "UmoNatFlowMatchSm", 2);
    e["waiting"] = waitingJson(agent, matchSm);
  } else {
    e["state"] = hasProgrammedPorts(sm, groupNum) ? "programmed" : "emptyPortSets";
  }

  // The port sets a topology update would compute now: with the flow type the last pass
  // recorded (today's before any pass).
  const NatFlowType ft = passed ? sm.hwActionStatus()->flowType() : sm.deriveFlowType();
  auto vps = Ip::Nat::natFlowVlanPortSetsFactory();
  HopProbe probe;
  sm.computeSwPortSet(*vps, ft, probe);
  const auto& hops = probe.hops();
  if (status->intf().empty()) {
    const std::uint16_t vlan = sm.topologySm()->natFlowRecircVlan();
    RefusalProbe check;
    const bool valid = vlan != 0 && sm.topologySm()->validVlan(vlan, &check);
    e["recirculation"] = Json{{"vlan", vlan}, {"valid", valid}, {"reason", check.first}};
  } else {
    std::size_t i = 0;
    for (const auto& [intf, nextHop] : status->intf()) {
      Json hop{{"intf", intf.name().str()},
               {"vlan", nextHop.vlan()},
               {"mac", text(nextHop.mac())},
               {"used", Json::array()},
               {"refusals", Json::array()}};
      if (i < hops.size()) {
        for (const Member& member : hops[i].added) hop["used"].push_back(memberJson(member));
        hop["refusals"] = hops[i].refusals;
      }
      e["nextHops"].push_back(hop);
      ++i;
    }
  }
  if (e["state"] == "emptyPortSets" && e["reason"].is_null()) {
    if (membersOf(*vps).empty()) {
      e["reason"] = observes("no next hop gives a port");
    } else if (status->intf().empty()) {
      e["reason"] = observes(std::string("the recirculation port set is a unicast one, and a ") +
                             flowTypeName(ft) + " flow's groups program only multicast ones");
    } else {
      e["reason"] = observes(std::string("its port sets are of a kind a ") + flowTypeName(ft) +
                             " flow's groups do not program");
    }
  }
  return e;
}

void printHop(std::ostream& os, const Json& hop) {
  os << "  next hop " << hop["intf"].get<std::string>() << " vlan " << hop["vlan"].get<int>()
     << " mac " << hop["mac"].get<std::string>() << ": ";
  const Json& used = hop["used"];
  const Json& refusals = hop["refusals"];
  if (used.empty()) {
    os << "not used: "
       << (refusals.empty() ? std::string("no port to add") : saysText(refusals.front())) << "\n";
    return;
  }
  os << "used:";
  for (const Json& m : used) {
    os << " " << m["kind"].get<std::string>() << " vlan " << m["vlan"].get<int>() << " "
       << m["intf"].get<std::string>();
  }
  if (!refusals.empty()) os << "; left out: " << saysText(refusals.front());
  os << "\n";
}

void printWaiting(std::ostream& os, const Json& w, double now) {
  const Json& chip = w["chip"];
  os << "  chip: groups " << chip["groupsInUse"].get<std::size_t>() << " of "
     << (chip["groupCapacity"].is_null() ? std::string("unlimited")
                                         : std::to_string(chip["groupCapacity"].get<std::size_t>()))
     << " in use";
  if (chip["failNextGroups"].get<std::uint32_t>() != 0) {
    os << ", the next " << chip["failNextGroups"].get<std::uint32_t>() << " group requests fail";
  }
  if (chip["failUnicast"].get<bool>()) os << ", unicast requests fail";
  if (chip["failMulticast"].get<bool>()) os << ", multicast requests fail";
  os << "\n";
  if (!w["retryPosition"].is_null()) {
    os << "  retry set: " << w["retryPosition"].get<std::size_t>() << " of "
       << w["retrySetSize"].get<std::size_t>()
       << " (retried in order; a retry stops at the first match that fails again)\n";
  }
  if (!w["retryDue"].is_null()) {
    const double due = w["retryDue"].get<double>();
    os << "  retry due at " << secondsText(due) << " s (in " << secondsText(due - now) << " s)\n";
  } else {
    os << "  no retry scheduled: one is scheduled " << secondsText(w["retryDelay"].get<double>())
       << " s after a match frees its groups (a match or policy deleted, or a match that needs "
          "another number of groups)\n";
  }
}

}  // namespace

void checkActionFilter(const Agent& agent, const ActionFilter& filter) {
  const auto policySm = agent.root()->policySm().find(filter.policy);
  if (!policySm) throw ScenarioError("there is no policy " + filter.policy);
  if (!filter.match) return;
  const auto matchSm = policySm->matchSm().find(*filter.match);
  if (!matchSm) throw ScenarioError("policy " + filter.policy + " has no match " + *filter.match);
  if (!filter.action) return;
  if (!matchSm->actionSm().find(*filter.action)) {
    throw ScenarioError("match " + filter.policy + "/" + *filter.match + " has no action " +
                        *filter.action);
  }
}

Json explainActions(const Agent& agent, const std::optional<ActionFilter>& filter) {
  Json out{{"time", agent.scheduler().now()}, {"actions", Json::array()}};
  for (const Machines& m : selected(agent, filter))
    out["actions"].push_back(explainAction(agent, m));
  return out;
}

void showExplanations(std::ostream& os, const Agent& agent, const ActionFilter& filter) {
  printExplanations(os, explainActions(agent, filter));
}

void printExplanations(std::ostream& os, const Json& explanations) {
  const double now = explanations["time"].get<double>();
  if (explanations["actions"].empty()) os << "no actions\n";
  for (const Json& e : explanations["actions"]) {
    const std::string state = e["state"].get<std::string>();
    os << e["policy"].get<std::string>() << "/" << e["match"].get<std::string>() << "/"
       << e["action"].get<std::string>() << ": ";
    if (state == "programmed") {
      os << "programmed\n";
    } else {
      const std::map<std::string, const char*> words = {
          {"version0", "not programmed, version 0"},
          {"waitingForGroups", "not programmed, the match waits for groups"},
          {"groupCountPending", "not programmed, the match's group count is changing"},
          {"emptyPortSets", "not programmed, no port"}};
      os << words.at(state) << ": " << saysText(e["reason"]) << "\n";
    }
    if (state == "version0") continue;
    const Json& groups = e["groups"];
    os << "  groups " << groups["num"].get<int>() << " (uc " << groups["uc"].get<int>() << ", mc "
       << groups["mc"].get<int>() << "), flow type ";
    const Json& ft = e["flowType"];
    if (ft["recorded"].is_null()) {
      os << ft["today"].get<std::string>() << ", no pass yet\n";
    } else if (ft["recorded"] == ft["today"]) {
      os << ft["today"].get<std::string>() << "\n";
    } else {
      os << ft["recorded"].get<std::string>() << " as recorded (today's inputs make it "
         << ft["today"].get<std::string>() << "; kept until a new version)\n";
    }
    if (!e["waiting"].is_null()) printWaiting(os, e["waiting"], now);
    for (const Json& hop : e["nextHops"]) printHop(os, hop);
    const Json& recirc = e["recirculation"];
    if (recirc.is_null()) continue;
    const int vlan = recirc["vlan"].get<int>();
    os << "  no next hop: recirculation through vlan " << vlan << ", the recirculation VLAN in use";
    if (vlan == 0) {
      os << " (none is chosen: no L3 interface's VLAN was valid when one was last chosen)\n";
    } else if (recirc["valid"].get<bool>()) {
      os << " (valid)\n";
    } else {
      os << " (not valid: " << saysText(recirc["reason"]) << ")\n";
    }
  }
}

// ---- drift ------------------------------------------------------------------------------------

namespace {

struct DriftKind {
  const char* name;
  const char* words;
};

constexpr DriftKind kFlowType{"flowType",
                              "flow type kept: the destination changed without a new version"};
constexpr DriftKind kTranslation{"translation", "translation changed without a new version"};
constexpr DriftKind kTranslationPort{
    "translationPort",
    "port of a translation: only addresses are compared, a new port is kept out"};
constexpr DriftKind kBridgeMac{"bridgeMac",
                               "bridge MAC: the recirculation port set keeps the MAC it was built "
                               "with"};
constexpr DriftKind kRecircVlan{"recircVlan",
                                "recirculation VLAN kept: a fresh start would choose another"};
constexpr DriftKind kSviMember{"sviMember",
                               "SVI member removed or changed: VLAN membership changes reach "
                               "actions by interface, not by VLAN"};
constexpr DriftKind kNextHop{"nextHop", "next hop changed without a new version"};

Json difference(const DriftKind& kind, std::string what, std::string programmed,
                std::string fresh) {
  return Json{{"kind", kind.name},
              {"why", kind.words},
              {"what", std::move(what)},
              {"programmed", std::move(programmed)},
              {"fresh", std::move(fresh)}};
}

// The VLAN a fresh start would take for recirculation: the first L3 interface's VLAN, in
// interface order, that is valid.
std::uint16_t freshRecircVlan(const UmoNatFlowMcastTopologySm& topo) {
  RefusalProbe quiet;
  for (const auto& [intf, vlan] : topo.intfL3Index()) {
    if (intf.empty() || vlan == 0) continue;
    if (topo.validVlan(vlan, &quiet)) return vlan;
  }
  return 0;
}

struct PortSetView {
  std::set<std::string> intfs;
  std::string dmac;
};

std::map<std::pair<std::string, std::uint16_t>, PortSetView> portSetsOf(
    const Ip::Nat::NatFlowVlanPortSets* vps) {
  std::map<std::pair<std::string, std::uint16_t>, PortSetView> out;
  if (vps == nullptr) return out;
  for (const bool unicast : {true, false}) {
    for (const auto& [vlan, ps] : unicast ? vps->ucastPortSet() : vps->mcastPortSet()) {
      PortSetView& view = out[{unicast ? "ucast" : "mcast", vlan}];
      view.dmac = text(ps->dmac());
      for (const auto& [intf, present] : ps->intf()) view.intfs.insert(intf.name().str());
    }
  }
  return out;
}

std::string joined(const std::set<std::string>& intfs) {
  std::string out;
  for (const std::string& intf : intfs)
    out += (out.empty() ? "" : " ") + (intf.empty() ? "\"\"" : intf);
  return out.empty() ? "none" : out;
}

// Why a port set of `vlan` differs, from today's next hops of the action.
const DriftKind& portSetKind(const Ip::Nat::NatFlowActionStatus& status, std::uint16_t vlan) {
  for (const auto& [intf, nextHop] : status.intf()) {
    if (Nexo::VlanIntfId::isVlanIntfId(intf) && Nexo::VlanIntfId::vlanId(intf) == vlan) {
      return kSviMember;
    }
  }
  return kNextHop;
}

void translationDrift(Json& diffs, const char* which, const Nexo::IpAndPort& programmed,
                      const Nexo::IpAndPort& today) {
  if (programmed.ip() != today.ip()) {
    diffs.push_back(difference(kTranslation, std::string(which) + " translation", text(programmed),
                               text(today)));
  } else if (programmed.port() != today.port()) {
    diffs.push_back(difference(kTranslationPort, std::string(which) + " translation",
                               text(programmed), text(today)));
  }
}

Json driftOfAction(const Agent& agent, const UmoNatFlowActionSm& sm, std::uint16_t freshRecirc) {
  Json d{{"policy", sm.policy().str()},
         {"match", sm.match().str()},
         {"action", sm.action().str()},
         {"differences", Json::array()}};
  const auto& status = sm.actionStatus();
  const auto& hw = sm.hwActionStatus();
  const auto& topo = *agent.root()->topologySm();
  d["queued"] = topo.actionSmUpdateBacklog().contains(&sm);
  Json& diffs = d["differences"];

  const NatFlowType fresh = sm.deriveFlowType();
  const bool flowTypeKept = hw->flowType() != fresh;
  if (flowTypeKept) {
    diffs.push_back(
        difference(kFlowType, "flow type", flowTypeName(hw->flowType()), flowTypeName(fresh)));
  }
  translationDrift(diffs, "source", hw->srcNat(), status->src());
  translationDrift(diffs, "destination", hw->dstNat(), status->dst());

  auto vps = Ip::Nat::natFlowVlanPortSetsFactory();
  RefusalProbe quiet;
  sm.computeSwPortSet(*vps, fresh, quiet);
  const auto programmed = portSetsOf(hw->vlanPortSets().get());
  const auto computed = portSetsOf(vps.get());
  std::set<std::pair<std::string, std::uint16_t>> keys;
  for (const auto& [key, view] : programmed) keys.insert(key);
  for (const auto& [key, view] : computed) keys.insert(key);
  const bool recirc = status->intf().empty();
  const std::set<std::string> kRecircIntfs = {""};
  for (const auto& key : keys) {
    const auto p = programmed.find(key);
    const auto c = computed.find(key);
    const std::string what = key.first + " port set vlan " + std::to_string(key.second);
    // A port set of the recirculation interface alone, on both sides, moved with the
    // recirculation VLAN.
    const bool recircOnly = (p == programmed.end() || p->second.intfs == kRecircIntfs) &&
                            (c == computed.end() || c->second.intfs == kRecircIntfs);
    const DriftKind& kind = flowTypeKept ? kFlowType
                            : recircOnly ? kRecircVlan
                                         : portSetKind(*status, key.second);
    if (p == programmed.end() || c == computed.end()) {
      diffs.push_back(difference(kind, what,
                                 p == programmed.end() ? "none" : joined(p->second.intfs),
                                 c == computed.end() ? "none" : joined(c->second.intfs)));
      continue;
    }
    if (p->second.intfs != c->second.intfs) {
      diffs.push_back(difference(kind, what, joined(p->second.intfs), joined(c->second.intfs)));
    }
    if (p->second.dmac != c->second.dmac) {
      diffs.push_back(
          difference(recirc ? kBridgeMac : kind, what + " dmac", p->second.dmac, c->second.dmac));
    }
  }
  if (recirc && freshRecirc != topo.natFlowRecircVlan()) {
    diffs.push_back(difference(kRecircVlan, "recirculation vlan",
                               std::to_string(topo.natFlowRecircVlan()),
                               std::to_string(freshRecirc)));
  }
  return d;
}

}  // namespace

Json driftOf(const Agent& agent, const std::optional<std::string>& policy) {
  const auto& topo = *agent.root()->topologySm();
  const std::uint16_t freshRecirc = freshRecircVlan(topo);
  Json out{{"recirculation", Json{{"inUse", topo.natFlowRecircVlan()},
                                  {"freshStart", freshRecirc},
                                  {"kept", freshRecirc != topo.natFlowRecircVlan()}}},
           {"actions", Json::array()},
           {"notCompared", Json::array()}};
  std::optional<ActionFilter> filter;
  if (policy) filter = ActionFilter{*policy, std::nullopt, std::nullopt};
  for (const Machines& m : selected(agent, filter)) {
    const UmoNatFlowActionSm& sm = *m.action;
    const auto& hwMatch = sm.hwMatchStatus();
    const std::uint32_t groupNum = sm.matchSmStatus()->groupNum();
    std::string why;
    if (sm.actionStatus()->version() == 0) {
      why = "version0";
    } else if (!topo.actionSmIndexed(&sm)) {
      why = "noPass";
    } else if (groupNum == 0 || hwMatch->groupIdUc() == 0 ||
               (groupNum == 2 && hwMatch->groupIdMc() == 0)) {
      why = "waitingForGroups";
    }
    if (!why.empty()) {
      out["notCompared"].push_back(Json{{"policy", sm.policy().str()},
                                        {"match", sm.match().str()},
                                        {"action", sm.action().str()},
                                        {"state", why}});
      continue;
    }
    out["actions"].push_back(driftOfAction(agent, sm, freshRecirc));
  }
  return out;
}

void printDrift(std::ostream& os, const Json& drift) {
  const Json& recirc = drift["recirculation"];
  os << "recirculation vlan " << recirc["inUse"].get<int>();
  if (recirc["kept"].get<bool>()) {
    os << " kept; a fresh start would choose " << recirc["freshStart"].get<int>() << "\n";
  } else {
    os << ", as a fresh start would choose\n";
  }
  std::size_t same = 0;
  for (const Json& a : drift["actions"]) {
    if (a["differences"].empty()) {
      ++same;
      continue;
    }
    os << a["policy"].get<std::string>() << "/" << a["match"].get<std::string>() << "/"
       << a["action"].get<std::string>() << ":"
       << (a["queued"].get<bool>() ? " (queued for a topology update)" : "") << "\n";
    for (const Json& d : a["differences"]) {
      os << "  " << d["kind"].get<std::string>() << ": " << d["what"].get<std::string>()
         << " programmed " << d["programmed"].get<std::string>() << ", fresh "
         << d["fresh"].get<std::string>() << "\n    (" << d["why"].get<std::string>() << ")\n";
    }
  }
  os << same << " of " << drift["actions"].size() << " compared action"
     << (drift["actions"].size() == 1 ? "" : "s") << " as a fresh pass would program";
  if (!drift["notCompared"].empty()) {
    os << "; not compared:";
    for (const Json& n : drift["notCompared"]) {
      os << " " << n["policy"].get<std::string>() << "/" << n["match"].get<std::string>() << "/"
         << n["action"].get<std::string>() << " (" << n["state"].get<std::string>() << ")";
    }
  }
  os << "\n";
}

}  // namespace Sim
