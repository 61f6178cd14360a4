#include "Mox/Pool.h"

#include <atomic>
#include <cstdlib>
#include <cstring>

namespace Mox {

namespace {

#if defined(__SANITIZE_ADDRESS__)
constexpr bool kPoolOn = false;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
constexpr bool kPoolOn = false;
#else
constexpr bool kPoolOn = true;
#endif
#else
constexpr bool kPoolOn = true;
#endif

constexpr std::size_t kGranule = 8;
constexpr std::size_t kClasses = kPoolMaxBlock / kGranule + 1;
// Chunks start small, so that a program with a few objects keeps a few kilobytes, and double
// up to 64 KiB: below malloc's default mmap threshold, so they come from the ordinary heap.
constexpr std::size_t kFirstChunk = 4096;
constexpr std::size_t kLargestChunk = 64 * 1024;

struct FreeBlock {
  FreeBlock* next;
};

// Every chunk of every thread, linked through its first word: chunks outlive the threads that
// made them (their blocks may still be in use), and the list keeps them reachable.
struct Chunk {
  Chunk* next;
  std::size_t bytes;
};
constexpr std::size_t kChunkHeader = 16;  // keeps the first block 16-aligned
static_assert(sizeof(Chunk) <= kChunkHeader);
std::atomic<Chunk*> allChunks{nullptr};

class Pool {
 public:
  void* allocate(std::size_t size) {
    const std::size_t cls = (size + kGranule - 1) / kGranule;
    ++stats_.allocations;
    ++stats_.liveBlocks;
    stats_.liveBytes += static_cast<std::int64_t>(size);
    stats_.liveBlockBytes += static_cast<std::int64_t>(cls * kGranule);
    if (FreeBlock* b = free_[cls]) {
      free_[cls] = b->next;
      return b;
    }
    return carve(cls * kGranule);
  }

  void free(void* block, std::size_t size) noexcept {
    const std::size_t cls = (size + kGranule - 1) / kGranule;
    --stats_.liveBlocks;
    stats_.liveBytes -= static_cast<std::int64_t>(size);
    stats_.liveBlockBytes -= static_cast<std::int64_t>(cls * kGranule);
    auto* b = static_cast<FreeBlock*>(block);
    b->next = free_[cls];
    free_[cls] = b;
  }

  const PoolStats& stats() const { return stats_; }

 private:
  // A new block from the current chunk: sizes that are multiples of 16 start on a 16-byte
  // boundary, so that a type aligned to 16 (whose size is a multiple of 16) gets one.
  void* carve(std::size_t bytes) {
    std::size_t at = next_;
    if (bytes % 16 == 0) at = (at + 15) & ~std::size_t{15};
    if (chunk_ == nullptr || at + bytes > chunkBytes_) {
      newChunk();
      at = kChunkHeader;
    }
    next_ = at + bytes;
    return chunk_ + at;
  }

  void newChunk() {
    // The tail of the old chunk is left to the free lists, in the sizes that fit, largest
    // first: nothing is wasted beyond a few bytes.
    if (chunk_ != nullptr) {
      std::size_t at = next_;
      for (std::size_t cls = kClasses - 1; cls >= 1; --cls) {
        const std::size_t bytes = cls * kGranule;
        std::size_t start = at;
        if (bytes % 16 == 0) start = (start + 15) & ~std::size_t{15};
        while (start + bytes <= chunkBytes_) {
          auto* b = reinterpret_cast<FreeBlock*>(chunk_ + start);
          b->next = free_[cls];
          free_[cls] = b;
          at = start + bytes;
          start = at;
          if (bytes % 16 == 0) start = (start + 15) & ~std::size_t{15};
        }
      }
    }
    const std::size_t bytes = nextChunkBytes_;
    if (nextChunkBytes_ < kLargestChunk) nextChunkBytes_ *= 2;
    void* raw = std::malloc(bytes);
    if (raw == nullptr) throw std::bad_alloc();
    auto* c = static_cast<Chunk*>(raw);
    c->bytes = bytes;
    c->next = allChunks.load(std::memory_order_relaxed);
    while (!allChunks.compare_exchange_weak(c->next, c, std::memory_order_release,
                                            std::memory_order_relaxed)) {
    }
    stats_.chunkBytes += bytes;
    chunk_ = static_cast<unsigned char*>(raw);
    chunkBytes_ = bytes;
    next_ = kChunkHeader;
  }

  FreeBlock* free_[kClasses] = {};
  unsigned char* chunk_ = nullptr;
  std::size_t chunkBytes_ = 0;
  std::size_t next_ = 0;
  std::size_t nextChunkBytes_ = kFirstChunk;
  PoolStats stats_;
};

// Whether this process uses the pool: always off under AddressSanitizer, and off when the
// environment sets MOX_POOL=off (for heap profilers and memory checkers, which then see every
// object as a block of its own). Decided once, before the first block.
bool poolOn() {
  static const bool on = [] {
    const char* setting = std::getenv("MOX_POOL");
    return kPoolOn && !(setting != nullptr && std::strcmp(setting, "off") == 0);
  }();
  return on;
}

// Trivially destructible, so that a thread's pool stays usable while other thread-local
// objects are destroyed at its exit; its chunks stay on the global list.
thread_local constinit Pool pool;

}  // namespace

void* poolAllocate(std::size_t size) {
  if (!poolOn() || size > kPoolMaxBlock || size == 0) return ::operator new(size);
  return pool.allocate(size);
}

void poolFree(void* block, std::size_t size) noexcept {
  if (block == nullptr) return;
  if (!poolOn() || size > kPoolMaxBlock || size == 0) {
    ::operator delete(block);
    return;
  }
  pool.free(block, size);
}

PoolStats poolStats() noexcept { return pool.stats(); }

bool poolEnabled() noexcept { return poolOn(); }

}  // namespace Mox
