#include <cstdint>
#include <initializer_list>
#include <ostream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string_view>

#include "Nexo/EthAddr.h"
#include "Nexo/IntfId.h"
#include "Nexo/IpAddr.h"

namespace Nexo {
namespace {

using ::testing::HasSubstr;

template <typename T>
std::string streamed(const T& value) {
  std::ostringstream os;
  os << value;
  return os.str();
}

// ---- Malformed text: every parser refuses it with an error naming the text. ----

using ParseFn = void (*)(const std::string&);

struct MalformedText {
  const char* type;
  ParseFn parse;
  std::string text;
};

void PrintTo(const MalformedText& c, std::ostream* os) { *os << c.type << " \"" << c.text << "\""; }

std::vector<MalformedText> malformed(const char* type, ParseFn parse,
                                     std::initializer_list<std::string> texts) {
  std::vector<MalformedText> cases;
  for (const std::string& text : texts) cases.push_back({type, parse, text});
  return cases;
}

class MalformedTextTest : public ::testing::TestWithParam<MalformedText> {};

TEST_P(MalformedTextTest, IsRefusedWithMessageNamingText) {
  try {
    GetParam().parse(GetParam().text);
    FAIL() << "accepted";
  } catch (const std::invalid_argument& e) {
    EXPECT_THAT(e.what(), HasSubstr("\"" + GetParam().text + "\""));
  }
}

INSTANTIATE_TEST_SUITE_P(
    IntfId, MalformedTextTest,
    ::testing::ValuesIn(malformed("IntfId", [](const std::string& t) { IntfId{Pelo::String(t)}; },
                                  {"Ethernet 1", " Ethernet1",
                                   std::string(IntfId::kMaxNameLength + 1, 'E')})));

INSTANTIATE_TEST_SUITE_P(
    EthAddr, MalformedTextTest,
    ::testing::ValuesIn(malformed("EthAddr", [](const std::string& t) { EthAddr{t}; },
                                  {"", "01:00:5e:00:00", "01:00:5e:00:00:00:00",
                                   "1:00:5e:00:00:000", "01:00-5e:00:00:00", "01.00.5e.00.00.00",
                                   "01:00:5g:00:00:00", "01:00:5e:00:00:0 ", "0100.5e00.000",
                                   "0100:5e00:0000", "0100.5e00.000x", "01005e000000"})));

INSTANTIATE_TEST_SUITE_P(
    IpAddr, MalformedTextTest,
    ::testing::ValuesIn(malformed("IpAddr", [](const std::string& t) { IpAddr{t}; },
                                  {"", "1.2.3", "1.2.3.4.5", "1.2.3.4.", "1..3.4", "256.0.0.1",
                                   "1.2.3.1000", "010.0.0.1", "1.2.3.00", "+1.2.3.4", "1.2.3.-4",
                                   "1.2.3.4 ", "1.2.3.4x", "0x1.2.3.4"})));

INSTANTIATE_TEST_SUITE_P(
    IpAndPort, MalformedTextTest,
    ::testing::ValuesIn(malformed("IpAndPort", [](const std::string& t) { IpAndPort{t}; },
                                  {"", ":80", "10.0.0.1:", "10.0.0.1:65536", "10.0.0.1:4294967376",
                                   "10.0.0.1:080", "10.0.0.1:+80", "10.0.0.1:80x", "10.0.0.1:80:81",
                                   "10.0.0.256:80"})));

INSTANTIATE_TEST_SUITE_P(
    IpAddrWithMask, MalformedTextTest,
    ::testing::ValuesIn(malformed("IpAddrWithMask", [](const std::string& t) { IpAddrWithMask{t}; },
                                  {"", "10.0.0.1", "10.0.0.1/", "/24", "10.0.0.1/33",
                                   "10.0.0.1/024", "10.0.0.1/-1", "10.0.0.1/24/8", "10.0.0/24"})));

// ---- IntfId ----

TEST(IntfIdTest, NameErrorShowsControlCharacterEscaped) {
  try {
    IntfId id(Pelo::String("Et1\n"));
    FAIL() << "accepted";
  } catch (const std::invalid_argument& e) {
    EXPECT_THAT(e.what(), HasSubstr("\"Et1\\x0a\""));
  }
  EXPECT_THROW(IntfId(Pelo::String("Et\x7f")), std::invalid_argument);
  EXPECT_NO_THROW(IntfId(Pelo::String(std::string(IntfId::kMaxNameLength, 'E'))));
  EXPECT_TRUE(IntfId(Pelo::String("")).empty());
}

TEST(IntfIdTest, OrderIsNaturalStrictAndTotal) {
  // Ascending; every pair must compare accordingly. Et001/Et01/Et1 tie numerically and fall
  // back to bytewise order.
  const std::vector<std::string> ascending = {
      "",    "Et",   "Et-1",   "Et001", "Et01", "Et1",       "Et1/2",      "Et1/10",
      "Et2", "Et10", "Et10/1", "EtA",   "Eta",  "Ethernet2", "Ethernet10", "Ethernet10/1"};
  for (std::size_t i = 0; i < ascending.size(); ++i) {
    for (std::size_t j = 0; j < ascending.size(); ++j) {
      const IntfId a{Pelo::String(ascending[i])};
      const IntfId b{Pelo::String(ascending[j])};
      EXPECT_EQ(a <=> b, i <=> j) << ascending[i] << " vs " << ascending[j];
      EXPECT_EQ(a == b, i == j);
    }
  }
  // Digit runs longer than 64 bits still compare by value.
  EXPECT_LT(IntfId(Pelo::String("Et" + std::string(20, '9'))),
            IntfId(Pelo::String("Et1" + std::string(20, '0'))));
}

// The natural order spelled out directly on the names, as a reference for the ids' precomputed
// keys.
std::strong_ordering naturalOrder(std::string_view x, std::string_view y) {
  const auto digit = [](char c) { return c >= '0' && c <= '9'; };
  std::size_t i = 0;
  std::size_t j = 0;
  while (i < x.size() && j < y.size()) {
    if (digit(x[i]) && digit(y[j])) {
      std::size_t iEnd = i;
      std::size_t jEnd = j;
      while (iEnd < x.size() && digit(x[iEnd])) ++iEnd;
      while (jEnd < y.size() && digit(y[jEnd])) ++jEnd;
      std::string_view a = x.substr(i, iEnd - i);
      std::string_view b = y.substr(j, jEnd - j);
      a.remove_prefix(std::min(a.find_first_not_of('0'), a.size()));
      b.remove_prefix(std::min(b.find_first_not_of('0'), b.size()));
      if (a.size() != b.size()) return a.size() <=> b.size();
      if (const int c = a.compare(b); c != 0) return c <=> 0;
      i = iEnd;
      j = jEnd;
      continue;
    }
    const auto order = static_cast<unsigned char>(x[i]) <=> static_cast<unsigned char>(y[j]);
    if (std::is_neq(order)) return order;
    ++i;
    ++j;
  }
  if (const auto order = (x.size() - i) <=> (y.size() - j); std::is_neq(order)) return order;
  return x.compare(y) <=> 0;
}

// Random names over digits, letters and the bytes just below and above the digits, compared
// pairwise: the ids must order exactly as the names do, and be equal exactly when the names are.
TEST(IntfIdTest, OrderMatchesTheNaturalOrderOfTheNames) {
  std::mt19937 rng(5);
  const std::string alphabet = "0001239/:AEat-";
  std::vector<std::string> names;
  for (int n = 0; n < 400; ++n) {
    std::string name;
    for (std::size_t len = rng() % 9; len > 0; --len) name += alphabet[rng() % alphabet.size()];
    names.push_back(name);
  }
  for (const std::string& x : names) {
    for (const std::string& y : names) {
      const IntfId a{Pelo::String(x)};
      const IntfId b{Pelo::String(y)};
      ASSERT_EQ(a <=> b, naturalOrder(x, y)) << '"' << x << "\" vs \"" << y << '"';
      ASSERT_EQ(a == b, x == y);
      if (a == b) {
        ASSERT_EQ(std::hash<IntfId>{}(a), std::hash<Pelo::String>{}(Pelo::String(x)));
      }
    }
  }
}

// Names that keep arriving at the same place of the order (each below all before it) exhaust the
// room between two neighbours again and again; the ids must keep their order throughout.
TEST(IntfIdTest, OrderHoldsWhenNamesCrowdOnePlace) {
  std::vector<IntfId> ids;
  for (int n = 300; n > 0; --n) ids.emplace_back(Pelo::String("Crowd" + std::to_string(n)));
  for (std::size_t i = 0; i < ids.size(); ++i) {
    for (std::size_t j = 0; j < ids.size(); ++j) ASSERT_EQ(ids[i] <=> ids[j], j <=> i);
  }
}

using NamePair = std::pair<const char*, const char*>;

class IntfIdShortNameTest : public ::testing::TestWithParam<NamePair> {};

TEST_P(IntfIdShortNameTest, AbbreviatesKnownPrefixes) {
  EXPECT_EQ(IntfId(Pelo::String(GetParam().first)).shortName(), GetParam().second);
}

INSTANTIATE_TEST_SUITE_P(
    Names, IntfIdShortNameTest,
    ::testing::Values(NamePair{"Ethernet3/1", "Et3/1"}, NamePair{"Port-Channel10", "Po10"},
                      NamePair{"Vlan100", "Vl100"}, NamePair{"Loopback0", "Lo0"},
                      NamePair{"Management1", "Ma1"}, NamePair{"Recirc-Channel5", "Rc5"},
                      NamePair{"Tunnel4", "Tu4"}, NamePair{"Et3/1", "Et3/1"},
                      NamePair{"Vlanfoo", "Vlanfoo"}, NamePair{"Ethernet", "Ethernet"},
                      NamePair{"", ""}));

struct VlanIntfCase {
  const char* name;
  bool isVlan;
  std::uint16_t vlanId;
};

class VlanIntfIdTest : public ::testing::TestWithParam<VlanIntfCase> {};

TEST_P(VlanIntfIdTest, RecognisesVlanInterfaces) {
  const IntfId id{Pelo::String(GetParam().name)};
  EXPECT_EQ(VlanIntfId::isVlanIntfId(id), GetParam().isVlan);
  EXPECT_EQ(VlanIntfId::vlanId(id), GetParam().vlanId);
}

INSTANTIATE_TEST_SUITE_P(
    Boundaries, VlanIntfIdTest,
    ::testing::Values(VlanIntfCase{"Vlan0", true, 0}, VlanIntfCase{"Vlan1", true, 1},
                      VlanIntfCase{"Vlan4094", true, 4094}, VlanIntfCase{"Vlan4095", true, 4095},
                      VlanIntfCase{"Vlan0010", true, 10}, VlanIntfCase{"Vlan4096", false, 0},
                      VlanIntfCase{"Vlan9999", false, 0}, VlanIntfCase{"Vlan00010", false, 0},
                      VlanIntfCase{"Vlan", false, 0}, VlanIntfCase{"VlanX", false, 0},
                      VlanIntfCase{"Vlan10a", false, 0}, VlanIntfCase{"Vlan-1", false, 0},
                      VlanIntfCase{"vlan10", false, 0}, VlanIntfCase{"Ethernet10", false, 0}));

// ---- EthAddr ----

// Pairs of accepted text and its canonical form.
class EthAddrTextTest : public ::testing::TestWithParam<NamePair> {};

TEST_P(EthAddrTextTest, ParsesToCanonicalFormAndBack) {
  const EthAddr addr(GetParam().first);
  EXPECT_EQ(streamed(addr), GetParam().second);
  EXPECT_EQ(EthAddr(addr.stringValue()), addr);
}

INSTANTIATE_TEST_SUITE_P(Forms, EthAddrTextTest,
                         ::testing::Values(NamePair{"01:00:5e:7f:00:0a", "01:00:5e:7f:00:0a"},
                                           NamePair{"01-00-5E-7F-00-0A", "01:00:5e:7f:00:0a"},
                                           NamePair{"0100.5E7f.000a", "01:00:5e:7f:00:0a"},
                                           NamePair{"FF:ff:FF:ff:FF:ff", "ff:ff:ff:ff:ff:ff"}));

TEST(EthAddrTest, MulticastIsLowestBitOfFirstByte) {
  EXPECT_TRUE(EthAddr("01:00:00:00:00:00").isMulticast());
  EXPECT_FALSE(EthAddr("02:00:00:00:00:01").isMulticast());
  EXPECT_FALSE(EthAddr("80:00:00:00:00:00").isMulticast());
}

TEST(EthAddrTest, OrderIsBytewiseFromFirstByte) {
  EXPECT_LT(EthAddr("00:ff:ff:ff:ff:ff"), EthAddr("01:00:00:00:00:00"));
  EXPECT_LT(EthAddr("01:00:00:00:00:00"), EthAddr("01:00:00:00:00:01"));
  EXPECT_EQ(EthAddr("01:02:03:04:05:06"), EthAddr(1, 2, 3, 4, 5, 6));
}

// ---- IpAddr, IpAndPort, IpAddrWithMask ----

TEST(IpAddrTest, TextRoundTripsAndValueIsHostOrder) {
  for (const char* text : {"0.0.0.0", "255.255.255.255", "10.0.0.1", "192.168.100.200"}) {
    EXPECT_EQ(streamed(IpAddr(text)), text);
  }
  EXPECT_EQ(IpAddr("1.2.3.4").value(), 0x01020304u);
  EXPECT_LT(IpAddr("9.255.255.255"), IpAddr("10.0.0.0"));
}

TEST(IpAddrTest, MulticastIsExactly224Slash4) {
  EXPECT_FALSE(IpAddr("223.255.255.255").isMulticast());
  EXPECT_TRUE(IpAddr("224.0.0.0").isMulticast());
  EXPECT_TRUE(IpAddr("239.255.255.255").isMulticast());
  EXPECT_FALSE(IpAddr("240.0.0.0").isMulticast());
}

TEST(IpAndPortTest, ParsesWithAndWithoutPort) {
  EXPECT_EQ(IpAndPort("10.0.0.1:80"), IpAndPort(IpAddr("10.0.0.1"), 80));
  EXPECT_EQ(IpAndPort("10.0.0.1"), IpAndPort(IpAddr("10.0.0.1"), 0));
  EXPECT_EQ(IpAndPort("10.0.0.1:65535").port(), 65535);
  EXPECT_EQ(streamed(IpAndPort("224.1.2.3:5000")), "224.1.2.3:5000");
}

TEST(IpAddrWithMaskTest, ParsesRoundTripsAndComparesBothParts) {
  for (const char* text : {"10.0.0.1/24", "0.0.0.0/0", "255.255.255.255/32"}) {
    EXPECT_EQ(streamed(IpAddrWithMask(text)), text);
  }
  EXPECT_EQ(IpAddrWithMask("10.0.0.1/24"), IpAddrWithMask(IpAddr("10.0.0.1"), 24));
  EXPECT_FALSE(IpAddrWithMask("10.0.0.1/24") == IpAddrWithMask("10.0.0.1/25"));
  EXPECT_FALSE(IpAddrWithMask("10.0.0.1/24") == IpAddrWithMask("10.0.0.0/24"));
  EXPECT_NO_THROW(IpAddrWithMask(IpAddr(), 32));
  EXPECT_THROW(IpAddrWithMask(IpAddr(), 33), std::invalid_argument);
}

}  // namespace
}  // namespace Nexo
