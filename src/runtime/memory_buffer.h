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
  using NoDataExeption = ::NoDataExeption;

  VXMemoryBufferTpl() : used(0), capacity(N), data(inline_) {}
  ~VXMemoryBufferTpl() {
    if (data != inline_) PrivateFree(data);
  }
  VXMemoryBufferTpl(const VXMemoryBufferTpl&) = delete;
  VXMemoryBufferTpl& operator=(const VXMemoryBufferTpl&) = delete;

  // Makes room for n more bytes: capacity becomes used + n + N. The buffer
  // never shrinks and never returns to its inline bytes.
  void EnsureRoom(std::uint64_t n) {
    if (used + n <= capacity) return;
    capacity = used + n + N;
    if (data == inline_) {
      auto* block = static_cast<unsigned char*>(PrivateAllocate(capacity));
      std::memcpy(block, inline_, used);
      data = block;
    } else {
      data = static_cast<unsigned char*>(PrivateReallocate(data, capacity));
    }
  }

  void Append32(std::uint32_t v) { AppendRaw(&v, 4); }
  void Append64(std::uint64_t v) { AppendRaw(&v, 8); }

  // Copies n bytes and zero-fills up to the next multiple of 4.
  void AppendPadded(const void* bytes, std::uint32_t n) {
    std::uint64_t rounded = (static_cast<std::uint64_t>(n) + 3) & ~std::uint64_t{3};
    EnsureRoom(rounded);
    if (n) std::memcpy(data + used, bytes, n);
    std::memset(data + used + n, 0, rounded - n);
    used += rounded;
  }

  // For callers that fill the bytes themselves.
  void Resize(std::uint64_t n) {
    if (n > used) EnsureRoom(n - used);
    used = n;
  }

  unsigned char* At(std::uint64_t offset) {
    if (offset >= used) throw NoDataExeption();
    return data + offset;
  }
  std::uint32_t Read32(std::uint64_t offset) {
    if (offset + 4 > used) throw NoDataExeption();
    return Load32(data + offset);
  }
  bool IsInline() const { return data == inline_; }

  std::uint64_t used;
  std::uint64_t capacity;

 private:
  void AppendRaw(const void* v, std::uint32_t n) {
    EnsureRoom(n);
    std::memcpy(data + used, v, n);
    used += n;
  }

  unsigned char inline_[N];

 public:
  unsigned char* data;
};

}  // namespace vxbus

#endif  // VXBUS_RUNTIME_MEMORY_BUFFER_H_
