#include "Nexo/EthAddr.h"

#include <optional>
#include <ostream>
#include <stdexcept>
#include <string>

namespace Nexo {

namespace {

std::optional<std::uint8_t> hexDigitValue(char c) {
  if (c >= '0' && c <= '9') return static_cast<std::uint8_t>(c - '0');
  if (c >= 'a' && c <= 'f') return static_cast<std::uint8_t>(c - 'a' + 10);
  if (c >= 'A' && c <= 'F') return static_cast<std::uint8_t>(c - 'A' + 10);
  return std::nullopt;
}

// Reads the twelve hex digits of text in order, skipping the bytes at separator positions,
// which must all hold `separator`.
std::optional<EthAddr::Bytes> parseGroups(std::string_view text, std::size_t groupWidth,
                                          char separator) {
  EthAddr::Bytes bytes{};
  std::size_t nibble = 0;
  for (std::size_t pos = 0; pos < text.size(); ++pos) {
    if (pos % (groupWidth + 1) == groupWidth) {
      if (text[pos] != separator) return std::nullopt;
      continue;
    }
    const auto value = hexDigitValue(text[pos]);
    if (!value) return std::nullopt;
    bytes[nibble / 2] = static_cast<std::uint8_t>((bytes[nibble / 2] << 4) | *value);
    ++nibble;
  }
  return bytes;
}

std::optional<EthAddr::Bytes> parseEthAddr(std::string_view text) {
  if (text.size() == 17 && (text[2] == ':' || text[2] == '-')) {
    return parseGroups(text, 2, text[2]);
  }
  if (text.size() == 14) return parseGroups(text, 4, '.');
  return std::nullopt;
}

}  // namespace

EthAddr::EthAddr(std::string_view text) {
  const auto bytes = parseEthAddr(text);
  if (!bytes) {
    throw std::invalid_argument("Nexo::EthAddr: malformed MAC address \"" + std::string(text) +
                                "\" (expected 01:00:5e:00:00:00, 01-00-5e-00-00-00 or "
                                "0100.5e00.0000)");
  }
  bytes_ = *bytes;
}

Pelo::String EthAddr::stringValue() const {
  static constexpr char kHex[] = "0123456789abcdef";
  std::string out;
  out.reserve(17);
  for (const std::uint8_t byte : bytes_) {
    if (!out.empty()) out += ':';
    out += kHex[byte >> 4];
    out += kHex[byte & 0xf];
  }
  return out;
}

std::ostream& operator<<(std::ostream& os, const EthAddr& addr) { return os << addr.stringValue(); }

}  // namespace Nexo
