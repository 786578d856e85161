// SPDX-License-Identifier: MIT
// The mark that the flow variants put into the caller's list. Nothing in the
// library reads it: it is for the applications at both ends.
#ifndef VXBUS_MESSAGING_FLOW_ID_H_
#define VXBUS_MESSAGING_FLOW_ID_H_

#include <cstdint>

#include "vxbus.h"

namespace vxbus {

constexpr char kFlowIdKey[] = "...FlowID";

// Stores `flowId` as an int32 under the flow key; a null list loses it silently.
inline void StoreFlowId(HVXPARAMLIST list, std::uint32_t flowId) {
  if (list.value != nullptr) VXSetInt32Value(list, kFlowIdKey, flowId);
}

}  // namespace vxbus

#endif  // VXBUS_MESSAGING_FLOW_ID_H_
