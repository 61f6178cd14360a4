// A trace site whose level is off must cost next to nothing: the message is
// never built.

#include <benchmark/benchmark.h>

#include <string>

#include "Mox/Trace.h"

namespace {

constinit Mox::TraceHandle traceHandle("TraceBench");

std::string expensive() { return std::string(200, 'x'); }

void BM_DisabledTraceSite(benchmark::State& state) {
  Mox::traceLevelsIs("");
  for (auto _ : state) {
    MOX_TRACE(traceHandle, 2, "UmoNatFlowActionSm::handleNatFlowAction, policy: " << expensive());
  }
}
BENCHMARK(BM_DisabledTraceSite);

void BM_EnabledTraceSiteToANullSink(benchmark::State& state) {
  Mox::traceLevelsIs("TraceBench/2");
  Mox::traceSinkIs([](const Mox::TraceLine& line) { benchmark::DoNotOptimize(line.text.data()); });
  for (auto _ : state) {
    MOX_TRACE(traceHandle, 2, "UmoNatFlowActionSm::handleNatFlowAction, policy: " << expensive());
  }
  Mox::traceSinkIs(nullptr);
  Mox::traceLevelsIs("");
}
BENCHMARK(BM_EnabledTraceSiteToANullSink);

}  // namespace
