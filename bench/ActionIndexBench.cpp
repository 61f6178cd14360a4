// The action index: withdrawing one action and a change notification must
// cost the same whatever the number of other actions in the index.

#include <benchmark/benchmark.h>

#include <cstdint>
#include <string>
#include <vector>

#include "BenchSupport.h"
#include "UmoNat/UmoNatFlowMcastTopologySm.h"

namespace {

// Stand-ins for action state machines: the index only stores and compares
// the pointers (with traces off it never dereferences them).
std::vector<UmoNatFlowActionSm*> fakeActions(std::vector<std::max_align_t>& storage) {
  std::vector<UmoNatFlowActionSm*> out;
  for (auto& slot : storage) out.push_back(reinterpret_cast<UmoNatFlowActionSm*>(&slot));
  return out;
}

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
  Vyr::TaskSchedulerRoot::schedulerIs(Mox::makePtr<Vyr::TaskScheduler>());
  auto topo =
      umoNatFlowMcastTopologySmFactory(nullptr, nullptr, nullptr, nullptr, nullptr, nullptr);
  std::vector<std::max_align_t> storage(n);
  auto actions = fakeActions(storage);
  for (std::size_t i = 0; i < n; ++i) registerAction(*topo, actions[i], i);
  std::size_t i = 0;
  for (auto _ : state) {
    // Withdraw one action and register it again, so the index keeps its size.
    topo->delActionSm(actions[i]);
    registerAction(*topo, actions[i], i);
    i = (i + 1) % n;
  }
  state.SetComplexityN(state.range(0));
  topo.reset();
  Vyr::TaskSchedulerRoot::schedulerIs(nullptr);
}
BENCHMARK(BM_DelActionSm)->RangeMultiplier(10)->Range(100, 100000)->Complexity();

void BM_NotifyOneInterface(benchmark::State& state) {
  const auto n = static_cast<std::size_t>(state.range(0));
  Vyr::TaskSchedulerRoot::schedulerIs(Mox::makePtr<Vyr::TaskScheduler>());
  auto topo =
      umoNatFlowMcastTopologySmFactory(nullptr, nullptr, nullptr, nullptr, nullptr, nullptr);
  std::vector<std::max_align_t> storage(n);
  auto actions = fakeActions(storage);
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
  topo.reset();
  Vyr::TaskSchedulerRoot::schedulerIs(nullptr);
}
BENCHMARK(BM_NotifyOneInterface)->RangeMultiplier(10)->Range(100, 100000)->Complexity();

}  // namespace
