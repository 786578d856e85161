// SPDX-License-Identifier: MIT
#include "session/session_end_hook.h"

namespace vxbus {

std::atomic<SessionEndHook> g_sessionEndHook{nullptr};

void SetSessionEndHook(SessionEndHook hook) {
  g_sessionEndHook.store(hook, std::memory_order_release);
}

}  // namespace vxbus
