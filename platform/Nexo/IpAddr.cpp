#include "Nexo/IpAddr.h"

#include <optional>
#include <ostream>
#include <stdexcept>
#include <string>

namespace Nexo {

namespace {

// Parses a decimal number of at most maxDigits digits, without sign or leading zeros, that
// does not exceed maxValue.
std::optional<std::uint32_t> parseDecimal(std::string_view text, std::size_t maxDigits,
                                          std::uint32_t maxValue) {
  if (text.empty() || text.size() > maxDigits) return std::nullopt;
  if (text.size() > 1 && text[0] == '0') return std::nullopt;
  std::uint32_t value = 0;
  for (const char c : text) {
    if (c < '0' || c > '9') return std::nullopt;
    value = value * 10 + static_cast<std::uint32_t>(c - '0');
  }
  if (value > maxValue) return std::nullopt;
  return value;
}

std::optional<IpAddr> parseDottedQuad(std::string_view text) {
  std::uint32_t value = 0;
  for (int field = 0; field < 4; ++field) {
    const std::size_t dot = text.find('.');
    if ((field < 3) == (dot == std::string_view::npos)) return std::nullopt;
    const auto octet = parseDecimal(text.substr(0, dot), 3, 255);
    if (!octet) return std::nullopt;
    value = (value << 8) | *octet;
    text = field < 3 ? text.substr(dot + 1) : std::string_view();
  }
  return IpAddr(value);
}

[[noreturn]] void throwMalformed(std::string_view what, std::string_view text,
                                 std::string_view expected) {
  throw std::invalid_argument("Nexo::" + std::string(what) + ": malformed text \"" +
                              std::string(text) + "\" (expected " + std::string(expected) + ")");
}

}  // namespace

IpAddr::IpAddr(std::string_view dotted) {
  const auto addr = parseDottedQuad(dotted);
  if (!addr) throwMalformed("IpAddr", dotted, "a dotted quad such as 10.0.0.1");
  *this = *addr;
}

Pelo::String IpAddr::stringValue() const {
  return std::to_string(value_ >> 24) + '.' + std::to_string((value_ >> 16) & 0xff) + '.' +
         std::to_string((value_ >> 8) & 0xff) + '.' + std::to_string(value_ & 0xff);
}

std::ostream& operator<<(std::ostream& os, const IpAddr& addr) { return os << addr.stringValue(); }

IpAndPort::IpAndPort(std::string_view text) {
  const std::size_t colon = text.find(':');
  const auto ip = parseDottedQuad(text.substr(0, colon));
  std::optional<std::uint32_t> port = 0;
  if (colon != std::string_view::npos) port = parseDecimal(text.substr(colon + 1), 5, 65535);
  if (!ip || !port) throwMalformed("IpAndPort", text, "10.0.0.1:80 or 10.0.0.1");
  ip_ = *ip;
  port_ = static_cast<std::uint16_t>(*port);
}

Pelo::String IpAndPort::stringValue() const {
  return ip_.stringValue() + ":" + std::to_string(port_);
}

std::ostream& operator<<(std::ostream& os, const IpAndPort& ipAndPort) {
  return os << ipAndPort.stringValue();
}

IpAddrWithMask::IpAddrWithMask(IpAddr address, std::uint8_t maskLen)
    : address_(address), maskLen_(maskLen) {
  if (maskLen > kMaxMaskLen) {
    throw std::invalid_argument("Nexo::IpAddrWithMask: mask length " + std::to_string(maskLen) +
                                " exceeds " + std::to_string(kMaxMaskLen));
  }
}

IpAddrWithMask::IpAddrWithMask(std::string_view text) {
  const std::size_t slash = text.find('/');
  std::optional<IpAddr> address;
  std::optional<std::uint32_t> maskLen;
  if (slash != std::string_view::npos) {
    address = parseDottedQuad(text.substr(0, slash));
    maskLen = parseDecimal(text.substr(slash + 1), 2, kMaxMaskLen);
  }
  if (!address || !maskLen) throwMalformed("IpAddrWithMask", text, "10.0.0.1/24");
  address_ = *address;
  maskLen_ = static_cast<std::uint8_t>(*maskLen);
}

Pelo::String IpAddrWithMask::stringValue() const {
  return address_.stringValue() + "/" + std::to_string(maskLen_);
}

std::ostream& operator<<(std::ostream& os, const IpAddrWithMask& prefix) {
  return os << prefix.stringValue();
}

}  // namespace Nexo
