// SPDX-License-Identifier: MIT
#include "messaging/dispatch_queue.h"

namespace vxbus {

void CompleteUnwrittenCall(Message& message) {
  message.Complete(false);
}

QueueTally DispatchQueue::DropBacklog() {
  QueueTally dropped;
  // Pushed nulls count no bytes: once none are left, only wake-ups remain.
  while (QueuedBytes() != 0) {
    MessageRef message;
    Pop(message, 0);
    if (!message) continue;
    dropped.Add(MessageBytes(message));
    if (message->GetState() == kStateReply) CompleteUnwrittenCall(*message);
  }
  Clear();
  return dropped;
}

}  // namespace vxbus
