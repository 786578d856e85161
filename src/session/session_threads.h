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

// The poll periods that bound how long a local stop takes.
constexpr std::uint32_t kReaderPollMs = 5000;
constexpr std::int32_t kWriterPollMs = 200;

}  // namespace vxbus

#endif  // VXBUS_SESSION_SESSION_THREADS_H_
