// SPDX-License-Identifier: MIT
// A handle is the address of the list object itself; these are the only
// conversions between the two.
#ifndef VXBUS_PARAMLIST_HANDLE_H_
#define VXBUS_PARAMLIST_HANDLE_H_

#include "paramlist/fast_holder.h"
#include "vxbus.h"

namespace vxbus {

using ListRef = MTObjects::MTReferencedPtr<FastHolderImpl>;

inline FastHolderImpl* ListFromHandle(HVXPARAMLIST handle) {
  return static_cast<FastHolderImpl*>(handle.value);
}

inline HVXPARAMLIST HandleFromList(FastHolderImpl* list) {
  HVXPARAMLIST handle = {list};
  return handle;
}

}  // namespace vxbus

#endif  // VXBUS_PARAMLIST_HANDLE_H_
