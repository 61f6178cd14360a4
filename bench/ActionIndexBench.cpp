// The action index: withdrawing one action and a change notification must
// cost the same whatever the number of other actions in the index.

#include <benchmark/benchmark.h>

#include <cstdint>
#include <string>
#include <vector>

#include "BenchSupport.h"
#include "UmoNat/UmoNatFlowMcastTopologySm.h"

namespace {

// A switch of n programmed actions whose index is then emptied: the benchmarks register its
// real action state machines under keys of their own (an action keeps its keys in itself, so
// stand-ins would not do).
struct Index {
  explicit Index(std::size_t n) : sw(n) {
    sw.start();
    topo = sw.root->topologySm();
    actions = sw.actionSms();
    for (UmoNatFlowActionSm* a : actions) topo->delActionSm(a);
  }
  UmoNatBench::Switch sw;
  UmoNatFlowMcastTopologySm* topo = nullptr;
  std::vector<UmoNatFlowActionSm*> actions;
};

Nexo::IntfId intfOf(std::size_t i) { return Nexo::IntfId("Ethernet" + std::to_string(i % 48 + 1)); }
std::uint16_t vlanOf(std::size_t i) { return static_cast<std::uint16_t>(i % 4094 + 1); }
Nexo::EthAddr macOf(std::size_t i) {
  return Nexo::EthAddr(0, 0, static_cast<std::uint8_t>(i >> 24), static_cast<std::uint8_t>(i >> 16),
                       static_cast<std::uint8_t>(i >> 8), static_cast<std::uint8_t>(i));
}

void registerAction(UmoNatFlowMcastTopologySm& topo, UmoNatFlowActionSm* a, std::size_t i) {
  topo.addActionSmIntf(intfOf(i), a);
  topo.addActionSmVlan(vlanOf(i), a);
  topo.addActionSmMac(macOf(i), a);
}

void BM_DelActionSm(benchmark::State& state) {
  const auto n = static_cast<std::size_t>(state.range(0));
  Index index(n);
  auto* topo = index.topo;
  const auto& actions = index.actions;
  for (std::size_t i = 0; i < n; ++i) registerAction(*topo, actions[i], i);
  std::size_t i = 0;
  for (auto _ : state) {
    // Withdraw one action and register it again, so the index keeps its size.
    topo->delActionSm(actions[i]);
    registerAction(*topo, actions[i], i);
    i = (i + 1) % n;
  }
  state.SetComplexityN(state.range(0));
}
BENCHMARK(BM_DelActionSm)->RangeMultiplier(10)->Range(100, 100000)->Complexity();

void BM_NotifyOneInterface(benchmark::State& state) {
  const auto n = static_cast<std::size_t>(state.range(0));
  Index index(n);
  auto* topo = index.topo;
  const auto& actions = index.actions;
  // Every action under its own interface; the notified one has one action.
  for (std::size_t i = 0; i < n; ++i) {
    topo->addActionSmIntf(Nexo::IntfId("Port" + std::to_string(i)), actions[i]);
  }
  const Nexo::IntfId target("Port0");
  for (auto _ : state) {
    topo->notifyActionSmIntf(target);
    topo->actionSmUpdateBacklogDel(actions[0]);
  }
  state.SetComplexityN(state.range(0));
}
BENCHMARK(BM_NotifyOneInterface)->RangeMultiplier(10)->Range(100, 100000)->Complexity();

}  // namespace
