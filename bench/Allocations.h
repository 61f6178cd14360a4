#pragma once

#include <cstddef>

namespace UmoNatBench {

// Allocations (operator new) made by the program so far. Every benchmark program links one of
// the two allocators that count them: CountingNew.cpp, or RequestedNew.cpp for the memory
// benchmarks.
std::size_t allocationCount();
// Bytes asked for with operator new and not yet freed: only in programs linked with
// RequestedNew.cpp.
std::size_t requestedBytesInUse();
// Allocations not yet freed: only with RequestedNew.cpp.
std::size_t liveAllocations();

}  // namespace UmoNatBench
