#pragma once

#include <cstdint>
#include <sstream>
#include <string>

#include "Mox/Trace.h"
#include "Nexo/IntfId.h"
#include "UmoNat/UmoNatExport.h"

// Watches a dry port-set computation of an action: one that fills a port-set
// record the caller owns and changes nothing else. A dry computation registers
// nothing in the topology's action index, queues nothing, calls no hardware
// and writes no trace line; each step it would have traced comes to the probe
// instead, with the source, level and text of that trace line, so that a
// reader can tell in the system's own words why a next hop was or was not
// used.
class UMONAT_EXPORT UmoNatFlowPortSetProbe {
 public:
  enum class Step {
    nextHop,  // a next hop (or the recirculation interface) is taken up
    check,    // a check is made or a value read; nothing decided yet
    refused,  // a check failed: what it names is left out
    added,    // an interface went into a port set
  };

  virtual ~UmoNatFlowPortSetProbe() = default;

  virtual void step(Step step, const char* source, int level, const std::string& text) = 0;
  // `intf` went into the unicast (or multicast) port set of `vlan`; the
  // recirculation interface has the empty name.
  virtual void member(bool /*unicast*/, std::uint16_t /*vlan*/, const Nexo::IntfId& /*intf*/) {}
};

// For the library's port-set computation: traces `streamExpr` at `level` on
// `handle` in a live computation (`probe` null), or hands it to `probe` as a
// step of kind `kind` in a dry one.
#define UMONAT_PROBE_STEP(probe, handle, level, kind, streamExpr)                 \
  do {                                                                            \
    if ((probe) != nullptr) {                                                     \
      std::ostringstream umoNatProbeStream_;                                      \
      umoNatProbeStream_ << std::boolalpha << streamExpr;                         \
      (probe)->step(UmoNatFlowPortSetProbe::Step::kind, (handle).name(), (level), \
                    umoNatProbeStream_.str());                                    \
    } else {                                                                      \
      MOX_TRACE(handle, level, streamExpr);                                       \
    }                                                                             \
  } while (0)
