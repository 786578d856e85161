#include "runtime/private_heap.h"

#include <cstdint>

#include "platform/heap.h"
#include "vxbus.h"

namespace vxbus {

void* PrivateAllocate(std::size_t size) {
  return platform::HeapAllocate(size);
}

// A size of 0 still gives a valid block, as the heap's own realloc does,
// where the C library's would free the block and give null.
void* PrivateReallocate(void* pointer, std::size_t size) {
  if (pointer == nullptr) return platform::HeapAllocate(size);
  if (size == 0) size = 1;
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
