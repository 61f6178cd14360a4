// The cost of one action pass that changes nothing, in numbers that do not depend on the load
// of the machine: allocations per pass (counted here), and instructions per pass when run under
// callgrind, which then collects the measured passes only:
//
//   valgrind --tool=callgrind --collect-atstart=no build/bench/PassCost 1000
//   (instructions per pass = "Collected" / the passes printed)
//
// Arguments: the number of actions (default 1,000) and of backlog runs of 100 actions measured
// (default 20), after as many runs to warm up.

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "BenchSupport.h"
#include "UmoNat/UmoNatFlowActionSm.h"

#if __has_include(<valgrind/callgrind.h>)
#include <valgrind/callgrind.h>
#else
#define CALLGRIND_TOGGLE_COLLECT
#endif

int main(int argc, char** argv) {
  const std::size_t n = argc > 1 ? std::stoul(argv[1]) : 1000;
  const int runs = argc > 2 ? std::atoi(argv[2]) : 20;
  UmoNatBench::Switch sw(n);
  sw.start();
  auto* topo = sw.root->topologySm();
  const std::vector<UmoNatFlowActionSm*> actions = sw.actionSms();
  const auto& task = topo->actionSmUpdateBacklogTask();
  std::size_t next = 0;
  std::size_t allocations = 0;
  const std::uint64_t callsBefore = sw.helper->calls;
  for (int r = 0; r < 2 * runs; ++r) {
    for (int k = 0; k < 100; ++k) {
      topo->actionSmUpdateBacklogIs(actions[next]);
      next = (next + 1) % actions.size();
    }
    task->scheduleTaskDelay(0);
    const bool measured = r >= runs;
    const std::size_t before = UmoNatBench::allocationCount();
    if (measured) CALLGRIND_TOGGLE_COLLECT;
    sw.scheduler->runDue();
    if (measured) CALLGRIND_TOGGLE_COLLECT;
    if (measured) allocations += UmoNatBench::allocationCount() - before;
  }
  const double passes = 100.0 * runs;
  std::printf("actions %zu, passes measured %.0f, helper calls %llu, allocations per pass %.2f\n",
              n, passes, static_cast<unsigned long long>(sw.helper->calls - callsBefore),
              static_cast<double>(allocations) / passes);
  return 0;
}
