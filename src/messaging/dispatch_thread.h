// SPDX-License-Identifier: MIT
// The one thread of a process that runs slot functions.
#ifndef VXBUS_MESSAGING_DISPATCH_THREAD_H_
#define VXBUS_MESSAGING_DISPATCH_THREAD_H_

namespace vxbus {

// Runs until the process shuts down with no session left. Requests reach it
// through the dispatch queue, which serves the sessions in turn: one request of
// each session that has any, then the next round; a session's own requests
// run in their order.
void DispatchThread();

}  // namespace vxbus

#endif  // VXBUS_MESSAGING_DISPATCH_THREAD_H_
