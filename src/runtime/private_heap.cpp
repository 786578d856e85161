// SPDX-License-Identifier: MIT
#include "runtime/private_heap.h"

#include <atomic>
#include <cstdint>

#include "platform/heap.h"
#include "vxbus.h"

namespace vxbus {
namespace {

std::atomic<std::size_t> g_refusedFrom{0};

bool Refused(std::size_t size) {
  const std::size_t from = g_refusedFrom.load(std::memory_order_relaxed);
  return from != 0 && size >= from;
}

}  // namespace

void RefusePrivateBlocksFrom(std::size_t size) {
  g_refusedFrom.store(size, std::memory_order_relaxed);
}

void* PrivateAllocate(std::size_t size) {
  if (Refused(size)) return nullptr;
  return platform::HeapAllocate(size);
}

// A size of 0 still gives a valid block, as the heap's own realloc does,
// where the C library's would free the block and give null.
void* PrivateReallocate(void* pointer, std::size_t size) {
  if (pointer == nullptr) return PrivateAllocate(size);
  if (size == 0) size = 1;
  if (Refused(size)) return nullptr;
  return platform::HeapReallocate(pointer, size);
}

void PrivateFree(void* pointer) {
  if (pointer != nullptr) platform::HeapFree(pointer);
}

std::size_t PrivateBlockBytes(std::size_t size) {
  return platform::HeapBlockBytes(size);
}

}  // namespace vxbus

void* VXAllocate(std::uint64_t size) {
  return vxbus::PrivateAllocate(size);
}
void* VXRealloc(void* pointer, std::uint64_t size) {
  return vxbus::PrivateReallocate(pointer, size);
}
void VXFree(void* pointer) {
  vxbus::PrivateFree(pointer);
}
