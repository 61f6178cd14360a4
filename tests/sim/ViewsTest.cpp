// The simulator's views: every JSON document against the schema docs/views.md gives for it, and
// the rule that looking (explain, drift, the views) changes nothing and traces nothing.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "Mox/Trace.h"
#include "UmoNat/UmoNatFlowMcastSm.h"
#include "UmoNat/UmoNatFlowMcastTopologySm.h"
#include "sim/Interpreter.h"
#include "sim/Printers.h"

namespace {

using Json = nlohmann::json;
using Outcome = Sim::Interpreter::Outcome;
using testing::HasSubstr;

// Two matches with groups, one waiting for a group, a recirculating action, a version-0 action,
// a refused next hop, a learned host, a queued topology update and a changed bridge MAC.
const std::vector<std::string> kScene = {
    "bridge-mac 00:1c:73:00:00:01",
    "intf Ethernet1 mode access native 10",
    "intf Ethernet2 mode access native 10",
    "vlan 10 member Ethernet1 Ethernet2",
    "topology T port Ethernet1 state forwarding",
    "topology T port Ethernet2 state blocking",
    "vlan-topology 10 T",
    "fdb 10 host 02:00:00:00:00:01 intf Ethernet1",
    "ip Vlan10 addr 10.0.10.1/24 routing on",
    "l3 Vlan10 id 10",
    "policy P",
    "match P a flow src 10.1.0.0/16:0 dst 239.1.1.1/32:5000",
    "action P a m src 10.9.9.9:0 dst 239.9.9.9:5000 version 1",
    "nexthop P a m Ethernet1 vlan 10 mac 00:00:00:00:00:00",
    "nexthop P a m Ethernet2 vlan 10 mac 00:00:00:00:00:00",
    "action P a draft",
    "match P b flow src 10.2.0.0/16:0 dst 10.2.2.2/32:80",
    "action P b loop src 10.8.8.8:0 version 1",
    "match P c flow src 10.3.0.0/16:0 dst 239.3.3.3/32:5000",
    "action P c m dst 239.7.7.7:5000 version 1",
    "nexthop P c m Vlan10 vlan 10 mac 00:00:00:00:00:00",
    "chip groups 2",
    "start",
    "bridge-mac 00:1c:73:00:00:02",
    "topology T port Ethernet2 state forwarding",
};

// "### show X" headings, each followed by a ```json block: X -> schema.
std::map<std::string, Json> documentedSchemas() {
  std::ifstream in(std::string(UMONAT_SOURCE_DIR) + "/docs/views.md");
  std::map<std::string, Json> schemas;
  std::string line;
  std::string view;
  std::string block;
  bool inBlock = false;
  while (std::getline(in, line)) {
    if (line.rfind("### show ", 0) == 0) view = line.substr(4);
    if (inBlock && line == "```") {
      schemas[view] = Json::parse(block);
      inBlock = false;
      view.clear();
    } else if (inBlock) {
      block += line + "\n";
    } else if (line == "```json" && !view.empty()) {
      inBlock = true;
      block.clear();
    }
  }
  return schemas;
}

bool hasType(const Json& value, const std::string& type) {
  if (type == "string") return value.is_string();
  if (type == "integer") return value.is_number_integer();
  if (type == "number") return value.is_number();
  if (type == "boolean") return value.is_boolean();
  if (type == "null") return value.is_null();
  return false;
}

// Where `value` departs from `shape` (the schema language of docs/views.md).
void checkShape(const Json& value, const Json& shape, const std::string& path,
                std::vector<std::string>& problems) {
  if (shape.is_string()) {
    std::istringstream types(shape.get<std::string>());
    std::string type;
    while (std::getline(types, type, '|')) {
      if (hasType(value, type)) return;
    }
    problems.push_back(path + ": " + value.dump() + " is not " + shape.get<std::string>());
    return;
  }
  if (shape.is_array()) {
    if (!value.is_array()) {
      problems.push_back(path + ": not an array");
      return;
    }
    for (std::size_t i = 0; i < value.size(); ++i) {
      checkShape(value[i], shape.at(0), path + "[" + std::to_string(i) + "]", problems);
    }
    return;
  }
  if (value.is_null() && shape.value("$null", false)) return;
  if (!value.is_object()) {
    problems.push_back(path + ": not an object");
    return;
  }
  for (const auto& [key, inner] : shape.items()) {
    if (key == "$null") continue;
    if (!value.contains(key)) {
      problems.push_back(path + ": no key " + key);
      continue;
    }
    checkShape(value.at(key), inner, path + "." + key, problems);
  }
  for (const auto& [key, inner] : value.items()) {
    if (!shape.contains(key)) problems.push_back(path + ": undocumented key " + key);
  }
}

class ViewsTest : public testing::Test {
 protected:
  ViewsTest() {
    for (const std::string& line : kScene) {
      EXPECT_EQ(run(line), Outcome::ok) << line << ": " << err.str();
    }
  }
  Outcome run(const std::string& line) { return sim.runLine(line, "t.scn", ++lines); }
  // What `line` printed.
  std::string output(const std::string& line) {
    out.str("");
    EXPECT_EQ(run(line), Outcome::ok) << line << ": " << err.str();
    return out.str();
  }
  // Everything looking could change: inputs, hardware status, chip, index and backlog.
  std::string state() {
    std::ostringstream os;
    Sim::printInputs(os, sim.agent());
    Sim::printHwStatus(os, *sim.agent().hwStatus());
    sim.agent().chip().printTables(os);
    os << sim.agent().chip().calls().size() << "\n";
    const UmoNatFlowMcastTopologySm& topo = *sim.agent().root()->topologySm();
    os << topo.actionIntf().size() << " " << topo.actionVlan().size() << " "
       << topo.actionMac().size() << " " << topo.actionRecirc().size() << " "
       << topo.actionSmUpdateBacklog().size() << "\n";
    Sim::printTasks(os, sim.agent().scheduler());
    return os.str();
  }

  std::ostringstream out;
  std::ostringstream err;
  Sim::Interpreter sim{out, err, false};
  std::size_t lines = 0;
};

TEST_F(ViewsTest, EveryViewPrintsOneDocumentOfItsDocumentedSchema) {
  const std::map<std::string, Json> schemas = documentedSchemas();
  const std::map<std::string, std::string> views = {
      {"show table", "show table json"},
      {"show hw", "show hw json"},
      {"show chip", "show chip json"},
      {"show dataplane", "show dataplane json"},
      {"show dataplane stats", "show dataplane stats json"},
      {"show calls", "show calls all json"},
      {"show counters", "show counters json"},
      {"show leftovers", "show leftovers json"},
      {"show inputs", "show inputs json"},
      {"show tasks", "show tasks json"},
      {"show log-events", "show log-events json"},
      {"show skimtrace", "show skimtrace 3 json"},
      {"show summary", "show summary json"},
      {"show topology", "show topology json"},
      {"show drift", "show drift json"},
      {"show settings", "show settings json"},
      {"show orphans", "show orphans json"},
  };
  std::vector<std::string> documented;
  for (const auto& [view, schema] : schemas) documented.push_back(view);
  std::vector<std::string> tested;
  for (const auto& [view, line] : views) tested.push_back(view);
  EXPECT_EQ(documented, tested);
  for (const auto& [view, line] : views) {
    ASSERT_TRUE(schemas.contains(view)) << view;
    const Json doc = Json::parse(output(line));  // throws on anything but one document
    std::vector<std::string> problems;
    checkShape(doc, schemas.at(view), view, problems);
    EXPECT_THAT(problems, testing::IsEmpty()) << doc.dump(1);
  }
}

TEST_F(ViewsTest, SchemaCheckCatchesMissingWrongAndExtraFields) {
  const Json shape = Json::parse(R"({"a": "integer|null", "b": [{"c": "string"}],
                                     "d": {"$null": true, "e": "boolean"}})");
  std::vector<std::string> problems;
  checkShape(Json::parse(R"({"a": null, "b": [{"c": "x"}], "d": null})"), shape, "v", problems);
  EXPECT_THAT(problems, testing::IsEmpty());
  checkShape(Json::parse(R"({"a": 1.5, "b": [{"c": 1}], "d": {"e": true, "f": 1}})"), shape, "v",
             problems);
  checkShape(Json::parse(R"({"b": {}, "d": 2})"), shape, "w", problems);
  EXPECT_THAT(problems,
              testing::ElementsAre("v.a: 1.5 is not integer|null", "v.b[0].c: 1 is not string",
                                   "v.d: undocumented key f", "w: no key a", "w.b: not an array",
                                   "w.d: not an object"));
}

TEST_F(ViewsTest, TableJsonHoldsTheRowsOfTheSystemsTable) {
  const std::string table = output("show table");
  const Json rows = Json::parse(output("show table json"))["rows"];
  // Separator, header, separator, then one line per row.
  const auto lineCount = static_cast<std::size_t>(std::count(table.begin(), table.end(), '\n'));
  ASSERT_EQ(rows.size(), lineCount - 3);
  EXPECT_EQ(rows[0]["policy"], "P");
  EXPECT_EQ(rows[0]["match"], "a");
  EXPECT_EQ(rows[0]["ft"], "MC");
  EXPECT_EQ(rows[0]["vlan"], 10);
  EXPECT_THAT(table, HasSubstr(rows[0]["mac"].get<std::string>()));
  // The recirculating action's interface has an empty name.
  bool recirculation = false;
  for (const Json& row : rows) recirculation = recirculation || row["intf"] == "";
  EXPECT_TRUE(recirculation);
  EXPECT_EQ(Json::parse(output("show table Q json"))["rows"].size(), 0U);
  // A policy may be named like the header's first column.
  ASSERT_EQ(run("policy Policy"), Outcome::ok);
  ASSERT_EQ(run("match Policy m flow src 10.5.0.0/16:0 dst 239.5.5.5/32:5000"), Outcome::ok);
  ASSERT_EQ(run("action Policy m a dst 239.6.6.6:5000 version 1"), Outcome::ok);
  ASSERT_EQ(run("nexthop Policy m a Ethernet1 vlan 10 mac 00:00:00:00:00:00"), Outcome::ok);
  EXPECT_EQ(Json::parse(output("show table Policy json"))["rows"][0]["policy"], "Policy");
}

TEST_F(ViewsTest, LookingChangesNothingAndTracesNothing) {
  const std::string before = state();
  Mox::TraceCapture capture("*/0-9");
  for (const char* line :
       {"explain P", "explain P a m", "show drift", "show drift P json", "show summary",
        "show topology", "show settings", "show orphans", "show hw dot", "show summary json"}) {
    EXPECT_NE(output(line), "") << line;
  }
  // The echo of the lines is off: nothing but the views reached the trace sink.
  EXPECT_THAT(capture.texts(), testing::IsEmpty());
  EXPECT_EQ(state(), before);
}

TEST_F(ViewsTest, ExplainGivesTheFirstReasonOfEachAction) {
  const std::string text = output("explain P");
  EXPECT_THAT(text, HasSubstr("P/a/draft: not programmed, version 0: Version not initialized yet"));
  EXPECT_THAT(text, HasSubstr("P/a/m: programmed"));
  // The blocked port was made forwarding: the update is still queued, so the dry pass uses it.
  EXPECT_THAT(text, HasSubstr("next hop Ethernet2 vlan 10 mac 00:00:00:00:00:00: used:"));
  EXPECT_THAT(text, HasSubstr("P/c/m: not programmed, the match waits for groups: Failed to "
                              "allocate group (UmoNatFlowMatchSm/2)"));
  EXPECT_THAT(text, HasSubstr("no retry scheduled"));
  EXPECT_THAT(text, HasSubstr("recirculation through vlan 10, the recirculation VLAN in use "
                              "(valid)"));
}

TEST_F(ViewsTest, UnknownNamesAreErrorsThatChangeNothing) {
  for (const auto& [line, message] : std::vector<std::pair<std::string, std::string>>{
           {"explain Q", "there is no policy Q"},
           {"explain P z", "policy P has no match z"},
           {"explain P a z", "match P/a has no action z"},
           {"show drift Q", "there is no policy Q"},
           {"show drift Q json", "there is no policy Q"},
           {"show hw dot json", "unexpected"},
           {"show time json", "cannot show 'time' as JSON"}}) {
    err.str("");
    EXPECT_EQ(run(line), Outcome::error) << line;
    EXPECT_THAT(err.str(), HasSubstr(message)) << line;
  }
  EXPECT_EQ(run("stop"), Outcome::ok);
  for (const std::string line : {"explain P", "show drift", "show topology", "show settings",
                                 "set retry-delay 1", "restart"}) {
    EXPECT_EQ(run(line), Outcome::error) << line;
  }
  EXPECT_THAT(output("show summary"), HasSubstr("system: stopped"));
}

TEST_F(ViewsTest, DriftNamesAChangeMadeWithoutANewVersionUntilOneComes) {
  auto kinds = [this] {
    std::vector<std::string> out;
    const Json drift = Json::parse(output("show drift json"));
    for (const Json& a : drift["actions"]) {
      for (const Json& d : a["differences"]) out.push_back(d["kind"].get<std::string>());
    }
    return out;
  };
  ASSERT_EQ(run("run"), Outcome::ok);
  // The recirculating action's port set keeps the bridge MAC it was built with.
  EXPECT_THAT(kinds(), testing::ElementsAre("bridgeMac"));
  ASSERT_EQ(run("action P a m dst 239.9.9.10:5000"), Outcome::ok);
  EXPECT_THAT(kinds(), testing::ElementsAre("translation", "bridgeMac"));
  // A topology update reprograms the translation, compared by address.
  ASSERT_EQ(run("vlan 10 remove Ethernet2"), Outcome::ok);
  ASSERT_EQ(run("run"), Outcome::ok);
  EXPECT_THAT(kinds(), testing::ElementsAre("bridgeMac"));
  ASSERT_EQ(run("action P b loop version 2"), Outcome::ok);
  EXPECT_THAT(output("show drift"), HasSubstr("2 of 2 compared actions as a fresh pass"));
}

TEST_F(ViewsTest, TopologyTellsHowLongTheOldestQueuedUpdateHasWaited) {
  ASSERT_EQ(run("set backlog-interval 1"), Outcome::ok);
  ASSERT_EQ(run("run"), Outcome::ok);
  ASSERT_EQ(run("advance 2"), Outcome::ok);
  ASSERT_EQ(run("topology T port Ethernet1 state blocking"), Outcome::ok);  // at 2.1 s
  ASSERT_EQ(run("advance 0.5"), Outcome::ok);
  ASSERT_EQ(run("topology T port Ethernet2 state blocking"), Outcome::ok);  // queued again
  Json backlog = Json::parse(output("show topology json"))["backlog"];
  EXPECT_EQ(backlog["depth"], 2);
  EXPECT_DOUBLE_EQ(backlog["oldestQueuedAt"].get<double>(), 2.1);
  EXPECT_DOUBLE_EQ(backlog["oldestWaited"].get<double>(), 0.5);
  EXPECT_DOUBLE_EQ(backlog["due"].get<double>(), 3.1);
  ASSERT_EQ(run("advance 0.5"), Outcome::ok);
  backlog = Json::parse(output("show topology json"))["backlog"];
  EXPECT_EQ(backlog["depth"], 0);
  EXPECT_TRUE(backlog["oldestWaited"].is_null());
}

TEST_F(ViewsTest, RestartLeavesTheChipsHoldingsToNoState) {
  ASSERT_EQ(run("run"), Outcome::ok);
  const std::size_t groups = sim.agent().chip().groups().size();
  const std::size_t calls = sim.agent().chip().calls().size();
  const std::string restart = output("restart");
  EXPECT_THAT(restart, HasSubstr("the chip holds " + std::to_string(groups) + " group(s)"));
  // The old system's clean-up reached nothing: every call since is a request of the new one.
  const auto& log = sim.agent().chip().calls();
  for (std::size_t i = calls; i < log.size(); ++i) {
    EXPECT_THAT(log[i].text, testing::Not(HasSubstr("delete"))) << log[i].text;
  }
  // The chip was full: the new system waits for groups, while the old ones stay orphans.
  EXPECT_THAT(output("explain P a m"), HasSubstr("the match waits for groups"));
  EXPECT_EQ(Json::parse(output("show orphans json"))["groups"].size(), groups);
  EXPECT_TRUE(sim.finish());
}

}  // namespace

TEST_F(ViewsTest, NamesThatAreNotUtf8AreWrittenAsReplacementCharacters) {
  // Names may hold any byte; the JSON form must still be one valid document.
  ASSERT_EQ(run("policy P\xff"), Outcome::ok);
  ASSERT_EQ(run("match P\xff m flow src 10.5.0.0/16:0 dst 239.5.5.5/32:5000"), Outcome::ok);
  ASSERT_EQ(run("action P\xff m a dst 239.6.6.6:5000 version 1"), Outcome::ok);
  for (const char* view : {"show table json", "show hw json", "show inputs json"}) {
    const std::string text = output(view);
    EXPECT_NE(text.find("P\xef\xbf\xbd"), std::string::npos) << view;
    EXPECT_TRUE(Json::accept(text)) << view;
  }
}
