// SPDX-License-Identifier: MIT
// The flat byte image under a parameter list: 32-bit bookkeeping, no inline
// bytes, and a capacity that is always exactly the last need.
#ifndef VXBUS_PARAMLIST_LIST_IMAGE_H_
#define VXBUS_PARAMLIST_LIST_IMAGE_H_

#include <cstdint>
#include <cstring>

#include "runtime/block_pool.h"
#include "runtime/little_endian.h"
#include "runtime/private_heap.h"
#include "vxbus.h"

namespace vxbus {

// Rounds up to a multiple of 4, in the 32-bit arithmetic of the image.
inline std::uint32_t Round4(std::uint32_t n) {
  return (n + 3u) & ~3u;
}

// Header length of a record whose name has `nameLength` bytes: the name, at
// least one zero byte and the type byte, rounded so the value is 4-aligned.
inline std::uint32_t HeaderLength(std::uint32_t nameLength) {
  return (nameLength + 6u) & ~3u;
}

// Neither inline bytes nor slack: a list's bytes are exactly its image.
class ListImage {
 public:
  ListImage() : used(0), capacity(0), data(nullptr) {}
  ~ListImage() { FreeImage(data, capacity); }
  ListImage(const ListImage&) = delete;
  ListImage& operator=(const ListImage&) = delete;

  // Makes room for n more bytes. Grows to exactly the need, never shrinks.
  // The sum is 32-bit and unchecked: callers keep images far below 4 GiB.
  // False when the heap refuses; the image is then as it was.
  bool Reserve(std::uint32_t n) {
    std::uint32_t need = used + n;
    if (need <= capacity) return true;
    if (capacity > kLargestPooledBlock) {
      void* grown = PrivateReallocate(data, need);
      if (grown == nullptr) return false;
      data = static_cast<unsigned char*>(grown);
      capacity = need;
      return true;
    }
    // A small image lives in a pooled block, which may have room already.
    if (data != nullptr && PooledBlockBytes(need) == PooledBlockBytes(capacity)) {
      capacity = need;
      return true;
    }
    unsigned char* grown = AllocateImage(need);
    if (grown == nullptr) return false;
    if (used != 0) std::memcpy(grown, data, used);
    FreeImage(data, capacity);
    data = grown;
    capacity = need;
    return true;
  }

  // Every image block comes from here and goes back through FreeImage with
  // the capacity it was made for: small ones (one per received list) are
  // pooled, which spares the heap a cross-thread free for every frame.
  static unsigned char* AllocateImage(std::uint32_t capacity) {
    return static_cast<unsigned char*>(capacity > kLargestPooledBlock ? PrivateAllocate(capacity)
                                                                      : PooledAllocate(capacity));
  }
  static void FreeImage(unsigned char* block, std::uint32_t capacity) {
    if (capacity > kLargestPooledBlock)
      PrivateFree(block);
    else
      PooledFree(block, capacity);
  }

  // The appends below append nothing when the heap refuses to grow the
  // image; a setter reserves its whole record first, so within it they
  // cannot fail.
  void Append32(std::uint32_t value) { AppendExact(&value, 4); }
  void Append64(std::uint64_t value) { AppendExact(&value, 8); }

  // The text and its NUL; a null text is stored as an empty one. The pad up
  // to the next multiple of 4 is zeroed, so no stale heap bytes go out.
  void AppendString(const char* text) {
    if (text == nullptr) {
      if (!Reserve(4)) return;
      std::memset(data + used, 0, 4);
      used += 4;
      return;
    }
    std::uint32_t n = static_cast<std::uint32_t>(std::strlen(text)) + 1;
    AppendBytes(text, n);
  }

  // n bytes, then zeros up to round4(n).
  void AppendBytes(const void* bytes, std::uint32_t n) {
    std::uint32_t rounded = Round4(n);
    if (!Reserve(rounded)) return;
    if (n != 0) std::memcpy(data + used, bytes, n);
    std::memset(data + used + n, 0, rounded - n);
    used += rounded;
  }

  // n bytes with no rounding: copies of whole images.
  void AppendExact(const void* bytes, std::uint32_t n) {
    if (!Reserve(n)) return;
    if (n != 0) std::memcpy(data + used, bytes, n);
    used += n;
  }

  // Offset byte, name, zero padding, type byte. The zero padding is what
  // terminates the name.
  void AppendHeader(const char* name, std::uint32_t nameLength, unsigned char type) {
    std::uint32_t h = HeaderLength(nameLength);
    if (!Reserve(h)) return;
    unsigned char* p = data + used;
    p[0] = static_cast<unsigned char>(h - 1);
    std::memcpy(p + 1, name, nameLength);
    std::memset(p + 1 + nameLength, 0, h - nameLength - 2);
    p[h - 1] = type;
    used += h;
  }

  // Opens n bytes at `offset`, moving what lies behind it up. The gap's
  // contents are left as they are.
  void InsertGap(std::uint32_t offset, std::uint32_t n) {
    if (!Reserve(n)) return;
    std::memmove(data + offset + n, data + offset, used - offset);
    used += n;
  }

  // True when p points into this image's allocation.
  bool Holds(const void* p) const {
    auto at = reinterpret_cast<std::uintptr_t>(p);
    auto begin = reinterpret_cast<std::uintptr_t>(data);
    return data != nullptr && at >= begin && at - begin < capacity;
  }

  // The word at `offset`, when all four of its bytes lie below `used`;
  // false, with nothing read or written, when they do not.
  bool Load32At(std::uint32_t offset, std::uint32_t* value) const {
    if (!HoldsWordAt(offset)) return false;
    *value = Load32(data + offset);
    return true;
  }
  bool Store32At(std::uint32_t offset, std::uint32_t value) {
    if (!HoldsWordAt(offset)) return false;
    Store32(data + offset, value);
    return true;
  }

  std::uint32_t used;
  std::uint32_t capacity;
  unsigned char* data;

 private:
  bool HoldsWordAt(std::uint32_t offset) const {
    return static_cast<std::uint64_t>(offset) + 4 <= used;
  }
};

}  // namespace vxbus

#endif  // VXBUS_PARAMLIST_LIST_IMAGE_H_
