#pragma once

#include <cstddef>
#include <iosfwd>
#include <string>

#include "Ip/Nat/HwStatus.h"
#include "Mox/Seconds.h"
#include "Vyr/Task.h"

// Text forms of what the simulator shows. Each printer writes whole lines, walks collections in
// their ascending key order and prints no addresses and no wall-clock time, so the same
// simulation always prints the same text.

namespace Sim {

class Agent;

// Seconds of virtual time without trailing zeros: "10", "9.999", "0.000000001".
std::string secondsText(Mox::Seconds seconds);

// The agent's inputs as the scenario lines that build them ("policy P", "vlan 10 member
// Ethernet1", ...): running the printed lines in a fresh simulation builds the same inputs. A
// topology that VLANs still follow after its deletion comes back as the lines that build it, map
// the VLANs to it and delete it again, under a comment. Prints "# no inputs" when there are none.
void printInputs(std::ostream& os, const Agent& agent);

// The hardware status tree: policies, their matches with group ids and flow, their actions with
// translations and flow type, and the port sets by VLAN (unicast first, then multicast).
void printHwStatus(std::ostream& os, const Ip::Nat::HwNatFlowStatus& hwStatus);

// The tasks of `scheduler` in creation order with their runs, work and due time.
void printTasks(std::ostream& os, const Vyr::TaskScheduler& scheduler);

// The registered log events, by name, with severity and message format.
void printLogEvents(std::ostream& os);

// The newest `last` records of the Skimtrace ring, oldest first.
void printSkimtrace(std::ostream& os, std::size_t last);

}  // namespace Sim
