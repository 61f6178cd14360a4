#include <cstdint>
#include <sstream>
#include <stdexcept>
#include <string>
#include <string_view>

#include <gtest/gtest.h>

#include "Bridging/Types.h"

namespace Bridging {
namespace {

template <typename T>
std::string streamed(const T& value) {
  std::ostringstream os;
  os << value;
  return os.str();
}

class VlanIdRangeTest : public ::testing::TestWithParam<std::uint16_t> {};

TEST_P(VlanIdRangeTest, OutOfRangeThrowsWithFixedText) {
  try {
    VlanId vlan(GetParam());
    FAIL() << "accepted " << vlan;
  } catch (const std::out_of_range& e) {
    EXPECT_STREQ(e.what(), "Bridging::VlanId::value < 1 or > 4094 not allowed");
    EXPECT_NE(dynamic_cast<const VlanIdRangeError*>(&e), nullptr);
  }
}

INSTANTIATE_TEST_SUITE_P(Rejected, VlanIdRangeTest, ::testing::Values(0, 4095, 4096, 65535));

TEST(VlanIdTest, AcceptsRangeEndsAndPrintsDecimal) {
  EXPECT_EQ(VlanId(1).value(), 1);
  EXPECT_EQ(VlanId(4094).value(), 4094);
  EXPECT_EQ(streamed(VlanId(4094)), "4094");
  EXPECT_LT(VlanId(9), VlanId(10));
}

TEST(VlanIdOrNoneTest, NoneIsZeroOrReserved) {
  EXPECT_TRUE(VlanIdOrNone().isNone());
  EXPECT_TRUE(VlanIdOrNone(4095).isNone());
  EXPECT_FALSE(VlanIdOrNone(1).isNone());
  EXPECT_FALSE(VlanIdOrNone(4094).isNone());
  EXPECT_EQ(VlanIdOrNone(VlanId(100)), VlanIdOrNone(100));
  EXPECT_EQ(streamed(VlanIdOrNone(4095)), "4095");
}

// Checks that every enumerator up to `last` prints its name and parses back, that the parser
// refuses other text without touching its output, and that `outside` prints as a number.
template <typename Enum>
void expectNamesRoundTrip(Enum last, bool (*parse)(std::string_view, Enum&), Enum outside) {
  for (unsigned i = 0; i <= static_cast<unsigned>(last); ++i) {
    Enum parsed = outside;
    EXPECT_TRUE(parse(streamed(static_cast<Enum>(i)), parsed)) << i;
    EXPECT_EQ(parsed, static_cast<Enum>(i));
  }
  Enum untouched = last;
  for (const char* bad : {"", "Access", "forwarding ", "7", "monitor"}) {
    EXPECT_FALSE(parse(bad, untouched)) << bad;
  }
  EXPECT_EQ(untouched, last);
  EXPECT_EQ(streamed(outside), std::to_string(static_cast<unsigned>(outside)));
}

TEST(SwitchportModeTest, NamesRoundTrip) {
  EXPECT_EQ(streamed(SwitchportMode::monitorDestination), "monitorDestination");
  expectNamesRoundTrip(SwitchportMode::routed, switchportModeFromString,
                       static_cast<SwitchportMode>(7));
}

TEST(PortStateTest, NamesRoundTrip) {
  using Topology::PortState;
  EXPECT_EQ(streamed(PortState::forwarding), "forwarding");
  expectNamesRoundTrip(PortState::discarding, Topology::portStateFromString,
                       static_cast<PortState>(200));
}

}  // namespace
}  // namespace Bridging
