#pragma once

#include <cstdint>
#include <functional>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

namespace Mox {

namespace detail {

// Advances whenever the trace configuration changes; handles compare it with the generation their
// cached level mask was computed for. Single-threaded, like the event loop that uses it.
extern std::uint64_t traceGeneration;

// Forgets the configuration and the sink, and arranges for the next use to read the MOX_TRACE
// environment variable again, as at process start. For tests only.
void traceResetForTest();

}  // namespace detail

// The highest trace level; levels run from 0 to kTraceLevelMax.
inline constexpr int kTraceLevelMax = 9;

// A named source of trace lines, normally one per source file as a namespace-scope object:
//   constinit Mox::TraceHandle traceHandle("UmoNatFlowMcastSm");
// Construction does no work (the constructor is constexpr), so handles are safe to use from any
// static initialiser. A handle caches the levels the current configuration enables for its name
// and recomputes them on first use after the configuration changes. `name` must outlive the handle
// (normally a string literal).
class TraceHandle {
 public:
  explicit constexpr TraceHandle(const char* name) noexcept : name_(name) {}
  TraceHandle(const TraceHandle&) = delete;
  TraceHandle& operator=(const TraceHandle&) = delete;

  const char* name() const { return name_; }

  // Whether lines of `level` are wanted. Costs a compare and a bit test unless the configuration
  // changed since the last call; levels outside 0..kTraceLevelMax are never enabled.
  bool enabled(int level) const {
    if (static_cast<unsigned>(level) > static_cast<unsigned>(kTraceLevelMax)) return false;
    if (generation_ != detail::traceGeneration) [[unlikely]] {
      refresh();
    }
    return ((mask_ >> level) & 1U) != 0;
  }

  // Sends one line to the current sink, whether or not `level` is enabled (MOX_TRACE checks).
  void emit(int level, std::string_view text) const;

 private:
  void refresh() const;

  const char* name_;
  mutable std::uint64_t generation_ = 0;
  mutable std::uint16_t mask_ = 0;
};

// One trace line as handed to the sink. `handle` is the emitting handle's name.
struct TraceLine {
  const char* handle;
  int level;
  std::string text;
};

// Receives every emitted trace line. A sink may emit traces or replace the sink itself.
using TraceSink = std::function<void(const TraceLine&)>;

// Replaces the trace configuration. `config` holds entries separated by spaces or ';', each
// "pattern/levels": the pattern is a handle name, "*" (every handle) or a prefix ending in '*'
// ("Umo*"); levels is a comma-separated list of levels and ranges ("0-9", "1,2,5-9"), or nothing,
// which turns the matching handles off. For each handle the last matching entry decides its levels;
// handles no entry matches are off, so the empty string turns everything off. Throws
// std::invalid_argument naming the offending entry when `config` is malformed, and then leaves the
// configuration unchanged. Replaces whatever the MOX_TRACE environment variable gave.
void traceLevelsIs(std::string_view config);

// The current configuration in normal form: entries separated by one space, levels as ascending
// ranges ("Umo*/1-2,5-9 UmoNatFlowMcastSm/"). Feeding it back to traceLevelsIs changes nothing.
std::string traceLevels();

// Installs `sink` for all trace lines; an empty function restores the default sink, which writes
// "<handle>/<level> <text>" lines to stderr.
void traceSinkIs(TraceSink sink);

// The installed sink; empty while the default sink is in use.
TraceSink traceSink();

// Records every trace line while it lives, for tests and the simulator. Construction applies
// `levels` (throwing like traceLevelsIs) and installs a recording sink; destruction restores the
// sink and the configuration that were current before. Captures nest; they must be destroyed in
// reverse order of construction.
class TraceCapture {
 public:
  explicit TraceCapture(std::string_view levels = "*/0-9");
  ~TraceCapture();
  TraceCapture(const TraceCapture&) = delete;
  TraceCapture& operator=(const TraceCapture&) = delete;

  const std::vector<TraceLine>& lines() const { return lines_; }
  std::vector<std::string> texts() const;
  void clear() { lines_.clear(); }
  // Whether the text of any recorded line contains `substring`.
  bool contains(std::string_view substring) const;

 private:
  std::vector<TraceLine> lines_;
  TraceSink previousSink_;
  std::string previousLevels_;
};

}  // namespace Mox

// Emits a trace line built by streaming `streamExpr` into a std::ostringstream, e.g.
//   MOX_TRACE(traceHandle, 2, "UmoNatFlowMcastSm::handleNatFlowPolicy, policy: " << name);
// When `level` is not enabled for `handle` the stream expression is not evaluated at all.
// Booleans print as "true" and "false".
#define MOX_TRACE(handle, level, streamExpr)                \
  do {                                                      \
    const int moxTraceLevel_ = (level);                     \
    if ((handle).enabled(moxTraceLevel_)) {                 \
      std::ostringstream moxTraceStream_;                   \
      moxTraceStream_ << std::boolalpha << streamExpr;      \
      (handle).emit(moxTraceLevel_, moxTraceStream_.str()); \
    }                                                       \
  } while (0)
