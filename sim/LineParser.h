#pragma once

#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "Bridging/Types.h"
#include "Ip/Nat/NatFlow.h"
#include "Mox/Seconds.h"
#include "Nexo/EthAddr.h"
#include "Nexo/IntfId.h"
#include "Nexo/IpAddr.h"

namespace Sim {

// A scenario line that cannot be carried out, in words for the person who wrote it. Thrown before
// anything is changed.
class ScenarioError : public std::runtime_error {
 public:
  explicit ScenarioError(const std::string& what) : std::runtime_error(what) {}
};

// A line whose words do not form the command: a missing, unexpected or malformed word. The
// interpreter adds the command's usage to the report.
class ParseError : public ScenarioError {
 public:
  explicit ParseError(const std::string& what) : ScenarioError(what) {}
};

// Reads the words of one scenario line in order and turns them into the platform's value types,
// with the same checks those types make: text the platform could never publish (a malformed
// address, a VLAN outside its range, an unknown keyword) throws ParseError and consumes nothing
// more. Words are separated by spaces and tabs; a word starting with '#' begins a comment that
// runs to the end of the line.
class LineParser {
 public:
  explicit LineParser(std::string_view line);

  // The words of `line` before any comment.
  static std::vector<std::string> split(std::string_view line);

  bool atEnd() const { return next_ == words_.size(); }
  // The next word, or "" at the end.
  const std::string& peek() const;
  // Consumes the next word when it is `keyword`; returns whether it did.
  bool accept(std::string_view keyword);
  // Consumes the next word, which must be `keyword`.
  void keyword(std::string_view keyword);
  // Consumes the next word, whatever it is; `what` names it in the error when there is none
  // ("a policy name").
  std::string word(std::string_view what);
  // Consumes every remaining word.
  std::vector<std::string> rest();
  // Throws unless every word has been consumed.
  void end() const;

  // Interface name (Nexo::IntfId rules).
  Nexo::IntfId intf();
  // MAC address: "02:00:00:00:00:01", "02-00-00-00-00-01" or "0200.0000.0001".
  Nexo::EthAddr mac();
  // Address with an optional port: "10.0.0.1:80", "10.0.0.1" (port 0).
  Nexo::IpAndPort ipAndPort();
  // Address with its mask length: "10.0.0.1/24".
  Nexo::IpAddrWithMask ipAddrWithMask();
  // A VLAN that carries traffic, 1..4094.
  std::uint16_t vlanId();
  // A VLAN number as records carry it, 0..4095 (0 and 4095 mean none).
  std::uint16_t vlanNumber();
  // A decimal number within min..max, without sign or leading zeros; `what` names it.
  std::uint64_t number(std::string_view what, std::uint64_t min, std::uint64_t max);
  // A number of entries, or "unlimited" (returned as `unlimited`).
  std::size_t capacity(std::size_t unlimited);
  // Seconds: decimal, at most 9 fractional digits, not negative, below 10^9.
  Mox::Seconds seconds();
  // "on" or "off".
  bool onOff();
  Bridging::SwitchportMode switchportMode();
  Bridging::Topology::PortState portState();
  // The four words "src A.B.C.D/LEN:PORT dst A.B.C.D/LEN:PORT".
  Ip::Nat::NatFlow natFlow();

 private:
  // The next word, consumed; throws "missing <what>" at the end.
  const std::string& take(std::string_view what);

  std::vector<std::string> words_;
  std::size_t next_ = 0;
};

}  // namespace Sim
