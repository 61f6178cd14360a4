#include "Nexo/IntfId.h"

#include <array>
#include <compare>
#include <optional>
#include <ostream>
#include <stdexcept>
#include <string>
#include <string_view>

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

// Compares two runs of decimal digits by numeric value, whatever their length.
std::strong_ordering compareDigitRuns(std::string_view a, std::string_view b) {
  const auto stripZeros = [](std::string_view s) {
    const std::size_t first = s.find_first_not_of('0');
    return first == std::string_view::npos ? std::string_view() : s.substr(first);
  };
  a = stripZeros(a);
  b = stripZeros(b);
  if (a.size() != b.size()) return a.size() <=> b.size();
  return a.compare(b) <=> 0;
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

}  // namespace

IntfId::IntfId(const Pelo::String& name) : name_(name) {
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
}

Pelo::String IntfId::shortName() const {
  const std::string_view name = name_;
  for (const Abbreviation& abbreviation : kAbbreviations) {
    if (name.size() > abbreviation.prefix.size() && name.starts_with(abbreviation.prefix) &&
        isDigit(name[abbreviation.prefix.size()])) {
      return Pelo::String(abbreviation.shortPrefix) + name.substr(abbreviation.prefix.size());
    }
  }
  return name_;
}

std::strong_ordering operator<=>(const IntfId& a, const IntfId& b) {
  const std::string_view x = a.name_;
  const std::string_view y = b.name_;
  std::size_t i = 0;
  std::size_t j = 0;
  while (i < x.size() && j < y.size()) {
    if (isDigit(x[i]) && isDigit(y[j])) {
      const std::size_t iEnd = digitRunEnd(x, i);
      const std::size_t jEnd = digitRunEnd(y, j);
      const auto order = compareDigitRuns(x.substr(i, iEnd - i), y.substr(j, jEnd - j));
      if (std::is_neq(order)) return order;
      i = iEnd;
      j = jEnd;
      continue;
    }
    const auto order = static_cast<unsigned char>(x[i]) <=> static_cast<unsigned char>(y[j]);
    if (std::is_neq(order)) return order;
    ++i;
    ++j;
  }
  const auto order = (x.size() - i) <=> (y.size() - j);
  if (std::is_neq(order)) return order;
  return x.compare(y) <=> 0;
}

std::ostream& operator<<(std::ostream& os, const IntfId& id) { return os << id.name(); }

bool VlanIntfId::isVlanIntfId(const IntfId& id) {
  return parseVlanIntfNumber(id.name()).has_value();
}

std::uint16_t VlanIntfId::vlanId(const IntfId& id) {
  return parseVlanIntfNumber(id.name()).value_or(0);
}

}  // namespace Nexo
