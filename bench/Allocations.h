#pragma once

#include <cstddef>

namespace UmoNatBench {

// Allocations made by the program so far: operator new and the blocks of the framework's
// small-object pool (Mox/Pool.h) alike. Every benchmark program links one of the two
// allocators that count them: CountingNew.cpp, or RequestedNew.cpp for the memory benchmarks.
std::size_t allocationCount();
// Bytes asked for with operator new or from the pool and not yet freed: only in programs linked
// with RequestedNew.cpp.
std::size_t requestedBytesInUse();
// Allocations not yet freed: only with RequestedNew.cpp.
std::size_t liveAllocations();

}  // namespace UmoNatBench
