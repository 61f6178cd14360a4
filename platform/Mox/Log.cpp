#include "Mox/Log.h"

#include <map>
#include <stdexcept>
#include <string>
#include <string_view>

namespace Mox {

const char* const NoActionRequired = "No action is required.";

namespace {

// Events by name; the keys view the events' own names. Created by the first registration, whatever
// the order of static initialisation across files and libraries, and never destroyed, so events
// may unregister from any static destructor.
using LogRegistry = std::map<std::string_view, const LogHandle*>;

LogRegistry& registry() {
  static LogRegistry* const instance = new LogRegistry;
  return *instance;
}

constexpr int kSeverityEmergency = 0;
constexpr int kSeverityDebug = 7;

}  // namespace

LogHandle::LogHandle(const char* name, int severity, const char* format, const char* explanation,
                     const char* recommendedAction, Seconds minimumInterval, double factor,
                     unsigned burstLimit, unsigned backoffLimit)
    : name_(name),
      severity_(severity),
      format_(format),
      explanation_(explanation != nullptr ? explanation : ""),
      recommendedAction_(recommendedAction != nullptr ? recommendedAction : ""),
      minimumInterval_(minimumInterval),
      factor_(factor),
      burstLimit_(burstLimit),
      backoffLimit_(backoffLimit) {
  if (name == nullptr || *name == '\0') throw std::invalid_argument("log event without a name");
  if (format == nullptr) {
    throw std::invalid_argument(std::string("log event ") + name + " without a format");
  }
  if (severity < kSeverityEmergency || severity > kSeverityDebug) {
    throw std::invalid_argument(std::string("log event ") + name + " has severity " +
                                std::to_string(severity) + ", outside 0-7");
  }
  if (!registry().emplace(name_, this).second) {
    throw std::logic_error(std::string("log event ") + name + " is registered twice");
  }
}

LogHandle::~LogHandle() { registry().erase(name_); }

std::vector<const LogHandle*> logEvents() {
  std::vector<const LogHandle*> out;
  out.reserve(registry().size());
  for (const auto& [name, event] : registry()) out.push_back(event);
  return out;
}

}  // namespace Mox
