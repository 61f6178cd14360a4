#pragma once

#include <cstddef>
#include <cstdint>
#include <new>

namespace Mox {

// Memory for the framework's small objects: entities, state machines and the nodes of keyed
// collections. A system holds hundreds of thousands of them, of a few sizes each, so they are
// carved from large chunks instead of taking a malloc block apiece: no per-object header, no
// rounding beyond 8 bytes, and neighbours made together stay together in memory.
//
// Blocks of up to kPoolMaxBlock bytes come from the pool, in size classes 8 bytes apart; larger
// ones, and every block in builds with AddressSanitizer or in a process started with
// MOX_POOL=off (so that sanitizers, memory checkers and heap profilers see each object as a
// block of its own), go to ::operator new. A freed block goes to a free list of its size class
// and serves the next allocation of that size; chunks are kept for the life of the process.
//
// Each thread has a pool of its own, so no allocation takes a lock. A block freed on another
// thread than the one that made it (an object whose last reference was dropped there) joins
// the freeing thread's lists; chunks are never given back, so that is safe.
inline constexpr std::size_t kPoolMaxBlock = 256;

// A block of at least `size` bytes, aligned for any object of that size up to 16 bytes of
// alignment: blocks whose size is a multiple of 16 are 16-aligned, the others 8-aligned.
void* poolAllocate(std::size_t size);
// Gives back a block from poolAllocate(size), with the same size; null does nothing.
void poolFree(void* block, std::size_t size) noexcept;

// What this thread's pool has done, for the benchmarks that count allocations and bytes: blocks
// handed out so far; blocks handed out and not given back, with the bytes asked for and the
// bytes of their size classes (frees on another thread count on that thread); and the chunk
// bytes taken from malloc. The heap a program uses is malloc's bytes in use less the chunk bytes
// plus the live block bytes: a free block of the pool is as unused as a free chunk of malloc.
struct PoolStats {
  std::uint64_t allocations = 0;
  std::int64_t liveBlocks = 0;
  std::int64_t liveBytes = 0;
  std::int64_t liveBlockBytes = 0;
  std::uint64_t chunkBytes = 0;
};
PoolStats poolStats() noexcept;
// Whether blocks come from the pool in this process (false with AddressSanitizer or
// MOX_POOL=off).
bool poolEnabled() noexcept;

// A standard allocator over the pool: single elements of a small type (the nodes of a tree)
// come from it, arrays from ::operator new.
template <class T>
class PoolAllocator {
 public:
  using value_type = T;

  PoolAllocator() noexcept = default;
  template <class U>
  PoolAllocator(const PoolAllocator<U>& /*other*/) noexcept {
  }  // NOLINT(google-explicit-constructor)

  T* allocate(std::size_t n) {
    if (n == 1 && kPooled) return static_cast<T*>(poolAllocate(sizeof(T)));
    return static_cast<T*>(::operator new(n * sizeof(T)));
  }
  void deallocate(T* p, std::size_t n) noexcept {
    if (n == 1 && kPooled) {
      poolFree(p, sizeof(T));
    } else {
      ::operator delete(p);
    }
  }

  template <class U>
  friend bool operator==(const PoolAllocator& /*a*/, const PoolAllocator<U>& /*b*/) noexcept {
    return true;
  }

 private:
  static constexpr bool kPooled = sizeof(T) <= kPoolMaxBlock && alignof(T) <= 16;
};

}  // namespace Mox
