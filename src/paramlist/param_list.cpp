// SPDX-License-Identifier: MIT
#include "paramlist/param_list.h"

#include <cstring>

#include "runtime/block_pool.h"
#include "runtime/object_counters.h"

namespace vxbus {

namespace {

const VXPARAMINFO* AsRecord(const unsigned char* p) {
  return reinterpret_cast<const VXPARAMINFO*>(p);
}

}  // namespace

ParamList::ParamList() {
  body_.owner = this;
  ++Counters().liveParamLists;
}

// The counter goes down before anything is released, so a nested list that
// dies with this one is counted out after its parent.
ParamList::~ParamList() {
  --Counters().liveParamLists;
}

void* ParamList::operator new(std::size_t size) noexcept {
  return PooledAllocate(size);
}

void ParamList::operator delete(void* pointer, std::size_t size) noexcept {
  PooledFree(pointer, size);
}

const VXPARAMINFO* ParamList::First() const {
  return used == 0 ? nullptr : AsRecord(data);
}

const VXPARAMINFO* ParamList::Next(const VXPARAMINFO* record) const {
  if (record == nullptr) return nullptr;
  const auto* start = reinterpret_cast<const unsigned char*>(record);
  std::size_t end =
      static_cast<std::size_t>(start - data) + record->valueOffset + record->GetValue()->GetSize();
  if (end == used) return nullptr;
  if (end > used) throw NoDataExeption();
  return AsRecord(data + end);
}

const VXPARAMINFO* ParamList::Find(const char* name) const {
  for (const VXPARAMINFO* r = First(); r != nullptr; r = Next(r)) {
    if (r->name[0] == name[0] && std::strcmp(r->name, name) == 0) return r;
  }
  return nullptr;
}

void ParamList::Clear() {
  body_.count = 0;
  body_.children.Clear();
  used = 0;
}

void ParamList::Recount() {
  for (std::uint32_t offset = 0; offset < used; offset = CheckedNextOffset(offset)) {
    ++body_.count;
  }
}

// The same step as Next, for images that came from outside. Every byte that
// the size computation reads, and every item of an array, is first shown to
// lie below `used` in 64-bit arithmetic, so a damaged image ends the walk with
// an exception instead of a read past the buffer or a wrapped length.
std::uint32_t ParamList::CheckedNextOffset(std::uint32_t offset) const {
  const std::uint64_t limit = used;
  const std::uint64_t t = static_cast<std::uint64_t>(offset) + data[offset];
  if (t >= limit) throw NoDataExeption();
  // The name ends with a zero before the type byte, so lookups by name and
  // the printer stop inside the record.
  if (t < static_cast<std::uint64_t>(offset) + 2 ||
      std::memchr(data + offset + 1, 0, t - offset - 1) == nullptr)
    throw NoDataExeption();
  // The store puts every type byte last in a 4-byte group and every array
  // item at a multiple of 4, so values are 4-aligned and callers may read
  // them through the exported records; an image that does otherwise is damaged.
  if (t % 4 != 3) throw NoDataExeption();
  const unsigned char type = data[t];
  auto require = [](bool inside) {
    if (!inside) throw NoDataExeption();
  };
  auto word = [&](std::uint64_t at) {
    require(at + 4 <= limit);
    return static_cast<std::uint64_t>(Load32(data + at));
  };
  auto textEndsInside = [&](std::uint64_t from) {
    return from < limit && std::memchr(data + from, 0, limit - from) != nullptr;
  };
  auto binaryEndsInside = [&](std::uint64_t from) { return from + 4 + word(from) <= limit; };
  switch (type) {
    case PT_STRING:
      require(textEndsInside(t + 1));
      break;
    case PT_BINARY:
      require(binaryEndsInside(t + 1));
      break;
    case PT_ARRAY | PT_INT32:
    case PT_ARRAY | PT_PARAMHANDLE:
      require(t + 5 + 4 * word(t + 1) <= limit);
      break;
    case PT_ARRAY | PT_INT64:
      require(t + 5 + 8 * word(t + 1) <= limit);
      break;
    case PT_ARRAY | PT_STRING:
    case PT_ARRAY | PT_BINARY: {
      const std::uint64_t c = word(t + 1);
      const std::uint64_t items = t + 5 + 4 * c;
      require(items <= limit);
      // A string item is whole when a NUL follows its start inside the image,
      // that is when it starts at or before the image's last NUL.
      std::uint64_t lastNul = limit;
      if (type == (PT_ARRAY | PT_STRING)) {
        for (std::uint64_t p = limit; p > items;) {
          if (data[--p] == 0) {
            lastNul = p;
            break;
          }
        }
      }
      for (std::uint64_t i = 0; i < c; ++i) {
        const std::uint64_t itemOffset = word(t + 5 + 4 * i);
        require(itemOffset % 4 == 0);
        std::uint64_t item = items + itemOffset;
        require(type == (PT_ARRAY | PT_STRING) ? lastNul < limit && item <= lastNul
                                               : binaryEndsInside(item));
      }
      break;
    }
    default:
      break;  // fixed sizes, or a byte for which GetSize throws DataDamaged
  }
  const std::uint64_t end = t + reinterpret_cast<const VXPARAMVALUE*>(data + t)->GetSize();
  require(end <= limit);
  return static_cast<std::uint32_t>(end);
}

}  // namespace vxbus
