#pragma once

#include <iosfwd>
#include <optional>
#include <string>

#include <nlohmann/json_fwd.hpp>

#include "sim/Agent.h"

// Why the system has (or has not) programmed each NAT action, and where what it programmed
// differs from what a fresh programming pass on today's inputs would program. Both only read:
// port sets are computed dry (UmoNatFlowPortSetProbe), so nothing calls the chip, nothing enters
// the topology's index or backlog, and no trace line is written. The results are JSON documents
// (schemas in docs/views.md), which the printers turn into text.

namespace Sim {

// The actions of one policy, of one of its matches, or one action.
struct ActionFilter {
  std::string policy;
  std::optional<std::string> match;
  std::optional<std::string> action;
};

// Throws ScenarioError when `filter` names a policy, match or action the system does not have.
// Precondition: the system is started.
void checkActionFilter(const Agent& agent, const ActionFilter& filter);

// For every action the filter selects (all with no filter), in ascending names: its state
// ("programmed", "version0", "waitingForGroups", "groupCountPending", "emptyPortSets"), the
// first reason in the system's words, and per next hop the ports it gives or the first check
// that refuses it. Precondition: the system is started.
nlohmann::json explainActions(const Agent& agent, const std::optional<ActionFilter>& filter);
void printExplanations(std::ostream& os, const nlohmann::json& explanations);
// explainActions, printed. Precondition: the system is started and has what `filter` names.
void showExplanations(std::ostream& os, const Agent& agent, const ActionFilter& filter);

// For every action with a version (or of `policy`): its programmed flow type, translations and
// port sets against those of a fresh pass on today's inputs, each difference named by its kind;
// and the recirculation VLAN in use against the one a fresh start would choose. Precondition:
// the system is started.
nlohmann::json driftOf(const Agent& agent, const std::optional<std::string>& policy);
void printDrift(std::ostream& os, const nlohmann::json& drift);

}  // namespace Sim
