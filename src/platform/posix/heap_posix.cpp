#include "platform/heap.h"

#include <cstdlib>

namespace vxbus {
namespace platform {

void* HeapAllocate(std::size_t size) {
  return std::malloc(size);
}
void* HeapReallocate(void* pointer, std::size_t size) {
  return std::realloc(pointer, size);
}
void HeapFree(void* pointer) {
  std::free(pointer);
}

}  // namespace platform
}  // namespace vxbus
