#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <thread>
#include <vector>

#include "Mox/Collection.h"
#include "Mox/Entity.h"
#include "Mox/Pool.h"

namespace {

struct Block {
  void* p;
  std::size_t size;
  unsigned char fill;
};

// Blocks of every size class, many chunks' worth, each filled with its own byte: no block may
// overlap another or be misaligned, and freed blocks come back without disturbing live ones.
TEST(PoolTest, BlocksAreDisjointAlignedAndReused) {
  std::vector<Block> blocks;
  for (int round = 0; round < 200; ++round) {
    for (std::size_t size = 1; size <= Mox::kPoolMaxBlock; size += 7) {
      void* p = Mox::poolAllocate(size);
      const auto address = reinterpret_cast<std::uintptr_t>(p);
      ASSERT_EQ(address % 8, 0u) << size;
      if (size % 16 == 0) {
        ASSERT_EQ(address % 16, 0u) << size;
      }
      const auto fill = static_cast<unsigned char>(blocks.size());
      std::memset(p, fill, size);
      blocks.push_back({p, size, fill});
    }
    // Free every third block so that later rounds are served partly from the free lists.
    for (std::size_t i = blocks.size(); i-- > 0;) {
      if (i % 3 == 0 && blocks[i].p != nullptr) {
        Mox::poolFree(blocks[i].p, blocks[i].size);
        blocks[i].p = nullptr;
      }
    }
  }
  for (const Block& b : blocks) {
    if (b.p == nullptr) continue;
    const auto* bytes = static_cast<const unsigned char*>(b.p);
    for (std::size_t i = 0; i < b.size; ++i) ASSERT_EQ(bytes[i], b.fill);
    Mox::poolFree(b.p, b.size);
  }
}

TEST(PoolTest, FreedBlockServesTheNextAllocationOfItsClass) {
  if (!Mox::poolEnabled()) GTEST_SKIP() << "blocks come from operator new in this build";
  void* a = Mox::poolAllocate(40);
  Mox::poolFree(a, 40);
  void* b = Mox::poolAllocate(36);  // the same 8-byte class
  EXPECT_EQ(a, b);
  Mox::poolFree(b, 36);
}

TEST(PoolTest, StatsFollowBlocksAndLeaveLargeOnesToOperatorNew) {
  if (!Mox::poolEnabled()) GTEST_SKIP() << "blocks come from operator new in this build";
  const Mox::PoolStats before = Mox::poolStats();
  void* small = Mox::poolAllocate(20);
  void* large = Mox::poolAllocate(Mox::kPoolMaxBlock + 1);
  Mox::PoolStats during = Mox::poolStats();
  EXPECT_EQ(during.allocations - before.allocations, 1u);
  EXPECT_EQ(during.liveBlocks - before.liveBlocks, 1);
  EXPECT_EQ(during.liveBytes - before.liveBytes, 20);
  EXPECT_EQ(during.liveBlockBytes - before.liveBlockBytes, 24);
  Mox::poolFree(large, Mox::kPoolMaxBlock + 1);
  Mox::poolFree(small, 20);
  const Mox::PoolStats after = Mox::poolStats();
  EXPECT_EQ(after.liveBlocks, before.liveBlocks);
  EXPECT_EQ(after.liveBytes, before.liveBytes);
}

class Record : public Mox::Entity {
 public:
  std::uint64_t payload[5] = {};
};

// Entities and the nodes of keyed collections come from the pool, and the delete of the most
// derived class gives back the size it was made with.
TEST(PoolTest, EntitiesAndCollectionNodesComeFromThePool) {
  if (!Mox::poolEnabled()) GTEST_SKIP() << "blocks come from operator new in this build";
  const Mox::PoolStats before = Mox::poolStats();
  {
    Mox::Ptr<Mox::Entity> record = Mox::makePtr<Record>();
    EXPECT_EQ(Mox::poolStats().liveBytes - before.liveBytes,
              static_cast<std::int64_t>(sizeof(Record)));
    Mox::Collection<int, int> collection;
    for (int i = 0; i < 10; ++i) collection.is(i, i);
    EXPECT_EQ(Mox::poolStats().liveBlocks - before.liveBlocks, 11);
  }
  EXPECT_EQ(Mox::poolStats().liveBlocks, before.liveBlocks);
  EXPECT_EQ(Mox::poolStats().liveBytes, before.liveBytes);
}

// An object made on one thread and dropped on another: its block joins the other thread's
// lists and stays valid memory; nothing else of the first thread's pool is disturbed.
TEST(PoolTest, BlockFreedOnAnotherThreadStaysUsable) {
  std::vector<void*> made(1000);
  std::thread maker([&] {
    for (void*& p : made) {
      p = Mox::poolAllocate(48);
      std::memset(p, 0xab, 48);
    }
  });
  maker.join();
  for (void* p : made) {
    EXPECT_EQ(static_cast<unsigned char*>(p)[47], 0xab);
    Mox::poolFree(p, 48);
  }
  // This thread now serves 48-byte blocks from them.
  void* again = Mox::poolAllocate(48);
  std::memset(again, 0, 48);
  Mox::poolFree(again, 48);
}

}  // namespace
