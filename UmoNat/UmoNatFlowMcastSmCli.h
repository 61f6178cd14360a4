#pragma once

#include <cstdint>

#include "Agent/AgentCommandCallback.h"
#include "Ip/Nat/HwStatus.h"
#include "Mox/Ptr.h"
#include "Pelo/String.h"
#include "UmoNat/UmoNatExport.h"

// The show command "showNatFlowActionHw [policy]": prints, as a table, what the system has
// programmed into the chip for each action, one row per interface of each of the action's port
// sets. Without a policy every policy is shown, in ascending name order.
//
// The agent creates it through umoNatFlowMcastSmCliCallbackFactory with the hardware status tree
// the state machines write, and registers it with its CommandRegistry. It only reads that tree;
// it holds a reference to it and subscribes to nothing.
class UMONAT_EXPORT UmoNatFlowMcastSmCliCallback : public Agent::AgentCommandCallback {
 public:
  // `name` and `help` go to the command framework unchanged. `hwNatFlowStatus` may be null: the
  // callback then ignores every command.
  UmoNatFlowMcastSmCliCallback(const Pelo::String& name, const Pelo::String& help,
                               const Mox::Ptr<Ip::Nat::HwNatFlowStatus>& hwNatFlowStatus);

  const Mox::Ptr<Ip::Nat::HwNatFlowStatus>& hwNatFlowStatus() const { return hwNatFlowStatus_; }

  // Handles a line containing "showNatFlowActionHw" anywhere; any other line writes nothing.
  // The second field of the line, when present, restricts the table to that policy. Writes the
  // table to `socket` as it goes; writes nothing when nothing is programmed or the policy is
  // unknown.
  void handleCommand(std::uint32_t socket, const Pelo::String& command) override;

  // Returns the space-delimited field that starts after `position` + 1 (leading spaces skipped)
  // and moves `position` to the field's end. Past the end of `command` the field is empty and
  // `position` becomes the length of `command`. Starting at 1, the first call skips the first two
  // characters of the line: it is meant to pass over the command name, whose value is unused.
  Pelo::String nextFieldS(const Pelo::String& command, std::uint32_t& position);

  // Writes the rows of every action of `policy` that has port sets, matches and actions in
  // ascending name order. The header goes first unless `headerPrinted` says it was written
  // already; an action with port sets but no interface prints the header and no row. Returns
  // whether the header has been written by now: `headerPrinted` unchanged when the policy is
  // unknown or shows no action with port sets.
  bool showMcastNatFlowActionHw(std::uint32_t socket, const Pelo::String& policy,
                                bool headerPrinted);

 protected:
  ~UmoNatFlowMcastSmCliCallback() override = default;

 private:
  Mox::Ptr<Ip::Nat::HwNatFlowStatus> hwNatFlowStatus_;
};

// Creates the show command callback over `hwNatFlowStatus`.
UMONAT_EXPORT Mox::Ptr<UmoNatFlowMcastSmCliCallback> umoNatFlowMcastSmCliCallbackFactory(
    const Pelo::String& name, const Pelo::String& help,
    const Mox::Ptr<Ip::Nat::HwNatFlowStatus>& hwNatFlowStatus);
