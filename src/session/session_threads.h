// The reader and writer threads of a session, and the gates that hold them
// while the handshake runs on the set-up thread.
#ifndef VXBUS_SESSION_SESSION_THREADS_H_
#define VXBUS_SESSION_SESSION_THREADS_H_

#include <chrono>

#include "session/application.h"

namespace vxbus {

// Starts both threads, parked at their go gates. A thread that can't be made
// raises the standard system error, so the result is true whenever it returns.
bool StartThreads(VXAPPImpl* session);
// Lets both threads go and waits until the reader has registered the session
// (when it is established). Always true.
bool ReleaseThreads(VXAPPImpl* session);

// Called on a session's reader as the session ends, before the disconnect
// listener, so that the layers above can forget it. Set once at load.
using SessionEndHook = void (*)(VXAPPImpl* session);
void SetSessionEndHook(SessionEndHook hook);

// Waits until no session thread runs any more; false when `limit` passed first.
bool WaitForSessionThreadsToEnd(std::chrono::milliseconds limit);

// The poll periods that bound how long a local stop takes.
constexpr std::uint32_t kReaderPollMs = 5000;
constexpr std::int32_t kWriterPollMs = 200;

}  // namespace vxbus

#endif  // VXBUS_SESSION_SESSION_THREADS_H_
