// SPDX-License-Identifier: MIT
// Blocking calls and notifications to a slot of a peer.
#include <utility>

#include "messaging/call_sending.h"
#include "messaging/flow_id.h"
#include "messaging/messaging_context.h"
#include "paramlist/handle.h"
#include "session/back_pressure.h"
#include "session/message.h"
#include "session/session_registry.h"
#include "vxbus.h"

using namespace vxbus;

namespace vxbus {

MessageRef SendCall(const char* applicationName, std::uint32_t slotId, HVXPARAMLIST list) {
  MessageRef message;
  SessionRef session;
  bool writeHere = false;
  {
    // The lock spans the look-up and the push, so a session found here can't
    // be erased and drained before the message stands in its queue. A claim
    // of the idle writer does the same: the writer can't end while it is held.
    std::lock_guard<std::recursive_mutex> lock(Messaging().Sessions().Mutex());
    session = Messaging().Sessions().FindLocked(applicationName);
    if (!session.IsValid()) return MessageRef();
    Message::EventRef event(new MTObjects::Latch);
    message = new Message(event, session, slotId, list, nullptr, nullptr);
    if (!message.IsValid()) return MessageRef();  // the heap refused it
    writeHere = session->ClaimIdleWriter();
    if (!writeHere) session->QueueFrame(message);
  }
  // Written outside the registry lock, so that other callers don't wait for it.
  if (writeHere) session->WriteClaimed(message);
  return message;
}

HVXPARAMLIST TakeReply(const MessageRef& message) {
  return VXReferenceHandle(HandleFromList(message->GetOutputList().get()));
}

}  // namespace vxbus

HVXPARAMLIST VXCall(const char* applicationName, std::uint32_t slotId, HVXPARAMLIST list) {
  MessageRef message = SendCall(applicationName, slotId, list);
  if (!message) return VX_INVALID_PARAMLIST;
  // No time limit: a call lasts as long as its session does. A slot waiting
  // here needs a reader to bring the reply, so readers must not wait for it.
  VXMessageQueue::ConsumerAway away(Messaging().Dispatch());
  message->WaitForCompletion();
  return TakeReply(message);
}

// Unlike VXCall the push happens after the look-up's lock was left: a session
// that ends in between may have drained already, and the message then stays
// in the dead queue without completion.
_tag_VX_ERROR VXNotify(const char* applicationName, std::uint32_t slotId, HVXPARAMLIST list,
                       VXNotifyCallback callback, void* userData) {
  SessionRef found = Messaging().Sessions().Find(applicationName);
  if (!found.IsValid()) return VX_ERROR_NO_APPLICATION;
  // The message takes over the look-up's reference, and ours to the message
  // holds the session until we return: the message's count is this thread's
  // own, while the session's is shared with its writer.
  Session& session = *found;
  MessageRef message(
      new Message(Message::EventRef(), std::move(found), slotId, list, callback, userData));
  if (!message.IsValid()) return VX_ERROR_FAILED;  // the heap refused it
  const std::uint64_t bytes = VXMessageQueue::MessageBytes(message);
  const _tag_VX_ERROR room = AwaitSendRoom(session, bytes);
  if (room != VX_SUCCESS) return room;
  session.QueueFrame(message, bytes);
  return VX_SUCCESS;
}

HVXPARAMLIST VXCallWithFlow(std::uint32_t flowId, const char* applicationName, std::uint32_t slotId,
                            HVXPARAMLIST list) {
  StoreFlowId(list, flowId);
  return VXCall(applicationName, slotId, list);
}

_tag_VX_ERROR VXNotifyWithFlow(std::uint32_t flowId, const char* applicationName,
                               std::uint32_t slotId, HVXPARAMLIST list, VXNotifyCallback callback,
                               void* userData) {
  StoreFlowId(list, flowId);
  return VXNotify(applicationName, slotId, list, callback, userData);
}

_tag_VX_ERROR VXEmitWithFlow(std::uint32_t flowId, const char* signalName, HVXPARAMLIST list,
                             VXNotifyCallback callback, void* userData) {
  StoreFlowId(list, flowId);
  return VXEmit(signalName, list, callback, userData);
}
