#include "Mox/Trace.h"

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <stdexcept>
#include <utility>

namespace Mox {

namespace detail {

// Starts above the generation of a never-used handle, so every handle refreshes on first use.
std::uint64_t traceGeneration = 1;

}  // namespace detail

namespace {

// One "pattern/levels" entry of the configuration.
struct TraceEntry {
  std::string pattern;  // the name, or the prefix without its '*'
  bool prefix;          // matches every name starting with `pattern`
  std::uint16_t mask;   // bit n enables level n
};

using TraceConfig = std::vector<TraceEntry>;

// The process-wide trace registry. Allocated on first use and never destroyed, so handles keep
// working in static destructors.
struct TraceState {
  bool environmentRead = false;
  TraceConfig config;
  std::shared_ptr<const TraceSink> sink;  // null while the default sink is in use
};

TraceState& state() {
  static TraceState* const instance = new TraceState;
  return *instance;
}

bool isSeparator(char c) { return c == ' ' || c == ';' || c == '\t' || c == '\n'; }

bool isLevel(char c) { return c >= '0' && c <= '0' + kTraceLevelMax; }

[[noreturn]] void malformed(std::string_view entry, std::string_view problem) {
  throw std::invalid_argument("invalid trace entry '" + std::string(entry) +
                              "': " + std::string(problem));
}

// Parses "1,2,5-9"; the empty string is the empty mask.
std::uint16_t parseLevels(std::string_view entry, std::string_view levels) {
  std::uint16_t mask = 0;
  if (levels.empty()) return mask;
  std::size_t begin = 0;
  while (true) {
    const std::size_t comma = levels.find(',', begin);
    const std::string_view item =
        levels.substr(begin, comma == std::string_view::npos ? comma : comma - begin);
    int low = 0;
    int high = 0;
    if (item.size() == 1 && isLevel(item[0])) {
      low = high = item[0] - '0';
    } else if (item.size() == 3 && isLevel(item[0]) && item[1] == '-' && isLevel(item[2])) {
      low = item[0] - '0';
      high = item[2] - '0';
      if (low > high) malformed(entry, "range '" + std::string(item) + "' runs backwards");
    } else {
      malformed(entry, "'" + std::string(item) + "' is not a level 0-9 or a range of them");
    }
    for (int level = low; level <= high; ++level) mask |= static_cast<std::uint16_t>(1U << level);
    if (comma == std::string_view::npos) return mask;
    begin = comma + 1;
  }
}

TraceEntry parseEntry(std::string_view entry) {
  const std::size_t slash = entry.find('/');
  if (slash == std::string_view::npos) malformed(entry, "expected pattern/levels");
  std::string_view pattern = entry.substr(0, slash);
  if (pattern.empty()) malformed(entry, "empty pattern");
  const std::size_t star = pattern.find('*');
  if (star != std::string_view::npos && star != pattern.size() - 1) {
    malformed(entry, "'*' may only end a pattern");
  }
  const bool prefix = star != std::string_view::npos;
  if (prefix) pattern.remove_suffix(1);
  return TraceEntry{std::string(pattern), prefix, parseLevels(entry, entry.substr(slash + 1))};
}

TraceConfig parseConfig(std::string_view text) {
  TraceConfig config;
  std::size_t i = 0;
  while (i < text.size()) {
    if (isSeparator(text[i])) {
      ++i;
      continue;
    }
    std::size_t end = i;
    while (end < text.size() && !isSeparator(text[end])) ++end;
    config.push_back(parseEntry(text.substr(i, end - i)));
    i = end;
  }
  return config;
}

std::string formatMask(std::uint16_t mask) {
  std::string out;
  int level = 0;
  while (level <= kTraceLevelMax) {
    if ((mask & (1U << level)) == 0) {
      ++level;
      continue;
    }
    int last = level;
    while (last < kTraceLevelMax && (mask & (1U << (last + 1))) != 0) ++last;
    if (!out.empty()) out += ',';
    out += static_cast<char>('0' + level);
    if (last > level) {
      out += '-';
      out += static_cast<char>('0' + last);
    }
    level = last + 1;
  }
  return out;
}

void configIs(TraceConfig config) {
  state().config = std::move(config);
  ++detail::traceGeneration;
}

// Applies MOX_TRACE the first time the configuration is needed; later calls do nothing.
TraceState& loadedState() {
  TraceState& s = state();
  if (s.environmentRead) return s;
  s.environmentRead = true;
  const char* environment = std::getenv("MOX_TRACE");
  if (environment == nullptr) return s;
  try {
    configIs(parseConfig(environment));
  } catch (const std::invalid_argument& e) {
    std::fprintf(stderr, "warning: MOX_TRACE ignored: %s\n", e.what());
  }
  return s;
}

void defaultSink(const TraceLine& line) {
  std::string out = line.handle != nullptr ? line.handle : "";
  out += '/';
  out += std::to_string(line.level);
  out += ' ';
  out += line.text;
  out += '\n';
  std::fwrite(out.data(), 1, out.size(), stderr);
}

}  // namespace

namespace detail {

void traceResetForTest() {
  TraceState& s = state();
  s.environmentRead = false;
  s.config.clear();
  s.sink.reset();
  ++traceGeneration;
}

}  // namespace detail

void TraceHandle::refresh() const {
  const TraceConfig& config = loadedState().config;
  const std::string_view name = name_ != nullptr ? name_ : "";
  std::uint16_t mask = 0;
  for (const TraceEntry& entry : config) {
    if (entry.prefix ? name.starts_with(entry.pattern) : name == entry.pattern) mask = entry.mask;
  }
  mask_ = mask;
  generation_ = detail::traceGeneration;
}

void TraceHandle::emit(int level, std::string_view text) const {
  // A copy keeps the sink alive should it replace itself while it runs.
  const std::shared_ptr<const TraceSink> sink = loadedState().sink;
  const TraceLine line{name_, level, std::string(text)};
  if (sink == nullptr) {
    defaultSink(line);
    return;
  }
  (*sink)(line);
}

void traceLevelsIs(std::string_view config) {
  TraceConfig parsed = parseConfig(config);
  loadedState();
  configIs(std::move(parsed));
}

std::string traceLevels() {
  std::string out;
  for (const TraceEntry& entry : loadedState().config) {
    if (!out.empty()) out += ' ';
    out += entry.pattern;
    if (entry.prefix) out += '*';
    out += '/';
    out += formatMask(entry.mask);
  }
  return out;
}

void traceSinkIs(TraceSink sink) {
  TraceState& s = loadedState();
  if (!sink) {
    s.sink.reset();
    return;
  }
  s.sink = std::make_shared<const TraceSink>(std::move(sink));
}

TraceSink traceSink() {
  const TraceState& s = loadedState();
  return s.sink != nullptr ? *s.sink : TraceSink();
}

TraceCapture::TraceCapture(std::string_view levels)
    : previousSink_(traceSink()), previousLevels_(traceLevels()) {
  traceLevelsIs(levels);
  traceSinkIs([this](const TraceLine& line) { lines_.push_back(line); });
}

TraceCapture::~TraceCapture() {
  traceSinkIs(std::move(previousSink_));
  // The saved text is in normal form, which always parses.
  traceLevelsIs(previousLevels_);
}

std::vector<std::string> TraceCapture::texts() const {
  std::vector<std::string> out;
  out.reserve(lines_.size());
  for (const TraceLine& line : lines_) out.push_back(line.text);
  return out;
}

bool TraceCapture::contains(std::string_view substring) const {
  for (const TraceLine& line : lines_) {
    if (line.text.find(substring) != std::string::npos) return true;
  }
  return false;
}

}  // namespace Mox
