// SPDX-License-Identifier: MIT
// The two built-in slots through which peers subscribe to this process's signals.
#ifndef VXBUS_MESSAGING_SIGNALS_H_
#define VXBUS_MESSAGING_SIGNALS_H_

#include "vxbus.h"

namespace vxbus {

// Slot -1: appends the sender as a subscriber of the named signal.
_tag_VX_ERROR SubscribeSlot(HVXPARAMLIST input, HVXPARAMLIST output, VXSlotContext* context);
// Slot -2: removes the sender's first matching subscription.
_tag_VX_ERROR UnsubscribeSlot(HVXPARAMLIST input, HVXPARAMLIST output, VXSlotContext* context);

}  // namespace vxbus

#endif  // VXBUS_MESSAGING_SIGNALS_H_
