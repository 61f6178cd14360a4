// What a programmed action holds, in bytes the program asked for (requested, without the
// allocator's headers and rounding) and in live allocations, after a start-up of N actions. The
// heap in use (allocator overhead included) is ProgrammingBench's bytes/action.

#include <benchmark/benchmark.h>

#include "BenchSupport.h"

namespace {

void BM_MemoryPerAction(benchmark::State& state) {
  const auto n = static_cast<std::size_t>(state.range(0));
  double requested = 0;
  double allocations = 0;
  for (auto _ : state) {
    state.PauseTiming();
    auto* sw = new UmoNatBench::Switch(n);
    const std::size_t bytesBefore = UmoNatBench::requestedBytesInUse();
    const std::size_t liveBefore = UmoNatBench::liveAllocations();
    state.ResumeTiming();
    sw->start();
    state.PauseTiming();
    requested = static_cast<double>(UmoNatBench::requestedBytesInUse() - bytesBefore);
    allocations = static_cast<double>(UmoNatBench::liveAllocations() - liveBefore);
    delete sw;
    state.ResumeTiming();
  }
  state.counters["actions"] = static_cast<double>(n);
  state.counters["requested_bytes/action"] = requested / static_cast<double>(n);
  state.counters["live_allocations/action"] = allocations / static_cast<double>(n);
}
BENCHMARK(BM_MemoryPerAction)
    ->RangeMultiplier(10)
    ->Range(1000, 100000)
    ->Iterations(1)
    ->Unit(benchmark::kMillisecond);

}  // namespace
