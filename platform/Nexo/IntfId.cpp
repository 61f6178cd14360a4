#include "Nexo/IntfId.h"

#include <array>
#include <compare>
#include <iterator>
#include <memory>
#include <optional>
#include <ostream>
#include <set>
#include <stdexcept>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>

namespace Nexo {

namespace {

bool isDigit(char c) { return c >= '0' && c <= '9'; }

bool isWhitespaceOrControl(char c) {
  const auto byte = static_cast<unsigned char>(c);
  return byte <= 0x20 || byte == 0x7f;
}

// Renders text for an error message, with non-printable bytes as \xNN so that the offending
// character is visible.
std::string quoted(std::string_view text) {
  static constexpr char kHex[] = "0123456789abcdef";
  std::string out = "\"";
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if (byte < 0x20 || byte == 0x7f) {
      out += "\\x";
      out += kHex[byte >> 4];
      out += kHex[byte & 0xf];
    } else {
      out += c;
    }
  }
  out += '"';
  return out;
}

std::size_t digitRunEnd(std::string_view s, std::size_t from) {
  while (from < s.size() && isDigit(s[from])) ++from;
  return from;
}

struct Abbreviation {
  std::string_view prefix;
  std::string_view shortPrefix;
};

constexpr std::array<Abbreviation, 7> kAbbreviations{{
    {"Ethernet", "Et"},
    {"Port-Channel", "Po"},
    {"Vlan", "Vl"},
    {"Loopback", "Lo"},
    {"Management", "Ma"},
    {"Recirc-Channel", "Rc"},
    {"Tunnel", "Tu"},
}};

constexpr std::string_view kVlanPrefix = "Vlan";
constexpr std::uint16_t kMaxVlanIntfNumber = 4095;

std::optional<std::uint16_t> parseVlanIntfNumber(std::string_view name) {
  if (!name.starts_with(kVlanPrefix)) return std::nullopt;
  const std::string_view digits = name.substr(kVlanPrefix.size());
  if (digits.empty() || digits.size() > 4) return std::nullopt;
  unsigned value = 0;
  for (const char c : digits) {
    if (!isDigit(c)) return std::nullopt;
    value = value * 10 + static_cast<unsigned>(c - '0');
  }
  if (value > kMaxVlanIntfNumber) return std::nullopt;
  return static_cast<std::uint16_t>(value);
}

// The natural-order key of `name`: bytes that compare, bytewise, as the names compare under the
// natural order (before its bytewise tie-break). A byte that is not a digit stands for itself. A
// run of digits becomes '0', then the number of its digits without leading zeros, then those
// digits: against any other byte the run compares as its first digit would (every digit byte
// lies between the same two non-digit bytes), and against another run by numeric value.
std::string naturalKey(std::string_view name) {
  std::string key;
  key.reserve(name.size() + 8);
  for (std::size_t i = 0; i < name.size();) {
    if (!isDigit(name[i])) {
      key += name[i++];
      continue;
    }
    const std::size_t end = digitRunEnd(name, i);
    while (i < end && name[i] == '0') ++i;
    key += '0';
    key += static_cast<char>(end - i);  // at most kMaxNameLength
    key.append(name.substr(i, end - i));
    i = end;
  }
  return key;
}

}  // namespace

// Labels: comparing two ids compares two integers. A new name takes the middle of the gap
// between its neighbours' labels; when there is none, every label is spread out again, in the
// same order.
struct IntfId::Entry : IntfId::Label {
  Entry(Pelo::String n, std::string k, std::size_t h)
      : name(std::move(n)), key(std::move(k)), hash(h) {}
  Pelo::String name;
  std::string key;
  std::size_t hash = 0;
};

namespace {

// The natural order of two entries, from their keys, then bytewise.
struct NaturalOrder {
  bool operator()(const IntfId::Entry* a, const IntfId::Entry* b) const {
    if (const int byKey = a->key.compare(b->key); byKey != 0) return byKey < 0;
    // Equal under the natural order ("Et01", "Et1"): plain bytewise order makes it total.
    return a->name.str() < b->name.str();
  }
};

struct Registry {
  // Every name seen so far, by its text, and the same entries in natural order.
  std::unordered_map<std::string_view, std::unique_ptr<IntfId::Entry>> byName;
  std::set<IntfId::Entry*, NaturalOrder> ordered;
};

// Never freed: ids may live in objects destroyed at exit.
Registry& registry() {
  static auto* const names = new Registry();
  return *names;
}

// Gives `entry`, just placed in `ordered`, a label between its neighbours'.
void assignLabel(Registry& r, IntfId::Entry* entry) {
  constexpr std::uint64_t kTop = std::uint64_t{1} << 62;
  const auto at = r.ordered.find(entry);
  const std::uint64_t low = at == r.ordered.begin() ? 0 : (*std::prev(at))->label;
  const auto after = std::next(at);
  const std::uint64_t high = after == r.ordered.end() ? kTop : (*after)->label;
  if (high - low > 1) {
    entry->label = low + (high - low) / 2;
    return;
  }
  const std::uint64_t gap = kTop / (r.ordered.size() + 1);
  std::uint64_t next = 0;
  for (IntfId::Entry* e : r.ordered) e->label = next += gap;
}

const Pelo::String kEmptyName;

}  // namespace

const Pelo::String& IntfId::name() const {
  return entry_ == nullptr ? kEmptyName : static_cast<const Entry*>(entry_)->name;
}

IntfId::IntfId(const Pelo::String& name) {
  if (name.empty()) return;
  Registry& r = registry();
  auto& names = r.byName;
  if (const auto it = names.find(std::string_view(name)); it != names.end()) {
    entry_ = it->second.get();
    return;
  }
  if (name.size() > kMaxNameLength) {
    throw std::invalid_argument("Nexo::IntfId: interface name " + quoted(name) +
                                " is longer than " + std::to_string(kMaxNameLength) + " bytes");
  }
  for (const char c : name.str()) {
    if (isWhitespaceOrControl(c)) {
      throw std::invalid_argument("Nexo::IntfId: interface name " + quoted(name) +
                                  " contains whitespace or a control character");
    }
  }
  auto entry = std::make_unique<Entry>(name, naturalKey(name), std::hash<Pelo::String>{}(name));
  IntfId::Entry* const e = entry.get();
  names.emplace(std::string_view(e->name), std::move(entry));
  r.ordered.insert(e);
  assignLabel(r, e);
  entry_ = e;
}

Pelo::String IntfId::shortName() const {
  const std::string_view name = this->name();
  for (const Abbreviation& abbreviation : kAbbreviations) {
    if (name.size() > abbreviation.prefix.size() && name.starts_with(abbreviation.prefix) &&
        isDigit(name[abbreviation.prefix.size()])) {
      return Pelo::String(abbreviation.shortPrefix) + name.substr(abbreviation.prefix.size());
    }
  }
  return this->name();
}

std::ostream& operator<<(std::ostream& os, const IntfId& id) { return os << id.name(); }

}  // namespace Nexo

std::size_t std::hash<Nexo::IntfId>::operator()(const Nexo::IntfId& id) const noexcept {
  // The same value as hashing the name, so hashed collections keep their layout.
  return id.entry_ == nullptr ? std::hash<Pelo::String>{}(Pelo::String())
                              : static_cast<const Nexo::IntfId::Entry*>(id.entry_)->hash;
}

namespace Nexo {

bool VlanIntfId::isVlanIntfId(const IntfId& id) {
  return parseVlanIntfNumber(id.name()).has_value();
}

std::uint16_t VlanIntfId::vlanId(const IntfId& id) {
  return parseVlanIntfNumber(id.name()).value_or(0);
}

}  // namespace Nexo
