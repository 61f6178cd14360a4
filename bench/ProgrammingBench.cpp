// Programming N actions from scratch, and a topology event that touches k
// actions among N: time per action pass, helper calls, memory per action.

#include <benchmark/benchmark.h>

#include "BenchSupport.h"

namespace {

void BM_ProgramFromScratch(benchmark::State& state) {
  const auto n = static_cast<std::size_t>(state.range(0));
  double calls = 0;
  double heap = 0;
  for (auto _ : state) {
    state.PauseTiming();
    auto* sw = new UmoNatBench::Switch(n);
    const std::size_t before = UmoNatBench::Switch::heapInUse();
    state.ResumeTiming();
    sw->start();
    state.PauseTiming();
    heap = static_cast<double>(UmoNatBench::Switch::heapInUse() - before);
    calls = static_cast<double>(sw->helper->calls);
    delete sw;
    state.ResumeTiming();
  }
  state.counters["actions"] = static_cast<double>(n);
  state.counters["calls/action"] = calls / static_cast<double>(n);
  state.counters["bytes/action"] = heap / static_cast<double>(n);
  state.counters["passes"] =
      benchmark::Counter(static_cast<double>(n), benchmark::Counter::kIsIterationInvariantRate);
  state.SetComplexityN(state.range(0));
}
BENCHMARK(BM_ProgramFromScratch)
    ->RangeMultiplier(10)
    ->Range(100, 100000)
    ->Complexity()
    ->Unit(benchmark::kMillisecond)
    ->Iterations(3);

// Start-up with all N actions in one match: the time per action must not grow with N.
void BM_StartUpActionsInOneMatch(benchmark::State& state) {
  const auto n = static_cast<std::size_t>(state.range(0));
  for (auto _ : state) {
    state.PauseTiming();
    auto* sw = new UmoNatBench::Switch(n, 0, n);
    state.ResumeTiming();
    sw->start();
    state.PauseTiming();
    delete sw;
    state.ResumeTiming();
  }
  // Seconds per action (printed with an SI prefix: "5u" is 5 us).
  state.counters["per_action"] =
      benchmark::Counter(static_cast<double>(n), benchmark::Counter::kIsIterationInvariantRate |
                                                     benchmark::Counter::kInvert);
  state.SetComplexityN(state.range(0));
}
BENCHMARK(BM_StartUpActionsInOneMatch)
    ->RangeMultiplier(10)
    ->Range(10, 10000)
    ->Iterations(3)
    ->Complexity()
    ->Unit(benchmark::kMillisecond);

// Ethernet49 turns from a trunk into an access port of VLAN 1 and back: its
// k actions are queued, re-run, and lose (then regain) the port in their
// VLAN 10 port set; the other N - k are not touched.
void BM_TopologyEventTouchingK(benchmark::State& state) {
  const auto n = static_cast<std::size_t>(state.range(0));
  const auto k = static_cast<std::size_t>(state.range(1));
  UmoNatBench::Switch sw(n, k);
  sw.start();
  auto sic = sw.bridgingConfig->switchIntfConfigIs(Nexo::IntfId("Ethernet49"));
  const std::uint64_t before = sw.helper->calls;
  for (auto _ : state) {
    sic->switchportModeIs(sic->switchportMode() == Bridging::SwitchportMode::trunk
                              ? Bridging::SwitchportMode::access
                              : Bridging::SwitchportMode::trunk);
    sw.scheduler->runUntilIdle();
  }
  state.counters["k"] = static_cast<double>(k);
  state.counters["calls/event"] =
      static_cast<double>(sw.helper->calls - before) / static_cast<double>(state.iterations());
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(k));
}
BENCHMARK(BM_TopologyEventTouchingK)
    ->ArgsProduct({{1000, 10000, 100000}, {10, 100}})
    ->Unit(benchmark::kMicrosecond);

}  // namespace
