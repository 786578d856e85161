// SPDX-License-Identifier: MIT
// The private heap: one growable, serialised Win32 heap with the
// low-fragmentation front end, made when the library is loaded and never
// destroyed.
#include <windows.h>

#include "platform/heap.h"

namespace vxbus {
namespace platform {
namespace {

HANDLE MakeHeap() {
  HANDLE heap = ::HeapCreate(0, 0x100000, 0);
  ULONG lowFragmentation = 2;  // asked for, not relied on: the result is ignored
  ::HeapSetInformation(heap, HeapCompatibilityInformation, &lowFragmentation,
                       sizeof lowFragmentation);
  return heap;
}

// A function-local static, so that an allocation from another static
// initialiser finds the heap whatever the order of initialisation.
HANDLE Heap() {
  static const HANDLE heap = MakeHeap();
  return heap;
}

// Makes the heap at load, before any exported function can be reached.
const HANDLE madeAtLoad = Heap();

}  // namespace

void* HeapAllocate(std::size_t size) {
  return ::HeapAlloc(Heap(), 0, size);
}
void* HeapReallocate(void* pointer, std::size_t size) {
  return ::HeapReAlloc(Heap(), 0, pointer, size);
}
void HeapFree(void* pointer) {
  if (pointer != nullptr) ::HeapFree(Heap(), 0, pointer);
}

// A Win32 heap block carries an 8-byte header and grows in 8-byte steps on
// 64-bit systems, 16 with the low-fragmentation front end: the larger is
// taken.
std::size_t HeapBlockBytes(std::size_t size) {
  return (size + 8 + 15) / 16 * 16;
}

bool HeapAllowsThreadCaches() {
  return false;
}

}  // namespace platform
}  // namespace vxbus
