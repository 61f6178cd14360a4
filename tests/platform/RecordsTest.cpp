#include <gtest/gtest.h>

#include <array>
#include <cctype>
#include <cstdint>
#include <functional>
#include <ostream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "Agent/AgentCommandCallback.h"
#include "Bridging/Config.h"
#include "Bridging/Topology.h"
#include "Ip/Nat/HwStatus.h"
#include "Ip/Nat/NatFlow.h"
#include "Ip/Nat/Status.h"
#include "Ip/Status.h"
#include "UmoL3Intf/Table.h"

namespace {

// Prints a change key with its kind, so that a key published as the wrong kind (a plain number
// instead of a VLAN id) shows: "s/a", "u16/10", "intf/Ethernet1", "vlan/10", "fid/1", "mac/...".
std::string keyText(const Pelo::Key& key) {
  std::ostringstream os;
  if (const auto* k = key.getIf<Pelo::String>()) os << "s/" << *k;
  if (const auto* k = key.getIf<std::uint16_t>()) os << "u16/" << *k;
  if (const auto* k = key.getIf<Nexo::IntfId>()) os << "intf/" << *k;
  if (const auto* k = key.getIf<Nexo::EthAddr>()) os << "mac/" << *k;
  if (const auto* k = key.getIf<Bridging::VlanId>()) os << "vlan/" << *k;
  if (const auto* k = key.getIf<Bridging::Fid>()) os << "fid/" << *k;
  return os.str();
}

// Logs every change of one publisher as "<attr>:<key> " and runs `onChange` on it when set.
class Recorder : public Pelo::Subscriber {
 public:
  explicit Recorder(const Pelo::Publisher& publisher) : publisher_(&publisher) {
    publisher.subscriberAdd(this);
  }
  Recorder(const Recorder&) = delete;
  Recorder& operator=(const Recorder&) = delete;
  ~Recorder() {
    if (publisher_ != nullptr) publisher_->subscriberRemove(this);
  }

  void handleChange(const Pelo::Publisher&, Pelo::AttrId attr, const Pelo::Key& key) override {
    log += std::to_string(attr) + ":" + keyText(key) + " ";
    if (onChange) onChange(key);
  }
  void handlePublisherDestroyed(const Pelo::Publisher&) override { publisher_ = nullptr; }

  std::string log;
  std::function<void(const Pelo::Key&)> onChange;

 private:
  const Pelo::Publisher* publisher_;  // not owned; null once it is destroyed
};

// Checks that a test leaves no framework object alive (a record kept by a cycle or a lost
// reference).
template <class Base>
class LeakChecked : public Base {
 protected:
  void TearDown() override { EXPECT_EQ(Mox::PtrInterface::instances(), before_) << "leaked"; }

 private:
  const std::int64_t before_ = Mox::PtrInterface::instances();
};

template <class T, class... Args>
auto maker(Args... args) {
  return [=] { return Mox::makePtr<T>(args...); };
}

// One keyed collection of one record, driven on a fresh owner through type-erased operations
// that take the index of a key (the keys ascend).
struct CollectionOps {
  Mox::Ptr<Mox::ValueEntity> owner;
  bool entities = false;  // whether the elements are entities
  // Insert-or-get: returns the element of an entity collection; a value collection stores value
  // A and returns null.
  std::function<Mox::Ptr<const Mox::ValueEntity>(int)> is;
  std::function<void(int)> change;  // stores value B; empty when values cannot differ
  std::function<bool(int)> has;     // the const lookup
  std::function<bool(int)> del;
  std::function<void()> delAll;
};

struct CollectionCase {
  std::string name;
  Pelo::AttrId attr;
  std::array<Pelo::Key, 3> keys;
  std::function<CollectionOps()> make;
};

void PrintTo(const CollectionCase& c, std::ostream* os) { *os << c.name; }

template <class MakeOwner, class K, class Is, class Change, class Has, class Del, class DelAll>
CollectionCase collectionCase(std::string name, MakeOwner makeOwner, Pelo::AttrId attr,
                              std::array<K, 3> k, Is is, Change change, Has has, Del del,
                              DelAll delAll) {
  auto make = [=] {
    auto o = makeOwner();
    CollectionOps ops;
    ops.owner = o;
    ops.entities = !std::is_void_v<decltype(is(*o, k[0]))>;
    ops.is = [o, k, is](int i) -> Mox::Ptr<const Mox::ValueEntity> {
      if constexpr (std::is_void_v<decltype(is(*o, k[i]))>) {
        is(*o, k[i]);
        return nullptr;
      } else {
        return is(*o, k[i]);
      }
    };
    if constexpr (!std::is_null_pointer_v<Change>) {
      ops.change = [o, k, change](int i) { change(*o, k[i]); };
    }
    ops.has = [o, k, has](int i) { return has(std::as_const(*o), k[i]); };
    ops.del = [o, k, del](int i) { return del(*o, k[i]); };
    ops.delAll = [o, delAll] { delAll(*o); };
    return ops;
  };
  return CollectionCase{
      std::move(name), attr, {Pelo::Key(k[0]), Pelo::Key(k[1]), Pelo::Key(k[2])}, make};
}

// The case of entity collection `coll` of Owner.
#define ENTITY_COLLECTION(Owner, coll, makeOwner, k0, k1, k2)                 \
  collectionCase(                                                             \
      #Owner "_" #coll, makeOwner, Owner::Attr::coll, std::array{k0, k1, k2}, \
      [](Owner& o, const auto& k) { return o.coll##Is(k); }, nullptr,         \
      [](const Owner& o, const auto& k) { return o.coll(k) != nullptr; },     \
      [](Owner& o, const auto& k) { return o.coll##Del(k); }, [](Owner& o) { o.coll##DelAll(); })

// The case of value collection `coll` of Owner; `valueA` and `valueB` may use the owner `o`.
#define VALUE_COLLECTION(Owner, coll, makeOwner, k0, k1, k2, valueA, valueB)  \
  collectionCase(                                                             \
      #Owner "_" #coll, makeOwner, Owner::Attr::coll, std::array{k0, k1, k2}, \
      [=](Owner& o, const auto& k) { o.coll##Is(k, valueA); },                \
      [=](Owner& o, const auto& k) { o.coll##Is(k, valueB); },                \
      [](const Owner& o, const auto& k) { return o.coll(k) != nullptr; },     \
      [](Owner& o, const auto& k) { return o.coll##Del(k); }, [](Owner& o) { o.coll##DelAll(); })

std::vector<CollectionCase> collectionCases() {
  namespace Nat = Ip::Nat;
  namespace Topo = Bridging::Topology;
  using Bridging::VlanId;
  using Nexo::IntfId;
  using Pelo::String;
  using U16 = std::uint16_t;
  // Natural interface order: Ethernet2 sorts before Ethernet10.
  const IntfId et1("Ethernet1"), et2("Ethernet2"), et10("Ethernet10");
  const Nexo::EthAddr mac1(2, 0, 0, 0, 0, 1), mac2(2, 0, 0, 0, 0, 2), mac3(2, 0, 0, 0, 0, 3);
  const auto topoConfig = [] {
    auto config = Mox::makePtr<Topo::Config>();
    config->topoConfigIs("t1");
    config->topoConfigIs("t2");
    return config;
  };
  return {
      ENTITY_COLLECTION(Nat::Status, natFlow, maker<Nat::Status>(), String("a"), String("b"),
                        String("c")),
      ENTITY_COLLECTION(Nat::NatFlowPolicyStatus, match, maker<Nat::NatFlowPolicyStatus>("p"),
                        String("a"), String("b"), String("c")),
      ENTITY_COLLECTION(Nat::NatFlowMatchStatus, action, maker<Nat::NatFlowMatchStatus>("m"),
                        String("a"), String("b"), String("c")),
      VALUE_COLLECTION(Nat::NatFlowActionStatus, intf, maker<Nat::NatFlowActionStatus>("a"), et1,
                       et2, et10, Nat::NatFlowNextHop(10, Nexo::EthAddr()),
                       Nat::NatFlowNextHop(10, Nexo::EthAddr(2, 0, 0, 0, 0, 9))),
      ENTITY_COLLECTION(Nat::NatFlowVlanPortSets, ucastPortSet, Nat::natFlowVlanPortSetsFactory,
                        U16{10}, U16{20}, U16{300}),
      ENTITY_COLLECTION(Nat::NatFlowVlanPortSets, mcastPortSet, Nat::natFlowVlanPortSetsFactory,
                        U16{10}, U16{20}, U16{300}),
      collectionCase(
          "NatFlowPortSet_intf", maker<Nat::NatFlowPortSet>(U16{10}),
          Nat::NatFlowPortSet::Attr::intf, std::array{et1, et2, et10},
          [](Nat::NatFlowPortSet& o, const IntfId& k) { o.intfIs(k); }, nullptr,
          [](const Nat::NatFlowPortSet& o, const IntfId& k) { return o.intf(k); },
          [](Nat::NatFlowPortSet& o, const IntfId& k) { return o.intfDel(k); },
          [](Nat::NatFlowPortSet& o) { o.intfDelAll(); }),
      ENTITY_COLLECTION(Nat::HwNatFlowStatus, natFlow, maker<Nat::HwNatFlowStatus>(), String("a"),
                        String("b"), String("c")),
      ENTITY_COLLECTION(Nat::HwNatFlowPolicyStatus, match, maker<Nat::HwNatFlowPolicyStatus>("p"),
                        String("a"), String("b"), String("c")),
      ENTITY_COLLECTION(Nat::HwNatFlowMatchStatus, action, maker<Nat::HwNatFlowMatchStatus>("m"),
                        String("a"), String("b"), String("c")),
      ENTITY_COLLECTION(Bridging::Config, switchIntfConfig, maker<Bridging::Config>(), et1, et2,
                        et10),
      ENTITY_COLLECTION(Bridging::VlanStatusDir, vlanStatus, maker<Bridging::VlanStatusDir>(),
                        VlanId(10), VlanId(20), VlanId(300)),
      collectionCase(
          "VlanStatus_vlanPortStatus", maker<Bridging::VlanStatus>(VlanId(10)),
          Bridging::VlanStatus::Attr::vlanPortStatus, std::array{et1, et2, et10},
          [](Bridging::VlanStatus& o, const IntfId& k) {
            o.vlanPortStatusIs(k, Bridging::VlanPortStatus());
          },
          nullptr,
          [](const Bridging::VlanStatus& o, const IntfId& k) {
            return o.vlanPortStatus(k) != nullptr;
          },
          [](Bridging::VlanStatus& o, const IntfId& k) { return o.vlanPortStatusDel(k); },
          [](Bridging::VlanStatus& o) { o.vlanPortStatusDelAll(); }),
      ENTITY_COLLECTION(Bridging::Status, fdbStatus, maker<Bridging::Status>(), Bridging::Fid(1),
                        Bridging::Fid(2), Bridging::Fid(30)),
      VALUE_COLLECTION(Bridging::FdbStatus, learnedHost,
                       maker<Bridging::FdbStatus>(Bridging::Fid(1)), mac1, mac2, mac3,
                       Bridging::LearnedHost(IntfId("Ethernet1")),
                       Bridging::LearnedHost(IntfId("Ethernet2"))),
      ENTITY_COLLECTION(Topo::TopoConfig, topoPortConfig, maker<Topo::TopoConfig>("t"), et1, et2,
                        et10),
      ENTITY_COLLECTION(Topo::Config, topoConfig, maker<Topo::Config>(), String("a"), String("b"),
                        String("c")),
      // Mapping a VLAN again to the same topology publishes nothing, to another one publishes.
      VALUE_COLLECTION(Topo::Config, vidToTopoMap, topoConfig, VlanId(10), VlanId(20), VlanId(300),
                       o.topoConfigIs("t1"), o.topoConfigIs("t2")),
      ENTITY_COLLECTION(Ip::Status, ipIntfStatus, maker<Ip::Status>(), et1, et2, et10),
      VALUE_COLLECTION(UmoL3Intf::Table, intfL3Index, maker<UmoL3Intf::Table>(), et1, et2, et10,
                       UmoL3Intf::L3Id{10}, UmoL3Intf::L3Id{4100}),
      VALUE_COLLECTION(UmoL3Intf::Table, routedPortName, maker<UmoL3Intf::Table>(), U16{10},
                       U16{20}, U16{300}, et1, et2),
  };
}

std::string caseName(std::string name) {
  for (char& c : name) {
    if (std::isalnum(static_cast<unsigned char>(c)) == 0) c = '_';
  }
  return name;
}

class RecordCollectionTest : public LeakChecked<::testing::TestWithParam<CollectionCase>> {
 protected:
  // "<attr>:<key> " for each key index.
  std::string changes(std::initializer_list<int> keys) const {
    std::string log;
    for (const int i : keys) {
      log += std::to_string(GetParam().attr) + ":" + keyText(GetParam().keys[i]) + " ";
    }
    return log;
  }
};

TEST_P(RecordCollectionTest, InsertOrGetPublishesOnceAndRemovalOnlyWhenSomethingGoes) {
  CollectionOps ops = GetParam().make();
  Recorder recorder(*ops.owner);
  const Mox::Ptr<const Mox::ValueEntity> element = ops.is(1);
  EXPECT_EQ(element != nullptr, ops.entities);
  ops.is(0);
  EXPECT_EQ(ops.is(1), element) << "the second insert-or-get returns the same element";
  EXPECT_EQ(recorder.log, changes({1, 0}));
  EXPECT_TRUE(ops.has(1));
  EXPECT_FALSE(ops.has(2));

  if (ops.change) {
    recorder.log.clear();
    ops.change(0);
    ops.change(0);
    EXPECT_EQ(recorder.log, changes({0})) << "a changed value publishes, the same value does not";
  }

  recorder.log.clear();
  EXPECT_FALSE(ops.del(2));
  EXPECT_TRUE(ops.del(0));
  EXPECT_FALSE(ops.del(0));
  EXPECT_FALSE(ops.has(0));
  EXPECT_EQ(recorder.log, changes({0}));
}

TEST_P(RecordCollectionTest, DelAllPublishesEachKeyInOrderAfterItsRemoval) {
  CollectionOps ops = GetParam().make();
  for (const int i : {2, 0, 1}) ops.is(i);
  Recorder recorder(*ops.owner);
  std::string presence;
  recorder.onChange = [&](const Pelo::Key& key) {
    for (int i = 0; i < 3; ++i) {
      if (GetParam().keys[i] == key) presence += ops.has(i) ? "present " : "gone ";
    }
  };
  ops.delAll();
  EXPECT_EQ(recorder.log, changes({0, 1, 2}));
  EXPECT_EQ(presence, "gone gone gone ");
  recorder.log.clear();
  ops.delAll();
  EXPECT_EQ(recorder.log, "");
}

INSTANTIATE_TEST_SUITE_P(Records, RecordCollectionTest, ::testing::ValuesIn(collectionCases()),
                         [](const auto& info) { return caseName(info.param.name); });

class RecordsTest : public LeakChecked<::testing::Test> {};

TEST_F(RecordsTest, DelAllSkipsKeysASubscriberRemovedAndKeepsKeysItInserted) {
  auto status = Mox::makePtr<Ip::Nat::Status>();
  for (const char* name : {"a", "b", "c"}) status->natFlowIs(name);
  Recorder recorder(*status);
  recorder.onChange = [&](const Pelo::Key& key) {
    if (key.get<Pelo::String>() != "a") return;
    status->natFlowDel("c");
    status->natFlowIs("d");
  };
  status->natFlowDelAll();
  EXPECT_EQ(recorder.log, "1:s/a 1:s/c 1:s/d 1:s/b ");
  EXPECT_EQ(status->natFlow().size(), 1u);
  EXPECT_NE(status->natFlow("d"), nullptr);
}

TEST_F(RecordsTest, NestedChangeIsPublishedByTheNestedEntityOnly) {
  auto status = Mox::makePtr<Ip::Nat::HwNatFlowStatus>();
  auto match = status->natFlowIs("p")->matchIs("m");
  auto action = match->actionIs("a");
  auto portSets = Ip::Nat::natFlowVlanPortSetsFactory();
  action->vlanPortSetsIs(portSets);
  Recorder root(*status), middle(*match), leaf(*action);
  action->srcLenIs(16);
  portSets->mcastPortSetIs(10)->intfIs(Nexo::IntfId("Ethernet1"));
  EXPECT_EQ(root.log + middle.log, "");
  EXPECT_EQ(leaf.log, "4: ");
}

TEST_F(RecordsTest, PortSetStartsEmptyWithZeroMacAndIds) {
  auto portSets = Ip::Nat::natFlowVlanPortSetsFactory();
  EXPECT_TRUE(portSets->ucastPortSet().empty());
  EXPECT_TRUE(portSets->mcastPortSet().empty());
  Mox::Ptr<const Ip::Nat::NatFlowPortSet> portSet = portSets->ucastPortSetIs(10);
  EXPECT_EQ(portSet->vlan(), 10);
  EXPECT_TRUE(portSet->intf().empty());
  EXPECT_TRUE(portSet->dmac().isZero());
  EXPECT_EQ(portSet->portSetId(), 0u);
  EXPECT_EQ(portSet->portSetId2(), 0u);
  EXPECT_EQ(portSets->mcastPortSet(10), nullptr) << "unicast and multicast sets are apart";
}

// Both kinds share one collection inside the record: each kind's walks, sizes and lookups see
// only its own port sets, at the edges of the VLAN range too, and a walk that loses its
// element goes on within its kind.
TEST_F(RecordsTest, PortSetKindsStayApartInWalksAndLookups) {
  auto portSets = Ip::Nat::natFlowVlanPortSetsFactory();
  for (std::uint16_t vlan : {65535, 30, 0}) portSets->ucastPortSetIs(vlan);
  for (std::uint16_t vlan : {20, 0, 65535})
    portSets->mcastPortSetIs(vlan)->dmacIs(Nexo::EthAddr(2, 0, 0, 0, 0, 1));
  auto walk = [](const Ip::Nat::NatFlowVlanPortSets::PortSetView& view) {
    std::string out;
    for (const auto& [vlan, portSet] : view) {
      out += std::to_string(vlan) + (portSet->dmac().isZero() ? "u " : "m ");
    }
    return out;
  };
  EXPECT_EQ(walk(portSets->ucastPortSet()), "0u 30u 65535u ");
  EXPECT_EQ(walk(portSets->mcastPortSet()), "0m 20m 65535m ");
  EXPECT_EQ(portSets->ucastPortSet().size(), 3u);
  EXPECT_FALSE(portSets->mcastPortSet().contains(30));
  EXPECT_EQ(portSets->ucastPortSet(20), nullptr);
  EXPECT_EQ(portSets->mcastPortSet().find(65535)->vlan(), 65535);

  std::string seen;
  for (const auto& [vlan, portSet] : portSets->ucastPortSet()) {
    seen += std::to_string(vlan) + " ";
    if (vlan == 0) portSets->ucastPortSetDel(30);
    if (vlan == 65535) portSets->ucastPortSetDel(65535);
  }
  EXPECT_EQ(seen, "0 65535 ");
  portSets->mcastPortSetDelAll();
  EXPECT_TRUE(portSets->mcastPortSet().empty());
  EXPECT_EQ(walk(portSets->ucastPortSet()), "0u ");
}

class NatFlowTextTest : public ::testing::TestWithParam<const char*> {};

TEST_P(NatFlowTextTest, RoundTrips) {
  const Ip::Nat::NatFlow flow = Ip::Nat::NatFlow::fromString(GetParam());
  EXPECT_EQ(flow.stringValue(), GetParam());
  std::ostringstream os;
  os << flow;
  EXPECT_EQ(os.str(), GetParam());
}

INSTANTIATE_TEST_SUITE_P(Forms, NatFlowTextTest,
                         ::testing::Values("src 10.1.0.0/16:0 dst 239.1.1.1/32:5000",
                                           "src 0.0.0.0/0:0 dst 0.0.0.0/0:0",
                                           "src 255.255.255.255/32:65535 dst 224.0.0.0/4:1"));

class NatFlowMalformedTextTest : public ::testing::TestWithParam<const char*> {};

TEST_P(NatFlowMalformedTextTest, IsRefusedNamingTheText) {
  try {
    const Ip::Nat::NatFlow flow = Ip::Nat::NatFlow::fromString(GetParam());
    FAIL() << "accepted as " << flow;
  } catch (const std::invalid_argument& e) {
    EXPECT_NE(std::string(e.what()).find(std::string("\"") + GetParam() + "\""), std::string::npos)
        << e.what();
  }
}

INSTANTIATE_TEST_SUITE_P(
    Forms, NatFlowMalformedTextTest,
    ::testing::Values("", "src 10.1.0.0/16:0", "src 10.1.0.0/16 dst 1.1.1.1/32:5",
                      "src 10.1.0.0:0 dst 1.1.1.1/32:5", "src 10.1.0.0/33:0 dst 1.1.1.1/32:5",
                      "src 10.1.0.0/016:0 dst 1.1.1.1/32:5",
                      "src 10.1.0.0/16:65536 dst 1.1.1.1/32:5",
                      "src 10.1.0.256/16:0 dst 1.1.1.1/32:5", "src 10.1.0.0/16:0  dst 1.1.1.1/32:5",
                      "src 10.1.0.0/16:0 dst 1.1.1.1/32:5 ", "dst 1.1.1.1/32:5 src 10.1.0.0/16:0"));

TEST(NatFlowTest, PrefixLengthAbove32IsRefusedAndTypesPrintByName) {
  EXPECT_THROW(Ip::Nat::NatFlow(Nexo::IpAddr(), 0, 0, Nexo::IpAddr(), 0, 33),
               std::invalid_argument);
  std::ostringstream os;
  os << Ip::Nat::NatFlowType::natFlowTypeMulticast << " " << static_cast<Ip::Nat::NatFlowType>(7);
  EXPECT_EQ(os.str(), "natFlowTypeMulticast 7");
}

class L3IdToVlanIdTest
    : public ::testing::TestWithParam<std::pair<UmoL3Intf::L3Id, std::uint16_t>> {};

TEST_P(L3IdToVlanIdTest, OnlyIdsInTheVlanRangeStandForAVlan) {
  auto table = Mox::makePtr<UmoL3Intf::Table>();
  EXPECT_EQ(table->l3IdToVlanId(GetParam().first), GetParam().second);
}

INSTANTIATE_TEST_SUITE_P(Boundaries, L3IdToVlanIdTest,
                         ::testing::Values(std::pair(0, 0), std::pair(1, 1), std::pair(4094, 4094),
                                           std::pair(4095, 0), std::pair(65535, 0)));

// Logs "<name>@<socket>:<line> " and runs `action` on each command, and "~<name> " when it dies.
class LoggingCallback : public Agent::AgentCommandCallback {
 public:
  LoggingCallback(Pelo::String name, std::string* log)
      : AgentCommandCallback(std::move(name), "help"), log_(log) {}
  ~LoggingCallback() override { *log_ += "~" + name().str() + " "; }
  void handleCommand(std::uint32_t socket, const Pelo::String& command) override {
    *log_ += name().str() + "@" + std::to_string(socket) + ":" + command.str() + " ";
    if (action) action();
  }
  std::function<void()> action;

 private:
  std::string* log_;
};

TEST_F(RecordsTest, DispatchCallsEveryCallbackInNameOrderWhileTheyUnregister) {
  std::string log;
  Agent::CommandRegistry registry;
  auto a = Mox::makePtr<LoggingCallback>("a", &log);
  for (const char* name : {"c", "b", "d"}) {
    registry.callbackIs(Mox::makePtr<LoggingCallback>(name, &log));
  }
  registry.callbackIs(a);
  EXPECT_EQ(registry.dispatch(5, "show x"), 4u);
  EXPECT_EQ(log, "a@5:show x b@5:show x c@5:show x d@5:show x ");

  // "a" unregisters "c" ahead of it, then itself: it stays alive until its call returns.
  a->action = [&] {
    registry.callbackDel("c");
    registry.callbackDel("a");
    log += "unregistered ";
  };
  a.reset();
  log.clear();
  EXPECT_EQ(registry.dispatch(6, "y"), 3u);
  EXPECT_EQ(log, "a@6:y ~c unregistered ~a b@6:y d@6:y ");
}

}  // namespace
