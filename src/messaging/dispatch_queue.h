// SPDX-License-Identifier: MIT
// The dispatch queue, beside the thread that serves it. Requests of every
// session, and the calls of this process whose request could not be
// written, come in through the session layer's message queue, whose producer
// side each session is handed in its environment; this is the consumer's
// side: the queue takes turns between the sessions' lanes and spins briefly
// before its one consumer sleeps, and it is drained once that thread ends.
#ifndef VXBUS_MESSAGING_DISPATCH_QUEUE_H_
#define VXBUS_MESSAGING_DISPATCH_QUEUE_H_

#include "session/message.h"
#include "session/message_queue.h"

namespace vxbus {

class DispatchQueue : public VXMessageQueue {
 public:
  DispatchQueue() : VXMessageQueue(/*spins=*/true, /*takesTurns=*/true) {}

  // Once the dispatch thread has ended: lets go of what is left, unrun, and
  // counts it. A call of this process whose request could not be written is
  // completed as the thread would have. Never blocks.
  QueueTally DropBacklog();
};

// A call of this process whose request could not be written: its caller
// gets the empty output list.
void CompleteUnwrittenCall(Message& message);

}  // namespace vxbus

#endif  // VXBUS_MESSAGING_DISPATCH_QUEUE_H_
