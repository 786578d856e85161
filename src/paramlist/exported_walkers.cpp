// SPDX-License-Identifier: MIT
// Exported walking and removing functions.
#include "paramlist/handle.h"
#include "vxbus.h"

using vxbus::ListFromHandle;
using vxbus::ParamList;

const _tag_VXPARAMINFO* VXGetFirstParam(HVXPARAMLIST list) {
  const ParamList* l = ListFromHandle(list);
  return l == nullptr ? nullptr : l->First();
}

const _tag_VXPARAMINFO* VXGetNextParam(HVXPARAMLIST list, const _tag_VXPARAMINFO* info) {
  const ParamList* l = ListFromHandle(list);
  return l == nullptr ? nullptr : l->Next(info);
}

const _tag_VXPARAMINFO* VXParamInfo(HVXPARAMLIST list, const char* name) {
  const ParamList* l = ListFromHandle(list);
  return l == nullptr ? nullptr : l->Find(name);
}

// Kept as applications have always seen it: the index is counted down while
// the cursor stays on the first record, so the result is the second record
// (or null when there is only one) whatever the index.
const _tag_VXPARAMINFO* VXParamByIndex(HVXPARAMLIST list, std::uint32_t index) {
  const ParamList* l = ListFromHandle(list);
  if (l == nullptr) return nullptr;
  const _tag_VXPARAMINFO* cursor = l->First();
  if (cursor == nullptr) return nullptr;
  while (index != 0)
    --index;
  return l->Next(cursor);
}

const _tag_VXPARAMINFO* VXRemoveParamByInfo(HVXPARAMLIST list, const _tag_VXPARAMINFO* info) {
  ParamList* l = ListFromHandle(list);
  return l == nullptr ? nullptr : l->RemoveByInfo(info);
}

// A missing name is not an error.
_tag_VX_ERROR VXRemoveValue(HVXPARAMLIST list, const char* name) {
  ParamList* l = ListFromHandle(list);
  if (l == nullptr) return VX_ERROR_FAILED;
  l->RemoveByName(name);
  return VX_SUCCESS;
}

_tag_VX_ERROR VXRemoveAllValues(HVXPARAMLIST list) {
  ParamList* l = ListFromHandle(list);
  if (l == nullptr) return VX_ERROR_FAILED;
  l->Clear();
  return VX_SUCCESS;
}
