// SPDX-License-Identifier: MIT
#include "messaging/dispatch_thread.h"

#include <mutex>
#include <string>
#include <thread>

#include "messaging/dispatch_queue.h"
#include "messaging/messaging_context.h"
#include "messaging/slot_table.h"
#include "paramlist/handle.h"
#include "paramlist/param_list.h"
#include "runtime/log.h"
#include "runtime/printable_name.h"
#include "session/session.h"
#include "session/session_registry.h"

namespace vxbus {
namespace {

constexpr std::uint32_t kDirectReplyBytes = 16384;

// An unknown slot runs nothing: the caller gets the empty reply and can't
// tell it from a slot that returned nothing.
void RunSlot(Message& message) {
  VXSlotTable::Entry entry;
  if (!Messaging().Slots().Find(message.GetSlotId(), &entry)) return;
  const SessionRef& session = message.GetSession();
  VXSlotContext context{session.IsValid() ? session->Name().c_str() : "", entry.userData};
  entry.slotFunction(HandleFromList(message.GetInputList().get()),
                     HandleFromList(message.GetOutputList().get()), &context);
}

// A small reply is written here when the session's writer is idle, which
// spares a hand-off; a large one goes to the writer, so that the next slot
// need not wait for it.
void SendReply(Session& session, const MessageRef& reply) {
  const ListRef& output = reply->GetOutputList();
  const bool small = !output.IsValid() || output->Used() <= kDirectReplyBytes;
  if (small && session.ClaimIdleWriter())
    session.WriteClaimed(reply);
  else
    session.QueueFrame(reply);
}

bool IsRequest(std::uint32_t state) {
  return state == kStateCall || state == kStateOneWay;
}

bool FromEndedSession(const Message& message) {
  const SessionRef& session = message.GetSession();
  return session.get() != nullptr && session->HasEnded();
}

// Requests of a session that has ended are not run, and replies to it not
// sent: nobody is left to read them, and a dead peer must not keep the
// slots from the living. A run of them is told in one line, once the queue
// runs dry or another session's message comes.
class DroppedMessages {
 public:
  bool Pending() const { return count_ != 0; }
  void Add(const SessionRef& session) {
    if (session_.get() != session.get()) Report();
    session_ = session;
    ++count_;
  }
  void Report() {
    if (count_ == 0) return;
    VX_LOG(kLogWarning, "Dropped ", count_, " messages of ended session \"",
           PrintableName(session_.IsValid() ? session_->Name() : std::string()), '"');
    count_ = 0;
    session_.Reset();  // the session may go now
  }

 private:
  SessionRef session_;
  std::uint32_t count_ = 0;
};

}  // namespace

void DispatchThread() {
  MessagingContext& context = Messaging();
  DispatchQueue& queue = context.Dispatch();
  DroppedMessages dropped;
  queue.SetConsumerThread(std::this_thread::get_id());
  for (;;) {
    if (context.ShuttingDown() && context.Sessions().Size() == 0) {
      dropped.Report();
      queue.SetConsumerThread(std::thread::id());
      return;
    }
    MessageRef message;
    if (dropped.Pending()) {
      queue.Pop(message, 0);
      if (!message) {  // dry, or a wake-up: either way the end condition is due
        dropped.Report();
        continue;
      }
    } else {
      queue.Pop(message, -1);
      if (!message) continue;  // a wake-up to test the end condition
    }
    const std::uint32_t state = message->GetState();
    if (IsRequest(state) && FromEndedSession(*message)) {
      // The rest of its lane goes with it, so that the run is told in one
      // line although the other sessions take their turns in between.
      dropped.Add(message->GetSession());
      MessageRef next;
      while (queue.PopSameLane(next)) {
        if (IsRequest(next->GetState())) {
          dropped.Add(next->GetSession());
        } else if (next->GetState() == kStateReply) {
          CompleteUnwrittenCall(*next);
        }
      }
      continue;
    }
    dropped.Report();
    switch (state) {
      case kStateCall: {
        // The slot table's mutex spans the slot function: slots run one at a
        // time, and an entry can't go while its function runs.
        std::lock_guard<std::recursive_mutex> lock(Messaging().Slots().Mutex());
        RunSlot(*message);
        const SessionRef& session = message->GetSession();
        if (!session.IsValid()) break;
        if (session->HasEnded()) {
          dropped.Add(session);  // the session ended while its slot ran
          break;
        }
        message->SetReplyState();
        SendReply(*session, message);
        break;
      }
      case kStateReply:
        CompleteUnwrittenCall(*message);
        break;
      case kStateOneWay: {
        std::lock_guard<std::recursive_mutex> lock(Messaging().Slots().Mutex());
        RunSlot(*message);
        break;
      }
      default:
        break;
    }
  }
}

}  // namespace vxbus
