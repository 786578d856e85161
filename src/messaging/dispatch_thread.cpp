#include "messaging/dispatch_thread.h"

#include <mutex>

#include "messaging/slot_table.h"
#include "paramlist/handle.h"
#include "runtime/process_state.h"
#include "session/application.h"
#include "session/application_registry.h"
#include "session/message_queue.h"

namespace vxbus {
namespace {

// An unknown slot runs nothing: the caller gets the empty reply and can't
// tell it from a slot that returned nothing.
void RunSlot(IVXMessage& message) {
  VXSlotTable::Entry entry;
  if (!VXSlotTable::Instance().Find(message.GetSlotId(), &entry)) return;
  const SessionRef& session = message.GetSession();
  VXSlotContext context{session.IsValid() ? session->name.c_str() : "", entry.userData};
  entry.slotFunction(HandleFromList(message.GetInputList().get()),
                     HandleFromList(message.GetOutputList().get()), &context);
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
          session->sendQueue.Push(message);
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
