// SPDX-License-Identifier: MIT
// Small blocks come from malloc. Large ones (list images of megabytes) are
// mapped apart, aligned to huge pages and advised to use them, so that the
// first touch of a fresh block faults once per 2 MiB instead of once per
// 4 KiB; a few freed large blocks are kept and handed out again, already
// touched. Every block starts with a small prefix that says which kind it is.
#include "platform/heap.h"

#include <sys/mman.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <mutex>

namespace vxbus {
namespace platform {
namespace {

struct Prefix {
  std::size_t mappedLength;  // 0 for a block from malloc
  std::size_t size;          // what the caller asked for
};
// Keeps the caller's bytes as aligned as malloc's own.
constexpr std::size_t kPrefixBytes = 16;
static_assert(sizeof(Prefix) <= kPrefixBytes, "the prefix fits its room");

constexpr std::size_t kLargeBlockBytes = std::size_t{1} << 20;
constexpr std::size_t kHugePageBytes = std::size_t{2} << 20;
// The cache of freed large blocks: a few blocks, a bounded sum.
constexpr int kCachedBlocks = 4;
constexpr std::size_t kCachedBytesLimit = std::size_t{256} << 20;

std::size_t RoundUp(std::size_t n, std::size_t unit) {
  return (n + unit - 1) / unit * unit;
}

Prefix* PrefixOf(void* pointer) {
  return reinterpret_cast<Prefix*>(static_cast<unsigned char*>(pointer) - kPrefixBytes);
}

void* PayloadOf(void* base) {
  return static_cast<unsigned char*>(base) + kPrefixBytes;
}

class LargeBlockCache {
 public:
  // A kept block of at least `length` and at most twice that, or null.
  void* Take(std::size_t length) {
    std::lock_guard<std::mutex> lock(mutex_);
    int best = -1;
    for (int i = 0; i < kCachedBlocks; ++i) {
      const std::size_t have = lengths_[i];
      if (bases_[i] == nullptr || have < length || have > 2 * length) continue;
      if (best < 0 || have < lengths_[best]) best = i;
    }
    if (best < 0) return nullptr;
    void* base = bases_[best];
    bases_[best] = nullptr;
    cachedBytes_ -= lengths_[best];
    return base;
  }

  // False when there is no room; the caller unmaps the block.
  bool Keep(void* base, std::size_t length) {
    std::lock_guard<std::mutex> lock(mutex_);
    if (cachedBytes_ + length > kCachedBytesLimit) return false;
    for (int i = 0; i < kCachedBlocks; ++i) {
      if (bases_[i] != nullptr) continue;
      bases_[i] = base;
      lengths_[i] = length;
      cachedBytes_ += length;
      return true;
    }
    return false;
  }

 private:
  std::mutex mutex_;
  void* bases_[kCachedBlocks] = {};
  std::size_t lengths_[kCachedBlocks] = {};
  std::size_t cachedBytes_ = 0;
};

// Never destroyed: blocks may be freed while the process runs its exit
// handlers.
LargeBlockCache& Cache() {
  static LargeBlockCache* cache = new LargeBlockCache;
  return *cache;
}

// A mapping of `length` bytes (a multiple of the huge page) that starts on a
// huge-page boundary: a larger one is made and its ends are cut off.
void* MapAligned(std::size_t length) {
  const std::size_t span = length + kHugePageBytes;
  void* raw = ::mmap(nullptr, span, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (raw == MAP_FAILED) return nullptr;
  const auto rawStart = reinterpret_cast<std::uintptr_t>(raw);
  const std::uintptr_t start = RoundUp(rawStart, kHugePageBytes);
  const std::size_t head = start - rawStart;
  if (head != 0) ::munmap(raw, head);
  const std::size_t tail = span - head - length;
  if (tail != 0) ::munmap(reinterpret_cast<void*>(start + length), tail);
  // Advice only: without huge pages the block still works, page by page.
  ::madvise(reinterpret_cast<void*>(start), length, MADV_HUGEPAGE);
  return reinterpret_cast<void*>(start);
}

void* AllocateLarge(std::size_t size) {
  const std::size_t length = RoundUp(size + kPrefixBytes, kHugePageBytes);
  void* base = Cache().Take(length);
  std::size_t mapped = length;
  if (base != nullptr) {
    mapped = reinterpret_cast<Prefix*>(base)->mappedLength;
  } else {
    base = MapAligned(length);
    if (base == nullptr) return nullptr;
  }
  *reinterpret_cast<Prefix*>(base) = Prefix{mapped, size};
  return PayloadOf(base);
}

void* AllocateSmall(std::size_t size) {
  void* base = std::malloc(size + kPrefixBytes);
  if (base == nullptr) return nullptr;
  *reinterpret_cast<Prefix*>(base) = Prefix{0, size};
  return PayloadOf(base);
}

void ReleaseLarge(Prefix* prefix) {
  const std::size_t length = prefix->mappedLength;
  if (!Cache().Keep(prefix, length)) ::munmap(prefix, length);
}

}  // namespace

void* HeapAllocate(std::size_t size) {
  if (size > SIZE_MAX - kHugePageBytes - kPrefixBytes) return nullptr;
  return size >= kLargeBlockBytes ? AllocateLarge(size) : AllocateSmall(size);
}

void* HeapReallocate(void* pointer, std::size_t size) {
  if (pointer == nullptr) return HeapAllocate(size);
  if (size > SIZE_MAX - kHugePageBytes - kPrefixBytes) return nullptr;
  Prefix* prefix = PrefixOf(pointer);
  if (prefix->mappedLength == 0 && size < kLargeBlockBytes) {
    void* base = std::realloc(prefix, size + kPrefixBytes);
    if (base == nullptr) return nullptr;
    reinterpret_cast<Prefix*>(base)->size = size;
    return PayloadOf(base);
  }
  // A large block that still has room grows in place.
  if (prefix->mappedLength != 0 && size + kPrefixBytes <= prefix->mappedLength &&
      size >= kLargeBlockBytes) {
    prefix->size = size;
    return pointer;
  }
  void* moved = HeapAllocate(size);
  if (moved == nullptr) return nullptr;
  std::memcpy(moved, pointer, prefix->size < size ? prefix->size : size);
  HeapFree(pointer);
  return moved;
}

void HeapFree(void* pointer) {
  if (pointer == nullptr) return;
  Prefix* prefix = PrefixOf(pointer);
  if (prefix->mappedLength != 0)
    ReleaseLarge(prefix);
  else
    std::free(prefix);
}

// A small block is malloc's chunk for the prefix and the caller's bytes: one
// word of its own in front, 16-byte steps, 32 bytes at least.
std::size_t HeapBlockBytes(std::size_t size) {
  if (size >= kLargeBlockBytes) return RoundUp(size + kPrefixBytes, kHugePageBytes);
  const std::size_t chunk = RoundUp(size + kPrefixBytes + sizeof(std::size_t), 16);
  return chunk < 32 ? 32 : chunk;
}

bool HeapAllowsThreadCaches() {
  return true;
}

}  // namespace platform
}  // namespace vxbus
