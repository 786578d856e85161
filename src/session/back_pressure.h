// SPDX-License-Identifier: MIT
// Bounds on the two kinds of message queue: a session's send queue and the
// process's dispatch queue, in bytes as VXMessageQueue counts them.
//
// The limits come from the limits record in force: limits.RESERVED_E bounds
// each session's send queue, limits.RESERVED_D the dispatch queue, and an
// eighth of it each session's share of the dispatch queue.
// Replies, failed calls and wake-ups are never held back: only one-way
// traffic from the application and requests read off a channel wait.
#ifndef VXBUS_SESSION_BACK_PRESSURE_H_
#define VXBUS_SESSION_BACK_PRESSURE_H_

#include <cstdint>

#include "session/session.h"
#include "vxbus.h"

namespace vxbus {

// How many sessions may fill their shares before the dispatch queue is full.
constexpr std::uint64_t kDispatchSharesPerQueue = 8;

// For VXNotify and what rides on it, before the message is queued on
// `session`. Blocks while the session's send queue has no room for it, at
// most limits.IO_TIMEOUT_MS (none when that is not positive). VX_SUCCESS when
// it may be queued now; VX_ERROR_QUEUE_FULL when the time ran out;
// VX_ERROR_NO_APPLICATION when the session stopped or the library began to
// shut down meanwhile. While the dispatch thread waits here, readers may
// fill the dispatch queue past its limit, as its slot may wait on them.
VX_ERROR AwaitSendRoom(Session& session, const MessageRef& message);
// The same for a message that counts `bytes` (VXMessageQueue::MessageBytes).
VX_ERROR AwaitSendRoom(Session& session, std::uint64_t bytes);

// For a session's reader, before it queues a request for the dispatch
// thread. Blocks while the session's share or the whole dispatch queue has
// no room (a session with nothing queued always has), unless the dispatch
// thread itself waits (for a reply that a reader must read, or for room to
// send). False when the session stopped, the library began to shut down, or
// the peer ended its stream meanwhile: Stop and VXShutdown wake the wait, and
// the peer's end is looked for every kPeerEndLookMs.
bool AwaitDispatchRoom(Session& session, const MessageRef& message);
// The same for a message that counts `bytes` (VXMessageQueue::MessageBytes).
bool AwaitDispatchRoom(Session& session, std::uint64_t bytes);
constexpr std::int32_t kPeerEndLookMs = 200;

}  // namespace vxbus

#endif  // VXBUS_SESSION_BACK_PRESSURE_H_
