// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

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

// Two threads at once free what another thread made and make blocks that this
// thread frees after they end, as the dispatch thread lets a reader's messages
// go: no block is handed out twice while in use, none loses a byte to another,
// and chains travel both ways through the depot, the one thing threads share.
TEST(BlockPool, BlocksTradedBetweenThreadsServeAgainWithoutOverlap) {
  auto trade = [](std::vector<Block>* theirs, unsigned char theirMark, unsigned char myMark) {
    for (Block& block : *theirs) {
      EXPECT_TRUE(Marked(block, theirMark));
      PooledFree(block.bytes, block.size);
      block.bytes = static_cast<unsigned char*>(PooledAllocate(block.size));
      Mark(block, myMark);
    }
  };
  for (int round = 0; round < 10; ++round) {
    const auto mark = [round](int m) { return static_cast<unsigned char>(round * 4 + m + 1); };
    std::vector<Block> made[2] = {AllocateMarked(500, mark(0)), AllocateMarked(500, mark(1))};
    std::thread a(trade, &made[0], mark(0), mark(2)), b(trade, &made[1], mark(1), mark(3));
    a.join();
    b.join();
    for (int t = 0; t < 2; ++t)
      for (const Block& block : made[t]) {
        EXPECT_TRUE(Marked(block, mark(t + 2)));
        PooledFree(block.bytes, block.size);
      }
  }
}

}  // namespace
}  // namespace vxbus
