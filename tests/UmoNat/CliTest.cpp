#include <fcntl.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "Mox/Trace.h"
#include "UmoNat/NatFlowMcastCliSorter.h"
#include "UmoNat/UmoNatFlowMcastSmCli.h"

namespace {

using Ip::Nat::NatFlowType;
using VlanPortSets = Mox::Ptr<Ip::Nat::NatFlowVlanPortSets>;

// Everything `write` sends to a descriptor, as the requester's socket receives it. The pipe does
// not block: output beyond its capacity is lost and fails the comparison instead of hanging.
template <class Write>
std::string captured(Write&& write) {
  int fds[2];
  if (pipe2(fds, O_CLOEXEC | O_NONBLOCK) != 0) return "<pipe2 failed>";
  write(static_cast<std::uint32_t>(fds[1]));
  close(fds[1]);
  std::string out;
  char buf[4096];
  for (ssize_t n; (n = read(fds[0], buf, sizeof buf)) > 0;) out.append(buf, n);
  close(fds[0]);
  return out;
}

class CliTest : public testing::Test {
 protected:
  // An action translating to `src` and `dst` ("a.b.c.d:port") under a match whose flow has the
  // prefix lengths `srcLen` and `dstLen`.
  void actionIs(const char* policy, const char* match, const char* action, const char* src,
                std::uint32_t srcLen, const char* dst, std::uint32_t dstLen, NatFlowType type,
                const VlanPortSets& vps) {
    auto m = hw->natFlowIs(policy)->matchIs(match);
    m->flowIs(Ip::Nat::NatFlow(Nexo::IpAddr(), 0, srcLen, Nexo::IpAddr(), 0, dstLen));
    auto a = m->actionIs(action);
    a->srcNatIs(Nexo::IpAndPort(src));
    a->dstNatIs(Nexo::IpAndPort(dst));
    a->flowTypeIs(type);
    a->vlanPortSetsIs(vps);
  }
  static void portSetIs(const Mox::Ptr<Ip::Nat::NatFlowPortSet>& ps, std::uint32_t id,
                        const char* mac, std::vector<const char*> intfs) {
    ps->portSetIdIs(id);
    ps->portSetId2Is(id + 1);
    ps->dmacIs(Nexo::EthAddr(mac));
    for (const char* intf : intfs) ps->intfIs(Nexo::IntfId(intf));
  }
  std::string show(const char* command) {
    return captured([&](std::uint32_t fd) { cli->handleCommand(fd, command); });
  }

  Mox::Ptr<Ip::Nat::HwNatFlowStatus> hw = Mox::makePtr<Ip::Nat::HwNatFlowStatus>();
  Mox::Ptr<UmoNatFlowMcastSmCliCallback> cli =
      umoNatFlowMcastSmCliCallbackFactory("showNatFlowActionHw", "NAT flows in hardware", hw);
};

const std::string kSeparator = std::string(149, '-') + "\n";
const std::string kHeader =
    kSeparator +
    "Policy             Match              Action             Source         Destination     "
    "SPort DPort FT PT PSet1 PSet2 Vlan Intf     Mac              \n" +
    kSeparator;
const std::string kP1Rows =
    "P1                 M0                 A1                 -              239.9.9.9       "
    "0     5000  AC UC 40    41    40   Et4      00:00:00:00:00:00\n"
    "P1                 M1                 A2                 10.1.0.0       239.9.9.9       "
    "1000  5000  MC UC 10    11    10   Et2      01:00:5e:01:01:01\n"
    "P1                 M1                 A2                 10.1.0.0       239.9.9.9       "
    "1000  5000  MC UC 10    11    10   Et10     01:00:5e:01:01:01\n"
    "P1                 M1                 A2                 10.1.0.0       239.9.9.9       "
    "1000  5000  MC MC 20    21    20   Et1      01:00:5e:02:02:02\n"
    "P1                 M1                 A2                 10.1.0.0       239.9.9.9       "
    "1000  5000  MC MC 30    31    30   Po5      01:00:5e:03:03:03\n";
// A name wider than its column pushes the rest of the row to the right.
const std::string kLongRow =
    "PolicyWithAVeryLongName M                  A                  10.1.2.3       "
    "239.1.1.1       65535 1     UC UC 65536 65537 4094 Et3/1    02:00:00:00:00:01\n";

// P0: an action without port sets, which prints no header. P1: matches and actions added out
// of order, rows per interface, unicast before multicast, an empty port set, and first an action
// whose port sets hold no VLAN: it prints the header, which the rows after it must not repeat. P2:
// a match without actions. P3: only an action whose port sets hold no VLAN.
class CliGoldenTest : public CliTest {
 protected:
  CliGoldenTest() {
    actionIs("P0", "M1", "A1", "10.1.2.3:1", 32, "239.9.9.9:2", 32,
             NatFlowType::natFlowTypeMulticast, nullptr);
    auto vps = Ip::Nat::natFlowVlanPortSetsFactory();
    portSetIs(vps->mcastPortSetIs(30), 30, "01:00:5e:03:03:03", {"Port-Channel5"});
    portSetIs(vps->mcastPortSetIs(25), 25, "01:00:5e:04:04:04", {});
    portSetIs(vps->mcastPortSetIs(20), 20, "01:00:5e:02:02:02", {"Ethernet1"});
    portSetIs(vps->ucastPortSetIs(10), 10, "01:00:5e:01:01:01", {"Ethernet10", "Ethernet2"});
    actionIs("P1", "M1", "A2", "10.1.2.3:1000", 16, "239.9.9.9:5000", 32,
             NatFlowType::natFlowTypeMulticast, vps);
    auto vlan40 = Ip::Nat::natFlowVlanPortSetsFactory();
    portSetIs(vlan40->ucastPortSetIs(40), 40, "00:00:00:00:00:00", {"Ethernet4"});
    actionIs("P1", "M0", "A1", "10.1.2.3:0", 0, "239.9.9.9:5000", 32, NatFlowType::natFlowTypeNone,
             vlan40);
    actionIs("P1", "M0", "A0", "10.1.2.3:0", 0, "239.9.9.9:5000", 32, NatFlowType::natFlowTypeNone,
             Ip::Nat::natFlowVlanPortSetsFactory());
    hw->natFlowIs("P2")->matchIs("M1");
    actionIs("P3", "M1", "A1", "10.1.2.3:1", 32, "239.9.9.9:2", 32,
             NatFlowType::natFlowTypeMulticast, Ip::Nat::natFlowVlanPortSetsFactory());
    auto wide = Ip::Nat::natFlowVlanPortSetsFactory();
    portSetIs(wide->ucastPortSetIs(4094), 65536, "02:00:00:00:00:01", {"Ethernet3/1"});
    actionIs("PolicyWithAVeryLongName", "M", "A", "10.1.2.3:65535", 32, "239.1.1.1:1", 32,
             NatFlowType::natFlowTypeUnicast, wide);
  }
};

TEST_F(CliGoldenTest, AllPoliciesPrintOneHeaderAboveTheFirstProgrammedAction) {
  EXPECT_EQ(show("showNatFlowActionHw"), kHeader + kP1Rows + kLongRow);
}

TEST_F(CliGoldenTest, FilterShowsOnlyItsPolicyAndOtherLinesShowNothing) {
  EXPECT_EQ(show("showNatFlowActionHw   P1  "), kHeader + kP1Rows);
  EXPECT_EQ(show("showNatFlowActionHw P3"), kHeader);
  for (const char* command : {"showNatFlowActionHw P0", "showNatFlowActionHw P2",
                              "showNatFlowActionHw Unknown", "showNatFlowAction P1", ""}) {
    EXPECT_EQ(show(command), "") << command;
  }
}

TEST_F(CliTest, NothingProgrammedPrintsNothing) { EXPECT_EQ(show("showNatFlowActionHw"), ""); }

TEST(CliNullStatusTest, IgnoresEveryCommandAndSaysWhy) {
  Mox::TraceCapture trace("UmoNatFlowMcastSmCli/8");
  auto cli = umoNatFlowMcastSmCliCallbackFactory("showNatFlowActionHw", "help", nullptr);
  EXPECT_EQ(captured([&](std::uint32_t fd) {
              cli->handleCommand(fd, "showNatFlowActionHw");
              EXPECT_TRUE(cli->showMcastNatFlowActionHw(fd, "P1", true));
            }),
            "");
  EXPECT_TRUE(trace.contains("Callback not initialized yet"));
}

// Source and destination columns: the translated address cut to the match's prefix length.
struct MaskCase {
  const char* addr;
  std::uint32_t prefixLen;
  const char* shown;
};
void PrintTo(const MaskCase& c, std::ostream* os) { *os << c.addr << '/' << c.prefixLen; }

class CliMaskTest : public CliTest, public testing::WithParamInterface<MaskCase> {
 protected:
  // The Source, Destination, SPort and DPort columns of the only row.
  std::vector<std::string> columns(const std::string& src, std::uint32_t srcLen,
                                   const std::string& dst, std::uint32_t dstLen) {
    auto vps = Ip::Nat::natFlowVlanPortSetsFactory();
    portSetIs(vps->mcastPortSetIs(1), 1, "01:00:5e:00:00:01", {"Ethernet1"});
    actionIs("P", "M", "A", src.c_str(), srcLen, dst.c_str(), dstLen,
             NatFlowType::natFlowTypeMulticast, vps);
    std::istringstream row(show("showNatFlowActionHw P").substr(kHeader.size()));
    std::vector<std::string> fields(7);
    for (auto& field : fields) row >> field;
    return {fields.begin() + 3, fields.end()};
  }
};

TEST_P(CliMaskTest, MasksEachAddressWithItsOwnPrefixLength) {
  const std::string addr = std::string(GetParam().addr) + ":7";
  EXPECT_THAT(columns(addr, GetParam().prefixLen, "192.168.1.1:9", 32),
              testing::ElementsAre(GetParam().shown, "192.168.1.1", "7", "9"));
  EXPECT_THAT(columns("192.168.1.1:9", 32, addr, GetParam().prefixLen),
              testing::ElementsAre("192.168.1.1", GetParam().shown, "9", "7"));
}

INSTANTIATE_TEST_SUITE_P(
    PrefixLengths, CliMaskTest,
    testing::Values(MaskCase{"10.1.2.3", 32, "10.1.2.3"}, MaskCase{"10.1.2.3", 16, "10.1.0.0"},
                    MaskCase{"10.1.2.3", 0, "-"}, MaskCase{"10.1.2.3", 23, "10.1.2.0"},
                    MaskCase{"10.255.2.3", 9, "10.128.0.0"}, MaskCase{"10.1.2.3", 4, "-"},
                    MaskCase{"0.0.0.0", 32, "-"}));

TEST(CliSorterTest, WalksNamesInAscendingOrderKeepingOneEntryPerName) {
  NatFlowMcastCliSorter sorter;
  for (const char* name : {"b", "a", "ab"}) sorter.entryIdIs(name, true);
  sorter.entryIdIs("a", false);
  std::vector<std::string> names;
  for (const auto& [name, entry] : sorter) names.push_back(entry->name().str());
  EXPECT_THAT(names, testing::ElementsAre("a", "ab", "b"));
  EXPECT_FALSE(sorter["a"]->value());
  EXPECT_EQ(sorter.entryIdDel(sorter.entryIdFindOrNext("aa"))->first, "b");
  EXPECT_EQ(sorter["ab"], nullptr);
}

TEST(CliSorterTest, CopiesAreIndependentCompareByNameAndValueAndPrintAsNone) {
  NatFlowMcastCliSorter a;
  a.entryIdIs("x", true);
  EXPECT_TRUE(a.isEq(a));
  NatFlowMcastCliSorter b = a;
  EXPECT_TRUE(a == b);
  b.entryIdIs("x", false);
  EXPECT_TRUE(a["x"]->value());
  EXPECT_FALSE(a == b);
  b.entryIdDel("x");
  b.entryIdIs("y", true);
  EXPECT_FALSE(a == b);
  b.entryIdDelAll();
  EXPECT_TRUE(b == NatFlowMcastCliSorter());
  std::ostringstream os;
  os << NatFlowMcastCliSorter() << ' ' << a;
  EXPECT_EQ(os.str(), "None None");
}

TEST(CliSorterDeathTest, CannotBeBuiltFromText) {
  EXPECT_DEATH(NatFlowMcastCliSorter{Pelo::String("None")},
               "assertion failed: \"No String constructor for NatFlowMcastCliSorter - has "
               "collection\" == nullptr");
}

}  // namespace
