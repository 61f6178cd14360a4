// The Open vSwitch dataplane: what a private switch costs to start and stop, how fast the
// system's helper calls reach the bridge, and how long a change takes to be forwarded by it.
// Wall-clock times: most of the work happens in the switch's own processes.

#include <benchmark/benchmark.h>

#include <sstream>
#include <string>

#include "Instance.h"
#include "NatFlowHelper.h"
#include "sim/Interpreter.h"

namespace {

Ovs::Instance::Options ports(int count) {
  Ovs::Instance::Options options;
  for (int i = 1; i <= count; ++i) {
    options.ports.push_back({"p" + std::to_string(i), static_cast<std::uint16_t>(i)});
  }
  return options;
}

// A private switch with 8 ports started and stopped: the overhead of --dataplane ovs per
// scenario.
void BM_OvsStartStop(benchmark::State& state) {
  for (auto _ : state) {
    Ovs::Instance ovs(ports(8));
    benchmark::DoNotOptimize(ovs.directory());
  }
}
BENCHMARK(BM_OvsStartStop)->Unit(benchmark::kMillisecond)->UseRealTime();

// N actions programmed from nothing, as a start-up does: per action a group, a port set of two
// ports and both translations (4 calls), then one sync. calls_per_s counts helper calls over the
// whole time, the bundle included.
void BM_HelperCallsIntoOvs(benchmark::State& state) {
  Ovs::Instance ovs(ports(2));
  const auto n = static_cast<std::uint32_t>(state.range(0));
  std::uint64_t calls = 0;
  std::uint64_t mods = 0;
  for (auto _ : state) {
    auto helper = Mox::makePtr<Ovs::NatFlowHelper>(ovs, Ovs::NatFlowHelper::Options{});
    helper->portIs(Nexo::IntfId(Pelo::String("Ethernet1")), 1);
    helper->portIs(Nexo::IntfId(Pelo::String("Ethernet2")), 2);
    for (std::uint32_t i = 0; i < n; ++i) {
      const Pelo::String match("m" + std::to_string(i));
      const std::uint32_t group = helper->createNatFlowGroup(Pelo::String("P"), match, false);
      auto ps = Mox::makePtr<Ip::Nat::NatFlowPortSet>(10);
      ps->intfIs(Nexo::IntfId(Pelo::String("Ethernet1")));
      ps->intfIs(Nexo::IntfId(Pelo::String("Ethernet2")));
      ps->dmacIs(Nexo::EthAddr(0x01, 0x00, 0x5e, 0, 0, 0));
      const std::uint32_t id = helper->updateNatFlowVlanPortSet(group, 0, ps);
      const Nexo::IpAddr to(0xef640000U + i);  // 239.100.x.y
      helper->updateNatFlowSrcTranslation(group, id, 10, Nexo::IpAndPort("10.200.0.1:0"),
                                          Nexo::IpAndPort("10.1.0.0:0"), 16);
      helper->updateNatFlowDstTranslation(group, id, 10, Nexo::IpAndPort(to, 0),
                                          Nexo::IpAndPort(Nexo::IpAddr(0xef010000U + i), 5000), 32,
                                          Nexo::EthAddr(0x01, 0x00, 0x5e, 0, 0, 0));
    }
    mods += helper->sync();
    calls += helper->stats().calls;
  }
  state.counters["calls_per_s"] =
      benchmark::Counter(static_cast<double>(calls), benchmark::Counter::kIsRate);
  state.counters["mods_per_sync"] =
      benchmark::Counter(static_cast<double>(mods) / static_cast<double>(state.iterations()));
}
BENCHMARK(BM_HelperCallsIntoOvs)
    ->Arg(10)
    ->Arg(100)
    ->Arg(1000)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

// The simulator with N multicast actions, each sent out of every forwarding port of VLAN 20.
// One step: a port of VLAN 20 leaves (or rejoins) forwarding and the backlog runs, which
// reprograms all N port sets; the step ends when the bridge forwards by the new tables. With
// k=1, the step instead moves one action's next hop (a new version): one action reprogrammed.
void BM_ChangeToConsistent(benchmark::State& state) {
  const int n = static_cast<int>(state.range(0));
  const bool oneAction = state.range(1) == 1;
  std::ostringstream discard;
  Sim::Interpreter sim(discard, discard, /*echo=*/false, Sim::Interpreter::Dataplane::ovs);
  std::size_t line = 0;
  const auto run = [&](const std::string& text) { sim.runLine(text, "bench", ++line); };
  for (const char* text :
       {"bridge-mac 00:1c:73:00:00:01", "intf Ethernet1 mode access native 10",
        "intf Ethernet2 mode trunk native 1", "intf Ethernet3 mode trunk native 1",
        "intf Ethernet4 mode trunk native 1", "vlan 10 member Ethernet1",
        "vlan 20 member Ethernet2 Ethernet3 Ethernet4",
        "topology MST0 port Ethernet1 state forwarding",
        "topology MST0 port Ethernet2 state forwarding",
        "topology MST0 port Ethernet3 state forwarding",
        "topology MST0 port Ethernet4 state forwarding", "vlan-topology 10 MST0",
        "vlan-topology 20 MST0", "ip Vlan10 addr 10.0.10.1/24 routing on",
        "ip Vlan20 addr 10.0.20.1/24 routing on", "l3 Vlan10 id 10", "l3 Vlan20 id 20",
        "policy P"}) {
    run(text);
  }
  for (int i = 0; i < n; ++i) {
    const std::string match = "P m" + std::to_string(i);
    const std::string group = std::to_string(i / 250) + "." + std::to_string(i % 250);
    run("match " + match + " flow src 10.1.0.0/16:0 dst 239.1." + group + "/32:5000");
    run("action " + match + " a dst 239.100." + group + " version 1");
    run("nexthop " + match + " a Vlan20 vlan 20 mac 00:00:00:00:00:00");
  }
  run("start");
  const std::uint64_t modsBefore = sim.ovs()->helper().stats().mods;
  bool blocked = false;
  unsigned version = 1;
  for (auto _ : state) {
    if (oneAction) {
      run(std::string("nexthop P m0 a Ethernet1 ") +
          (blocked ? "delete" : "vlan 10 mac 01:00:5e:64:00:00"));
      run("action P m0 a dst 239.100.0.0 version " + std::to_string(++version));
    } else {
      run(std::string("topology MST0 port Ethernet3 state ") +
          (blocked ? "forwarding" : "blocking"));
      run("advance 0.2");
    }
    blocked = !blocked;
  }
  state.counters["mods_per_step"] =
      benchmark::Counter(static_cast<double>(sim.ovs()->helper().stats().mods - modsBefore) /
                         static_cast<double>(state.iterations()));
}
BENCHMARK(BM_ChangeToConsistent)
    ->Args({10, 0})
    ->Args({100, 0})
    ->Args({1000, 0})
    ->Args({1000, 1})
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

}  // namespace
