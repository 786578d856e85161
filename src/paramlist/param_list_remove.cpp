// SPDX-License-Identifier: MIT
// Removal of records, and the bookkeeping that keeps the child indexes of the
// remaining records pointing at the right entries of `children`.
#include <cstdint>
#include <cstring>
#include <utility>

#include "paramlist/param_list.h"
#include "runtime/little_endian.h"
#include "runtime/memory_buffer.h"

namespace vxbus {

namespace {

// Moves the entries that stay down over the released ones, keeping their
// order, and notes each one's new position in `newPosition` when given.
void CloseGaps(RefPtrArray<ParamList>& children, std::uint32_t* newPosition) {
  const std::uint32_t size = children.Size();
  std::uint32_t kept = 0;
  for (std::uint32_t p = 0; p < size; ++p) {
    if (!children[p].IsValid()) continue;
    if (newPosition != nullptr) newPosition[p] = kept;
    if (p != kept) children[kept] = std::move(children[p]);
    ++kept;
  }
  children.Truncate(kept);
}

}  // namespace

const VXPARAMINFO* ParamList::Remove(const VXPARAMINFO* record) {
  // A record of no stored type has no size to remove (only damage makes one).
  if (record == nullptr || !IsStoredType(record->GetValue()->type)) return nullptr;
  const auto* start = reinterpret_cast<const unsigned char*>(record);
  std::uint64_t offset = static_cast<std::uint64_t>(start - data);
  std::uint64_t length = record->GetSize();
  ReleaseChildrenOf(start);
  if (offset + length <= used) {
    std::memmove(data + offset, data + offset + length, used - offset - length);
    used -= static_cast<std::uint32_t>(length);
  }
  --body_.count;
  return offset < used ? reinterpret_cast<const VXPARAMINFO*>(data + offset) : nullptr;
}

const VXPARAMINFO* ParamList::RemoveByName(const char* name) {
  return Remove(Find(name));
}

// A record is this list's when its own name finds it; anything else, a
// stale pointer included, changes nothing.
const VXPARAMINFO* ParamList::RemoveByInfo(const VXPARAMINFO* record) {
  if (record == nullptr) return nullptr;
  auto at = reinterpret_cast<std::uintptr_t>(record);
  auto begin = reinterpret_cast<std::uintptr_t>(data);
  if (data == nullptr || at < begin || at >= begin + used) return nullptr;
  if (Find(record->name) != record) return nullptr;
  return Remove(record);
}

// Applies `renumber` to every child index in the image, in handle values and
// in every entry of handle arrays, except those of the record at `skip`.
template <class Renumber>
void ParamList::RenumberChildIndexes(const unsigned char* skip, Renumber renumber) {
  for (const VXPARAMINFO* r = First(); r != nullptr; r = Next(r)) {
    auto* record = const_cast<unsigned char*>(reinterpret_cast<const unsigned char*>(r));
    if (record == skip) continue;
    unsigned char* t = record + record[0];
    if (*t == kTypeHandle) {
      Store32(t + 1, renumber(Load32(t + 1)));
    } else if (*t == kTypeHandleArray) {
      std::uint32_t c = Load32(t + 1);
      for (unsigned char* id = t + 5; c != 0; --c, id += 4)
        Store32(id, renumber(Load32(id)));
    }
  }
}

// Indexes that do not name an entry (only a damaged image has them) are left
// alone rather than followed out of the array.
void ParamList::ReleaseChildrenOf(const unsigned char* record) {
  const unsigned char* t = record + record[0];
  RefPtrArray<ParamList>& children = body_.children;
  const std::uint32_t size = children.Size();

  if (*t == kTypeHandle) {
    const std::uint32_t gone = Load32(t + 1);
    if (gone == kNullIndex || gone >= size) return;
    if (gone != size - 1) {
      RenumberChildIndexes(nullptr, [gone](std::uint32_t id) {
        return id != kNullIndex && id > gone ? id - 1 : id;
      });
    }
    children.Erase(gone);
    return;
  }

  if (*t != kTypeHandleArray) return;

  // Release the array's entries; the others then close up in order.
  std::uint32_t c = Load32(t + 1);
  for (const unsigned char* id = t + 5; c != 0; --c, id += 4) {
    std::uint32_t i = Load32(id);
    if (i != kNullIndex && i < size) children[i].Reset();
  }

  // The table of new positions costs no heap up to 64 children. When the
  // heap refuses a larger one, each index is renumbered by counting the
  // entries released below it, which needs no memory; a removal never fails.
  VXMemoryBufferTpl<256> table;
  if (!table.Resize(4ull * size)) {
    RenumberChildIndexes(record, [&children, size](std::uint32_t id) {
      if (id == kNullIndex || id >= size) return id;
      if (!children[id].IsValid()) return 0u;
      std::uint32_t released = 0;
      for (std::uint32_t p = 0; p < id; ++p)
        released += children[p].IsValid() ? 0 : 1;
      return id - released;
    });
    CloseGaps(children, nullptr);
    return;
  }
  auto* newPosition = reinterpret_cast<std::uint32_t*>(table.data);
  if (size != 0) std::memset(newPosition, 0, 4ull * size);
  CloseGaps(children, newPosition);
  RenumberChildIndexes(record, [newPosition, size](std::uint32_t id) {
    return id != kNullIndex && id < size ? newPosition[id] : id;
  });
}

}  // namespace vxbus
