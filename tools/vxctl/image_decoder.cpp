// SPDX-License-Identifier: MIT
#include "image_decoder.h"

#include <cstring>

#include "vxbus.h"

namespace vxctl {
namespace {

constexpr std::uint32_t kNullIndex = 0xFFFFFFFFu;

std::uint64_t Round4(std::uint64_t n) {
  return (n + 3) & ~std::uint64_t{3};
}

// A bounded view of the bytes of one value; every read is checked.
class Cursor {
 public:
  Cursor(const unsigned char* begin, std::size_t size) : begin_(begin), size_(size) {}

  std::size_t Size() const { return size_; }
  bool U32(std::uint64_t at, std::uint32_t& v) const {
    if (at + 4 > size_) return false;
    std::memcpy(&v, begin_ + at, 4);
    return true;
  }
  bool U64(std::uint64_t at, std::uint64_t& v) const {
    if (at + 8 > size_) return false;
    std::memcpy(&v, begin_ + at, 8);
    return true;
  }
  // A NUL-terminated text at `at`; `length` excludes the NUL.
  bool Text(std::uint64_t at, std::string& out, std::uint64_t& length) const {
    if (at >= size_) return false;
    const void* nul = std::memchr(begin_ + at, 0, size_ - at);
    if (!nul) return false;
    length = static_cast<const unsigned char*>(nul) - (begin_ + at);
    out.assign(reinterpret_cast<const char*>(begin_ + at), length);
    return true;
  }
  bool Bytes(std::uint64_t at, std::uint64_t n, std::string& out) const {
    if (at > size_ || n > size_ - at) return false;
    out.assign(reinterpret_cast<const char*>(begin_ + at), n);
    return true;
  }

 private:
  const unsigned char* begin_;
  std::size_t size_;
};

// A string or binary item at `at`; sets `end` to where its padded bytes end.
bool Item(const Cursor& c, int itemType, std::uint64_t at, std::string& out, std::uint64_t& end) {
  if (itemType == PT_STRING) {
    std::uint64_t length = 0;
    if (!c.Text(at, out, length)) return false;
    end = at + Round4(length + 1);
  } else {
    std::uint32_t n = 0;
    if (!c.U32(at, n) || !c.Bytes(at + 4, n, out)) return false;
    end = at + 4 + Round4(n);
  }
  return end <= c.Size();
}

ListPtr Child(const ChildResolver& child, std::uint32_t index, std::string& error) {
  return index == kNullIndex ? nullptr : child(index, error);
}

// Decodes the value whose type byte is at 0 of `c`; `size` is its length from
// the type byte on. False when it does not fit in the image.
bool DecodeValue(const Cursor& c, const ChildResolver& child, Value& v, std::uint64_t& size,
                 std::string& error) {
  std::uint32_t u32 = 0;
  std::uint64_t u64 = 0;
  switch (v.type) {
    case PT_STRING: {
      std::uint64_t length = 0;
      if (!c.Text(1, v.bytes, length)) return false;
      size = 1 + Round4(length + 1);
      return size <= c.Size();
    }
    case PT_INT32:
      if (!c.U32(1, u32)) return false;
      v.number = u32;
      size = 5;
      return true;
    case PT_INT64:
      if (!c.U64(1, u64)) return false;
      v.number = u64;
      size = 9;
      return true;
    case PT_PARAMHANDLE:
      if (!c.U32(1, u32)) return false;
      v.list = Child(child, u32, error);
      size = 5;
      return error.empty();
    case PT_BINARY:
      if (!c.U32(1, u32) || !c.Bytes(5, u32, v.bytes)) return false;
      size = 5 + Round4(u32);
      return size <= c.Size();
    default:
      break;
  }
  std::uint32_t count = 0;
  if (!c.U32(1, count)) return false;
  int itemType = v.type & ~PT_ARRAY;
  std::uint64_t width = itemType == PT_INT64 ? 8 : 4;
  // Checked before anything is sized by the count.
  if (5 + width * count > c.Size()) return false;
  size = 5 + width * count;
  for (std::uint32_t i = 0; i < count; ++i) {
    std::uint64_t at = 5 + width * i;
    if (itemType == PT_INT32) {
      c.U32(at, u32);
      v.numbers.push_back(u32);
    } else if (itemType == PT_INT64) {
      c.U64(at, u64);
      v.numbers.push_back(u64);
    } else if (itemType == PT_PARAMHANDLE) {
      c.U32(at, u32);
      v.lists.push_back(Child(child, u32, error));
      if (!error.empty()) return false;
    } else {  // strings and binaries: offsets from the end of the table
      c.U32(at, u32);
      std::uint64_t end = 0;
      v.items.emplace_back();
      if (!Item(c, itemType, 5 + 4ull * count + u32, v.items.back(), end)) return false;
      if (i + 1 == count) size = end;
    }
  }
  return true;
}

bool KnownType(int type) {
  int base = type & ~PT_ARRAY;
  return base >= PT_STRING && base <= PT_BINARY && (type & ~(PT_ARRAY | 7)) == 0;
}

}  // namespace

bool DecodeImage(const unsigned char* image, std::size_t size, const ChildResolver& child,
                 List& out, std::string& error) {
  std::size_t at = 0;
  while (at < size) {
    const std::string where = "record at byte " + std::to_string(at);
    std::size_t typeAt = at + image[at];
    // The name and at least one zero byte lie between the offset and the type byte.
    if (typeAt >= size || image[at] < 2 || !std::memchr(image + at + 1, 0, image[at] - 1)) {
      error = where + ": its header runs past the image";
      return false;
    }
    std::string name(reinterpret_cast<const char*>(image + at + 1));
    Value value;
    value.type = image[typeAt];
    if (!KnownType(value.type)) {
      error = where + " ('" + name + "'): unknown type byte " + std::to_string(value.type);
      return false;
    }
    std::uint64_t length = 0;
    if (!DecodeValue(Cursor(image + typeAt, size - typeAt), child, value, length, error)) {
      if (error.empty()) error = where + " ('" + name + "'): its value runs past the image";
      return false;
    }
    out.params.emplace_back(std::move(name), std::move(value));
    at = typeAt + length;
  }
  return true;
}

}  // namespace vxctl
