#include "sim/Interpreter.h"

#include <cstdio>
#include <functional>
#include <istream>
#include <optional>
#include <ostream>
#include <set>
#include <stdexcept>
#include <utility>
#include <vector>

#include "Mox/Assert.h"
#include "sim/Explain.h"
#include "sim/LineParser.h"
#include "sim/Printers.h"
#include "sim/Views.h"

namespace Sim {

namespace {

// Runs of `run` stop after this many task runs, so a task that keeps rescheduling itself cannot
// hang the simulator.
constexpr std::size_t kMaxRuns = 1000000;
constexpr std::size_t kDefaultSkimtraceRecords = 20;
// Where `help` starts the descriptions.
constexpr std::size_t kHelpColumn = 44;

// What a command works on.
struct Context {
  Agent& agent;
  std::ostream& out;
  BacklogWatch& backlogWatch;
  OvsDataplane* ovs;  // the real dataplane; null when the simulated chip forwards alone
};

// A command whose line has been checked completely: running it changes the simulation and
// cannot fail on account of the line.
struct Prepared {
  std::function<void()> run;
  bool quit = false;
};

// Checks the words after the command name against the grammar and the current state and returns
// what to run; throws ScenarioError (ParseError for the words) and changes nothing.
using Prepare = Prepared (*)(LineParser&, Context&);

struct Form {
  const char* syntax;
  const char* help;
};

struct Command {
  const char* name;
  const char* group;
  std::vector<Form> forms;
  Prepare prepare;
};

std::string quoted(std::string_view word) { return "'" + std::string(word) + "'"; }

// ---- lookups that check the state --------------------------------------------------------------

Mox::Ptr<const Ip::Nat::NatFlowPolicyStatus> existingPolicy(const Context& c,
                                                            const std::string& policy) {
  auto ps = c.agent.natStatus()->natFlow(policy);
  if (!ps) throw ScenarioError("there is no policy " + policy);
  return ps;
}

Mox::Ptr<const Ip::Nat::NatFlowMatchStatus> existingMatch(const Context& c,
                                                          const std::string& policy,
                                                          const std::string& match) {
  auto ms = existingPolicy(c, policy)->match(match);
  if (!ms) throw ScenarioError("policy " + policy + " has no match " + match);
  return ms;
}

Mox::Ptr<const Ip::Nat::NatFlowActionStatus> existingAction(const Context& c,
                                                            const std::string& policy,
                                                            const std::string& match,
                                                            const std::string& action) {
  auto as = existingMatch(c, policy, match)->action(action);
  if (!as) throw ScenarioError("match " + policy + "/" + match + " has no action " + action);
  return as;
}

Mox::Ptr<Ip::Nat::NatFlowActionStatus> writableAction(const Context& c, const std::string& policy,
                                                      const std::string& match,
                                                      const std::string& action) {
  return c.agent.natStatus()->natFlowIs(policy)->matchIs(match)->actionIs(action);
}

// ---- states the platform never publishes -----------------------------------------------------

// The flow type the system derives for an action: from the action's destination address, else
// from its match flow's; none when both are zero.
Ip::Nat::NatFlowType flowTypeOf(const Nexo::IpAndPort& dst, const Ip::Nat::NatFlow& flow) {
  Nexo::IpAddr ip = dst.ip();
  if (ip.isZero()) ip = flow.dstAddr();
  if (ip.isZero()) return Ip::Nat::NatFlowType::natFlowTypeNone;
  return ip.isMulticast() ? Ip::Nat::NatFlowType::natFlowTypeMulticast
                          : Ip::Nat::NatFlowType::natFlowTypeUnicast;
}

// A next hop on a physical interface with the zero MAC address. The platform gives every physical
// next hop of a unicast flow the MAC address of the host it leads to; a VLAN interface's next hop
// may have none (the system then looks the VLAN's hosts up), and so may any next hop of a
// multicast flow or of a flow without a destination. The empty interface stands for
// recirculation, not for a next hop.
bool zeroMacOnPhysical(const Nexo::IntfId& intf, const Nexo::EthAddr& mac) {
  return mac.isZero() && !intf.empty() && !Nexo::VlanIntfId::isVlanIntfId(intf);
}

// The first next hop of `action` that zeroMacOnPhysical accepts, or null.
const Nexo::IntfId* zeroMacNextHop(const Ip::Nat::NatFlowActionStatus& action) {
  for (const auto& [intf, nextHop] : action.intf()) {
    if (zeroMacOnPhysical(intf, nextHop.mac())) return &intf;
  }
  return nullptr;
}

std::string actionText(const std::string& policy, const std::string& match,
                       const std::string& action) {
  return policy + "/" + match + "/" + action;
}

// Throws when `action`, with its destination `dst` and its match flow `flow` as a line would
// leave them, makes a unicast flow of a physical next hop with the zero MAC address.
void checkUnicastNextHopMacs(const Ip::Nat::NatFlowActionStatus& action, const Nexo::IpAndPort& dst,
                             const Ip::Nat::NatFlow& flow, const std::string& actionName) {
  if (flowTypeOf(dst, flow) != Ip::Nat::NatFlowType::natFlowTypeUnicast) return;
  const Nexo::IntfId* intf = zeroMacNextHop(action);
  if (intf == nullptr) return;
  throw ScenarioError("action " + actionName + " would be a unicast flow whose next hop on " +
                      intf->name().str() +
                      " has the zero MAC address; a physical next hop of a unicast flow always "
                      "has the MAC address of its host");
}

// Interfaces up to the end of the line, each once; at least `min` of them.
std::vector<Nexo::IntfId> intfList(LineParser& p, std::size_t min) {
  std::vector<Nexo::IntfId> intfs;
  std::set<Nexo::IntfId> seen;
  while (!p.atEnd() || intfs.size() < min) {
    Nexo::IntfId intf = p.intf();
    if (!seen.insert(intf).second) throw ParseError(intf.name().str() + " is listed twice");
    intfs.push_back(std::move(intf));
  }
  return intfs;
}

// Marks an optional field as given; throws when it was given before.
void once(bool& given, std::string_view field) {
  if (given) throw ParseError(quoted(field) + " is given twice");
  given = true;
}

// ---- NAT inputs -------------------------------------------------------------------------------

Prepared policyCommand(LineParser& p, Context& c) {
  const std::string policy = p.word("a policy name");
  if (p.accept("delete")) {
    p.end();
    existingPolicy(c, policy);
    return {[&c, policy] { c.agent.natStatus()->natFlowDel(policy); }};
  }
  p.end();
  return {[&c, policy] { c.agent.natStatus()->natFlowIs(policy); }};
}

Prepared matchCommand(LineParser& p, Context& c) {
  const std::string policy = p.word("a policy name");
  const std::string match = p.word("a match name");
  if (p.accept("delete")) {
    p.end();
    existingMatch(c, policy, match);
    return {[&c, policy, match] { c.agent.natStatus()->natFlowIs(policy)->matchDel(match); }};
  }
  std::optional<Ip::Nat::NatFlow> flow;
  if (p.accept("flow")) flow = p.natFlow();
  p.end();
  const auto ps = existingPolicy(c, policy);
  const auto ms = ps->match(match);
  if (flow && ms) {
    for (const auto& [actionName, as] : ms->action()) {
      checkUnicastNextHopMacs(*as, as->dst(), *flow, actionText(policy, match, actionName.str()));
    }
  }
  return {[&c, policy, match, flow] {
    auto ms = c.agent.natStatus()->natFlowIs(policy)->matchIs(match);
    if (flow) ms->flowIs(*flow);
  }};
}

Prepared actionCommand(LineParser& p, Context& c) {
  const std::string policy = p.word("a policy name");
  const std::string match = p.word("a match name");
  const std::string action = p.word("an action name");
  if (p.accept("delete")) {
    p.end();
    existingAction(c, policy, match, action);
    return {[&c, policy, match, action] {
      c.agent.natStatus()->natFlowIs(policy)->matchIs(match)->actionDel(action);
    }};
  }
  std::optional<Nexo::IpAndPort> src;
  std::optional<Nexo::IpAndPort> dst;
  std::optional<std::uint32_t> version;
  bool srcGiven = false;
  bool dstGiven = false;
  bool versionGiven = false;
  while (!p.atEnd()) {
    if (p.accept("src")) {
      once(srcGiven, "src");
      src = p.ipAndPort();
    } else if (p.accept("dst")) {
      once(dstGiven, "dst");
      dst = p.ipAndPort();
    } else if (p.accept("version")) {
      once(versionGiven, "version");
      version = static_cast<std::uint32_t>(p.number("a version", 0, 0xffffffffULL));
    } else {
      throw ParseError("unexpected " + quoted(p.peek()) + "; expected src, dst or version");
    }
  }
  const auto ms = existingMatch(c, policy, match);
  if (const auto as = ms->action(action)) {
    // Version 0 means the writer is still filling a new action in; a complete one never goes
    // back to it.
    if (version && *version == 0 && as->version() != 0) {
      throw ScenarioError("action " + actionText(policy, match, action) +
                          " is complete at version " + std::to_string(as->version()) +
                          "; only a new action starts at version 0, while it is being written");
    }
    if (dst) checkUnicastNextHopMacs(*as, *dst, ms->flow(), actionText(policy, match, action));
  }
  // Filled in the order the platform's writer fills an action: translations, then the version.
  return {[&c, policy, match, action, src, dst, version] {
    auto as = writableAction(c, policy, match, action);
    if (src) as->srcIs(*src);
    if (dst) as->dstIs(*dst);
    if (version) as->versionIs(*version);
  }};
}

Prepared nexthopCommand(LineParser& p, Context& c) {
  const std::string policy = p.word("a policy name");
  const std::string match = p.word("a match name");
  const std::string action = p.word("an action name");
  const Nexo::IntfId intf = p.intf();
  if (p.accept("delete")) {
    p.end();
    if (existingAction(c, policy, match, action)->intf(intf) == nullptr) {
      throw ScenarioError("action " + policy + "/" + match + "/" + action + " has no next hop on " +
                          intf.name().str());
    }
    return {[&c, policy, match, action, intf] {
      writableAction(c, policy, match, action)->intfDel(intf);
    }};
  }
  p.keyword("vlan");
  const std::uint16_t vlan = p.vlanNumber();
  p.keyword("mac");
  const Nexo::EthAddr mac = p.mac();
  p.end();
  const auto as = existingAction(c, policy, match, action);
  if (zeroMacOnPhysical(intf, mac)) {
    const auto ms = existingMatch(c, policy, match);
    if (flowTypeOf(as->dst(), ms->flow()) == Ip::Nat::NatFlowType::natFlowTypeUnicast) {
      throw ScenarioError("the next hop on " + intf.name().str() + " of action " +
                          actionText(policy, match, action) +
                          " has the zero MAC address; a physical next hop of a unicast flow "
                          "always has the MAC address of its host");
    }
    // Topology updates reprogram an action with the flow type of its last programming pass,
    // whatever its destination has become since, until its version or its match's flow changes.
    if (c.agent.programmedFlowType(policy, match, action) ==
        Ip::Nat::NatFlowType::natFlowTypeUnicast) {
      throw ScenarioError("the next hop on " + intf.name().str() + " of action " +
                          actionText(policy, match, action) +
                          " has the zero MAC address, and the system last programmed the action "
                          "as a unicast flow; give it a new version first");
    }
  }
  return {[&c, policy, match, action, intf, vlan, mac] {
    writableAction(c, policy, match, action)->intfIs(intf, Ip::Nat::NatFlowNextHop(vlan, mac));
  }};
}

// ---- bridging, topology, IP and L3 inputs ----------------------------------------------------

Prepared intfCommand(LineParser& p, Context& c) {
  const Nexo::IntfId intf = p.intf();
  if (p.accept("delete")) {
    p.end();
    if (!c.agent.bridgingConfig()->switchIntfConfig(intf)) {
      throw ScenarioError("there is no switchport " + intf.name().str());
    }
    return {[&c, intf] { c.agent.bridgingConfig()->switchIntfConfigDel(intf); }};
  }
  std::optional<Bridging::SwitchportMode> mode;
  std::optional<std::uint16_t> native;
  bool modeGiven = false;
  bool nativeGiven = false;
  while (!p.atEnd()) {
    if (p.accept("mode")) {
      once(modeGiven, "mode");
      mode = p.switchportMode();
    } else if (p.accept("native")) {
      once(nativeGiven, "native");
      native = p.vlanNumber();
    } else {
      throw ParseError("unexpected " + quoted(p.peek()) + "; expected mode or native");
    }
  }
  return {[&c, intf, mode, native] {
    auto sw = c.agent.bridgingConfig()->switchIntfConfigIs(intf);
    if (mode) sw->switchportModeIs(*mode);
    if (native) sw->nativeVlanIs(Bridging::VlanIdOrNone(*native));
  }};
}

Prepared bridgeMacCommand(LineParser& p, Context& c) {
  const Nexo::EthAddr mac = p.mac();
  p.end();
  if (mac.isMulticast()) {
    throw ParseError("the bridge MAC address is a unicast address, got " + mac.stringValue().str());
  }
  return {[&c, mac] { c.agent.bridgingConfig()->bridgeMacAddrIs(mac); }};
}

Prepared vlanCommand(LineParser& p, Context& c) {
  const Bridging::VlanId vlan(p.vlanId());
  const auto existing = c.agent.vlanStatusDir()->vlanStatus(vlan);
  if (p.accept("delete")) {
    p.end();
    if (!existing) throw ScenarioError("there is no VLAN " + std::to_string(vlan.value()));
    return {[&c, vlan] { c.agent.vlanStatusDir()->vlanStatusDel(vlan); }};
  }
  if (p.accept("remove")) {
    const std::vector<Nexo::IntfId> intfs = intfList(p, 1);
    if (!existing) throw ScenarioError("there is no VLAN " + std::to_string(vlan.value()));
    for (const Nexo::IntfId& intf : intfs) {
      if (existing->vlanPortStatus(intf) == nullptr) {
        throw ScenarioError(intf.name().str() + " is not a member of VLAN " +
                            std::to_string(vlan.value()));
      }
    }
    return {[&c, vlan, intfs] {
      auto vs = c.agent.vlanStatusDir()->vlanStatusIs(vlan);
      for (const Nexo::IntfId& intf : intfs) vs->vlanPortStatusDel(intf);
    }};
  }
  std::vector<Nexo::IntfId> intfs;
  if (p.accept("member")) intfs = intfList(p, 0);
  p.end();
  return {[&c, vlan, intfs] {
    auto vs = c.agent.vlanStatusDir()->vlanStatusIs(vlan);
    for (const Nexo::IntfId& intf : intfs) vs->vlanPortStatusIs(intf, Bridging::VlanPortStatus());
  }};
}

Prepared topologyCommand(LineParser& p, Context& c) {
  const std::string name = p.word("a topology name");
  const auto existing = c.agent.brTopo()->topoConfig(name);
  if (p.accept("delete")) {
    p.end();
    if (!existing) throw ScenarioError("there is no topology " + name);
    return {[&c, name] { c.agent.brTopo()->topoConfigDel(name); }};
  }
  if (!p.accept("port")) {
    p.end();
    return {[&c, name] { c.agent.brTopo()->topoConfigIs(name); }};
  }
  const Nexo::IntfId intf = p.intf();
  if (p.accept("delete")) {
    p.end();
    if (!existing || !existing->topoPortConfig(intf)) {
      throw ScenarioError("topology " + name + " has no port " + intf.name().str());
    }
    return {[&c, name, intf] { c.agent.brTopo()->topoConfigIs(name)->topoPortConfigDel(intf); }};
  }
  p.keyword("state");
  const Bridging::Topology::PortState state = p.portState();
  p.end();
  return {[&c, name, intf, state] {
    c.agent.brTopo()->topoConfigIs(name)->topoPortConfigIs(intf)->portStateIs(state);
  }};
}

Prepared vlanTopologyCommand(LineParser& p, Context& c) {
  const Bridging::VlanId vlan(p.vlanId());
  if (p.accept("delete")) {
    p.end();
    if (!c.agent.brTopo()->vidToTopoMap(vlan)) {
      throw ScenarioError("VLAN " + std::to_string(vlan.value()) + " follows no topology");
    }
    return {[&c, vlan] { c.agent.brTopo()->vidToTopoMapDel(vlan); }};
  }
  const std::string name = p.word("a topology name");
  p.end();
  if (!c.agent.brTopo()->topoConfig(name)) throw ScenarioError("there is no topology " + name);
  return {[&c, vlan, name] {
    c.agent.brTopo()->vidToTopoMapIs(vlan, c.agent.brTopo()->topoConfigIs(name));
  }};
}

Prepared fdbCommand(LineParser& p, Context& c) {
  // Each VLAN learns into the filtering database of the same number.
  const Bridging::Fid fid(p.vlanId());
  const auto existing = c.agent.bridgingStatus()->fdbStatus(fid);
  if (p.accept("delete")) {
    p.end();
    if (!existing) throw ScenarioError("VLAN " + std::to_string(fid.value()) + " has no MAC table");
    return {[&c, fid] { c.agent.bridgingStatus()->fdbStatusDel(fid); }};
  }
  if (p.atEnd()) return {[&c, fid] { c.agent.bridgingStatus()->fdbStatusIs(fid); }};
  p.keyword("host");
  const Nexo::EthAddr mac = p.mac();
  if (mac.isMulticast() || mac.isZero()) {
    throw ParseError("a learned host has a unicast MAC address, got " + mac.stringValue().str());
  }
  if (p.accept("delete")) {
    p.end();
    if (!existing || existing->learnedHost(mac) == nullptr) {
      throw ScenarioError("VLAN " + std::to_string(fid.value()) + " has not learned " +
                          mac.stringValue().str());
    }
    return {[&c, fid, mac] { c.agent.bridgingStatus()->fdbStatusIs(fid)->learnedHostDel(mac); }};
  }
  p.keyword("intf");
  const Nexo::IntfId intf = p.intf();
  p.end();
  return {[&c, fid, mac, intf] {
    c.agent.bridgingStatus()->fdbStatusIs(fid)->learnedHostIs(mac, Bridging::LearnedHost(intf));
  }};
}

Prepared ipCommand(LineParser& p, Context& c) {
  const Nexo::IntfId intf = p.intf();
  if (p.accept("delete")) {
    p.end();
    if (!c.agent.ipStatus()->ipIntfStatus(intf)) {
      throw ScenarioError(intf.name().str() + " has no IP state");
    }
    return {[&c, intf] { c.agent.ipStatus()->ipIntfStatusDel(intf); }};
  }
  std::optional<Nexo::IpAddrWithMask> addr;
  std::optional<bool> routing;
  bool addrGiven = false;
  bool routingGiven = false;
  while (!p.atEnd()) {
    if (p.accept("addr")) {
      once(addrGiven, "addr");
      addr = p.ipAddrWithMask();
    } else if (p.accept("routing")) {
      once(routingGiven, "routing");
      routing = p.onOff();
    } else {
      throw ParseError("unexpected " + quoted(p.peek()) + "; expected addr or routing");
    }
  }
  return {[&c, intf, addr, routing] {
    auto ip = c.agent.ipStatus()->ipIntfStatusIs(intf);
    if (addr) ip->addrWithMaskIs(*addr);
    if (routing) ip->routingIs(*routing);
  }};
}

// L3 ids above the VLAN range belong to routed ports; a VLAN interface has its VLAN as id.
bool isRoutedPortId(UmoL3Intf::L3Id id) { return id > Bridging::VlanId::kMax; }

Prepared l3Command(LineParser& p, Context& c) {
  const Nexo::IntfId intf = p.intf();
  const UmoL3Intf::L3Id* current = c.agent.l3IntfTable()->intfL3Index(intf);
  const std::optional<UmoL3Intf::L3Id> old =
      current ? std::optional<UmoL3Intf::L3Id>(*current) : std::nullopt;
  if (p.accept("delete")) {
    p.end();
    if (!old) throw ScenarioError(intf.name().str() + " has no L3 id");
    return {[&c, intf, old] {
      c.agent.l3IntfTable()->routedPortNameDel(*old);
      c.agent.l3IntfTable()->intfL3IndexDel(intf);
    }};
  }
  p.keyword("id");
  const auto id = static_cast<UmoL3Intf::L3Id>(p.number("an L3 id", 1, 65535));
  p.end();
  const bool vlanIntf = Nexo::VlanIntfId::isVlanIntfId(intf);
  if (!isRoutedPortId(id) && (!vlanIntf || Nexo::VlanIntfId::vlanId(intf) != id)) {
    throw ParseError("L3 id " + std::to_string(id) + " stands for the interface Vlan" +
                     std::to_string(id) + "; routed ports have ids above 4094");
  }
  if (isRoutedPortId(id) && vlanIntf) {
    throw ParseError("a VLAN interface has the L3 id of its VLAN, got " + std::to_string(id));
  }
  for (const auto& [other, otherId] : c.agent.l3IntfTable()->intfL3Index()) {
    if (otherId == id && other != intf) {
      throw ScenarioError("L3 id " + std::to_string(id) + " already belongs to " +
                          other.name().str());
    }
  }
  return {[&c, intf, id, old] {
    const auto& table = c.agent.l3IntfTable();
    // The table lists every L3 interface both ways: by interface and by id.
    if (old && *old != id) table->routedPortNameDel(*old);
    table->intfL3IndexIs(intf, id);
    table->routedPortNameIs(id, intf);
  }};
}

// ---- the system and the clock -----------------------------------------------------------------

Prepared startCommand(LineParser& p, Context& c) {
  p.end();
  if (c.agent.started()) throw ScenarioError("the system is already started");
  return {[&c] { c.agent.start(); }};
}

Prepared stopCommand(LineParser& p, Context& c) {
  p.end();
  if (!c.agent.started()) throw ScenarioError("the system is not started; use 'start' first");
  return {[&c] { c.agent.stop(); }};
}

void printRuns(std::ostream& out, const Vyr::TaskScheduler& scheduler, std::size_t runs) {
  out << "time " << secondsText(scheduler.now()) << " s, " << runs << " task run"
      << (runs == 1 ? "" : "s") << "\n";
}

Prepared advanceCommand(LineParser& p, Context& c) {
  const Mox::Seconds seconds = p.seconds();
  p.end();
  return {[&c, seconds] {
    const std::size_t runs = c.agent.scheduler().advance(seconds);
    printRuns(c.out, c.agent.scheduler(), runs);
  }};
}

Prepared runCommand(LineParser& p, Context& c) {
  p.end();
  return {[&c] {
    const std::size_t runs = c.agent.scheduler().runUntilIdle(kMaxRuns);
    printRuns(c.out, c.agent.scheduler(), runs);
    if (c.agent.scheduler().pendingCount() != 0) {
      c.out << "stopped after " << runs << " task runs with tasks still pending\n";
    }
  }};
}

Prepared timeCommand(LineParser& p, Context& c) {
  p.end();
  return {[&c] { c.out << "time " << secondsText(c.agent.scheduler().now()) << " s\n"; }};
}

// ---- the chip ---------------------------------------------------------------------------------

Prepared chipCommand(LineParser& p, Context& c) {
  Chip& chip = c.agent.chip();
  const std::string what =
      p.word("what to set: groups, port-sets, translations, fail-groups or fail");
  if (what == "groups" || what == "port-sets" || what == "translations") {
    const std::size_t capacity = p.capacity(Chip::kUnlimited);
    p.end();
    if (what == "groups") return {[&chip, capacity] { chip.groupCapacityIs(capacity); }};
    if (what == "port-sets") return {[&chip, capacity] { chip.portSetCapacityIs(capacity); }};
    return {[&chip, capacity] { chip.translationCapacityIs(capacity); }};
  }
  if (what == "fail-groups") {
    const auto n = static_cast<std::uint32_t>(p.number("a number of group requests", 0, 1000000));
    p.end();
    return {[&chip, n] { chip.failNextGroupsIs(n); }};
  }
  if (what == "fail") {
    const std::string kind = p.word("'unicast' or 'multicast'");
    if (kind != "unicast" && kind != "multicast") {
      throw ParseError("expected 'unicast' or 'multicast', got " + quoted(kind));
    }
    const bool on = p.onOff();
    p.end();
    if (kind == "unicast") return {[&chip, on] { chip.failUnicastGroupsIs(on); }};
    return {[&chip, on] { chip.failMulticastGroupsIs(on); }};
  }
  throw ParseError("expected groups, port-sets, translations, fail-groups or fail, got " +
                   quoted(what));
}

// ---- the dataplane ----------------------------------------------------------------------------

// True when the switch has `intf` as a port: a switchport, a VLAN member or a routed port.
bool switchHasPort(const Agent& agent, const Nexo::IntfId& intf) {
  if (agent.bridgingConfig()->switchIntfConfig(intf)) return true;
  for (const auto& [vlan, vs] : agent.vlanStatusDir()->vlanStatus()) {
    if (vs->vlanPortStatus(intf) != nullptr) return true;
  }
  const UmoL3Intf::L3Id* id = agent.l3IntfTable()->intfL3Index(intf);
  return id != nullptr && isRoutedPortId(*id);
}

Prepared sendCommand(LineParser& p, Context& c) {
  Packet packet;
  packet.intf = p.intf();
  bool vlanGiven = false;
  if (p.accept("vlan")) {
    vlanGiven = true;
    packet.vlan = p.vlanId();
  }
  p.keyword("src");
  packet.src = p.ipAndPort();
  p.keyword("dst");
  packet.dst = p.ipAndPort();
  p.end();
  if (Nexo::VlanIntfId::isVlanIntfId(packet.intf)) {
    throw ScenarioError("a packet comes in on a port, not on the VLAN interface " +
                        packet.intf.name().str());
  }
  if (!switchHasPort(c.agent, packet.intf)) {
    throw ScenarioError("the switch has no port " + packet.intf.name().str() +
                        "; a packet comes in on a switchport, a VLAN member or a routed port");
  }
  // An untagged packet is in the native VLAN of its switchport, when the port has one.
  if (!vlanGiven) {
    if (const auto sw = c.agent.bridgingConfig()->switchIntfConfig(packet.intf);
        sw && !sw->nativeVlan().isNone() && sw->nativeVlan().value() <= Bridging::VlanId::kMax) {
      packet.vlan = sw->nativeVlan().value();
    }
  }
  if (c.ovs != nullptr) {
    return {[&c, packet] {
      const OvsDataplane::Sent sent = c.ovs->send(packet);
      printSent(c.out, packet, sent.copies);
      if (sent.problems.empty()) return;
      std::string problems;
      for (const std::string& problem : sent.problems) problems += "\n  " + problem;
      throw std::runtime_error("the dataplane sent frames that are not valid UDP/IPv4:" + problems);
    }};
  }
  return {[&c, packet] { printForwarding(c.out, c.agent.chip().forward(packet)); }};
}

// ---- views: explain, drift, summary, topology, settings, JSON ----------------------------------

void needsStart(const Context& c, std::string_view what) {
  if (!c.agent.started()) {
    throw ScenarioError(std::string(what) + " looks at the running system; use 'start' first");
  }
}

// The words left on the line.
std::size_t wordsLeft(const LineParser& p) {
  LineParser rest = p;
  return rest.rest().size();
}

// A last word "json" asks for the view as one JSON document.
bool wantsJson(const LineParser& p) {
  LineParser rest = p;
  const std::vector<std::string> words = rest.rest();
  return !words.empty() && words.back() == "json";
}

// An optional name before the closing "json", if any.
std::optional<std::string> optionalName(LineParser& p, bool json, std::string_view what) {
  if (wordsLeft(p) > (json ? 1U : 0U)) return p.word(what);
  return std::nullopt;
}

void endView(LineParser& p, bool json) {
  if (json) p.keyword("json");
  p.end();
}

// The views that have a JSON form, and the text forms of those added to the system's own; nothing
// for the text forms that showCommand prints itself.
std::optional<Prepared> prepareView(const std::string& what, LineParser& p, Context& c) {
  const bool json = wantsJson(p);
  const ViewForm form = json ? ViewForm::json : ViewForm::text;
  Agent& agent = c.agent;
  std::ostream& out = c.out;
  if (what == "summary") {
    endView(p, json);
    return Prepared{[&out, &agent, form] { showSummary(out, agent, form); }};
  }
  if (what == "topology") {
    endView(p, json);
    needsStart(c, "'show topology'");
    BacklogWatch& watch = c.backlogWatch;
    return Prepared{[&out, &agent, &watch, form] { showTopology(out, agent, watch, form); }};
  }
  if (what == "drift") {
    const std::optional<std::string> policy = optionalName(p, json, "a policy name");
    endView(p, json);
    needsStart(c, "'show drift'");
    if (policy) checkActionFilter(agent, ActionFilter{*policy, std::nullopt, std::nullopt});
    return Prepared{[&out, &agent, policy, form] { showDrift(out, agent, policy, form); }};
  }
  if (what == "settings") {
    endView(p, json);
    needsStart(c, "'show settings'");
    return Prepared{[&out, &agent, form] { showSettings(out, agent, form); }};
  }
  if (what == "orphans") {
    endView(p, json);
    return Prepared{[&out, &agent, form] { showOrphans(out, agent, form); }};
  }
  if (what == "hw" && p.accept("dot")) {
    p.end();
    return Prepared{[&out, &agent] { printHwDot(out, *agent.hwStatus()); }};
  }
  // The dataplane's views, JSON included, are showCommand's own.
  if (!json || what == "dataplane") return std::nullopt;
  // The JSON forms of the other views.
  if (what == "table") {
    const std::optional<std::string> policy = optionalName(p, json, "a policy name");
    endView(p, json);
    needsStart(c, "'show table'");
    std::string line = Agent::kShowCommandName;
    if (policy) line += " " + *policy;
    return Prepared{[&out, &agent, line] { showTableJson(out, agent, line); }};
  }
  if (what == "skimtrace") {
    std::size_t last = kDefaultSkimtraceRecords;
    if (wordsLeft(p) > 1) last = p.number("a number of records", 1, 1000000);
    endView(p, json);
    return Prepared{[&out, last] { showSkimtraceJson(out, last); }};
  }
  if (what == "calls") {
    const bool all = p.accept("all");
    endView(p, json);
    return Prepared{[&out, &agent, all] { showCallsJson(out, agent.chip(), all); }};
  }
  endView(p, json);
  if (!hasJsonForm(what)) throw ParseError("cannot show " + quoted(what) + " as JSON");
  return Prepared{[&out, &agent, what] { showJson(out, agent, what); }};
}

Prepared explainCommand(LineParser& p, Context& c) {
  ActionFilter filter{p.word("a policy name"), std::nullopt, std::nullopt};
  if (!p.atEnd()) filter.match = p.word("a match name");
  if (!p.atEnd()) filter.action = p.word("an action name");
  p.end();
  needsStart(c, "'explain'");
  checkActionFilter(c.agent, filter);
  return {[&c, filter] { showExplanations(c.out, c.agent, filter); }};
}

Prepared setCommand(LineParser& p, Context& c) {
  const std::string name = p.word("a setting");
  if (!settings().contains(name)) {
    std::string names;
    for (const auto& [known, setting] : settings()) names += (names.empty() ? "" : ", ") + known;
    throw ParseError("unknown setting " + quoted(name) + "; the settings are " + names);
  }
  if (name == "time-slice") {
    const std::uint64_t steps = p.number("a number of steps", 0, 1000000000);
    p.end();
    return {[&c, steps] { c.agent.scheduler().timeSliceIs(steps); }};
  }
  if (name == "backlog-limit") {
    const auto limit =
        static_cast<std::uint32_t>(p.number("a number of actions", 0, 0xffffffffULL));
    p.end();
    needsStart(c, "'set backlog-limit'");
    return {[&c, limit] { c.agent.root()->topologySm()->actionSmUpdateBacklogTaskLimitIs(limit); }};
  }
  const Mox::Seconds seconds = p.seconds();
  p.end();
  needsStart(c, "'set " + name + "'");
  if (name == "retry-delay") {
    return {[&c, seconds] { c.agent.root()->unprogrammedGroupTaskDelayIs(seconds); }};
  }
  return {[&c, seconds] {
    c.agent.root()->topologySm()->actionSmUpdateBacklogTaskIntervalIs(seconds);
  }};
}

Prepared restartCommand(LineParser& p, Context& c) {
  p.end();
  if (!c.agent.started()) throw ScenarioError("the system is not started; use 'start' first");
  return {[&c] {
    c.agent.restart();
    showOrphans(c.out, c.agent, ViewForm::text);
  }};
}

// ---- show -------------------------------------------------------------------------------------

Prepared showCommand(LineParser& p, Context& c) {
  const std::string what = p.word("what to show");
  if (std::optional<Prepared> view = prepareView(what, p, c)) return std::move(*view);
  if (what == "table") {
    std::string line = Agent::kShowCommandName;
    if (!p.atEnd()) line += " " + p.word("a policy name");
    p.end();
    if (!c.agent.started()) {
      throw ScenarioError("'show table' runs the system's show command; use 'start' first");
    }
    return {[&c, line] {
      if (c.agent.runCommand(line, c.out) == 0) c.out << "(no output)\n";
    }};
  }
  if (what == "dataplane") {
    const bool stats = p.accept("stats");
    const bool json = p.accept("json");
    p.end();
    if (json) {
      return {[&c, stats] {
        if (stats) {
          OvsDataplane::printStatsJson(c.out, c.ovs);
        } else {
          OvsDataplane::printJson(c.out, c.ovs);
        }
      }};
    }
    if (c.ovs == nullptr) {
      return {[&c] {
        c.out << "dataplane: the simulated chip alone (umonat-sim --dataplane ovs adds Open "
                 "vSwitch)\n";
      }};
    }
    if (stats) return {[&c] { c.ovs->printStats(c.out); }};
    return {[&c] { c.ovs->print(c.out); }};
  }
  if (what == "skimtrace") {
    std::size_t last = kDefaultSkimtraceRecords;
    if (!p.atEnd()) last = p.number("a number of records", 1, 1000000);
    p.end();
    return {[&c, last] { printSkimtrace(c.out, last); }};
  }
  Chip& chip = c.agent.chip();
  std::ostream& out = c.out;
  if (what == "calls" && p.accept("all")) {
    p.end();
    return {[&chip, &out] { chip.printCalls(out); }};
  }
  p.end();
  if (what == "hw") return {[&c] { printHwStatus(c.out, *c.agent.hwStatus()); }};
  if (what == "chip") return {[&chip, &out] { chip.printTables(out); }};
  if (what == "calls") return {[&chip, &out] { chip.printCallsSinceLastLook(out); }};
  if (what == "counters") return {[&chip, &out] { chip.printCounters(out); }};
  if (what == "leftovers") return {[&chip, &out] { chip.printLeftovers(out); }};
  if (what == "inputs") return {[&c] { printInputs(c.out, c.agent); }};
  if (what == "tasks") return {[&c] { printTasks(c.out, c.agent.scheduler()); }};
  if (what == "log-events") return {[&out] { printLogEvents(out); }};
  throw ParseError("cannot show " + quoted(what));
}

// ---- the session ------------------------------------------------------------------------------

Prepared traceCommand(LineParser& p, Context& c) {
  if (p.atEnd()) {
    return {[&c] {
      const std::string levels = Mox::traceLevels();
      c.out << "trace levels: " << (levels.empty() ? "off" : levels) << "\n";
    }};
  }
  if (p.accept("off")) {
    p.end();
    return {[] { Mox::traceLevelsIs(""); }};
  }
  std::string config;
  for (const std::string& entry : p.rest()) config += (config.empty() ? "" : " ") + entry;
  // The configuration is checked by applying it and putting the current one back.
  const std::string current = Mox::traceLevels();
  try {
    Mox::traceLevelsIs(config);
  } catch (const std::invalid_argument& e) {
    throw ParseError(e.what());
  }
  Mox::traceLevelsIs(current);
  return {[config] { Mox::traceLevelsIs(config); }};
}

const Command* findCommand(std::string_view name);
std::string unknownCommand(std::string_view name);
void printForm(std::ostream& os, const Form& form);

Prepared helpCommand(LineParser& p, Context& c) {
  if (p.atEnd()) return {[&c] { Interpreter::printHelp(c.out); }};
  const std::string name = p.word("a command");
  p.end();
  const Command* command = findCommand(name);
  if (command == nullptr) throw ScenarioError(unknownCommand(name));
  return {[&c, command] {
    for (const Form& form : command->forms) printForm(c.out, form);
  }};
}

Prepared quitCommand(LineParser& p, Context& /*c*/) {
  p.end();
  return {[] {}, true};
}

const std::vector<Command>& commands() {
  static const std::vector<Command> table = {
      {"policy",
       "NAT inputs",
       {{"policy NAME", "add a NAT policy"}, {"policy NAME delete", "delete a policy"}},
       policyCommand},
      {"match",
       "NAT inputs",
       {{"match POLICY NAME [flow src A.B.C.D/LEN:PORT dst A.B.C.D/LEN:PORT]",
         "add a match, or set its flow"},
        {"match POLICY NAME delete", "delete a match"}},
       matchCommand},
      {"action",
       "NAT inputs",
       {{"action POLICY MATCH NAME [src IP[:PORT]] [dst IP[:PORT]] [version N]",
         "add an action, or set its translations and version"},
        {"action POLICY MATCH NAME delete", "delete an action"}},
       actionCommand},
      {"nexthop",
       "NAT inputs",
       {{"nexthop POLICY MATCH ACTION INTF vlan V mac MAC",
         "set an action's outgoing interface and next hop"},
        {"nexthop POLICY MATCH ACTION INTF delete", "remove an outgoing interface"}},
       nexthopCommand},
      {"intf",
       "switch inputs",
       {{"intf INTF [mode MODE] [native V]", "add a switchport, or set its mode or native VLAN"},
        {"intf INTF delete", "delete a switchport"}},
       intfCommand},
      {"bridge-mac",
       "switch inputs",
       {{"bridge-mac MAC", "set the switch's own MAC address"}},
       bridgeMacCommand},
      {"vlan",
       "switch inputs",
       {{"vlan V [member INTF...]", "add a VLAN, and members to it"},
        {"vlan V remove INTF...", "remove members"},
        {"vlan V delete", "delete a VLAN"}},
       vlanCommand},
      {"topology",
       "switch inputs",
       {{"topology NAME [port INTF state STATE]", "add a topology, or set a port's state in it"},
        {"topology NAME port INTF delete", "remove a port from a topology"},
        {"topology NAME delete", "delete a topology"}},
       topologyCommand},
      {"vlan-topology",
       "switch inputs",
       {{"vlan-topology V TOPOLOGY", "make a VLAN follow a topology"},
        {"vlan-topology V delete", "unmap a VLAN"}},
       vlanTopologyCommand},
      {"fdb",
       "switch inputs",
       {{"fdb V host MAC intf INTF", "learn a host in a VLAN, or move it"},
        {"fdb V host MAC delete", "forget a host"},
        {"fdb V", "add an empty MAC table for a VLAN"},
        {"fdb V delete", "drop a VLAN's MAC table"}},
       fdbCommand},
      {"ip",
       "switch inputs",
       {{"ip INTF [addr A.B.C.D/LEN] [routing on|off]", "set an interface's IP address or routing"},
        {"ip INTF delete", "delete an interface's IP state"}},
       ipCommand},
      {"l3",
       "switch inputs",
       {{"l3 INTF id N", "set an interface's L3 id (routed ports above 4094)"},
        {"l3 INTF delete", "remove an interface's L3 id"}},
       l3Command},
      {"start",
       "system and clock",
       {{"start", "create the system's root, which scans the inputs"}},
       startCommand},
      {"stop",
       "system and clock",
       {{"stop", "drop the root: the system frees all it holds"}},
       stopCommand},
      {"restart",
       "system and clock",
       {{"restart", "the agent restarts: chip and hardware status keep what they held"}},
       restartCommand},
      {"set",
       "system and clock",
       {{"set retry-delay SECONDS", "set the delay of the retry of waiting matches"},
        {"set backlog-interval SECONDS", "set the interval of the topology update backlog"},
        {"set backlog-limit N", "set how many actions one backlog run re-evaluates"},
        {"set time-slice N", "set the steps a task run may take (0: unlimited)"}},
       setCommand},
      {"advance",
       "system and clock",
       {{"advance SECONDS", "move the clock, running the tasks that fall due"}},
       advanceCommand},
      {"run", "system and clock", {{"run", "run tasks until none is pending"}}, runCommand},
      {"time", "system and clock", {{"time", "print the virtual time"}}, timeCommand},
      {"chip",
       "simulated chip",
       {{"chip groups N|unlimited", "set how many groups the chip holds"},
        {"chip port-sets N|unlimited", "set how many port sets it holds, over all groups"},
        {"chip translations N|unlimited", "set how many translations it holds"},
        {"chip fail-groups N", "make the next N group requests fail"},
        {"chip fail unicast|multicast on|off", "make unicast or multicast group requests fail"}},
       chipCommand},
      {"send",
       "dataplane",
       {{"send INTF [vlan V] src A.B.C.D[:PORT] dst A.B.C.D[:PORT]",
         "forward a UDP packet; print the copies that leave"}},
       sendCommand},
      {"show",
       "show",
       {{"show table [POLICY] [json]", "run showNatFlowActionHw through the agent"},
        {"show hw [json]", "print the hardware status tree the system writes"},
        {"show hw dot", "draw the hardware status tree as a Graphviz graph"},
        {"show chip [json]", "print the chip's tables, capacities and faults"},
        {"show dataplane [stats] [json]", "print what the real dataplane holds, or its figures"},
        {"show calls [json]", "print the chip calls made since the last look"},
        {"show calls all [json]", "print every chip call"},
        {"show counters [json]", "count calls, failures, refusals per operation"},
        {"show leftovers [json]", "print what the chip holds and what it refused"},
        {"show inputs [json]", "print the inputs as the lines that build them"},
        {"show tasks [json]", "print the timer tasks"},
        {"show log-events [json]", "print the registered log events"},
        {"show skimtrace [N] [json]", "print the newest N (default 20) Skimtrace records"},
        {"show summary [json]", "count policies, matches, actions by state, chip use"},
        {"show topology [json]", "VLAN validity, recirculation VLAN, index, backlog, retry"},
        {"show drift [POLICY] [json]", "compare what is programmed with a fresh pass"},
        {"show settings [json]", "print the settings 'set' changes"},
        {"show orphans [json]", "print what the chip holds that no state owns"}},
       showCommand},
      {"explain",
       "show",
       {{"explain POLICY [MATCH [ACTION]]", "why each action is programmed or not"}},
       explainCommand},
      {"trace",
       "session",
       {{"trace PATTERN/LEVELS...", "turn trace levels on, e.g. trace UmoNat*/0-9"},
        {"trace off", "turn every trace off"},
        {"trace", "print the trace levels"}},
       traceCommand},
      {"help",
       "session",
       {{"help", "print this list"}, {"help COMMAND", "print the forms of a command"}},
       helpCommand},
      {"quit", "session", {{"quit", "end the session"}}, quitCommand},
      {"exit", "session", {{"exit", "end the session, as quit does"}}, quitCommand},
  };
  return table;
}

const Command* findCommand(std::string_view name) {
  for (const Command& command : commands()) {
    if (name == command.name) return &command;
  }
  return nullptr;
}

std::string unknownCommand(std::string_view name) {
  std::vector<std::string> names;
  for (const Command& command : commands()) names.emplace_back(command.name);
  return unknownCommandMessage(name, names);
}

void printForm(std::ostream& os, const Form& form) {
  // Long forms put their description on a line of its own.
  const std::string syntax = form.syntax;
  if (syntax.size() > kHelpColumn) {
    os << "  " << syntax << "\n" << std::string(kHelpColumn + 4, ' ') << form.help << "\n";
    return;
  }
  os << "  " << syntax << std::string(kHelpColumn + 2 - syntax.size(), ' ') << form.help << "\n";
}

// The forms of `command` for a report about `line`: those whose second word is the line's second
// word when there are any (the sub-command given), else all of them.
std::string usage(const Command& command, std::string_view line) {
  const std::vector<std::string> words = LineParser::split(line);
  std::vector<const Form*> forms;
  for (const Form& form : command.forms) {
    const std::vector<std::string> syntax = LineParser::split(form.syntax);
    if (words.size() > 1 && syntax.size() > 1 && syntax[1] == words[1]) forms.push_back(&form);
  }
  if (forms.empty()) {
    for (const Form& form : command.forms) forms.push_back(&form);
  }
  std::string text;
  const char* lead = "\n  usage: ";
  for (const Form* form : forms) {
    text += lead;
    text += form->syntax;
    lead = "\n         ";
  }
  return text;
}

// What the report of a failed assertion adds when the chip has run out of port sets. A port set
// the chip has no id for comes back as id 0, which the system records; it stops on its assertion
// "psId" when it next programs a translation of that port set, which may be after the table has
// room again.
std::string portSetTableNote(const Chip& chip) {
  const std::size_t inUse = chip.portSets().size();
  if (inUse >= chip.portSetCapacity()) {
    return "\nthe chip's port-set table is full (" + std::to_string(inUse) + " of " +
           std::to_string(chip.portSetCapacity()) +
           " in use): the system stops on \"psId\" when the chip has no port-set id to give";
  }
  const std::uint64_t failed = chip.counter(Chip::Op::updateNatFlowVlanPortSet).failed;
  if (failed == 0) return "";
  return "\nthe chip's port-set table was full for " + std::to_string(failed) +
         " port-set request(s): the system stops on \"psId\" when it programs a port set the chip "
         "had no id for";
}

}  // namespace

Interpreter::Interpreter(std::ostream& out, std::ostream& err, bool echo, Dataplane dataplane)
    : out_(out),
      err_(err),
      echo_(echo),
      previousTraceSink_(Mox::traceSink()),
      previousTraceLevels_(Mox::traceLevels()) {
  Mox::traceSinkIs([this](const Mox::TraceLine& line) {
    out_ << "trace " << line.handle << "/" << line.level << " " << line.text << "\n";
  });
  Mox::assertionContextIs([this] { return assertionContext(); });
  if (dataplane == Dataplane::ovs) {
    try {
      ovs_ = std::make_unique<OvsDataplane>(agent_);
    } catch (...) {
      Mox::assertionContextIs({});
      Mox::traceSinkIs(std::move(previousTraceSink_));
      throw;
    }
  }
}

Interpreter::~Interpreter() {
  // The teardown still reports its traces and assertions as part of this simulation.
  if (agent_.started()) {
    finishing_ = true;
    agent_.stop();
  }
  Mox::assertionContextIs({});
  Mox::traceSinkIs(std::move(previousTraceSink_));
  Mox::traceLevelsIs(previousTraceLevels_);
}

std::string Interpreter::assertionContext() const {
  // What the transcript shows so far goes out before the process stops.
  out_.flush();
  std::fflush(stdout);
  const std::string note = portSetTableNote(agent_.chip());
  if (finishing_) return "teardown at the end of " + file_ + note;
  if (line_ == 0) return "before the first scenario line" + note;
  return std::string(running_ ? "scenario " : "after scenario ") + file_ + ":" +
         std::to_string(line_) + ": " + text_ + note;
}

void Interpreter::reportError(std::string_view message) {
  ++errors_;
  out_.flush();
  err_ << file_ << ":" << line_ << ": error: " << message << "\n";
  err_.flush();
}

Interpreter::Outcome Interpreter::runLine(std::string_view text, std::string_view file,
                                          std::size_t line) {
  while (!text.empty() && (text.back() == '\r' || text.back() == ' ' || text.back() == '\t')) {
    text.remove_suffix(1);
  }
  file_ = file;
  line_ = line;
  text_ = text;
  LineParser parser(text);
  if (echo_) out_ << (parser.atEnd() ? "" : "> ") << text << "\n";
  out_.flush();
  if (parser.atEnd()) return Outcome::ok;

  const std::string name = parser.word("a command");
  const Command* command = findCommand(name);
  if (command == nullptr) {
    reportError(unknownCommand(name));
    return Outcome::error;
  }
  Context context{agent_, out_, backlogWatch_, ovs_.get()};
  Prepared prepared;
  running_ = true;
  try {
    prepared = command->prepare(parser, context);
  } catch (const ParseError& e) {
    running_ = false;
    reportError(e.what() + usage(*command, text));
    return Outcome::error;
  } catch (const ScenarioError& e) {
    running_ = false;
    reportError(e.what());
    return Outcome::error;
  }
  if (prepared.quit) {
    running_ = false;
    return Outcome::quit;
  }
  try {
    prepared.run();
  } catch (const std::exception& e) {
    // Only the system itself or the operating system gets here: the line was checked.
    running_ = false;
    reportError(std::string("the command failed: ") + e.what());
    return Outcome::error;
  }
  running_ = false;
  backlogWatch_.observe(agent_);
  out_.flush();
  return syncDataplane() ? Outcome::ok : Outcome::error;
}

bool Interpreter::syncDataplane() {
  if (!ovs_) return true;
  bool clean = true;
  for (const std::string& divergence : agent_.chip().takeDivergences()) {
    reportError("the dataplane's helper disagrees with the chip: " + divergence);
    clean = false;
  }
  try {
    ovs_->sync();
  } catch (const std::exception& e) {
    reportError(std::string("the dataplane refused the change: ") + e.what());
    clean = false;
  }
  return clean;
}

Interpreter::Outcome Interpreter::runStream(std::istream& in, std::string_view file,
                                            bool keepGoing) {
  std::string text;
  std::size_t line = 0;
  bool failed = false;
  while (std::getline(in, text)) {
    const Outcome outcome = runLine(text, file, ++line);
    if (outcome == Outcome::quit) return failed ? Outcome::error : Outcome::quit;
    if (outcome != Outcome::error) continue;
    failed = true;
    if (!keepGoing) return Outcome::error;
  }
  return failed ? Outcome::error : Outcome::ok;
}

bool Interpreter::finish() {
  finishing_ = true;
  if (agent_.started()) agent_.stop();
  syncDataplane();
  const Chip& chip = agent_.chip();
  if (chip.violationCount() == 0) return true;
  ++errors_;
  out_.flush();
  err_ << file_ << ": error: the chip refused " << chip.violationCount()
       << " call(s) that break the hardware helper's contract:\n";
  for (const Chip::Call* call : chip.violations()) {
    err_ << "  #" << call->number << " " << call->text << "\n";
  }
  err_.flush();
  return false;
}

void Interpreter::printHelp(std::ostream& os) {
  std::string group;
  for (const Command& command : commands()) {
    if (command.group != group) {
      group = command.group;
      os << group << ":\n";
    }
    for (const Form& form : command.forms) printForm(os, form);
  }
  os << "Lines: one command per line; '#' starts a comment; blank lines are skipped.\n";
}

std::vector<CommandForm> Interpreter::commandForms() {
  std::vector<CommandForm> forms;
  for (const Command& command : commands()) {
    for (const Form& form : command.forms) forms.push_back({command.name, form.syntax, form.help});
  }
  return forms;
}

}  // namespace Sim
