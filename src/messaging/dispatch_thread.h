// The one thread of a process that runs slot functions.
#ifndef VXBUS_MESSAGING_DISPATCH_THREAD_H_
#define VXBUS_MESSAGING_DISPATCH_THREAD_H_

namespace vxbus {

// Runs until the process shuts down with no session left. Requests reach it
// through g_dispatchQueue in arrival order, across all sessions.
void DispatchThread();

}  // namespace vxbus

#endif  // VXBUS_MESSAGING_DISPATCH_THREAD_H_
