#include "messaging/dispatch_thread.h"

#include <mutex>

#include "messaging/slot_table.h"
#include "paramlist/fast_holder.h"
#include "paramlist/handle.h"
#include "runtime/process_state.h"
#include "session/application.h"
#include "session/application_registry.h"
#include "session/message_queue.h"

namespace vxbus {
namespace {

constexpr std::uint32_t kDirectReplyBytes = 16384;

// An unknown slot runs nothing: the caller gets the empty reply and can't
// tell it from a slot that returned nothing.
void RunSlot(IVXMessage& message) {
  VXSlotTable::Entry entry;
  if (!VXSlotTable::Instance().Find(message.GetSlotId(), &entry)) return;
  const SessionRef& session = message.GetSession();
  VXSlotContext context{session.IsValid() ? session->Name().c_str() : "", entry.userData};
  entry.slotFunction(HandleFromList(message.GetInputList().get()),
                     HandleFromList(message.GetOutputList().get()), &context);
}

// A small reply is written here when the session's writer is idle, which
// spares a hand-off; a large one goes to the writer, so that the next slot
// need not wait for it.
void SendReply(VXAPPImpl& session, const MessageRef& reply) {
  const ListRef& output = reply->GetOutputList();
  const bool small = !output.IsValid() || output->Used() <= kDirectReplyBytes;
  if (small && session.ClaimIdleWriter())
    session.WriteClaimed(reply);
  else
    session.QueueFrame(reply);
}

}  // namespace

void DispatchThread() {
  for (;;) {
    if (g_shuttingDown.load(std::memory_order_relaxed) && g_applications.Size() == 0) return;
    MessageRef message;
    g_dispatchQueue.Pop(message, -1);
    if (!message) continue;  // a wake-up to test the end condition
    switch (message->GetState()) {
      case kStateCall: {
        // The slot table's mutex spans the slot function: slots run one at a
        // time, and an entry can't go while its function runs.
        std::lock_guard<std::recursive_mutex> lock(VXSlotTable::Instance().Mutex());
        RunSlot(*message);
        const SessionRef& session = message->GetSession();
        if (session.IsValid()) {
          message->SetReplyState();
          SendReply(*session, message);
        }
        break;
      }
      case kStateReply:
        message->Complete(false);  // a call whose request could not be written
        break;
      case kStateOneWay: {
        std::lock_guard<std::recursive_mutex> lock(VXSlotTable::Instance().Mutex());
        RunSlot(*message);
        break;
      }
      default:
        break;
    }
  }
}

}  // namespace vxbus
