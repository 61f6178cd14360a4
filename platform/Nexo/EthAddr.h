#pragma once

#include <array>
#include <compare>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <iosfwd>
#include <string_view>

#include "Pelo/String.h"

namespace Nexo {

// A 48-bit Ethernet MAC address as a value type, ordered bytewise from the first byte sent on
// the wire. The default value is the zero address, which stands for "no address".
class EthAddr {
 public:
  using Bytes = std::array<std::uint8_t, 6>;

  constexpr EthAddr() = default;
  constexpr EthAddr(std::uint8_t b0, std::uint8_t b1, std::uint8_t b2, std::uint8_t b3,
                    std::uint8_t b4, std::uint8_t b5)
      : bytes_{b0, b1, b2, b3, b4, b5} {}
  // Parses "01:00:5e:00:00:00" or "01-00-5e-00-00-00" (six groups of exactly two hex digits,
  // one separator throughout) or "0100.5e00.0000" (three groups of four hex digits), in either
  // case. Throws std::invalid_argument naming the text for anything else.
  explicit EthAddr(std::string_view text);

  static constexpr EthAddr ethAddrZero() { return EthAddr(); }
  // The IPv4 multicast prefix 01:00:5e:00:00:00, and the MAC address of the IPv4 group `ip` (host
  // order): the prefix completed with the group's low 23 bits, where its receivers listen.
  static constexpr EthAddr ipv4MulticastPrefix() { return EthAddr(0x01, 0x00, 0x5e, 0, 0, 0); }
  static constexpr EthAddr ipv4Multicast(std::uint32_t ip) {
    return EthAddr(0x01, 0x00, 0x5e, static_cast<std::uint8_t>((ip >> 16) & 0x7f),
                   static_cast<std::uint8_t>(ip >> 8), static_cast<std::uint8_t>(ip));
  }

  const Bytes& bytes() const { return bytes_; }
  bool isZero() const { return *this == EthAddr(); }
  // True for group addresses: the lowest bit of the first byte is set (broadcast included).
  bool isMulticast() const { return (bytes_[0] & 0x01) != 0; }
  // Returns the lower-case colon form, "01:00:5e:00:00:00".
  Pelo::String stringValue() const;

  friend bool operator==(const EthAddr& a, const EthAddr& b) = default;
  friend std::strong_ordering operator<=>(const EthAddr& a, const EthAddr& b) {
    return a.bytes_ <=> b.bytes_;
  }

 private:
  Bytes bytes_{};
};

std::ostream& operator<<(std::ostream& os, const EthAddr& addr);

}  // namespace Nexo

template <>
struct std::hash<Nexo::EthAddr> {
  std::size_t operator()(const Nexo::EthAddr& addr) const noexcept {
    std::uint64_t packed = 0;
    for (const std::uint8_t byte : addr.bytes()) packed = (packed << 8) | byte;
    return std::hash<std::uint64_t>{}(packed);
  }
};
