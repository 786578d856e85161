// SPDX-License-Identifier: MIT
// Creating, sharing, closing, cloning and copying lists through handles.
#include <cstring>
#include <new>

#include "paramlist/handle.h"
#include "runtime/little_endian.h"
#include "runtime/memory_buffer.h"
#include "vxbus.h"

using MTObjects::ReferenceAccess;
using vxbus::HandleFromList;
using vxbus::ListFromHandle;
using vxbus::ListRef;
using vxbus::ParamList;

extern "C" VXBUS_API const HVXPARAMLIST VX_INVALID_PARAMLIST = {nullptr};

namespace {

// Scratch arrays for one record: 512 bytes on the stack, more on the private
// heap until the end of that record.
using Scratch = vxbus::VXMemoryBufferTpl<512>;

// Sets one record of `from` on `to` under the record's own name. A type byte
// that no setter takes causes no Set; the walk's next step then reports it.
void CopyRecord(const ParamList& from, const VXPARAMINFO* record, ParamList& to) {
  const char* name = record->name;
  const VXPARAMVALUE* value = record->GetValue();
  const unsigned char* t = value->Bytes();
  switch (value->type) {
    case PT_STRING:
      to.SetString(name, reinterpret_cast<const char*>(t + 1));
      return;
    case PT_INT32:
      to.SetInt32(name, vxbus::Load32(t + 1));
      return;
    case PT_INT64:
      to.SetInt64(name, vxbus::Load64(t + 1));
      return;
    case PT_BINARY:
      to.SetBinary(name, t + 5, vxbus::Load32(t + 1));
      return;
    case PT_PARAMHANDLE: {
      // The nested list is shared, not copied. An index that names no entry
      // (the null index) copies as a null handle.
      std::uint32_t id = vxbus::Load32(t + 1);
      to.SetHandle(name, id < from.ChildCount() ? from.ChildRef(id) : ListRef());
      return;
    }
    case PT_ARRAY | PT_STRING: {
      std::uint32_t c = value->Count();
      Scratch scratch;
      if (!scratch.Resize(8ull * c + 4)) return;
      auto* texts = reinterpret_cast<const char**>(scratch.data);
      for (std::uint32_t i = 0; i < c; ++i)
        texts[i] = value->GetString(i);
      to.SetStringArray(name, texts, c);
      return;
    }
    case PT_ARRAY | PT_INT32:
      to.SetInt32Array(name, t + 5, value->Count());
      return;
    case PT_ARRAY | PT_INT64:
      to.SetInt64Array(name, t + 5, value->Count());
      return;
    case PT_ARRAY | PT_BINARY: {
      std::uint32_t c = value->Count();
      Scratch scratch;
      if (!scratch.Resize(12ull * c + 4)) return;
      auto* items = reinterpret_cast<BINARYITEM*>(scratch.data);
      for (std::uint32_t i = 0; i < c; ++i) {
        const BINARYVALUE* item = value->GetBinary(i);
        items[i].length = item->length;
        items[i].data = item->data;
      }
      to.SetBinaryArray(name, items, c);
      return;
    }
    case PT_ARRAY | PT_PARAMHANDLE: {
      // Kept as applications have always seen it: the array is filled from
      // the first c children by position, not from the stored indexes, and
      // these references are never released, so each of those children
      // outlives all of its parents.
      std::uint32_t c = value->Count();
      Scratch scratch;
      if (!scratch.Resize(8ull * c + 4)) return;
      auto* lists = reinterpret_cast<ListRef*>(scratch.data);
      for (std::uint32_t i = 0; i < c; ++i) {
        new (&lists[i]) ListRef(i < from.ChildCount() ? from.Child(i) : nullptr);
      }
      to.SetHandleArray(name, lists, c);
      return;
    }
    default:
      return;
  }
}

}  // namespace

HVXPARAMLIST VXCreateParamList(void) {
  ParamList* list = new ParamList;
  if (list == nullptr) return VX_INVALID_PARAMLIST;
  ReferenceAccess::AddRef(list);
  return HandleFromList(list);
}

HVXPARAMLIST VXReferenceHandle(HVXPARAMLIST list) {
  if (ParamList* l = ListFromHandle(list)) ReferenceAccess::AddRef(l);
  return list;
}

std::int32_t VXCloseHandle(HVXPARAMLIST list) {
  if (ParamList* l = ListFromHandle(list)) ReferenceAccess::Release(l);
  return 0;
}

// Same contents in a new image of exactly the source's size; the nested lists
// are shared, so the ids in the copied image stay right.
HVXPARAMLIST VXCloneHandle(HVXPARAMLIST list) {
  const ParamList* from = ListFromHandle(list);
  if (from == nullptr) return VX_INVALID_PARAMLIST;
  ListRef clone(new ParamList);
  if (!clone || !clone->Reserve(from->Used())) return VX_INVALID_PARAMLIST;
  clone->AppendExact(from->Data(), from->Used());
  for (std::uint32_t i = 0; i < from->ChildCount(); ++i)
    if (!clone->AppendChild(from->ChildRef(i))) return VX_INVALID_PARAMLIST;
  // The source is whole, so its copy counts without fault.
  clone->Recount();
  return HandleFromList(clone.Detach());
}

// Merges the source's records into the destination, one Set each, in the
// source's order. A null or same destination is refused: the walk would
// write into the list it reads.
std::int32_t VXCopyHandle(HVXPARAMLIST source, HVXPARAMLIST destination) {
  const ParamList* from = ListFromHandle(source);
  if (from == nullptr) return 0;
  const VXPARAMINFO* record = from->First();
  if (record == nullptr) return 0;
  ParamList* to = ListFromHandle(destination);
  if (to == nullptr || to == from) return 0;
  for (; record != nullptr; record = from->Next(record))
    CopyRecord(*from, record, *to);
  return 0;
}

// Borrowed: no reference is added.
HVXPARAMLIST VXGetHandleById(HVXPARAMLIST list, std::uint32_t id) {
  const ParamList* l = ListFromHandle(list);
  if (l == nullptr || id >= l->ChildCount()) return VX_INVALID_PARAMLIST;
  return HandleFromList(l->Child(id));
}

std::uint32_t VXGetHandleSize(HVXPARAMLIST list) {
  const ParamList* l = ListFromHandle(list);
  return l == nullptr ? 0 : l->Used();
}

std::uint32_t VXGetParamCount(HVXPARAMLIST list) {
  const ParamList* l = ListFromHandle(list);
  return l == nullptr ? 0 : l->Count();
}
