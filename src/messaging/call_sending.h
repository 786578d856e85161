// SPDX-License-Identifier: MIT
// The sending half of a blocking call, shared by VXCall and the calls with a
// deadline; each waits for the message in its own way.
#ifndef VXBUS_MESSAGING_CALL_SENDING_H_
#define VXBUS_MESSAGING_CALL_SENDING_H_

#include <cstdint>

#include "session/message.h"
#include "vxbus.h"

namespace vxbus {

// Makes a call message with an event and hands it to the session's writer,
// or writes it on this thread while the writer is idle. Null when the peer
// is unknown or its session is not valid; never blocks on a queue.
MessageRef SendCall(const char* applicationName, std::uint32_t slotId, HVXPARAMLIST list);

// The caller's reference to the reply of a completed call (null after a
// teardown).
HVXPARAMLIST TakeReply(const MessageRef& message);

}  // namespace vxbus

#endif  // VXBUS_MESSAGING_CALL_SENDING_H_
