// SPDX-License-Identifier: MIT
#include "session/session_threads.h"

namespace vxbus {

thread_local bool t_onSessionThread = false;

// Never destroyed: a detached thread may still report its end while the
// process runs its exit handlers.
LiveThreads& LiveSessionThreads() {
  static LiveThreads* threads = new LiveThreads;
  return *threads;
}

bool WaitForSessionThreadsToEnd(std::chrono::milliseconds limit) {
  return LiveSessionThreads().WaitForNone(limit);
}

}  // namespace vxbus
