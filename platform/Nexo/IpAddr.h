#pragma once

#include <compare>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <iosfwd>
#include <string_view>
#include <tuple>

#include "Pelo/String.h"

namespace Nexo {

// An IPv4 address as a value type, held in host byte order and ordered numerically. The
// default value is 0.0.0.0, which stands for "no address".
class IpAddr {
 public:
  constexpr IpAddr() = default;
  constexpr explicit IpAddr(std::uint32_t hostOrder) : value_(hostOrder) {}
  // Parses a strict dotted quad: four decimal fields of 0..255 without signs, spaces or
  // leading zeros ("010" is refused as it reads as octal elsewhere). Throws
  // std::invalid_argument naming the text otherwise.
  explicit IpAddr(std::string_view dotted);

  constexpr std::uint32_t value() const { return value_; }
  constexpr bool isZero() const { return value_ == 0; }
  // True for 224.0.0.0/4.
  constexpr bool isMulticast() const { return (value_ >> 28) == 0xe; }
  Pelo::String stringValue() const;

  friend bool operator==(const IpAddr& a, const IpAddr& b) = default;
  friend constexpr std::strong_ordering operator<=>(const IpAddr& a, const IpAddr& b) {
    return a.value_ <=> b.value_;
  }

 private:
  std::uint32_t value_ = 0;
};

std::ostream& operator<<(std::ostream& os, const IpAddr& addr);

// An IPv4 address and a transport port, as a flow endpoint. Ordered by address, then port.
class IpAndPort {
 public:
  constexpr IpAndPort() = default;
  constexpr IpAndPort(IpAddr ip, std::uint16_t port) : ip_(ip), port_(port) {}
  // Parses "10.0.0.1:80", or "10.0.0.1" for port 0. The port is decimal without sign or
  // leading zeros and at most 65535. Throws std::invalid_argument naming the text otherwise.
  explicit IpAndPort(std::string_view text);

  constexpr IpAddr ip() const { return ip_; }
  constexpr std::uint16_t port() const { return port_; }
  // Returns "10.0.0.1:80"; the port is always shown.
  Pelo::String stringValue() const;

  friend bool operator==(const IpAndPort& a, const IpAndPort& b) = default;
  friend constexpr std::strong_ordering operator<=>(const IpAndPort& a, const IpAndPort& b) {
    return std::tie(a.ip_, a.port_) <=> std::tie(b.ip_, b.port_);
  }

 private:
  IpAddr ip_;
  std::uint16_t port_ = 0;
};

std::ostream& operator<<(std::ostream& os, const IpAndPort& ipAndPort);

// An IPv4 address with a mask length of 0..32, as configured: the address keeps its host
// bits, so 10.0.0.1/24 and 10.0.0.0/24 are different values.
class IpAddrWithMask {
 public:
  static constexpr std::uint8_t kMaxMaskLen = 32;

  constexpr IpAddrWithMask() = default;
  // Throws std::invalid_argument when maskLen exceeds kMaxMaskLen.
  IpAddrWithMask(IpAddr address, std::uint8_t maskLen);
  // Parses "10.0.0.1/24"; the length is required, decimal without leading zeros, at most 32.
  // Throws std::invalid_argument naming the text otherwise.
  explicit IpAddrWithMask(std::string_view text);

  constexpr IpAddr address() const { return address_; }
  constexpr std::uint8_t maskLen() const { return maskLen_; }
  // Returns "10.0.0.1/24".
  Pelo::String stringValue() const;

  friend bool operator==(const IpAddrWithMask& a, const IpAddrWithMask& b) = default;

 private:
  IpAddr address_;
  std::uint8_t maskLen_ = 0;
};

std::ostream& operator<<(std::ostream& os, const IpAddrWithMask& prefix);

}  // namespace Nexo

template <>
struct std::hash<Nexo::IpAddr> {
  std::size_t operator()(const Nexo::IpAddr& addr) const noexcept {
    return std::hash<std::uint32_t>{}(addr.value());
  }
};
