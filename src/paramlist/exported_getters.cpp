// SPDX-License-Identifier: MIT
// Exported getters. Each looks its name up and answers only for the one type
// it reads; anything else is answered as a missing parameter. Pointers point
// into the image and live until the list's next change.
#include <cstring>

#include "paramlist/handle.h"
#include "runtime/little_endian.h"
#include "vxbus.h"

using vxbus::HandleFromList;
using vxbus::ListFromHandle;
using vxbus::ParamList;

namespace {

// The value of `name` when it has the type `type`, else null.
const VXPARAMVALUE* ValueOf(HVXPARAMLIST list, const char* name, int type) {
  const ParamList* l = ListFromHandle(list);
  if (l == nullptr) return nullptr;
  const VXPARAMINFO* record = l->Find(name);
  if (record == nullptr) return nullptr;
  const VXPARAMVALUE* value = record->GetValue();
  return value->type == type ? value : nullptr;
}

template <class Item, class Get>
std::uint32_t CopyOutItems(const VXPARAMVALUE* value, Item* out, std::uint32_t maxItems,
                           std::uint32_t start, Get get) {
  if (value == nullptr || maxItems == 0) return 0;
  std::uint32_t filled = 0;
  for (std::uint32_t i = start; i < value->Count() && filled < maxItems; ++i) {
    out[filled++] = get(value, i);
  }
  return filled;
}

// An array value in place: its count and a pointer to its first element.
// Count 0 and a null pointer when the list, the name or the type doesn't fit.
template <class Result, class Element>
Result InPlaceArray(HVXPARAMLIST list, const char* name, int type) {
  Result result = {0, nullptr};
  if (const VXPARAMVALUE* v = ValueOf(list, name, type)) {
    result.count = v->Count();
    result.data = reinterpret_cast<const Element*>(v->Bytes() + 5);
  }
  return result;
}
}  // namespace

const char* VXGetStringValue(HVXPARAMLIST list, const char* name) {
  const VXPARAMVALUE* v = ValueOf(list, name, PT_STRING);
  return v == nullptr ? nullptr : reinterpret_cast<const char*>(v->Bytes() + 1);
}

std::uint32_t VXGetInt32Value(HVXPARAMLIST list, const char* name) {
  const VXPARAMVALUE* v = ValueOf(list, name, PT_INT32);
  return v == nullptr ? 0 : vxbus::Load32(v->Bytes() + 1);
}

std::uint64_t VXGetInt64Value(HVXPARAMLIST list, const char* name) {
  const VXPARAMVALUE* v = ValueOf(list, name, PT_INT64);
  if (v == nullptr) return 0;
  return vxbus::Load64(v->Bytes() + 1);
}

const BINARYVALUE* VXGetBinaryValue(HVXPARAMLIST list, const char* name) {
  const VXPARAMVALUE* v = ValueOf(list, name, PT_BINARY);
  return v == nullptr ? nullptr : reinterpret_cast<const BINARYVALUE*>(v->Bytes() + 1);
}

// The one getter that hands out a reference: the caller closes it.
HVXPARAMLIST VXGetHandleValue(HVXPARAMLIST list, const char* name) {
  const VXPARAMVALUE* v = ValueOf(list, name, PT_PARAMHANDLE);
  if (v == nullptr) return VX_INVALID_PARAMLIST;
  std::uint32_t id = vxbus::Load32(v->Bytes() + 1);
  const ParamList* l = ListFromHandle(list);
  if (id >= l->ChildCount() || l->Child(id) == nullptr) return VX_INVALID_PARAMLIST;
  ParamList* child = l->Child(id);
  MTObjects::ReferenceAccess::AddRef(child);
  return HandleFromList(child);
}

VXDWORDARRAY VXGetInt32Array(HVXPARAMLIST list, const char* name) {
  return InPlaceArray<VXDWORDARRAY, std::uint32_t>(list, name, PT_ARRAY | PT_INT32);
}

// Answers for the 32-bit array type, not the 64-bit one, and hands out its
// elements under the 64-bit type. Applications rely on this as it stands.
VXQWORDARRAY VXGetInt64Array(HVXPARAMLIST list, const char* name) {
  return InPlaceArray<VXQWORDARRAY, std::uint64_t>(list, name, PT_ARRAY | PT_INT32);
}

// Ids, not handles: each goes through VXGetHandleById and may be the null index.
VXDWORDARRAY VXGetHandleArray(HVXPARAMLIST list, const char* name) {
  return InPlaceArray<VXDWORDARRAY, std::uint32_t>(list, name, PT_ARRAY | PT_PARAMHANDLE);
}

std::uint32_t VXGetStringArray(HVXPARAMLIST list, const char* name, const char** out,
                               std::uint32_t maxItems, std::uint32_t start) {
  return CopyOutItems(ValueOf(list, name, PT_ARRAY | PT_STRING), out, maxItems, start,
                      [](const VXPARAMVALUE* v, std::uint32_t i) { return v->GetString(i); });
}

std::uint32_t VXGetBinaryArray(HVXPARAMLIST list, const char* name, const BINARYVALUE** out,
                               std::uint32_t maxItems, std::uint32_t start) {
  return CopyOutItems(ValueOf(list, name, PT_ARRAY | PT_BINARY), out, maxItems, start,
                      [](const VXPARAMVALUE* v, std::uint32_t i) { return v->GetBinary(i); });
}
