#pragma once

#include <cstddef>
#include <iosfwd>
#include <map>
#include <optional>
#include <string>

#include <nlohmann/json_fwd.hpp>

#include "Mox/Seconds.h"
#include "sim/Agent.h"

// The simulator's views beyond the system's own show command: a summary, the topology as the
// system sees it, its settings, a Graphviz picture of the hardware status, and every view as one
// JSON document. Each view is built as JSON (schemas in docs/views.md); the text printers read
// that document, so both forms always say the same. Nothing here changes the simulation, except
// that the calls view marks the calls it shows as seen, as its text form does.

namespace Sim {

// When each action now queued in the topology's update backlog was queued. Only input changes
// queue actions, and the clock does not move while a scenario line changes inputs, so looking
// after every line gives each entry's exact queue time.
class BacklogWatch {
 public:
  // Notes the entries queued now and forgets those that left. Call after every line.
  void observe(const Agent& agent);
  // The earliest queue time of the entries queued now; none when the backlog is empty.
  std::optional<Mox::Seconds> oldest(const Agent& agent) const;

 private:
  std::map<std::string, Mox::Seconds> since_;  // "policy/match/action" -> queued at
};

// How a view is printed: as text, or as one JSON document.
enum class ViewForm { text, json };

// The views, printed in either form. Those that look at the system need it started.
void showSummary(std::ostream& os, const Agent& agent, ViewForm form);
void showTopology(std::ostream& os, const Agent& agent, const BacklogWatch& watch, ViewForm form);
void showDrift(std::ostream& os, const Agent& agent, const std::optional<std::string>& policy,
               ViewForm form);
void showSettings(std::ostream& os, const Agent& agent, ViewForm form);
void showOrphans(std::ostream& os, const Agent& agent, ViewForm form);

// The JSON forms of the views the simulator prints as text elsewhere. `commandLine` is the show
// command as the agent's registry gets it; the calls view marks the calls it shows as seen
// unless `all`.
void showTableJson(std::ostream& os, Agent& agent, const std::string& commandLine);
void showCallsJson(std::ostream& os, Chip& chip, bool all);
void showSkimtraceJson(std::ostream& os, std::size_t last);
// hw, chip, counters, leftovers, inputs, tasks, log-events.
bool hasJsonForm(const std::string& view);
// Precondition: hasJsonForm(view).
void showJson(std::ostream& os, const Agent& agent, const std::string& view);

// The system's configurable attributes and the scheduler's time slice.
struct Setting {
  const char* name;
  const char* help;
};
const std::map<std::string, Setting>& settings();

// Writes `doc` as indented JSON and a newline. Names may hold any byte: bytes that are not
// UTF-8 are written as U+FFFD instead of stopping the output.
void writeJson(std::ostream& os, const nlohmann::json& doc);

nlohmann::json summaryJson(const Agent& agent);
void printSummary(std::ostream& os, const nlohmann::json& summary);

// Precondition: the system is started.
nlohmann::json topologyJson(const Agent& agent, const BacklogWatch& watch);
void printTopologyView(std::ostream& os, const nlohmann::json& topology);

// Precondition: the system is started.
nlohmann::json settingsJson(const Agent& agent);
void printSettings(std::ostream& os, const nlohmann::json& settings);

// What the chip holds that no hardware status record owns: groups no match records, port sets
// and translations at ids no action records. A restart leaves all the chip held this way, as the
// start-up wipe never calls the hardware helper.
nlohmann::json orphansJson(const Agent& agent);
void printOrphans(std::ostream& os, const nlohmann::json& orphans);

// policy -> match -> action -> port set -> interface, as a Graphviz digraph.
void printHwDot(std::ostream& os, const Ip::Nat::HwNatFlowStatus& hwStatus);

// The other views as JSON.
nlohmann::json hwJson(const Ip::Nat::HwNatFlowStatus& hwStatus);
// The rows of the system's show command output, field by field.
nlohmann::json tableJson(const std::string& tableText);
nlohmann::json chipJson(const Chip& chip);
// The calls in the text of Chip::printCalls or printCallsSinceLastLook.
nlohmann::json callsJson(const Chip& chip, const std::string& callsText);
nlohmann::json countersJson(const Chip& chip);
nlohmann::json leftoversJson(const Chip& chip);
nlohmann::json inputsJson(const Agent& agent);
nlohmann::json tasksJson(const Vyr::TaskScheduler& scheduler);
nlohmann::json logEventsJson();
nlohmann::json skimtraceJson(std::size_t last);

}  // namespace Sim
