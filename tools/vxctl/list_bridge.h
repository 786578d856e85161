// SPDX-License-Identifier: MIT
// Moves lists between the library's handles and the List model.
#ifndef VXCTL_LIST_BRIDGE_H_
#define VXCTL_LIST_BRIDGE_H_

#include <string>

#include "list_model.h"
#include "vxbus.h"

namespace vxctl {

// A new list with the contents of `list`; the caller owns (closes) the handle.
HVXPARAMLIST ToHandle(const List& list);

// Sets the parameters of `list` on the existing list `handle`, in order.
void FillHandle(HVXPARAMLIST handle, const List& list);

// The contents of `handle` and everything nested in it, read from its image.
// Null with a reason in `error` for a list nested deeper than kMaxDepth (which
// also catches a list that holds itself). The handle stays the caller's.
ListPtr FromHandle(HVXPARAMLIST handle, std::string& error);

}  // namespace vxctl

#endif  // VXCTL_LIST_BRIDGE_H_
