// A run of the update backlog: 100 queued actions cost 100 action passes,
// whatever the number of other actions and other queued entries.

#include <benchmark/benchmark.h>

#include <vector>

#include "BenchSupport.h"
#include "UmoNat/UmoNatFlowActionSm.h"

namespace {

void BM_BacklogRunOf100(benchmark::State& state) {
  const auto n = static_cast<std::size_t>(state.range(0));
  UmoNatBench::Switch sw(n);
  sw.start();
  auto* topo = sw.root->topologySm();
  const std::vector<UmoNatFlowActionSm*> actions = sw.actionSms();
  const auto& task = topo->actionSmUpdateBacklogTask();
  std::size_t next = 0;
  std::size_t allocations = 0;
  for (auto _ : state) {
    state.PauseTiming();
    for (int k = 0; k < 100; ++k) {
      topo->actionSmUpdateBacklogIs(actions[next]);
      next = (next + 1) % actions.size();
    }
    task->scheduleTaskDelay(0);
    const std::size_t before = UmoNatBench::allocationCount();
    state.ResumeTiming();
    sw.scheduler->runDue();
    allocations += UmoNatBench::allocationCount() - before;
  }
  state.counters["allocs/pass"] =
      static_cast<double>(allocations) / (100.0 * static_cast<double>(state.iterations()));
  state.SetItemsProcessed(state.iterations() * 100);
  state.SetComplexityN(state.range(0));
}
BENCHMARK(BM_BacklogRunOf100)
    ->RangeMultiplier(10)
    ->Range(1000, 100000)
    ->Complexity()
    ->Unit(benchmark::kMicrosecond);

}  // namespace
