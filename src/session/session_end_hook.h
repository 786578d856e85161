// SPDX-License-Identifier: MIT
// The hook through which the layers above learn that a session ended.
#ifndef VXBUS_SESSION_SESSION_END_HOOK_H_
#define VXBUS_SESSION_SESSION_END_HOOK_H_

#include <atomic>

namespace vxbus {

class Session;

// Called on a session's reader as the session ends, before the disconnect
// listener, so that the layers above can forget it. Set once at load.
using SessionEndHook = void (*)(Session* session);
void SetSessionEndHook(SessionEndHook hook);

// The hook in force; null until set.
extern std::atomic<SessionEndHook> g_sessionEndHook;

}  // namespace vxbus

#endif  // VXBUS_SESSION_SESSION_END_HOOK_H_
