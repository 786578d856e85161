// SPDX-License-Identifier: MIT
// Exported walking and removing functions.
#include "paramlist/handle.h"
#include "vxbus.h"

using vxbus::ListFromHandle;
using vxbus::ParamList;

const VXPARAMINFO* VXGetFirstParam(HVXPARAMLIST list) {
  const ParamList* l = ListFromHandle(list);
  return l == nullptr ? nullptr : l->First();
}

const VXPARAMINFO* VXGetNextParam(HVXPARAMLIST list, const VXPARAMINFO* info) {
  const ParamList* l = ListFromHandle(list);
  return l == nullptr ? nullptr : l->Next(info);
}

const VXPARAMINFO* VXParamInfo(HVXPARAMLIST list, const char* name) {
  const ParamList* l = ListFromHandle(list);
  return l == nullptr ? nullptr : l->Find(name);
}

// Kept as applications have always seen it: the index is counted down while
// the cursor stays on the first record, so the result is the second record
// (or null when there is only one) whatever the index.
const VXPARAMINFO* VXParamByIndex(HVXPARAMLIST list, std::uint32_t index) {
  const ParamList* l = ListFromHandle(list);
  if (l == nullptr) return nullptr;
  const VXPARAMINFO* cursor = l->First();
  if (cursor == nullptr) return nullptr;
  while (index != 0)
    --index;
  return l->Next(cursor);
}

const VXPARAMINFO* VXRemoveParamByInfo(HVXPARAMLIST list, const VXPARAMINFO* info) {
  ParamList* l = ListFromHandle(list);
  return l == nullptr ? nullptr : l->RemoveByInfo(info);
}

// A missing name is not an error.
VX_ERROR VXRemoveValue(HVXPARAMLIST list, const char* name) {
  ParamList* l = ListFromHandle(list);
  if (l == nullptr) return VX_ERROR_FAILED;
  l->RemoveByName(name);
  return VX_SUCCESS;
}

VX_ERROR VXRemoveAllValues(HVXPARAMLIST list) {
  ParamList* l = ListFromHandle(list);
  if (l == nullptr) return VX_ERROR_FAILED;
  l->Clear();
  return VX_SUCCESS;
}
