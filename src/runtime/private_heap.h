// SPDX-License-Identifier: MIT
// The library's private heap: lists, buffers, messages and queue nodes live here.
#ifndef VXBUS_RUNTIME_PRIVATE_HEAP_H_
#define VXBUS_RUNTIME_PRIVATE_HEAP_H_

#include <cstddef>

namespace vxbus {

void* PrivateAllocate(std::size_t size);
void* PrivateReallocate(void* pointer, std::size_t size);  // null pointer: allocates
void PrivateFree(void* pointer);                           // null pointer: nothing
// What a block of PrivateAllocate(size) really takes, the heap's own bytes included.
std::size_t PrivateBlockBytes(std::size_t size);

// For tests: from now on PrivateAllocate and PrivateReallocate of `size`
// bytes or more fail as on an exhausted heap (null, the old block kept);
// 0 ends it. Any thread.
void RefusePrivateBlocksFrom(std::size_t size);

}  // namespace vxbus

#endif  // VXBUS_RUNTIME_PRIVATE_HEAP_H_
