#include "Ip/Nat/NatFlow.h"

#include <array>
#include <optional>
#include <ostream>
#include <stdexcept>
#include <string>

namespace Ip::Nat {

namespace {

constexpr std::array<std::string_view, 3> kNatFlowTypeNames{
    "natFlowTypeUnicast",
    "natFlowTypeMulticast",
    "natFlowTypeNone",
};
static_assert(kNatFlowTypeNames.size() ==
              static_cast<std::size_t>(NatFlowType::natFlowTypeNone) + 1);

// Parses a decimal number without sign or leading zeros that does not exceed maxValue.
std::optional<std::uint32_t> parseDecimal(std::string_view text, std::uint32_t maxValue) {
  if (text.empty() || text.size() > 5) return std::nullopt;
  if (text.size() > 1 && text[0] == '0') return std::nullopt;
  std::uint32_t value = 0;
  for (const char c : text) {
    if (c < '0' || c > '9') return std::nullopt;
    value = value * 10 + static_cast<std::uint32_t>(c - '0');
  }
  if (value > maxValue) return std::nullopt;
  return value;
}

struct Endpoint {
  Nexo::IpAddr addr;
  std::uint16_t port = 0;
  std::uint32_t prefixLen = 0;
};

// Parses "10.1.0.0/16:0".
std::optional<Endpoint> parseEndpoint(std::string_view text) {
  const std::size_t slash = text.find('/');
  const std::size_t colon = text.find(':');
  if (slash == std::string_view::npos || colon == std::string_view::npos || colon < slash) {
    return std::nullopt;
  }
  const auto prefixLen =
      parseDecimal(text.substr(slash + 1, colon - slash - 1), NatFlow::kMaxPrefixLen);
  const auto port = parseDecimal(text.substr(colon + 1), 65535);
  if (!prefixLen || !port) return std::nullopt;
  Endpoint endpoint;
  try {
    endpoint.addr = Nexo::IpAddr(text.substr(0, slash));
  } catch (const std::invalid_argument&) {
    return std::nullopt;
  }
  endpoint.port = static_cast<std::uint16_t>(*port);
  endpoint.prefixLen = *prefixLen;
  return endpoint;
}

}  // namespace

std::ostream& operator<<(std::ostream& os, NatFlowType type) {
  const auto index = static_cast<std::size_t>(type);
  if (index < kNatFlowTypeNames.size()) return os << kNatFlowTypeNames[index];
  return os << static_cast<unsigned>(index);
}

NatFlow::NatFlow(Nexo::IpAddr srcAddr, std::uint16_t srcPort, std::uint32_t srcPrefixLen,
                 Nexo::IpAddr dstAddr, std::uint16_t dstPort, std::uint32_t dstPrefixLen)
    : srcAddr_(srcAddr),
      srcPort_(srcPort),
      srcPrefixLen_(srcPrefixLen),
      dstAddr_(dstAddr),
      dstPort_(dstPort),
      dstPrefixLen_(dstPrefixLen) {
  for (const std::uint32_t prefixLen : {srcPrefixLen, dstPrefixLen}) {
    if (prefixLen > kMaxPrefixLen) {
      throw std::invalid_argument("Ip::Nat::NatFlow: prefix length " + std::to_string(prefixLen) +
                                  " > 32 not allowed");
    }
  }
}

NatFlow NatFlow::fromString(std::string_view text) {
  constexpr std::string_view kSrc = "src ";
  constexpr std::string_view kDst = " dst ";
  std::optional<Endpoint> src;
  std::optional<Endpoint> dst;
  const std::size_t dstAt = text.find(kDst);
  if (text.starts_with(kSrc) && dstAt != std::string_view::npos) {
    src = parseEndpoint(text.substr(kSrc.size(), dstAt - kSrc.size()));
    dst = parseEndpoint(text.substr(dstAt + kDst.size()));
  }
  if (!src || !dst) {
    throw std::invalid_argument(
        "Ip::Nat::NatFlow: malformed text \"" + std::string(text) +
        "\" (expected src <address>/<length>:<port> dst <address>/<length>:<port>)");
  }
  return NatFlow(src->addr, src->port, src->prefixLen, dst->addr, dst->port, dst->prefixLen);
}

Pelo::String NatFlow::stringValue() const {
  return "src " + srcAddr_.stringValue().str() + "/" + std::to_string(srcPrefixLen_) + ":" +
         std::to_string(srcPort_) + " dst " + dstAddr_.stringValue().str() + "/" +
         std::to_string(dstPrefixLen_) + ":" + std::to_string(dstPort_);
}

std::ostream& operator<<(std::ostream& os, const NatFlow& flow) { return os << flow.stringValue(); }

std::ostream& operator<<(std::ostream& os, const NatFlowNextHop& nextHop) {
  return os << "vlan " << nextHop.vlan() << " mac " << nextHop.mac();
}

}  // namespace Ip::Nat
