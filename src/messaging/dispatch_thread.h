// SPDX-License-Identifier: MIT
// The one thread of a process that runs slot functions.
#ifndef VXBUS_MESSAGING_DISPATCH_THREAD_H_
#define VXBUS_MESSAGING_DISPATCH_THREAD_H_

#include "session/message_queue.h"

namespace vxbus {

// Runs until the process shuts down with no session left. Requests reach it
// through the dispatch queue, which serves the sessions in turn: one request of
// each session that has any, then the next round; a session's own requests
// run in their order.
void DispatchThread();

// Once the dispatch thread has ended: lets go of what is left in its queue,
// unrun, and counts it. A call of this process whose request could not be
// written is completed as the thread would have.
QueueTally DropDispatchBacklog();

}  // namespace vxbus

#endif  // VXBUS_MESSAGING_DISPATCH_THREAD_H_
