#include "sim/Views.h"

#include <algorithm>
#include <ostream>
#include <set>
#include <sstream>
#include <vector>

#include <nlohmann/json.hpp>

#include "Mox/Log.h"
#include "Skimtrace/Skimtrace.h"
#include "UmoNat/UmoNatFlowActionSm.h"
#include "UmoNat/UmoNatFlowMatchSm.h"
#include "UmoNat/UmoNatFlowMcastSm.h"
#include "UmoNat/UmoNatFlowMcastTopologySm.h"
#include "UmoNat/UmoNatFlowPolicySm.h"
#include "UmoNat/UmoNatFlowPortSetProbe.h"
#include "sim/Explain.h"
#include "sim/LineParser.h"
#include "sim/Printers.h"

namespace Sim {

namespace {

using Json = nlohmann::json;

template <class T>
std::string text(const T& value) {
  std::ostringstream os;
  os << value;
  return os.str();
}

std::string actionKey(const UmoNatFlowActionSm& sm) {
  return sm.policy().str() + "/" + sm.match().str() + "/" + sm.action().str();
}

Json capacityJson(std::size_t capacity) {
  return capacity == Chip::kUnlimited ? Json() : Json(capacity);
}

std::string capacityText(const Json& capacity) {
  return capacity.is_null() ? "unlimited" : std::to_string(capacity.get<std::size_t>());
}

// The first refusal of a check asked on its own, in the system's words.
class FirstRefusal : public UmoNatFlowPortSetProbe {
 public:
  void step(Step step, const char* source, int level, const std::string& words) override {
    if (step != Step::refused || !first.is_null()) return;
    first = Json{{"text", words}, {"source", source}, {"level", level}};
  }
  Json first;
};

std::string dotId(const std::string& id) {
  std::string out = "\"";
  for (const char ch : id) {
    if (ch == '"') out += '\\';
    out += ch;
  }
  return out + "\"";
}

Json portSetsJson(const Ip::Nat::NatFlowVlanPortSets::PortSetView& sets) {
  Json out = Json::array();
  for (const auto& [vlan, ps] : sets) {
    Json intfs = Json::array();
    for (const auto& [intf, present] : ps->intf()) intfs.push_back(intf.name().str());
    out.push_back(Json{{"vlan", vlan},
                       {"portSetId", ps->portSetId()},
                       {"portSetId2", ps->portSetId2()},
                       {"dmac", text(ps->dmac())},
                       {"intf", intfs}});
  }
  return out;
}

const char* flowTypeText(Ip::Nat::NatFlowType ft) {
  switch (ft) {
    case Ip::Nat::NatFlowType::natFlowTypeUnicast:
      return "unicast";
    case Ip::Nat::NatFlowType::natFlowTypeMulticast:
      return "multicast";
    case Ip::Nat::NatFlowType::natFlowTypeNone:
      break;
  }
  return "none";
}

}  // namespace

// ---- the backlog's queue times ---------------------------------------------------------------

void BacklogWatch::observe(const Agent& agent) {
  std::map<std::string, Mox::Seconds> now;
  if (agent.started() && agent.root()->topologySm() != nullptr) {
    for (const UmoNatFlowActionSm* sm : agent.root()->topologySm()->actionSmUpdateBacklog()) {
      const std::string key = actionKey(*sm);
      const auto known = since_.find(key);
      now[key] = known != since_.end() ? known->second : agent.scheduler().now();
    }
  }
  since_ = std::move(now);
}

std::optional<Mox::Seconds> BacklogWatch::oldest(const Agent& agent) const {
  std::optional<Mox::Seconds> oldest;
  for (const UmoNatFlowActionSm* sm : agent.root()->topologySm()->actionSmUpdateBacklog()) {
    const auto known = since_.find(actionKey(*sm));
    // Queued by the line being run: now.
    const Mox::Seconds at = known != since_.end() ? known->second : agent.scheduler().now();
    if (!oldest || at < *oldest) oldest = at;
  }
  return oldest;
}

// ---- settings ---------------------------------------------------------------------------------

const std::map<std::string, Setting>& settings() {
  static const std::map<std::string, Setting> table = {
      {"backlog-interval",
       {"backlog-interval", "seconds between runs of the topology update backlog (0.1)"}},
      {"backlog-limit",
       {"backlog-limit", "actions re-evaluated per backlog run; 0 drains it in one run (100)"}},
      {"retry-delay",
       {"retry-delay",
        "seconds from a match freeing its groups to the retry of waiting ones (10)"}},
      {"time-slice",
       {"time-slice", "steps a task run may take before it yields; 0: unlimited (0)"}},
  };
  return table;
}

Json settingsJson(const Agent& agent) {
  const UmoNatFlowMcastSm& root = *agent.root();
  const UmoNatFlowMcastTopologySm& topo = *root.topologySm();
  return Json{{"retry-delay", root.unprogrammedGroupTaskDelay()},
              {"backlog-interval", topo.actionSmUpdateBacklogTaskInterval()},
              {"backlog-limit", topo.actionSmUpdateBacklogTaskLimit()},
              {"time-slice", agent.scheduler().timeSlice()}};
}

void printSettings(std::ostream& os, const Json& values) {
  for (const auto& [name, setting] : settings()) {
    const Json& value = values.at(name);
    os << name << " "
       << (value.is_number_float() ? secondsText(value.get<double>())
                                   : text(value.get<std::uint64_t>()))
       << "  # " << setting.help << "\n";
  }
}

// ---- summary ----------------------------------------------------------------------------------

Json summaryJson(const Agent& agent) {
  std::size_t policies = 0;
  std::size_t matches = 0;
  std::size_t actions = 0;
  for (const auto& [policyName, policy] : agent.natStatus()->natFlow()) {
    ++policies;
    for (const auto& [matchName, match] : policy->match()) {
      ++matches;
      actions += match->action().size();
    }
  }
  const Chip& chip = agent.chip();
  Json out{{"started", agent.started()},
           {"inputs", Json{{"policies", policies}, {"matches", matches}, {"actions", actions}}},
           {"actions", Json()},
           {"matches", Json()},
           {"chip",
            Json{{"groups", Json{{"inUse", chip.groups().size()},
                                 {"capacity", capacityJson(chip.groupCapacity())}}},
                 {"portSets", Json{{"inUse", chip.portSets().size()},
                                   {"capacity", capacityJson(chip.portSetCapacity())}}},
                 {"translations", Json{{"inUse", chip.translationCount()},
                                       {"capacity", capacityJson(chip.translationCapacity())}}}}}};
  if (!agent.started()) return out;
  Json states{{"programmed", 0},
              {"waitingForGroups", 0},
              {"version0", 0},
              {"groupCountPending", 0},
              {"emptyPortSets", 0}};
  const Json explained = explainActions(agent, std::nullopt);
  for (const Json& e : explained["actions"]) {
    Json& count = states[e["state"].get<std::string>()];
    count = count.get<std::size_t>() + 1;
  }
  out["actions"] = states;
  std::size_t withGroups = 0;
  for (const auto& [policyName, policySm] : agent.root()->policySm()) {
    for (const auto& [matchName, matchSm] : policySm->matchSm()) {
      if (matchSm->hwMatchStatus() && matchSm->hwMatchStatus()->groupIdUc() != 0) ++withGroups;
    }
  }
  out["matches"] = Json{{"withGroups", withGroups},
                        {"waitingForGroups", agent.root()->unprogrammedGroup().size()}};
  return out;
}

void printSummary(std::ostream& os, const Json& s) {
  const Json& in = s["inputs"];
  os << "policies " << in["policies"].get<std::size_t>() << ", matches "
     << in["matches"].get<std::size_t>() << ", actions " << in["actions"].get<std::size_t>()
     << "\n";
  if (!s["started"].get<bool>()) {
    os << "system: stopped\n";
  } else {
    const Json& a = s["actions"];
    os << "actions: programmed " << a["programmed"].get<std::size_t>() << ", waiting for groups "
       << a["waitingForGroups"].get<std::size_t>() << ", version 0 "
       << a["version0"].get<std::size_t>() << ", group count changing "
       << a["groupCountPending"].get<std::size_t>() << ", empty port sets "
       << a["emptyPortSets"].get<std::size_t>() << "\n";
    os << "matches: with groups " << s["matches"]["withGroups"].get<std::size_t>()
       << ", waiting for groups " << s["matches"]["waitingForGroups"].get<std::size_t>() << "\n";
  }
  const Json& chip = s["chip"];
  os << "chip: groups " << chip["groups"]["inUse"].get<std::size_t>() << " of "
     << capacityText(chip["groups"]["capacity"]) << ", port sets "
     << chip["portSets"]["inUse"].get<std::size_t>() << " of "
     << capacityText(chip["portSets"]["capacity"]) << ", translations "
     << chip["translations"]["inUse"].get<std::size_t>() << " of "
     << capacityText(chip["translations"]["capacity"]) << "\n";
}

// ---- topology ---------------------------------------------------------------------------------

Json topologyJson(const Agent& agent, const BacklogWatch& watch) {
  const UmoNatFlowMcastSm& root = *agent.root();
  const UmoNatFlowMcastTopologySm& topo = *root.topologySm();
  const Mox::Seconds now = agent.scheduler().now();
  std::set<std::uint16_t> vlans;
  for (const auto& [vlan, reactor] : topo.vlanStatus()) vlans.insert(vlan.value());
  for (const auto& [vlan, name] : topo.vlanToTopoMap()) vlans.insert(vlan.value());
  for (const auto& [intf, vlan] : topo.intfL3Index()) {
    if (vlan >= 1 && vlan <= 4094) vlans.insert(vlan);
  }
  Json vlanList = Json::array();
  for (const std::uint16_t vlan : vlans) {
    FirstRefusal check;
    const bool valid = topo.validVlan(vlan, &check);
    const Pelo::String* name = topo.vlanToTopoMap().find(Bridging::VlanId(vlan));
    vlanList.push_back(Json{{"vlan", vlan},
                            {"valid", valid},
                            {"reason", check.first},
                            {"topology", name ? Json(name->str()) : Json()}});
  }
  std::uint16_t freshRecirc = 0;
  for (const auto& [intf, vlan] : topo.intfL3Index()) {
    FirstRefusal quiet;
    if (intf.empty() || vlan == 0 || !topo.validVlan(vlan, &quiet)) continue;
    freshRecirc = vlan;
    break;
  }
  Json backlog{{"depth", topo.actionSmUpdateBacklog().size()},
               {"interval", topo.actionSmUpdateBacklogTaskInterval()},
               {"limit", topo.actionSmUpdateBacklogTaskLimit()},
               {"oldestQueuedAt", Json()},
               {"oldestWaited", Json()},
               {"due", Json()}};
  if (const auto oldest = watch.oldest(agent)) {
    backlog["oldestQueuedAt"] = *oldest;
    backlog["oldestWaited"] = now - *oldest;
  }
  const auto& backlogTask = topo.actionSmUpdateBacklogTask();
  if (backlogTask && backlogTask->taskScheduled()) backlog["due"] = backlogTask->dueTime();
  Json retry{
      {"matches", Json::array()}, {"delay", root.unprogrammedGroupTaskDelay()}, {"due", Json()}};
  for (const UmoNatFlowMatchSm* matchSm : root.unprogrammedGroup()) {
    retry["matches"].push_back(matchSm->policy().str() + "/" + matchSm->match().str());
  }
  const auto& retryTask = root.unprogrammedGroupTask();
  if (retryTask && retryTask->taskScheduled()) retry["due"] = retryTask->dueTime();
  return Json{
      {"time", now},
      {"vlans", vlanList},
      {"recirculation", Json{{"inUse", topo.natFlowRecircVlan()}, {"freshStart", freshRecirc}}},
      {"index", Json{{"intf", topo.actionIntf().size()},
                     {"vlan", topo.actionVlan().size()},
                     {"mac", topo.actionMac().size()},
                     {"recirc", topo.actionRecirc().size()}}},
      {"backlog", backlog},
      {"retry", retry}};
}

void printTopologyView(std::ostream& os, const Json& t) {
  const double now = t["time"].get<double>();
  if (t["vlans"].empty()) os << "no vlans\n";
  for (const Json& v : t["vlans"]) {
    os << "vlan " << v["vlan"].get<int>() << ": ";
    if (v["valid"].get<bool>()) {
      os << "valid";
    } else {
      os << "not valid: " << v["reason"]["text"].get<std::string>() << " ("
         << v["reason"]["source"].get<std::string>() << "/" << v["reason"]["level"].get<int>()
         << ")";
    }
    os << "\n";
  }
  const Json& recirc = t["recirculation"];
  os << "recirculation vlan " << recirc["inUse"].get<int>();
  if (recirc["inUse"] != recirc["freshStart"]) {
    os << " (a fresh start would choose " << recirc["freshStart"].get<int>() << ")";
  }
  os << "\n";
  const Json& index = t["index"];
  os << "index: intf " << index["intf"].get<std::size_t>() << ", vlan "
     << index["vlan"].get<std::size_t>() << ", mac " << index["mac"].get<std::size_t>()
     << ", recirc " << index["recirc"].get<std::size_t>() << "\n";
  const Json& b = t["backlog"];
  os << "backlog: " << b["depth"].get<std::size_t>() << " queued";
  if (!b["oldestQueuedAt"].is_null()) {
    os << ", the oldest since " << secondsText(b["oldestQueuedAt"].get<double>()) << " s (waited "
       << secondsText(b["oldestWaited"].get<double>()) << " s)";
  }
  if (!b["due"].is_null()) {
    os << ", next run at " << secondsText(b["due"].get<double>()) << " s";
  }
  const std::uint32_t limit = b["limit"].get<std::uint32_t>();
  os << "; " << (limit == 0 ? std::string("all") : "up to " + std::to_string(limit))
     << " per run, every " << secondsText(b["interval"].get<double>()) << " s\n";
  const Json& r = t["retry"];
  os << "retry set:";
  if (r["matches"].empty()) os << " empty";
  for (const Json& m : r["matches"]) os << " " << m.get<std::string>();
  if (!r["due"].is_null()) {
    const double due = r["due"].get<double>();
    os << "; retry at " << secondsText(due) << " s (in " << secondsText(due - now) << " s)";
  } else if (!r["matches"].empty()) {
    os << "; no retry scheduled (one is, " << secondsText(r["delay"].get<double>())
       << " s after a match frees its groups)";
  }
  os << "\n";
}

// ---- the hardware status ----------------------------------------------------------------------

Json hwJson(const Ip::Nat::HwNatFlowStatus& hwStatus) {
  Json policies = Json::array();
  for (const auto& [policyName, policy] : hwStatus.natFlow()) {
    Json matches = Json::array();
    for (const auto& [matchName, match] : policy->match()) {
      Json actions = Json::array();
      for (const auto& [actionName, action] : match->action()) {
        Json a{{"name", actionName.str()},
               {"flowType", flowTypeText(action->flowType())},
               {"srcNat", text(action->srcNat())},
               {"srcFlow", text(action->srcFlow())},
               {"srcLen", action->srcLen()},
               {"dstNat", text(action->dstNat())},
               {"dstFlow", text(action->dstFlow())},
               {"dstLen", action->dstLen()},
               {"vlanPortSets", Json()}};
        if (const auto& vps = action->vlanPortSets()) {
          a["vlanPortSets"] = Json{{"ucast", portSetsJson(vps->ucastPortSet())},
                                   {"mcast", portSetsJson(vps->mcastPortSet())}};
        }
        actions.push_back(a);
      }
      matches.push_back(Json{{"name", matchName.str()},
                             {"groupIdUc", match->groupIdUc()},
                             {"groupIdMc", match->groupIdMc()},
                             {"flow", text(match->flow())},
                             {"actions", actions}});
    }
    policies.push_back(Json{{"name", policyName.str()}, {"matches", matches}});
  }
  return Json{{"policies", policies}};
}

void printHwDot(std::ostream& os, const Ip::Nat::HwNatFlowStatus& hwStatus) {
  os << "digraph hw {\n  rankdir=LR;\n  node [shape=box];\n";
  std::set<std::string> intfs;
  for (const auto& [policyName, policy] : hwStatus.natFlow()) {
    const std::string p = "policy " + policyName.str();
    os << "  " << dotId(p) << " [label=" << dotId(policyName.str()) << "];\n";
    for (const auto& [matchName, match] : policy->match()) {
      const std::string m = "match " + policyName.str() + "/" + matchName.str();
      os << "  " << dotId(m) << " [label="
         << dotId(matchName.str() + "\\ngroups uc " + std::to_string(match->groupIdUc()) + " mc " +
                  std::to_string(match->groupIdMc()))
         << "];\n  " << dotId(p) << " -> " << dotId(m) << ";\n";
      for (const auto& [actionName, action] : match->action()) {
        const std::string a =
            "action " + policyName.str() + "/" + matchName.str() + "/" + actionName.str();
        const auto& vps = action->vlanPortSets();
        os << "  " << dotId(a) << " [label="
           << dotId(actionName.str() + "\\n" + flowTypeText(action->flowType()) +
                    (vps ? "" : "\\nno port sets"))
           << "];\n  " << dotId(m) << " -> " << dotId(a) << ";\n";
        if (!vps) continue;
        for (const bool unicast : {true, false}) {
          const char* kind = unicast ? "ucast" : "mcast";
          for (const auto& [vlan, ps] : unicast ? vps->ucastPortSet() : vps->mcastPortSet()) {
            const std::string s =
                "portset " + a.substr(7) + "/" + kind + "/" + std::to_string(vlan);
            os << "  " << dotId(s) << " [shape=record, label="
               << dotId(std::string(kind) + " vlan " + std::to_string(vlan) + "|port sets " +
                        std::to_string(ps->portSetId()) + " " + std::to_string(ps->portSetId2()) +
                        "|dmac " + text(ps->dmac()))
               << "];\n  " << dotId(a) << " -> " << dotId(s) << ";\n";
            for (const auto& [intf, present] : ps->intf()) {
              const std::string name = intf.empty() ? "recirculation" : intf.name().str();
              intfs.insert(name);
              os << "  " << dotId(s) << " -> " << dotId("intf " + name) << ";\n";
            }
          }
        }
      }
    }
  }
  for (const std::string& name : intfs) {
    os << "  " << dotId("intf " + name) << " [shape=ellipse, label=" << dotId(name) << "];\n";
  }
  os << "}\n";
}

// ---- what no state owns -----------------------------------------------------------------------

Json orphansJson(const Agent& agent) {
  std::set<std::uint32_t> groups;
  std::set<Chip::PortSetKey> portSets;
  for (const auto& [policyName, policy] : agent.hwStatus()->natFlow()) {
    for (const auto& [matchName, match] : policy->match()) {
      groups.insert(match->groupIdUc());
      groups.insert(match->groupIdMc());
      for (const auto& [actionName, action] : match->action()) {
        const auto& vps = action->vlanPortSets();
        if (!vps) continue;
        for (const bool unicast : {true, false}) {
          for (const auto& [vlan, ps] : unicast ? vps->ucastPortSet() : vps->mcastPortSet()) {
            portSets.emplace(match->groupIdUc(), ps->portSetId());
            portSets.emplace(match->groupIdMc(), ps->portSetId2());
          }
        }
      }
    }
  }
  const Chip& chip = agent.chip();
  Json out{{"groups", Json::array()},
           {"portSets", Json::array()},
           {"srcTranslations", Json::array()},
           {"dstTranslations", Json::array()}};
  for (const auto& [id, group] : chip.groups()) {
    if (groups.contains(id)) continue;
    out["groups"].push_back(
        Json{{"id", id}, {"policy", group.policy.str()}, {"match", group.match.str()}});
  }
  auto orphan = [&](const Chip::PortSetKey& key) { return !portSets.contains(key); };
  for (const auto& [key, ps] : chip.portSets()) {
    if (orphan(key)) out["portSets"].push_back(Json{{"group", key.first}, {"portSet", key.second}});
  }
  for (const auto& [key, t] : chip.srcTranslations()) {
    if (orphan(key)) {
      out["srcTranslations"].push_back(Json{{"group", key.first}, {"portSet", key.second}});
    }
  }
  for (const auto& [key, t] : chip.dstTranslations()) {
    if (orphan(key)) {
      out["dstTranslations"].push_back(Json{{"group", key.first}, {"portSet", key.second}});
    }
  }
  return out;
}

void printOrphans(std::ostream& os, const Json& o) {
  const std::size_t translations = o["srcTranslations"].size() + o["dstTranslations"].size();
  if (o["groups"].empty() && o["portSets"].empty() && translations == 0) {
    os << "the chip holds nothing that no state owns\n";
    return;
  }
  os << "the chip holds " << o["groups"].size() << " group(s), " << o["portSets"].size()
     << " port set(s), " << translations << " translation(s) that no state owns\n";
  for (const Json& g : o["groups"]) {
    os << "  group " << g["id"].get<std::uint32_t>() << " of " << g["policy"].get<std::string>()
       << "/" << g["match"].get<std::string>() << "\n";
  }
  for (const char* kind : {"portSets", "srcTranslations", "dstTranslations"}) {
    const std::map<std::string, const char*> words = {{"portSets", "port set"},
                                                      {"srcTranslations", "src translation"},
                                                      {"dstTranslations", "dst translation"}};
    for (const Json& e : o[kind]) {
      os << "  " << words.at(kind) << " " << e["group"].get<std::uint32_t>() << "/"
         << e["portSet"].get<std::uint32_t>() << "\n";
    }
  }
}

// ---- the system's show command ----------------------------------------------------------------

Json tableJson(const std::string& tableText) {
  static const char* const kColumns[] = {"policy", "match", "action", "source", "destination",
                                         "sport",  "dport", "ft",     "pt",     "pset1",
                                         "pset2",  "vlan",  "intf",   "mac"};
  constexpr std::size_t kIntf = 12;
  Json rows = Json::array();
  std::istringstream in(tableText);
  std::string line;
  // A separator, the header, a separator, then the rows: a row is never all hyphens, and the
  // header is known by its place, not its words (a policy may be named "Policy").
  std::size_t separators = 0;
  while (std::getline(in, line)) {
    if (separators < 2) {
      if (!line.empty() && line.find_first_not_of('-') == std::string::npos) ++separators;
      continue;
    }
    std::vector<std::string> fields = LineParser::split(line);
    // The recirculation interface has an empty name: its column is blank.
    if (fields.size() == std::size(kColumns) - 1) {
      fields.insert(fields.begin() + kIntf, "");
    }
    if (fields.size() != std::size(kColumns)) continue;
    Json row = Json::object();
    for (std::size_t i = 0; i < fields.size(); ++i) {
      const std::string column = kColumns[i];
      const bool number = column == "sport" || column == "dport" || column == "pset1" ||
                          column == "pset2" || column == "vlan";
      row[column] = number ? Json(std::stoll(fields[i])) : Json(fields[i]);
    }
    rows.push_back(row);
  }
  return Json{{"rows", rows}};
}

// ---- the chip ---------------------------------------------------------------------------------

namespace {

Json chipTablesJson(const Chip& chip) {
  Json groups = Json::array();
  for (const auto& [id, g] : chip.groups()) {
    groups.push_back(Json{
        {"id", id}, {"policy", g.policy.str()}, {"match", g.match.str()}, {"unicast", g.unicast}});
  }
  Json portSets = Json::array();
  for (const auto& [key, ps] : chip.portSets()) {
    Json intfs = Json::array();
    for (const Nexo::IntfId& intf : ps.intf) intfs.push_back(intf.name().str());
    portSets.push_back(Json{{"group", key.first},
                            {"portSet", key.second},
                            {"vlan", ps.vlan},
                            {"intf", intfs},
                            {"dmac", text(ps.dmac)}});
  }
  Json src = Json::array();
  for (const auto& [key, t] : chip.srcTranslations()) {
    src.push_back(Json{{"group", key.first},
                       {"portSet", key.second},
                       {"vlan", t.vlan},
                       {"srcNat", text(t.srcNat)},
                       {"srcFlow", text(t.srcFlow)},
                       {"pfxLen", t.pfxLen}});
  }
  Json dst = Json::array();
  for (const auto& [key, t] : chip.dstTranslations()) {
    dst.push_back(Json{{"group", key.first},
                       {"portSet", key.second},
                       {"vlan", t.vlan},
                       {"dstNat", text(t.dstNat)},
                       {"dstFlow", text(t.dstFlow)},
                       {"pfxLen", t.pfxLen},
                       {"dmac", text(t.dmac)}});
  }
  return Json{{"groups", groups},
              {"portSets", portSets},
              {"srcTranslations", src},
              {"dstTranslations", dst}};
}

Json callJson(const Chip::Call& call) {
  return Json{{"number", call.number},
              {"text", call.text},
              {"violation", call.violation.empty() ? Json() : Json(call.violation)}};
}

}  // namespace

Json chipJson(const Chip& chip) {
  Json out = chipTablesJson(chip);
  out["capacity"] = Json{{"groups", capacityJson(chip.groupCapacity())},
                         {"portSets", capacityJson(chip.portSetCapacity())},
                         {"translations", capacityJson(chip.translationCapacity())}};
  out["faults"] = Json{{"failNextGroups", chip.failNextGroups()},
                       {"failUnicast", chip.failUnicastGroups()},
                       {"failMulticast", chip.failMulticastGroups()}};
  return out;
}

Json callsJson(const Chip& chip, const std::string& callsText) {
  Json calls = Json::array();
  std::istringstream in(callsText);
  std::string line;
  while (std::getline(in, line)) {
    if (line.size() < 2 || line[0] != '#') continue;
    const std::uint64_t number = std::stoull(line.substr(1));
    if (number >= 1 && number <= chip.calls().size()) {
      calls.push_back(callJson(chip.calls()[number - 1]));
    }
  }
  return Json{{"calls", calls}};
}

Json countersJson(const Chip& chip) {
  Json out = Json::array();
  for (std::size_t i = 0; i < Chip::kOpCount; ++i) {
    const auto op = static_cast<Chip::Op>(i);
    const Chip::Counter& c = chip.counter(op);
    out.push_back(Json{{"operation", Chip::opName(op)},
                       {"calls", c.calls},
                       {"failed", c.failed},
                       {"refused", c.refused}});
  }
  return Json{{"counters", out}};
}

Json leftoversJson(const Chip& chip) {
  Json violations = Json::array();
  for (const Chip::Call* call : chip.violations()) violations.push_back(callJson(*call));
  return Json{{"holds", chipTablesJson(chip)}, {"violations", violations}};
}

// ---- the inputs -------------------------------------------------------------------------------

Json inputsJson(const Agent& agent) {
  Json policies = Json::array();
  for (const auto& [policyName, policy] : agent.natStatus()->natFlow()) {
    Json matches = Json::array();
    for (const auto& [matchName, match] : policy->match()) {
      Json actions = Json::array();
      for (const auto& [actionName, action] : match->action()) {
        Json nextHops = Json::array();
        for (const auto& [intf, nextHop] : action->intf()) {
          nextHops.push_back(Json{
              {"intf", intf.name().str()}, {"vlan", nextHop.vlan()}, {"mac", text(nextHop.mac())}});
        }
        actions.push_back(Json{{"name", actionName.str()},
                               {"src", text(action->src())},
                               {"dst", text(action->dst())},
                               {"version", action->version()},
                               {"nextHops", nextHops}});
      }
      matches.push_back(
          Json{{"name", matchName.str()}, {"flow", text(match->flow())}, {"actions", actions}});
    }
    policies.push_back(Json{{"name", policyName.str()}, {"matches", matches}});
  }
  Json switchports = Json::array();
  for (const auto& [intf, sw] : agent.bridgingConfig()->switchIntfConfig()) {
    switchports.push_back(Json{{"intf", intf.name().str()},
                               {"mode", text(sw->switchportMode())},
                               {"native", text(sw->nativeVlan())}});
  }
  Json vlans = Json::array();
  for (const auto& [vlan, status] : agent.vlanStatusDir()->vlanStatus()) {
    Json members = Json::array();
    for (const auto& [intf, portStatus] : status->vlanPortStatus()) {
      members.push_back(intf.name().str());
    }
    vlans.push_back(Json{{"vlan", vlan.value()}, {"members", members}});
  }
  const Bridging::Topology::Config& topo = *agent.brTopo();
  Json topologies = Json::array();
  for (const auto& [name, topoConfig] : topo.topoConfig()) {
    Json ports = Json::array();
    for (const auto& [intf, port] : topoConfig->topoPortConfig()) {
      ports.push_back(Json{{"intf", intf.name().str()}, {"state", text(port->portState())}});
    }
    topologies.push_back(Json{{"name", name.str()}, {"ports", ports}});
  }
  Json vlanTopology = Json::array();
  for (const auto& [vlan, topoConfig] : topo.vidToTopoMap()) {
    vlanTopology.push_back(Json{{"vlan", vlan.value()},
                                {"topology", topoConfig->name().str()},
                                {"deleted", topo.topoConfig(topoConfig->name()) != topoConfig}});
  }
  Json fdb = Json::array();
  for (const auto& [fid, table] : agent.bridgingStatus()->fdbStatus()) {
    Json hosts = Json::array();
    for (const auto& [mac, host] : table->learnedHost()) {
      hosts.push_back(Json{{"mac", text(mac)}, {"intf", host.intf().name().str()}});
    }
    fdb.push_back(Json{{"vlan", fid.value()}, {"hosts", hosts}});
  }
  Json ip = Json::array();
  for (const auto& [intf, status] : agent.ipStatus()->ipIntfStatus()) {
    ip.push_back(Json{{"intf", intf.name().str()},
                      {"addr", text(status->addrWithMask())},
                      {"routing", status->routing()}});
  }
  Json l3 = Json::array();
  for (const auto& [intf, id] : agent.l3IntfTable()->intfL3Index()) {
    l3.push_back(Json{{"intf", intf.name().str()}, {"id", id}});
  }
  const Nexo::EthAddr bridgeMac = agent.bridgingConfig()->bridgeMacAddr();
  return Json{{"policies", policies},
              {"switchports", switchports},
              {"bridgeMac", bridgeMac.isZero() ? Json() : Json(text(bridgeMac))},
              {"vlans", vlans},
              {"topologies", topologies},
              {"vlanTopology", vlanTopology},
              {"fdb", fdb},
              {"ip", ip},
              {"l3", l3}};
}

// ---- tasks, log events, Skimtrace -------------------------------------------------------------

Json tasksJson(const Vyr::TaskScheduler& scheduler) {
  Json tasks = Json::array();
  for (const Vyr::TaskStats& task : scheduler.tasks()) {
    tasks.push_back(Json{{"name", task.name.str()},
                         {"priority", task.priority},
                         {"runs", task.runs},
                         {"work", task.workCount},
                         {"due", task.scheduled ? Json(task.dueTime) : Json()}});
  }
  return Json{{"time", scheduler.now()}, {"tasks", tasks}};
}

Json logEventsJson() {
  Json events = Json::array();
  for (const Mox::LogHandle* event : Mox::logEvents()) {
    events.push_back(Json{
        {"name", event->name()}, {"severity", event->severity()}, {"format", event->format()}});
  }
  return Json{{"logEvents", events}};
}

Json skimtraceJson(std::size_t last) {
  Json records = Json::array();
  for (const std::string& record : Skimtrace::dump(last)) records.push_back(record);
  return Json{{"records", records}};
}

// ---- the views in either form ------------------------------------------------------------------

namespace {

template <class Print>
void show(std::ostream& os, const Json& doc, ViewForm form, Print print) {
  if (form == ViewForm::json) {
    writeJson(os, doc);
  } else {
    print(os, doc);
  }
}

void printJson(std::ostream& os, const Json& doc) { writeJson(os, doc); }

}  // namespace

void writeJson(std::ostream& os, const Json& doc) {
  os << doc.dump(2, ' ', false, Json::error_handler_t::replace) << "\n";
}

void showSummary(std::ostream& os, const Agent& agent, ViewForm form) {
  show(os, summaryJson(agent), form, printSummary);
}

void showTopology(std::ostream& os, const Agent& agent, const BacklogWatch& watch, ViewForm form) {
  show(os, topologyJson(agent, watch), form, printTopologyView);
}

void showDrift(std::ostream& os, const Agent& agent, const std::optional<std::string>& policy,
               ViewForm form) {
  show(os, driftOf(agent, policy), form, printDrift);
}

void showSettings(std::ostream& os, const Agent& agent, ViewForm form) {
  show(os, settingsJson(agent), form, printSettings);
}

void showOrphans(std::ostream& os, const Agent& agent, ViewForm form) {
  show(os, orphansJson(agent), form, printOrphans);
}

void showTableJson(std::ostream& os, Agent& agent, const std::string& commandLine) {
  std::ostringstream table;
  agent.runCommand(commandLine, table);
  printJson(os, tableJson(table.str()));
}

void showCallsJson(std::ostream& os, Chip& chip, bool all) {
  std::ostringstream calls;
  if (all) {
    chip.printCalls(calls);
  } else {
    chip.printCallsSinceLastLook(calls);
  }
  printJson(os, callsJson(chip, calls.str()));
}

void showSkimtraceJson(std::ostream& os, std::size_t last) { printJson(os, skimtraceJson(last)); }

bool hasJsonForm(const std::string& view) {
  static const std::set<std::string> views = {"hw",     "chip",  "counters",  "leftovers",
                                              "inputs", "tasks", "log-events"};
  return views.contains(view);
}

void showJson(std::ostream& os, const Agent& agent, const std::string& view) {
  const Chip& chip = agent.chip();
  if (view == "hw") printJson(os, hwJson(*agent.hwStatus()));
  if (view == "chip") printJson(os, chipJson(chip));
  if (view == "counters") printJson(os, countersJson(chip));
  if (view == "leftovers") printJson(os, leftoversJson(chip));
  if (view == "inputs") printJson(os, inputsJson(agent));
  if (view == "tasks") printJson(os, tasksJson(agent.scheduler()));
  if (view == "log-events") printJson(os, logEventsJson());
}

}  // namespace Sim
