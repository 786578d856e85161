// SPDX-License-Identifier: MIT
// Messages that were queued and never delivered: they are counted in the
// log, so that a loss is never silent.
#ifndef VXBUS_SESSION_DROPPED_MESSAGES_H_
#define VXBUS_SESSION_DROPPED_MESSAGES_H_

#include <string>

#include "session/message_queue.h"

namespace vxbus {

// What a session's end let go of from its send queue. Outside a shutdown it
// is logged at once, in a line of its own; during one (`duringShutdown`) it
// is added to the shutdown's count. Nothing is logged for nothing. Any thread.
void ReportDropped(const std::string& sessionName, const QueueTally& dropped, bool duringShutdown);

// VXShutdown, once every session thread has ended: adds the dispatch
// queue's backlog to what the sessions reported during the shutdown, logs
// the sum in one line unless it is nothing, and starts the count anew.
void ReportShutdownDrops(const QueueTally& dispatchBacklog);

}  // namespace vxbus

#endif  // VXBUS_SESSION_DROPPED_MESSAGES_H_
