// SPDX-License-Identifier: MIT
// Small fixed-size blocks of the private heap, kept for reuse once freed.
//
// Messages, lists and queue nodes are made on one thread and let go on
// another (a reader makes a message, the dispatch thread lets it go), one of
// each for every frame. The heap would serve every such block with a lock
// and a cold line; here a freed block is kept by the freeing thread, and
// whole chains of blocks move to the threads that make them through a shared
// depot, whose lock is taken once a chain.
#ifndef VXBUS_RUNTIME_BLOCK_POOL_H_
#define VXBUS_RUNTIME_BLOCK_POOL_H_

#include <cstddef>

namespace vxbus {

// Pooling is off, and every block goes to the heap and back, under
// AddressSanitizer and where the platform's heap says per-thread caches are
// not safe. Blocks above this size come from the heap and go back to it.
constexpr std::size_t kLargestPooledBlock = 256;

// A block of at least `size` bytes, aligned as the heap's; null when the
// heap is exhausted. Any thread.
void* PooledAllocate(std::size_t size);

// How many bytes a block of PooledAllocate(size) really holds: `size`
// rounded up to its pool's block size; `size` itself where blocks of that
// size are not pooled.
std::size_t PooledBlockBytes(std::size_t size);

// Lets go of a block from PooledAllocate; `size` is the size it was asked
// with. Null does nothing. Any thread, also another than the allocating one
// and also while the thread ends.
void PooledFree(void* block, std::size_t size);

}  // namespace vxbus

#endif  // VXBUS_RUNTIME_BLOCK_POOL_H_
