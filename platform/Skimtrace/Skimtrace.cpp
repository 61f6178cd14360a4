#include "Skimtrace/Skimtrace.h"

#include <algorithm>
#include <charconv>
#include <stdexcept>

namespace Skimtrace {

namespace {

// The ring. Constant-initialised and never destroyed, so recording works from any static
// initialiser or destructor; the slots are allocated on the first record after a capacity change.
struct Ring {
  detail::Record* slots = nullptr;
  std::size_t capacity = kDefaultCapacity;
  std::size_t next = 0;  // the slot the next record takes
  std::size_t size = 0;  // the number of records held
  std::uint64_t recorded = 0;
};

constinit Ring ring;

template <class T>
void appendNumber(std::string& out, T n, int base = 10) {
  char buffer[24];
  const auto result = std::to_chars(buffer, buffer + sizeof buffer, n, base);
  out.append(buffer, result.ptr);
}

void appendNatural(std::string& out, const detail::Value& value) {
  switch (value.kind) {
    case detail::Kind::kSigned:
      appendNumber(out, value.i);
      return;
    case detail::Kind::kUnsigned:
      appendNumber(out, value.u);
      return;
    case detail::Kind::kString:
      out.append(value.s, value.size);
      return;
  }
}

void appendMismatch(std::string& out, const detail::Value& value) {
  out += "<?";
  appendNatural(out, value);
  out += '>';
}

// Appends `value` as `directive` (one of s, d, u, x) asks.
void appendValue(std::string& out, char directive, const detail::Value& value) {
  const bool isString = value.kind == detail::Kind::kString;
  if (isString != (directive == 's')) {
    appendMismatch(out, value);
    return;
  }
  if (directive != 'x') {
    appendNatural(out, value);
    return;
  }
  // Hexadecimal shows the bits of the recorded type, as printf does for its width.
  std::uint64_t bits =
      value.kind == detail::Kind::kSigned ? static_cast<std::uint64_t>(value.i) : value.u;
  if (value.size < sizeof bits) bits &= (std::uint64_t{1} << (8 * value.size)) - 1;
  appendNumber(out, bits, 16);
}

std::string format(const detail::Record& record) {
  std::string out = "#";
  appendNumber(out, record.sequence);
  out += ' ';
  if (record.format == nullptr) {
    out += "<?null format>";
    return out;
  }
  std::size_t next = 0;
  for (const char* p = record.format; *p != '\0'; ++p) {
    if (*p != '%') {
      out += *p;
      continue;
    }
    const char directive = p[1];
    if (directive == '%') {
      out += '%';
      ++p;
    } else if (directive == 's' || directive == 'd' || directive == 'u' || directive == 'x') {
      ++p;
      if (next < record.count) {
        appendValue(out, directive, record.values[next++]);
      } else {
        out += "<?>";
      }
    } else {
      out += "<?%";
      if (directive != '\0') {
        out += directive;
        ++p;
      }
      out += '>';
    }
  }
  for (; next < record.count; ++next) {
    out += ' ';
    appendMismatch(out, record.values[next]);
  }
  return out;
}

}  // namespace

namespace detail {

Record& append(const char* format, std::size_t count) {
  if (ring.slots == nullptr) ring.slots = new Record[ring.capacity];
  Record& slot = ring.slots[ring.next];
  slot.format = format;
  slot.sequence = ++ring.recorded;
  slot.count = static_cast<std::uint8_t>(count);
  ring.next = ring.next + 1 == ring.capacity ? 0 : ring.next + 1;
  if (ring.size < ring.capacity) ++ring.size;
  return slot;
}

}  // namespace detail

std::vector<std::string> dump(std::size_t last) {
  const std::size_t n = std::min(last, ring.size);
  std::vector<std::string> out;
  out.reserve(n);
  std::size_t index = (ring.next + ring.capacity - n) % ring.capacity;
  for (std::size_t i = 0; i < n; ++i) {
    out.push_back(format(ring.slots[index]));
    index = index + 1 == ring.capacity ? 0 : index + 1;
  }
  return out;
}

void capacityIs(std::size_t capacity) {
  if (capacity == 0) throw std::invalid_argument("Skimtrace capacity must be at least 1");
  delete[] ring.slots;
  ring.slots = nullptr;
  ring.capacity = capacity;
  clear();
}

std::size_t capacity() { return ring.capacity; }

void clear() {
  ring.next = 0;
  ring.size = 0;
}

std::uint64_t recorded() { return ring.recorded; }

}  // namespace Skimtrace
