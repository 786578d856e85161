// SPDX-License-Identifier: MIT
#include "runtime/block_pool.h"

#include <cstdint>
#include <mutex>

#include "platform/heap.h"
#include "runtime/private_heap.h"

namespace vxbus {
namespace {

// Under AddressSanitizer every block goes back to the heap at once, so that
// a use after the free is still caught.
#if defined(__SANITIZE_ADDRESS__)
constexpr bool kUnderAddressSanitizer = true;
#else
constexpr bool kUnderAddressSanitizer = false;
#endif

// Where the port allows per-thread caches at all.
bool PoolBlocks() {
  static const bool pool = !kUnderAddressSanitizer && platform::HeapAllowsThreadCaches();
  return pool;
}

// Sizes are rounded up to whole granules; one free list per rounded size.
constexpr std::size_t kGranule = 16;
constexpr std::size_t kClasses = kLargestPooledBlock / kGranule;
// Blocks move between a thread and the depot in chains of this many; a
// thread keeps fewer than two chains of each size.
constexpr std::uint32_t kChainBlocks = 32;
// The depot keeps at most this many chains of each size, 8192 blocks: a
// one-way stream frees its messages in bursts of thousands, and what does
// not fit goes back to the heap, to be asked for again at once.
constexpr std::size_t kDepotChains = 256;

struct FreeBlock {
  FreeBlock* next;
};

std::size_t ClassOf(std::size_t size) {
  return size == 0 ? 0 : (size - 1) / kGranule;
}

std::size_t ClassBytes(std::size_t index) {
  return (index + 1) * kGranule;
}

void FreeChain(FreeBlock* block) {
  while (block) {
    FreeBlock* next = block->next;
    PrivateFree(block);
    block = next;
  }
}

class Depot {
 public:
  // A chain of kChainBlocks blocks, or null.
  FreeBlock* Take(std::size_t index) {
    std::lock_guard<std::mutex> lock(mutex_);
    Shelf& shelf = shelves_[index];
    return shelf.count == 0 ? nullptr : shelf.chains[--shelf.count];
  }

  // Keeps a chain of kChainBlocks blocks, or frees it when the shelf is full.
  void Keep(std::size_t index, FreeBlock* chain) {
    {
      std::lock_guard<std::mutex> lock(mutex_);
      Shelf& shelf = shelves_[index];
      if (shelf.count < kDepotChains) {
        shelf.chains[shelf.count++] = chain;
        return;
      }
    }
    FreeChain(chain);
  }

 private:
  struct Shelf {
    FreeBlock* chains[kDepotChains];
    std::size_t count;
  };
  std::mutex mutex_;
  Shelf shelves_[kClasses] = {};
};

// Never destroyed: blocks are freed up to the last moment of the process.
Depot& TheDepot() {
  static Depot* depot = new Depot;
  return *depot;
}

// Trivially destructible, so that it can be read at any moment of a
// thread's end: 0 before the thread's cache is made, 1 while it lives, 2
// once it has gone.
thread_local int t_cacheState = 0;

class ThreadCache {
 public:
  ThreadCache() { t_cacheState = 1; }
  ~ThreadCache() {
    t_cacheState = 2;
    for (std::size_t index = 0; index < kClasses; ++index) {
      List& list = lists_[index];
      while (list.count >= kChainBlocks)
        TheDepot().Keep(index, SplitChain(list));
      FreeChain(list.head);
    }
  }
  ThreadCache(const ThreadCache&) = delete;
  ThreadCache& operator=(const ThreadCache&) = delete;

  void* Allocate(std::size_t index) {
    List& list = lists_[index];
    if (list.head == nullptr) {
      list.head = TheDepot().Take(index);
      list.count = list.head ? kChainBlocks : 0;
      if (list.head == nullptr) return PrivateAllocate(ClassBytes(index));
    }
    FreeBlock* block = list.head;
    list.head = block->next;
    --list.count;
    // A block mostly comes back from the thread that let it go, and so lies
    // in that core's cache; fetching the next one now overlaps its miss
    // with the use of this one, instead of stalling the next allocation.
    if (list.head != nullptr) __builtin_prefetch(list.head, 1);
    return block;
  }

  void Free(void* pointer, std::size_t index) {
    List& list = lists_[index];
    auto* block = static_cast<FreeBlock*>(pointer);
    block->next = list.head;
    list.head = block;
    if (++list.count >= 2 * kChainBlocks) TheDepot().Keep(index, SplitChain(list));
  }

 private:
  struct List {
    FreeBlock* head = nullptr;
    std::uint32_t count = 0;
  };

  // Takes the first kChainBlocks blocks off a list that holds at least as many.
  static FreeBlock* SplitChain(List& list) {
    FreeBlock* chain = list.head;
    FreeBlock* last = chain;
    for (std::uint32_t i = 1; i < kChainBlocks; ++i)
      last = last->next;
    list.head = last->next;
    last->next = nullptr;
    list.count -= kChainBlocks;
    return chain;
  }

  List lists_[kClasses];
};

// Null once the thread's cache has gone, in the destructors that run after
// it at the thread's end.
ThreadCache* CurrentCache() {
  if (t_cacheState == 2) return nullptr;
  thread_local ThreadCache cache;
  return &cache;
}

}  // namespace

void* PooledAllocate(std::size_t size) {
  if (!PoolBlocks() || size > kLargestPooledBlock) return PrivateAllocate(size);
  const std::size_t index = ClassOf(size);
  ThreadCache* cache = CurrentCache();
  // Always the whole rounded size: the block may yet end in a thread's list.
  return cache ? cache->Allocate(index) : PrivateAllocate(ClassBytes(index));
}

std::size_t PooledBlockBytes(std::size_t size) {
  if (!PoolBlocks() || size > kLargestPooledBlock) return size;
  return ClassBytes(ClassOf(size));
}

void PooledFree(void* block, std::size_t size) {
  if (block == nullptr) return;
  ThreadCache* cache = PoolBlocks() && size <= kLargestPooledBlock ? CurrentCache() : nullptr;
  if (cache)
    cache->Free(block, ClassOf(size));
  else
    PrivateFree(block);
}

}  // namespace vxbus
