// SPDX-License-Identifier: MIT
// The process-wide allocator behind the library's private heap.
#ifndef VXBUS_PLATFORM_HEAP_H_
#define VXBUS_PLATFORM_HEAP_H_

#include <cstddef>

namespace vxbus {
namespace platform {

// Thread-safe and usable from load to unload, before and after any other
// start-up. HeapAllocate and HeapReallocate return null when the memory is
// exhausted (never throw); HeapReallocate keeps the old block on failure.
// HeapFree takes only what these two returned, and null.
void* HeapAllocate(std::size_t size);
void* HeapReallocate(void* pointer, std::size_t size);
void HeapFree(void* pointer);

// What a block of `size` bytes from HeapAllocate takes of memory, with the
// allocator's own words and rounding: exact where the allocator is this
// library's, a close estimate where the system's heap does not say. For
// bounds that count memory held. Never allocates.
std::size_t HeapBlockBytes(std::size_t size);

// Whether freed small blocks may be kept in per-thread caches, which a
// thread-local object's destructor hands back as the thread ends. False where
// such destructors inside the shared library are not safe to run (Windows,
// where they run under the loader's lock and may hang a shutdown).
bool HeapAllowsThreadCaches();

}  // namespace platform
}  // namespace vxbus

#endif  // VXBUS_PLATFORM_HEAP_H_
