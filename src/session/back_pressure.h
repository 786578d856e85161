// Bounds on the two kinds of message queue: a session's send queue and the
// process's dispatch queue, in bytes as VXMessageQueue counts them.
//
// The limits come from the limits record in force: limits.RESERVED_E bounds
// each session's send queue, limits.RESERVED_D the dispatch queue.
// Replies, failed calls and wake-ups are never held back: only one-way
// traffic from the application and requests read off a channel wait.
#ifndef VXBUS_SESSION_BACK_PRESSURE_H_
#define VXBUS_SESSION_BACK_PRESSURE_H_

#include <cstdint>

#include "session/application.h"
#include "vxbus.h"

namespace vxbus {

std::uint64_t SendQueueLimitBytes();
std::uint64_t DispatchQueueLimitBytes();

// For VXNotify and what rides on it, before the message is queued on
// `session`. Blocks while the session's send queue has no room for it, at
// most limits.IO_TIMEOUT_MS (none when that is not positive). VX_SUCCESS when
// it may be queued now; VX_ERROR_QUEUE_FULL when the time ran out;
// VX_ERROR_NO_APPLICATION when the session stopped or the library began to
// shut down meanwhile. While the dispatch thread waits here, readers may
// fill the dispatch queue past its limit, as its slot may wait on them.
_tag_VX_ERROR AwaitSendRoom(VXAPPImpl& session, const MessageRef& message);

// For a session's reader, before it queues a request for the dispatch
// thread. Blocks without a time limit while the dispatch queue has no room,
// unless the dispatch thread itself waits (for a reply that a reader must
// read, or for room to send). False when the session stopped or the library
// began to shut down meanwhile: Stop and VXShutdown wake the wait.
bool AwaitDispatchRoom(VXAPPImpl& session, const MessageRef& message);

}  // namespace vxbus

#endif  // VXBUS_SESSION_BACK_PRESSURE_H_
