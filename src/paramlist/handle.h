// SPDX-License-Identifier: MIT
// A handle is the address of the list object itself; these are the only
// conversions between the two.
#ifndef VXBUS_PARAMLIST_HANDLE_H_
#define VXBUS_PARAMLIST_HANDLE_H_

#include "paramlist/param_list.h"
#include "vxbus.h"

namespace vxbus {

using ListRef = MTObjects::MTReferencedPtr<ParamList>;

inline ParamList* ListFromHandle(HVXPARAMLIST handle) {
  return static_cast<ParamList*>(handle.value);
}

inline HVXPARAMLIST HandleFromList(ParamList* list) {
  HVXPARAMLIST handle = {list};
  return handle;
}

}  // namespace vxbus

#endif  // VXBUS_PARAMLIST_HANDLE_H_
