// SPDX-License-Identifier: MIT
// Growable byte buffer with N inline bytes, which are also the growth slack.
#ifndef VXBUS_RUNTIME_MEMORY_BUFFER_H_
#define VXBUS_RUNTIME_MEMORY_BUFFER_H_

#include <cstdint>
#include <cstring>

#include "runtime/little_endian.h"
#include "runtime/private_heap.h"
#include "vxbus.h"

namespace vxbus {

template <std::size_t N>
class VXMemoryBufferTpl {
 public:
  VXMemoryBufferTpl() : used(0), capacity(N), data(inline_) {}
  ~VXMemoryBufferTpl() {
    if (data != inline_) PrivateFree(data);
  }
  VXMemoryBufferTpl(const VXMemoryBufferTpl&) = delete;
  VXMemoryBufferTpl& operator=(const VXMemoryBufferTpl&) = delete;

  // Makes room for n more bytes: capacity becomes used + n + N. The buffer
  // never shrinks and never returns to its inline bytes. False when the heap
  // refuses; the buffer is then as it was.
  bool EnsureRoom(std::uint64_t n) {
    if (used + n <= capacity) return true;
    const std::uint64_t grown = used + n + N;
    void* block = data == inline_ ? PrivateAllocate(grown) : PrivateReallocate(data, grown);
    if (block == nullptr) return false;
    if (data == inline_) std::memcpy(block, inline_, used);
    data = static_cast<unsigned char*>(block);
    capacity = grown;
    return true;
  }

  void Append32(std::uint32_t v) { AppendRaw(&v, 4); }
  void Append64(std::uint64_t v) { AppendRaw(&v, 8); }

  // Copies n bytes and zero-fills up to the next multiple of 4; false, and
  // nothing appended, when the heap refuses the room.
  bool AppendPadded(const void* bytes, std::uint32_t n) {
    std::uint64_t rounded = (static_cast<std::uint64_t>(n) + 3) & ~std::uint64_t{3};
    if (!EnsureRoom(rounded)) return false;
    if (n) std::memcpy(data + used, bytes, n);
    std::memset(data + used + n, 0, rounded - n);
    used += rounded;
    return true;
  }

  // For callers that fill the bytes themselves; false, and nothing changed,
  // when the heap refuses.
  bool Resize(std::uint64_t n) {
    if (n > used && !EnsureRoom(n - used)) return false;
    used = n;
    return true;
  }

  bool IsInline() const { return data == inline_; }

  std::uint64_t used;
  std::uint64_t capacity;

 private:
  // Within the inline bytes for every caller today; a refused growth appends nothing.
  void AppendRaw(const void* v, std::uint32_t n) {
    if (!EnsureRoom(n)) return;
    std::memcpy(data + used, v, n);
    used += n;
  }

  unsigned char inline_[N];

 public:
  unsigned char* data;
};

}  // namespace vxbus

#endif  // VXBUS_RUNTIME_MEMORY_BUFFER_H_
