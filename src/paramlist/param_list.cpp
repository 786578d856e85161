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
  if (record == nullptr || !IsStoredType(record->GetValue()->type)) return nullptr;
  const auto* start = reinterpret_cast<const unsigned char*>(record);
  std::size_t end =
      static_cast<std::size_t>(start - data) + record->valueOffset + record->GetValue()->GetSize();
  // Only a damaged image overruns, and images are checked as they arrive:
  // the walk ends there rather than read past the bytes.
  if (end >= used) return nullptr;
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

Status ParamList::Recount() {
  std::uint32_t offset = 0;
  while (offset < used) {
    const Status step = CheckedNextOffset(offset, &offset);
    if (!step.ok()) return step;
    ++body_.count;
  }
  return Status::Ok();
}

// The same step as Next, for images that came from outside. Every byte that
// the size computation reads, and every item of an array, is first shown to
// lie below `used` in 64-bit arithmetic, so a damaged image ends the walk
// with a status instead of a read past the buffer or a wrapped length.
Status ParamList::CheckedNextOffset(std::uint32_t offset, std::uint32_t* next) const {
  const Status outside = Status::BadInput("a list record that runs past its image");
  const std::uint64_t limit = used;
  const std::uint64_t t = static_cast<std::uint64_t>(offset) + data[offset];
  if (t >= limit) return outside;
  // The name ends with a zero before the type byte, so lookups by name and
  // the printer stop inside the record.
  if (t < static_cast<std::uint64_t>(offset) + 2 ||
      std::memchr(data + offset + 1, 0, t - offset - 1) == nullptr)
    return Status::BadInput("a list record whose name has no end");
  // The store puts every type byte last in a 4-byte group and every array
  // item at a multiple of 4, so values are 4-aligned and callers may read
  // them through the exported records; an image that does otherwise is damaged.
  if (t % 4 != 3) return Status::BadInput("a list value that is not 4-aligned");
  const unsigned char type = data[t];
  // A failed check clears `inside`; what a check reads after that is still
  // within the image, and the result is thrown away.
  bool inside = true;
  auto require = [&inside](bool holds) { inside = inside && holds; };
  auto word = [&](std::uint64_t at) -> std::uint64_t {
    if (at + 4 > limit) {
      inside = false;
      return 0;
    }
    return Load32(data + at);
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
      for (std::uint64_t i = 0; inside && i < c; ++i) {
        const std::uint64_t itemOffset = word(t + 5 + 4 * i);
        require(itemOffset % 4 == 0);
        std::uint64_t item = items + itemOffset;
        require(type == (PT_ARRAY | PT_STRING) ? lastNul < limit && item <= lastNul
                                               : binaryEndsInside(item));
      }
      break;
    }
    default:
      // Fixed sizes, checked below; GetSize knows no size for other bytes.
      if (!IsStoredType(type)) return Status::BadInput("a list value of an unknown type");
      break;
  }
  if (!inside) return outside;
  const std::uint64_t end = t + reinterpret_cast<const VXPARAMVALUE*>(data + t)->GetSize();
  if (end > limit) return outside;
  *next = static_cast<std::uint32_t>(end);
  return Status::Ok();
}

}  // namespace vxbus
