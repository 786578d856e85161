// The process-wide allocator behind the library's private heap.
#ifndef VXBUS_PLATFORM_HEAP_H_
#define VXBUS_PLATFORM_HEAP_H_

#include <cstddef>

namespace vxbus {
namespace platform {

// Thread-safe; HeapFree frees what HeapAllocate and HeapReallocate return.
void* HeapAllocate(std::size_t size);
void* HeapReallocate(void* pointer, std::size_t size);
void HeapFree(void* pointer);

}  // namespace platform
}  // namespace vxbus

#endif  // VXBUS_PLATFORM_HEAP_H_
