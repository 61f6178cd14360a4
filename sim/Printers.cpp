#include "sim/Printers.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <ostream>
#include <sstream>
#include <vector>

#include "Mox/Log.h"
#include "Skimtrace/Skimtrace.h"
#include "sim/Agent.h"

namespace Sim {

namespace {

void printNatInputs(std::ostream& os, const Ip::Nat::Status& status) {
  for (const auto& [policyName, policy] : status.natFlow()) {
    os << "policy " << policyName << "\n";
    for (const auto& [matchName, match] : policy->match()) {
      os << "match " << policyName << " " << matchName << " flow " << match->flow() << "\n";
      for (const auto& [actionName, action] : match->action()) {
        os << "action " << policyName << " " << matchName << " " << actionName << " src "
           << action->src() << " dst " << action->dst() << " version " << action->version() << "\n";
        for (const auto& [intf, nextHop] : action->intf()) {
          os << "nexthop " << policyName << " " << matchName << " " << actionName << " " << intf
             << " vlan " << nextHop.vlan() << " mac " << nextHop.mac() << "\n";
        }
      }
    }
  }
}

void printTopology(std::ostream& os, const Bridging::Topology::TopoConfig& topoConfig) {
  os << "topology " << topoConfig.name() << "\n";
  for (const auto& [intf, port] : topoConfig.topoPortConfig()) {
    os << "topology " << topoConfig.name() << " port " << intf << " state " << port->portState()
       << "\n";
  }
}

// The topologies and the VLANs that follow them. A VLAN keeps following a topology that was
// deleted, ports and all; such a topology is built again, given its VLANs and deleted, before the
// topologies that exist are built, since one of them may have its name. Deleted topologies come
// in the order of their lowest VLAN.
void printTopologyInputs(std::ostream& os, const Bridging::Topology::Config& topo) {
  std::vector<Mox::Ptr<const Bridging::Topology::TopoConfig>> deleted;
  for (const auto& [vlan, topoConfig] : topo.vidToTopoMap()) {
    if (topo.topoConfig(topoConfig->name()) == topoConfig) continue;
    if (std::find(deleted.begin(), deleted.end(), topoConfig) == deleted.end()) {
      deleted.push_back(topoConfig);
    }
  }
  for (const auto& gone : deleted) {
    os << "# topology " << gone->name() << ", deleted, and the VLANs that still follow it\n";
    printTopology(os, *gone);
    for (const auto& [vlan, topoConfig] : topo.vidToTopoMap()) {
      if (topoConfig == gone) os << "vlan-topology " << vlan << " " << gone->name() << "\n";
    }
    os << "topology " << gone->name() << " delete\n";
  }
  for (const auto& [name, topoConfig] : topo.topoConfig()) printTopology(os, *topoConfig);
  for (const auto& [vlan, topoConfig] : topo.vidToTopoMap()) {
    if (topo.topoConfig(topoConfig->name()) != topoConfig) continue;
    os << "vlan-topology " << vlan << " " << topoConfig->name() << "\n";
  }
}

void printBridgingInputs(std::ostream& os, const Agent& agent) {
  const Bridging::Config& config = *agent.bridgingConfig();
  for (const auto& [intf, sw] : config.switchIntfConfig()) {
    os << "intf " << intf << " mode " << sw->switchportMode() << " native " << sw->nativeVlan()
       << "\n";
  }
  if (!config.bridgeMacAddr().isZero()) os << "bridge-mac " << config.bridgeMacAddr() << "\n";
  for (const auto& [vlan, status] : agent.vlanStatusDir()->vlanStatus()) {
    os << "vlan " << vlan;
    if (!status->vlanPortStatus().empty()) os << " member";
    for (const auto& [intf, portStatus] : status->vlanPortStatus()) os << " " << intf;
    os << "\n";
  }
  printTopologyInputs(os, *agent.brTopo());
  for (const auto& [fid, fdb] : agent.bridgingStatus()->fdbStatus()) {
    if (fdb->learnedHost().empty()) os << "fdb " << fid << "\n";
    for (const auto& [mac, host] : fdb->learnedHost()) {
      os << "fdb " << fid << " host " << mac << " intf " << host.intf() << "\n";
    }
  }
}

void printIpInputs(std::ostream& os, const Agent& agent) {
  for (const auto& [intf, ip] : agent.ipStatus()->ipIntfStatus()) {
    os << "ip " << intf << " addr " << ip->addrWithMask() << " routing "
       << (ip->routing() ? "on" : "off") << "\n";
  }
  for (const auto& [intf, id] : agent.l3IntfTable()->intfL3Index()) {
    os << "l3 " << intf << " id " << id << "\n";
  }
}

void printPortSets(std::ostream& os, const char* kind,
                   const Ip::Nat::NatFlowVlanPortSets::PortSetView& portSets) {
  for (const auto& [vlan, ps] : portSets) {
    os << "      " << kind << " vlan " << vlan << "  port sets " << ps->portSetId() << " "
       << ps->portSetId2() << "  dmac " << ps->dmac() << "  intf";
    if (ps->intf().empty()) os << " none";
    // An empty name stays visible.
    for (const auto& [intf, member] : ps->intf())
      os << " " << (intf.empty() ? "\"\"" : intf.name());
    os << "\n";
  }
}

}  // namespace

std::string secondsText(Mox::Seconds seconds) {
  // The clock ends at the largest 64-bit count of nanoseconds; llround has no result beyond it.
  const double ns = seconds * 1e9;
  const auto nanos = ns >= 9.2233720368547758e18
                         ? static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max())
                         : static_cast<std::uint64_t>(std::llround(ns));
  std::string text = std::to_string(nanos / 1000000000ULL);
  std::uint64_t fraction = nanos % 1000000000ULL;
  if (fraction == 0) return text;
  std::string digits = std::to_string(fraction);
  digits.insert(0, 9 - digits.size(), '0');
  while (digits.back() == '0') digits.pop_back();
  return text + "." + digits;
}

void printInputs(std::ostream& os, const Agent& agent) {
  std::ostringstream text;
  printNatInputs(text, *agent.natStatus());
  printBridgingInputs(text, agent);
  printIpInputs(text, agent);
  if (text.str().empty()) {
    os << "# no inputs\n";
    return;
  }
  os << text.str();
}

void printHwStatus(std::ostream& os, const Ip::Nat::HwNatFlowStatus& hwStatus) {
  if (hwStatus.natFlow().empty()) {
    os << "hardware status: empty\n";
    return;
  }
  for (const auto& [policyName, policy] : hwStatus.natFlow()) {
    os << "policy " << policyName << "\n";
    for (const auto& [matchName, match] : policy->match()) {
      os << "  match " << matchName << "  groups uc " << match->groupIdUc() << " mc "
         << match->groupIdMc() << "  flow " << match->flow() << "\n";
      for (const auto& [actionName, action] : match->action()) {
        os << "    action " << actionName << "  " << action->flowType() << "  src "
           << action->srcFlow() << "/" << action->srcLen() << " -> " << action->srcNat() << "  dst "
           << action->dstFlow() << "/" << action->dstLen() << " -> " << action->dstNat() << "\n";
        const auto& vps = action->vlanPortSets();
        // No record (no pass yet) and a record without port sets read differently.
        if (!vps) {
          os << "      no port-set record\n";
          continue;
        }
        if (vps->ucastPortSet().empty() && vps->mcastPortSet().empty()) {
          os << "      port-set record empty\n";
          continue;
        }
        printPortSets(os, "ucast", vps->ucastPortSet());
        printPortSets(os, "mcast", vps->mcastPortSet());
      }
    }
  }
}

void printTasks(std::ostream& os, const Vyr::TaskScheduler& scheduler) {
  const std::vector<Vyr::TaskStats> tasks = scheduler.tasks();
  if (tasks.empty()) {
    os << "no tasks\n";
    return;
  }
  for (const Vyr::TaskStats& task : tasks) {
    os << "task " << task.name << "  priority " << task.priority << "  runs " << task.runs
       << "  work " << task.workCount << "  ";
    if (task.scheduled) {
      os << "due at " << secondsText(task.dueTime) << " s\n";
    } else {
      os << "idle\n";
    }
  }
}

void printLogEvents(std::ostream& os) {
  const std::vector<const Mox::LogHandle*> events = Mox::logEvents();
  if (events.empty()) os << "no log events\n";
  for (const Mox::LogHandle* event : events) {
    os << event->name() << "  severity " << event->severity() << "  \"" << event->format()
       << "\"\n";
  }
}

void printSkimtrace(std::ostream& os, std::size_t last) {
  const std::vector<std::string> records = Skimtrace::dump(last);
  if (records.empty()) os << "skimtrace: empty\n";
  for (const std::string& record : records) os << "skimtrace " << record << "\n";
}

}  // namespace Sim
