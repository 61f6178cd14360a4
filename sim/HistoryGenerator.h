#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace Sim {

// Writes random scenario lines (docs/scenario-language.md) that the platform could publish, over a
// small fixed universe of names (ports Ethernet1..5, VLANs 10, 20, 30, VLAN interfaces including
// Vlan0 and Vlan4095, topologies T and U, policies P and Q, matches m1..m3, actions a1..a3), so
// that changes keep hitting the same objects.
//
// Every random decision comes from `choose(bound)`, which returns a value in [0, bound): a seeded
// generator for a test, fuzz bytes for a fuzz target. The lines depend only on the sequence of
// values it returns (a value out of range is reduced modulo the bound), so a history replays
// exactly from the same sequence.
//
// The generator keeps a model of the inputs its lines build, and writes only lines that are valid
// against it: parents exist, deletions name what is there, an L3 id belongs to one interface, and
// the states reached are ones the platform publishes: a complete action (non-zero version) never
// goes back to version 0, and a physical next hop of a unicast flow never carries the zero MAC
// address (a VLAN-interface next hop may, whatever the flow type). It also covers the system and
// the clock (`start`, `stop`, `advance`, `run`), the simulated chip's capacities and injected
// faults, and a few `show` commands. When the interpreter refuses a line anyway, `refused()`
// forgets what the line did to the model.
class HistoryGenerator {
 public:
  using Choose = std::function<std::uint32_t(std::uint32_t bound)>;

  explicit HistoryGenerator(Choose choose);

  // The lines that build a small switch (switchports, VLANs with members, topologies, IP and L3
  // interfaces) and both policies, then start the system. Call at most once, before next();
  // optional: without it, histories start from nothing and stopped.
  std::vector<std::string> setup();
  // One random line.
  std::string next();
  // The interpreter refused the last line from next(): the model goes back to where it was.
  void refused();

  // Whether the lines so far leave the system started.
  bool started() const { return model_.started; }

 private:
  struct Action {
    std::string dst;  // "", or the destination as written
    std::uint32_t version = 0;
    std::map<std::string, bool> hops;  // interface -> zero MAC on a physical interface
  };
  struct Match {
    std::string flowDst;  // the flow's destination prefix as written
    std::map<std::string, Action> actions;
  };
  struct Model {
    bool started = false;
    std::set<std::string> switchports;
    std::map<std::string, std::set<std::string>> vlans;       // VLAN -> members
    std::map<std::string, std::set<std::string>> topologies;  // topology -> ports
    std::set<std::string> mappedVlans;
    std::map<std::string, std::set<std::string>> fdbs;  // VLAN -> learned hosts
    std::set<std::string> ipIntfs;
    std::map<std::string, std::string> l3;  // interface -> id
    std::map<std::string, std::map<std::string, Match>> policies;
  };

  std::uint32_t pick(std::uint32_t bound);
  const char* oneOf(std::initializer_list<const char*> words);
  // Picks an element of a non-empty set or the keys of a non-empty map.
  template <typename Container>
  const std::string& anyOf(const Container& c);

  std::optional<std::string> nat();
  std::optional<std::string> natDelete();
  std::optional<std::string> nexthop();
  std::optional<std::string> bridging();
  std::optional<std::string> topology();
  std::optional<std::string> layer3();
  std::optional<std::string> system();
  std::optional<std::string> chip();
  std::optional<std::string> show();

  // Whether `action` would be published with a physical next hop carrying the zero MAC address
  // on a unicast flow, were its destination `dst` and its match's flow destination `flowDst`.
  static bool zeroMacOnUnicast(const Action& action, const std::string& dst,
                               const std::string& flowDst);

  Choose choose_;
  Model model_;
  Model before_;  // the model before the last line from next()
  std::uint32_t version_ = 0;
};

}  // namespace Sim
