#pragma once

#include <vector>

#include "Mox/Seconds.h"

namespace Mox {

// The recommended action of events that need no operator attention: "No action is required."
extern const char* const NoActionRequired;

// A named log event: its severity, its printf-style message format, the text that explains it to
// an operator and the action recommended, and the parameters that limit how often it is logged.
// Events are namespace-scope objects, one per kind of event, registered in the process-wide
// log-event registry when constructed (at library load) and removed when destroyed. Every text is
// borrowed, not copied, and must outlive the event (normally string literals).
class LogHandle {
 public:
  // Registers the event. Throws std::logic_error, registering nothing, when `name` is already
  // registered, and std::invalid_argument when `name` is empty or null, `format` is null or
  // `severity` is outside 0 (emergency) .. 7 (debug). Null explanation or action read as "".
  LogHandle(const char* name, int severity, const char* format, const char* explanation,
            const char* recommendedAction, Seconds minimumInterval, double factor,
            unsigned burstLimit, unsigned backoffLimit);
  ~LogHandle();
  LogHandle(const LogHandle&) = delete;
  LogHandle& operator=(const LogHandle&) = delete;

  const char* name() const { return name_; }
  int severity() const { return severity_; }
  const char* format() const { return format_; }
  const char* explanation() const { return explanation_; }
  const char* recommendedAction() const { return recommendedAction_; }
  // Rate limiting: the shortest time between two messages of the event; the factor that interval
  // grows by while the event keeps recurring; how many messages may go out back to back before the
  // interval applies; and how many times the interval may grow.
  Seconds minimumInterval() const { return minimumInterval_; }
  double factor() const { return factor_; }
  unsigned burstLimit() const { return burstLimit_; }
  unsigned backoffLimit() const { return backoffLimit_; }

 private:
  const char* name_;
  int severity_;
  const char* format_;
  const char* explanation_;
  const char* recommendedAction_;
  Seconds minimumInterval_;
  double factor_;
  unsigned burstLimit_;
  unsigned backoffLimit_;
};

// The registered events, sorted by name.
std::vector<const LogHandle*> logEvents();

}  // namespace Mox
