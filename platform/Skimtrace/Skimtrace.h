#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

#include "Pelo/String.h"

// Skimtrace: the always-on, process-wide ring of the most recent trace records. Recording copies at
// most four values into a preallocated slot and formats nothing; formatting happens when the ring
// is dumped (on demand, and after a failed assertion). Single-threaded, like the event loop.
namespace Skimtrace {

// Asks dump() for every record in the ring.
inline constexpr std::size_t all = std::numeric_limits<std::size_t>::max();
inline constexpr std::size_t kDefaultCapacity = 4096;
inline constexpr std::size_t kMaxValues = 4;
// Longer string values are truncated to this many bytes.
inline constexpr std::size_t kMaxStringBytes = 31;

namespace detail {

enum class Kind : std::uint8_t { kSigned, kUnsigned, kString };

struct Value {
  Kind kind;
  // Integers: the size in bytes of the recorded type. Strings: the number of bytes kept.
  std::uint8_t size;
  union {
    std::int64_t i;
    std::uint64_t u;
    char s[kMaxStringBytes];
  };
};

struct Record {
  const char* format;  // not owned; has static storage
  std::uint64_t sequence;
  std::uint8_t count;
  Value values[kMaxValues];
};

// Claims the slot after the newest record, overwriting the oldest when the ring is full, and
// stamps it with `format`, `count` and the next sequence number. The caller fills the values.
Record& append(const char* format, std::size_t count);

template <class T>
inline constexpr bool kUnsupported = false;

inline void storeString(Value& value, std::string_view s) {
  const std::size_t n = s.size() < kMaxStringBytes ? s.size() : kMaxStringBytes;
  value.kind = Kind::kString;
  value.size = static_cast<std::uint8_t>(n);
  std::memcpy(value.s, s.data(), n);
}

inline void storeCString(Value& value, const char* s) {
  if (s == nullptr) s = "(null)";
  std::size_t n = 0;
  while (n < kMaxStringBytes && s[n] != '\0') {
    value.s[n] = s[n];
    ++n;
  }
  value.kind = Kind::kString;
  value.size = static_cast<std::uint8_t>(n);
}

template <class T>
inline void store(Value& value, const T& arg) {
  if constexpr (std::is_integral_v<T>) {
    value.size = sizeof(T);
    if constexpr (std::is_signed_v<T>) {
      value.kind = Kind::kSigned;
      value.i = arg;  // NOLINT(bugprone-signed-char-misuse): a char argument is a number
    } else {
      value.kind = Kind::kUnsigned;
      value.u = arg;
    }
  } else if constexpr (std::is_same_v<std::decay_t<T>, const char*> ||
                       std::is_same_v<std::decay_t<T>, char*>) {
    // String literals and other char arrays arrive here as arrays.
    storeCString(value, arg);
  } else if constexpr (std::is_same_v<T, std::string> || std::is_same_v<T, std::string_view> ||
                       std::is_same_v<T, Pelo::String>) {
    storeString(value, std::string_view(arg));
  } else {
    static_assert(kUnsupported<T>, "Skimtrace records integers and strings only");
  }
}

}  // namespace detail

// Appends a record. `format` must have static storage (a string literal): the ring keeps the
// pointer, not the text. Its directives %s, %d, %u, %x and %% are applied at dump time to `args`,
// which are integers or strings (const char*, std::string, std::string_view, Pelo::String);
// strings are copied and truncated to kMaxStringBytes. Any other argument type does not compile.
template <class... Args>
void record(const char* format, const Args&... args) {
  static_assert(sizeof...(Args) <= kMaxValues, "Skimtrace records at most 4 values");
  detail::Record& slot = detail::append(format, sizeof...(Args));
  [[maybe_unused]] std::size_t i = 0;
  (detail::store(slot.values[i++], args), ...);
}

// The newest `last` records (all of them by default), oldest first, formatted as
// "#<sequence> <text>". A directive without a value prints "<?>"; a value of the wrong kind for
// its directive, an unknown directive and a value without a directive print in "<?...>".
std::vector<std::string> dump(std::size_t last = all);

// Sets the number of records the ring keeps and empties it. Throws std::invalid_argument for 0.
void capacityIs(std::size_t capacity);

std::size_t capacity();

// Empties the ring; recorded() and the sequence numbers carry on.
void clear();

// The number of records made since the process started, including those overwritten or cleared.
std::uint64_t recorded();

}  // namespace Skimtrace

// Records into the Skimtrace ring; `fmt` must be a string literal.
#define SKIMTRACE(fmt, ...) ::Skimtrace::record("" fmt __VA_OPT__(, ) __VA_ARGS__)
