#include "UmoNat/UmoNatFlowMcastSmCli.h"

#include <stdio.h>

#include <algorithm>
#include <cstddef>
#include <string>

#include "Mox/Assert.h"
#include "Mox/Trace.h"
#include "UmoNat/NatFlowMcastCliSorter.h"

namespace {

constinit Mox::TraceHandle traceHandle("UmoNatFlowMcastSmCli");

constexpr std::size_t kTableWidth = 149;

// The values every row of one action shares.
struct ActionRow {
  const Pelo::String& policy;
  const Pelo::String& match;
  const Pelo::String& action;
  Pelo::String source;
  Pelo::String destination;
  int sport;
  int dport;
  const char* flowType;
};

// The FT column; a value outside the enumeration shows as "?".
const char* flowTypeText(Ip::Nat::NatFlowType flowType) {
  switch (flowType) {
    case Ip::Nat::NatFlowType::natFlowTypeUnicast:
      return "UC";
    case Ip::Nat::NatFlowType::natFlowTypeMulticast:
      return "MC";
    case Ip::Nat::NatFlowType::natFlowTypeNone:
      return "AC";
  }
  return "?";
}

// The network part of `addr` under `prefixLen` in dotted form, or "-" when it is 0.0.0.0.
Pelo::String maskedAddressText(Nexo::IpAddr addr, std::uint32_t prefixLen) {
  std::uint32_t value = addr.value();
  if (prefixLen == 0) {
    value = 0;
  } else if (prefixLen < 32) {
    value &= ~std::uint32_t{0} << (32 - prefixLen);
  }
  if (value == 0) return "-";
  return Nexo::IpAddr(value).stringValue();
}

void printSeparator(int fd) { dprintf(fd, "%s\n", std::string(kTableWidth, '-').c_str()); }

// Column titles between two separator lines.
void printHeader(int fd) {
  printSeparator(fd);
  dprintf(fd, "%-18s %-18s %-18s %-14s %-15s %-5s %-5s %-2s %-2s %-5s %-5s %-4s %-8s %-17s\n",
          "Policy", "Match", "Action", "Source", "Destination", "SPort", "DPort", "FT", "PT",
          "PSet1", "PSet2", "Vlan", "Intf", "Mac");
  printSeparator(fd);
}

// One row per interface of each port set, port sets and interfaces in their collections' order.
void printPortSetRows(int fd, const ActionRow& row, const char* portType,
                      const Ip::Nat::NatFlowVlanPortSets::PortSetView& portSets) {
  for (const auto& [vlan, portSet] : portSets) {
    const Pelo::String mac = portSet->dmac().stringValue();
    for (const auto& [intf, member] : portSet->intf()) {
      dprintf(fd, "%-18s %-18s %-18s %-14s %-15s %-5d %-5d %-2s %-2s %-5u %-5u %-4u %-8s %-17s\n",
              row.policy.c_str(), row.match.c_str(), row.action.c_str(), row.source.c_str(),
              row.destination.c_str(), row.sport, row.dport, row.flowType, portType,
              static_cast<unsigned>(portSet->portSetId()),
              static_cast<unsigned>(portSet->portSetId2()), static_cast<unsigned>(vlan),
              intf.shortName().c_str(), mac.c_str());
    }
  }
}

}  // namespace

UmoNatFlowMcastSmCliCallback::UmoNatFlowMcastSmCliCallback(
    const Pelo::String& name, const Pelo::String& help,
    const Mox::Ptr<Ip::Nat::HwNatFlowStatus>& hwNatFlowStatus)
    : Agent::AgentCommandCallback(name, help), hwNatFlowStatus_(hwNatFlowStatus) {}

void UmoNatFlowMcastSmCliCallback::handleCommand(std::uint32_t socket,
                                                 const Pelo::String& command) {
  MOX_TRACE(traceHandle, 8, "UmoNatFlowMcastSmCliCallback::handleCommand, cmd: " << command);
  if (!hwNatFlowStatus_) {
    MOX_TRACE(traceHandle, 8, "Callback not initialized yet");
    return;
  }
  // Every registered callback sees every line; this one answers any line naming its command.
  if (command.find("showNatFlowActionHw") == Pelo::String::npos) return;

  std::uint32_t position = 1;
  nextFieldS(command, position);
  const Pelo::String filter = nextFieldS(command, position);
  if (!filter.empty()) {
    showMcastNatFlowActionHw(socket, filter, false);
    return;
  }

  NatFlowMcastCliSorter policies;
  for (const auto& [name, policy] : hwNatFlowStatus_->natFlow()) policies.entryIdIs(name, true);
  bool headerPrinted = false;
  for (const auto& [name, entry] : policies) {
    headerPrinted = showMcastNatFlowActionHw(socket, name, headerPrinted);
  }
}

Pelo::String UmoNatFlowMcastSmCliCallback::nextFieldS(const Pelo::String& command,
                                                      std::uint32_t& position) {
  const std::size_t size = command.size();
  std::size_t start = std::min<std::size_t>(std::size_t{position} + 1, size);
  while (start < size && command[start] == ' ') ++start;
  std::size_t end = command.find(' ', start);
  if (end == Pelo::String::npos) end = size;
  Pelo::String field = command.substr(start, end - start);
  MOX_TRACE(traceHandle, 8,
            "Command: " << command << ", start: " << position << ", end: " << end
                        << ", field: " << field);
  position = static_cast<std::uint32_t>(end);
  return field;
}

bool UmoNatFlowMcastSmCliCallback::showMcastNatFlowActionHw(std::uint32_t socket,
                                                            const Pelo::String& policy,
                                                            bool headerPrinted) {
  MOX_TRACE(traceHandle, 8,
            "UmoNatFlowMcastSmCliCallback::showMcastNatFlowActionHw, policy: " << policy);
  if (!hwNatFlowStatus_) return headerPrinted;
  const auto policyStatus = hwNatFlowStatus_->natFlow(policy);
  if (!policyStatus) return headerPrinted;

  NatFlowMcastCliSorter matches;
  for (const auto& [name, match] : policyStatus->match()) matches.entryIdIs(name, true);
  if (matches.empty()) return headerPrinted;

  const int fd = static_cast<int>(socket);
  for (const auto& [matchName, matchEntry] : matches) {
    const auto match = policyStatus->match(matchName);
    MOX_ASSERT(match);
    NatFlowMcastCliSorter actions;
    for (const auto& [name, action] : match->action()) actions.entryIdIs(name, true);

    for (const auto& [actionName, actionEntry] : actions) {
      const auto action = match->action(actionName);
      MOX_ASSERT(action);
      const auto& vlanPortSets = action->vlanPortSets();
      if (!vlanPortSets) continue;
      if (!headerPrinted) printHeader(fd);

      const Ip::Nat::NatFlow& flow = match->flow();
      const ActionRow row{policy,
                          matchName,
                          actionName,
                          maskedAddressText(action->srcNat().ip(), flow.srcPrefixLen()),
                          maskedAddressText(action->dstNat().ip(), flow.dstPrefixLen()),
                          static_cast<int>(action->srcNat().port()),
                          static_cast<int>(action->dstNat().port()),
                          flowTypeText(action->flowType())};
      printPortSetRows(fd, row, "UC", vlanPortSets->ucastPortSet());
      printPortSetRows(fd, row, "MC", vlanPortSets->mcastPortSet());
      headerPrinted = true;
    }
  }
  return headerPrinted;
}

Mox::Ptr<UmoNatFlowMcastSmCliCallback> umoNatFlowMcastSmCliCallbackFactory(
    const Pelo::String& name, const Pelo::String& help,
    const Mox::Ptr<Ip::Nat::HwNatFlowStatus>& hwNatFlowStatus) {
  return Mox::makePtr<UmoNatFlowMcastSmCliCallback>(name, help, hwNatFlowStatus);
}
