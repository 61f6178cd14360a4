// The allocation counter of the benchmark programs: every operator new is counted (one event
// loop: no atomics needed), and memory comes straight from malloc, so that the allocator's own
// figures (mallinfo2) are those of the program.

#include <cstdlib>
#include <new>

#include "Allocations.h"
#include "Mox/Pool.h"

namespace {

std::size_t allocations = 0;

}  // namespace

void* operator new(std::size_t size) {
  ++allocations;
  if (void* p = std::malloc(size == 0 ? 1 : size)) return p;
  throw std::bad_alloc();
}
void operator delete(void* p) noexcept { std::free(p); }
void operator delete(void* p, std::size_t /*size*/) noexcept { std::free(p); }

std::size_t UmoNatBench::allocationCount() {
  return allocations + static_cast<std::size_t>(Mox::poolStats().allocations);
}
