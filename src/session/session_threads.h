// SPDX-License-Identifier: MIT
// What the layers around the session threads need of them: the end hook, a
// wait for all of them, and their poll periods. The threads themselves are
// members of the session (application.h).
#ifndef VXBUS_SESSION_SESSION_THREADS_H_
#define VXBUS_SESSION_SESSION_THREADS_H_

#include <chrono>

#include "session/session.h"

namespace vxbus {

// Called on a session's reader as the session ends, before the disconnect
// listener, so that the layers above can forget it. Set once at load.
using SessionEndHook = void (*)(Session* session);
void SetSessionEndHook(SessionEndHook hook);

// Waits until no session thread runs any more; false when `limit` passed first.
bool WaitForSessionThreadsToEnd(std::chrono::milliseconds limit);

// The poll periods that bound how long a local stop takes. Every stop of a
// writer (a local stop, the reader's end, a failed write, a shutdown through
// the local stops) wakes its queue, so the writer's period is only a
// backstop; the designed 200 ms woke each idle session five times a second.
constexpr std::uint32_t kReaderPollMs = 5000;
constexpr std::int32_t kWriterPollMs = 5000;

}  // namespace vxbus

#endif  // VXBUS_SESSION_SESSION_THREADS_H_
