// SPDX-License-Identifier: MIT
// Exported setters: -1 for a null list or when the private heap refuses the
// room for the record (the list is then as it was), otherwise 0. Nothing
// about names, sizes, counts or data pointers is tested here.
#include <new>

#include "paramlist/handle.h"
#include "runtime/memory_buffer.h"
#include "vxbus.h"

using vxbus::ListFromHandle;
using vxbus::ListRef;
using vxbus::ParamList;

namespace {

template <class Set>
VX_ERROR SetOn(HVXPARAMLIST list, Set set) {
  ParamList* l = ListFromHandle(list);
  if (l == nullptr) return VX_ERROR_FAILED;
  return set(*l) ? VX_SUCCESS : VX_ERROR_FAILED;
}

}  // namespace

VX_ERROR VXSetStringValue(HVXPARAMLIST list, const char* name, const char* value) {
  return SetOn(list, [&](ParamList& l) { return l.SetString(name, value); });
}

VX_ERROR VXSetInt32Value(HVXPARAMLIST list, const char* name, std::uint32_t value) {
  return SetOn(list, [&](ParamList& l) { return l.SetInt32(name, value); });
}

VX_ERROR VXSetInt64Value(HVXPARAMLIST list, const char* name, std::uint64_t value) {
  return SetOn(list, [&](ParamList& l) { return l.SetInt64(name, value); });
}

VX_ERROR VXSetBinaryValue(HVXPARAMLIST list, const char* name, const void* data,
                          std::uint32_t length) {
  return SetOn(list, [&](ParamList& l) { return l.SetBinary(name, data, length); });
}

// A null item stores an empty value rather than reading through null.
VX_ERROR VXSetBinaryItem(HVXPARAMLIST list, const char* name, const BINARYITEM* item) {
  return SetOn(list, [&](ParamList& l) {
    if (item == nullptr) return l.SetBinary(name, nullptr, 0);
    return l.SetBinary(name, item->data, item->length);
  });
}

// The list takes a reference of its own; the caller keeps theirs.
VX_ERROR VXSetHandleValue(HVXPARAMLIST list, const char* name, HVXPARAMLIST value) {
  return SetOn(list,
               [&](ParamList& l) { return l.SetHandle(name, ListRef(ListFromHandle(value))); });
}

VX_ERROR VXSetStringArray(HVXPARAMLIST list, const char* name, std::uint32_t count,
                          const char* const* values) {
  return SetOn(list, [&](ParamList& l) { return l.SetStringArray(name, values, count); });
}

VX_ERROR VXSetInt32Array(HVXPARAMLIST list, const char* name, std::uint32_t count,
                         const std::uint32_t* values) {
  return SetOn(list, [&](ParamList& l) { return l.SetInt32Array(name, values, count); });
}

VX_ERROR VXSetInt64Array(HVXPARAMLIST list, const char* name, std::uint32_t count,
                         const std::uint64_t* values) {
  return SetOn(list, [&](ParamList& l) { return l.SetInt64Array(name, values, count); });
}

VX_ERROR VXSetBinaryArray(HVXPARAMLIST list, const char* name, std::uint32_t count,
                          const void* const* data, const std::uint32_t* lengths) {
  return SetOn(list, [&](ParamList& l) { return l.SetBinaryArray(name, data, lengths, count); });
}

VX_ERROR VXSetBinaryItemArray(HVXPARAMLIST list, const char* name, std::uint32_t count,
                              const BINARYITEM* items) {
  return SetOn(list, [&](ParamList& l) { return l.SetBinaryArray(name, items, count); });
}

// The caller's handles are borrowed: each gets a temporary reference for the
// call, and the list adds its own.
VX_ERROR VXSetHandleArray(HVXPARAMLIST list, const char* name, std::uint32_t count,
                          const HVXPARAMLIST* values) {
  return SetOn(list, [&](ParamList& l) {
    vxbus::VXMemoryBufferTpl<512> scratch;
    if (!scratch.Resize(8ull * count + 4)) return false;
    auto* refs = reinterpret_cast<ListRef*>(scratch.data);
    for (std::uint32_t i = 0; i < count; ++i)
      new (&refs[i]) ListRef(ListFromHandle(values[i]));
    const bool set = l.SetHandleArray(name, refs, count);
    for (std::uint32_t i = 0; i < count; ++i)
      refs[i].~ListRef();
    return set;
  });
}
