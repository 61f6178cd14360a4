// An allocator for the memory benchmarks: counts allocations like CountingNew.cpp and also keeps
// the bytes the program asked for and has not freed, the "requested" bytes, as opposed to the
// heap in use, which adds the allocator's headers, rounding and slack. Each block carries its
// requested size in a header in front of it, so the allocator's own figures (mallinfo2) are not
// those of the program: use one measure per program.

#include <cstdlib>
#include <new>

#include "Allocations.h"
#include "Mox/Pool.h"

namespace {

std::size_t allocations = 0;
std::size_t requested = 0;
std::size_t live = 0;

// Keeps the returned pointer aligned for any fundamental type.
constexpr std::size_t kHeader = alignof(std::max_align_t);

}  // namespace

void* operator new(std::size_t size) {
  ++allocations;
  auto* block = static_cast<unsigned char*>(std::malloc(size + kHeader));
  if (block == nullptr) throw std::bad_alloc();
  *reinterpret_cast<std::size_t*>(block) = size;
  requested += size;
  ++live;
  return block + kHeader;
}
void operator delete(void* p) noexcept {
  if (p == nullptr) return;
  unsigned char* block = static_cast<unsigned char*>(p) - kHeader;
  requested -= *reinterpret_cast<std::size_t*>(block);
  --live;
  std::free(block);
}
void operator delete(void* p, std::size_t /*size*/) noexcept { operator delete(p); }

std::size_t UmoNatBench::allocationCount() {
  return allocations + static_cast<std::size_t>(Mox::poolStats().allocations);
}
std::size_t UmoNatBench::requestedBytesInUse() {
  return requested + static_cast<std::size_t>(Mox::poolStats().liveBytes);
}
std::size_t UmoNatBench::liveAllocations() {
  return live + static_cast<std::size_t>(Mox::poolStats().liveBlocks);
}
