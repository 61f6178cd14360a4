#include "sim/LineParser.h"

namespace Sim {

namespace {

const std::string kNoWord;

std::string quoted(std::string_view word) { return "'" + std::string(word) + "'"; }

bool startsWithDigit(std::string_view word) {
  return !word.empty() && word[0] >= '0' && word[0] <= '9';
}

// Decimal digits only, no sign, no leading zero unless the number is 0.
bool isPlainNumber(std::string_view text) {
  if (text.empty() || text.size() > 19) return false;
  for (const char c : text) {
    if (c < '0' || c > '9') return false;
  }
  return text.size() == 1 || text[0] != '0';
}

std::uint64_t toNumber(std::string_view text) {
  std::uint64_t value = 0;
  for (const char c : text) value = value * 10 + static_cast<std::uint64_t>(c - '0');
  return value;
}

}  // namespace

LineParser::LineParser(std::string_view line) : words_(split(line)) {}

std::vector<std::string> LineParser::split(std::string_view line) {
  std::vector<std::string> words;
  std::size_t i = 0;
  while (i < line.size()) {
    const char c = line[i];
    if (c == ' ' || c == '\t' || c == '\r' || c == '\n') {
      ++i;
      continue;
    }
    if (c == '#') break;
    const std::size_t start = i;
    while (i < line.size() && line[i] != ' ' && line[i] != '\t' && line[i] != '\r' &&
           line[i] != '\n') {
      ++i;
    }
    words.emplace_back(line.substr(start, i - start));
  }
  return words;
}

const std::string& LineParser::peek() const { return atEnd() ? kNoWord : words_[next_]; }

bool LineParser::accept(std::string_view keyword) {
  if (atEnd() || words_[next_] != keyword) return false;
  ++next_;
  return true;
}

void LineParser::keyword(std::string_view keyword) {
  const std::string& got = take(quoted(keyword));
  if (got != keyword) {
    --next_;
    throw ParseError("expected " + quoted(keyword) + ", got " + quoted(got));
  }
}

const std::string& LineParser::take(std::string_view what) {
  if (atEnd()) throw ParseError("missing " + std::string(what));
  return words_[next_++];
}

std::string LineParser::word(std::string_view what) { return take(what); }

std::vector<std::string> LineParser::rest() {
  std::vector<std::string> out(words_.begin() + static_cast<std::ptrdiff_t>(next_), words_.end());
  next_ = words_.size();
  return out;
}

void LineParser::end() const {
  if (!atEnd()) throw ParseError("unexpected " + quoted(words_[next_]));
}

Nexo::IntfId LineParser::intf() {
  const std::string& text = take("an interface name");
  try {
    return Nexo::IntfId(Pelo::String(text));
  } catch (const std::invalid_argument&) {
    throw ParseError("expected an interface name such as Ethernet1, got " + quoted(text));
  }
}

Nexo::EthAddr LineParser::mac() {
  const std::string& text = take("a MAC address");
  try {
    return Nexo::EthAddr(text);
  } catch (const std::invalid_argument&) {
    throw ParseError("expected a MAC address such as 02:00:00:00:00:01, got " + quoted(text));
  }
}

Nexo::IpAndPort LineParser::ipAndPort() {
  const std::string& text = take("an address");
  try {
    return Nexo::IpAndPort(text);
  } catch (const std::invalid_argument&) {
    throw ParseError("expected an address with an optional port such as 10.0.0.1:5000, got " +
                     quoted(text));
  }
}

Nexo::IpAddrWithMask LineParser::ipAddrWithMask() {
  const std::string& text = take("an address with its mask length");
  try {
    return Nexo::IpAddrWithMask(text);
  } catch (const std::invalid_argument&) {
    throw ParseError("expected an address with its mask length such as 10.0.0.1/24, got " +
                     quoted(text));
  }
}

std::uint16_t LineParser::vlanId() {
  return static_cast<std::uint16_t>(
      number("a VLAN id", Bridging::VlanId::kMin, Bridging::VlanId::kMax));
}

std::uint16_t LineParser::vlanNumber() {
  return static_cast<std::uint16_t>(number("a VLAN number", 0, Bridging::VlanIdOrNone::kReserved));
}

std::uint64_t LineParser::number(std::string_view what, std::uint64_t min, std::uint64_t max) {
  const std::string& text = take(what);
  if (!isPlainNumber(text) || toNumber(text) < min || toNumber(text) > max) {
    throw ParseError("expected " + std::string(what) + " " + std::to_string(min) + ".." +
                     std::to_string(max) + ", got " + quoted(text));
  }
  return toNumber(text);
}

std::size_t LineParser::capacity(std::size_t unlimited) {
  if (accept("unlimited")) return unlimited;
  const std::string& text = take("a number of entries or 'unlimited'");
  if (!isPlainNumber(text) || toNumber(text) >= unlimited) {
    throw ParseError("expected a number of entries or 'unlimited', got " + quoted(text));
  }
  return static_cast<std::size_t>(toNumber(text));
}

Mox::Seconds LineParser::seconds() {
  const std::string& text = take("a number of seconds");
  const std::size_t dot = text.find('.');
  const std::string_view whole = std::string_view(text).substr(0, dot);
  const std::string_view fraction =
      dot == std::string::npos ? std::string_view() : std::string_view(text).substr(dot + 1);
  const bool fractionOk = dot == std::string::npos ||
                          (!fraction.empty() && fraction.size() <= 9 &&
                           fraction.find_first_not_of("0123456789") == std::string_view::npos);
  if (!isPlainNumber(whole) || !fractionOk || whole.size() > 9) {
    throw ParseError("expected seconds such as 10 or 9.999 (at most 9 decimals), got " +
                     quoted(text));
  }
  std::uint64_t nanos = toNumber(whole) * 1000000000ULL;
  std::uint64_t scale = 100000000ULL;
  for (const char c : fraction) {
    nanos += static_cast<std::uint64_t>(c - '0') * scale;
    scale /= 10;
  }
  return static_cast<Mox::Seconds>(nanos) / 1e9;
}

bool LineParser::onOff() {
  const std::string& text = take("'on' or 'off'");
  if (text == "on") return true;
  if (text == "off") return false;
  throw ParseError("expected 'on' or 'off', got " + quoted(text));
}

Bridging::SwitchportMode LineParser::switchportMode() {
  // By number too, as the platform's records carry it: any value of the field, named or not.
  if (startsWithDigit(peek())) {
    return static_cast<Bridging::SwitchportMode>(number("a switchport mode", 0, 255));
  }
  const std::string& text = take("a switchport mode");
  Bridging::SwitchportMode mode{};
  if (!Bridging::switchportModeFromString(text, mode)) {
    throw ParseError(
        "expected a switchport mode (access, trunk, tunnel, monitorSource, monitorDestination, "
        "voice, routed, or its number), got " +
        quoted(text));
  }
  return mode;
}

Bridging::Topology::PortState LineParser::portState() {
  if (startsWithDigit(peek())) {
    return static_cast<Bridging::Topology::PortState>(number("a port state", 0, 255));
  }
  const std::string& text = take("a port state");
  Bridging::Topology::PortState state{};
  if (!Bridging::Topology::portStateFromString(text, state)) {
    throw ParseError(
        "expected a port state (disabled, blocking, learning, forwarding, discarding, or its "
        "number), got " +
        quoted(text));
  }
  return state;
}

Ip::Nat::NatFlow LineParser::natFlow() {
  static constexpr const char* kExpected = "a flow 'src A.B.C.D/LEN:PORT dst A.B.C.D/LEN:PORT'";
  std::string text;
  for (int i = 0; i < 4; ++i) {
    if (i > 0) text += ' ';
    text += take(kExpected);
  }
  try {
    return Ip::Nat::NatFlow::fromString(text);
  } catch (const std::invalid_argument&) {
    throw ParseError(std::string("expected ") + kExpected + ", got " + quoted(text));
  }
}

}  // namespace Sim
