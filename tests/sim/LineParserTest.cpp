#include "sim/LineParser.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <functional>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

TEST(LineParserTest, SplitsWordsAndStopsAtAComment) {
  EXPECT_THAT(Sim::LineParser::split("  vlan\t10  member Ethernet1 # uplink\r"),
              ElementsAre("vlan", "10", "member", "Ethernet1"));
  EXPECT_THAT(Sim::LineParser::split("# only a comment"), IsEmpty());
  // '#' starts a comment only at the start of a word.
  EXPECT_THAT(Sim::LineParser::split("policy a#b"), ElementsAre("policy", "a#b"));
}

TEST(LineParserTest, SecondsAreExactToTheNanosecond) {
  // The clock counts nanoseconds: 9.999 s plus 0.001 s must land exactly on 10 s.
  const auto nanos = [](const char* text) {
    Sim::LineParser p(text);
    return std::llround(p.seconds() * 1e9);
  };
  EXPECT_EQ(nanos("9.999") + nanos("0.001"), 10000000000LL);
  EXPECT_EQ(nanos("0.000000001"), 1);
  EXPECT_EQ(nanos("3600.000000001"), 3600000000001LL);
}

// A value read by one of the parser's readers, and whether the text is accepted.
struct Value {
  const char* text;
  std::function<void(Sim::LineParser&)> read;
  bool accepted;
};

class LineParserValueTest : public testing::TestWithParam<Value> {};

TEST_P(LineParserValueTest, AcceptsWhatThePlatformPublishesAndNothingElse) {
  Sim::LineParser p(GetParam().text);
  if (GetParam().accepted) {
    EXPECT_NO_THROW(GetParam().read(p));
    EXPECT_TRUE(p.atEnd());
  } else {
    EXPECT_THROW(GetParam().read(p), Sim::ParseError);
  }
}

const auto seconds = [](Sim::LineParser& p) { p.seconds(); };
const auto vlanId = [](Sim::LineParser& p) { p.vlanId(); };
const auto vlanNumber = [](Sim::LineParser& p) { p.vlanNumber(); };
const auto capacity = [](Sim::LineParser& p) { p.capacity(1000); };
const auto flow = [](Sim::LineParser& p) { p.natFlow(); };
const auto intf = [](Sim::LineParser& p) { p.intf(); };
const auto mode = [](Sim::LineParser& p) { p.switchportMode(); };
const auto state = [](Sim::LineParser& p) { p.portState(); };

INSTANTIATE_TEST_SUITE_P(
    Values, LineParserValueTest,
    testing::Values(
        Value{"10", seconds, true}, Value{"0", seconds, true}, Value{"010", seconds, false},
        Value{"10.", seconds, false}, Value{".5", seconds, false}, Value{"-1", seconds, false},
        Value{"1e3", seconds, false}, Value{"1.0000000001", seconds, false},
        Value{"1000000000", seconds, false}, Value{"", seconds, false}, Value{"1", vlanId, true},
        Value{"4094", vlanId, true}, Value{"0", vlanId, false}, Value{"4095", vlanId, false},
        Value{"0", vlanNumber, true}, Value{"4095", vlanNumber, true},
        Value{"4096", vlanNumber, false}, Value{"+5", vlanNumber, false},
        Value{"01", vlanNumber, false}, Value{"unlimited", capacity, true},
        Value{"0", capacity, true}, Value{"1000", capacity, false},
        Value{"src 10.1.0.0/16:0 dst 239.1.1.1/32:5000", flow, true},
        Value{"src 10.1.0.0/16:0 dst 239.1.1.1/32", flow, false},
        Value{"dst 239.1.1.1/32:5000 src 10.1.0.0/16:0", flow, false},
        Value{"src 10.1.0.0/16:0", flow, false}, Value{"Ethernet3/1", intf, true},
        Value{"Ethernet123456789012345678901234567890123456789012345678901234567890", intf, false},
        // Modes and states by name or by the number a record carries, named or not.
        Value{"routed", mode, true}, Value{"6", mode, true}, Value{"255", mode, true},
        Value{"256", mode, false}, Value{"06", mode, false}, Value{"Trunk", mode, false},
        Value{"forwarding", state, true}, Value{"3", state, true}, Value{"200", state, true},
        Value{"-1", state, false}, Value{"melting", state, false}));

TEST(LineParserTest, ModesAndStatesByNumberAreTheNamedValues) {
  Sim::LineParser p("6 3 9");
  EXPECT_EQ(p.switchportMode(), Bridging::SwitchportMode::routed);
  EXPECT_EQ(p.portState(), Bridging::Topology::PortState::forwarding);
  EXPECT_EQ(static_cast<int>(p.switchportMode()), 9);
}

}  // namespace
