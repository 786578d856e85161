// The pool of small blocks: blocks that cross threads, threads that end with
// blocks in hand.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <thread>
#include <vector>

#include "runtime/block_pool.h"

namespace vxbus {
namespace {

struct Block {
  unsigned char* bytes;
  std::size_t size;
};

// Fills every byte a caller may use with a mark of the block's own.
void Mark(const Block& block, unsigned char mark) {
  std::memset(block.bytes, mark, block.size);
}

bool Marked(const Block& block, unsigned char mark) {
  for (std::size_t i = 0; i < block.size; ++i)
    if (block.bytes[i] != mark) return false;
  return true;
}

std::vector<Block> AllocateMarked(std::size_t count, unsigned char mark) {
  std::vector<Block> blocks;
  for (std::size_t i = 0; i < count; ++i) {
    const std::size_t size = 1 + (i * 37) % (kLargestPooledBlock + 64);
    Block block{static_cast<unsigned char*>(PooledAllocate(size)), size};
    EXPECT_NE(block.bytes, nullptr);
    Mark(block, mark);
    blocks.push_back(block);
  }
  return blocks;
}

// Blocks made on one thread and freed on another, round after round, as a
// reader's messages are let go by the dispatch thread: no block is handed
// out twice while in use, and none loses a byte to another. Many rounds
// make chains travel through the depot both ways.
TEST(BlockPool, BlocksFreedOnAnotherThreadServeAgainWithoutOverlap) {
  for (int round = 0; round < 20; ++round) {
    const auto mark = static_cast<unsigned char>(round + 1);
    std::vector<Block> made;
    std::thread maker([&made, mark] { made = AllocateMarked(500, mark); });
    maker.join();
    std::vector<Block> mine = AllocateMarked(300, static_cast<unsigned char>(0x80 | mark));
    std::thread freer([&made, mark] {
      for (const Block& block : made) {
        EXPECT_TRUE(Marked(block, mark));
        PooledFree(block.bytes, block.size);
      }
    });
    freer.join();
    for (const Block& block : mine) {
      EXPECT_TRUE(Marked(block, static_cast<unsigned char>(0x80 | mark)));
      PooledFree(block.bytes, block.size);
    }
  }
}

// Two threads at once, each freeing what the other made: the depot is the
// only thing they share.
TEST(BlockPool, TwoThreadsTradingBlocksAtOnce) {
  std::vector<Block> first = AllocateMarked(2000, 1);
  std::vector<Block> second = AllocateMarked(2000, 2);
  auto trade = [](std::vector<Block>* theirs, unsigned char theirMark, unsigned char myMark) {
    for (Block& block : *theirs) {
      EXPECT_TRUE(Marked(block, theirMark));
      PooledFree(block.bytes, block.size);
      block.bytes = static_cast<unsigned char*>(PooledAllocate(block.size));
      Mark(block, myMark);
    }
  };
  std::thread a(trade, &first, 1, 3);
  std::thread b(trade, &second, 2, 4);
  a.join();
  b.join();
  for (const Block& block : first) {
    EXPECT_TRUE(Marked(block, 3));
    PooledFree(block.bytes, block.size);
  }
  for (const Block& block : second) {
    EXPECT_TRUE(Marked(block, 4));
    PooledFree(block.bytes, block.size);
  }
}

}  // namespace
}  // namespace vxbus
