// SPDX-License-Identifier: MIT
// Calls and notifications with a deadline. The designed ones wait for as long
// as the session lives; these give up on the reply at the deadline, and the
// reply that comes after it is read and let go without ending the session,
// since its call still stands in the session's table of waiting calls.
#include <chrono>
#include <utility>

#include "messaging/call_sending.h"
#include "messaging/deadline_timer.h"
#include "messaging/messaging_context.h"
#include "messaging/timed_notification.h"
#include "session/back_pressure.h"
#include "session/message_queue.h"
#include "session/session_registry.h"
#include "vxbus.h"

using namespace vxbus;

HVXPARAMLIST VXCallWithTimeout(const char* applicationName, std::uint32_t slotId, HVXPARAMLIST list,
                               std::int32_t timeoutMs) {
  if (timeoutMs < 0) return VXCall(applicationName, slotId, list);
  MessageRef message = SendCall(applicationName, slotId, list);
  if (!message) return VX_INVALID_PARAMLIST;
  // As in VXCall: a slot waiting here needs a reader to bring the reply.
  VXMessageQueue::ConsumerAway away(Messaging().Dispatch());
  if (!message->WaitForCompletion(std::chrono::milliseconds(timeoutMs)))
    return VX_INVALID_PARAMLIST;
  return TakeReply(message);
}

_tag_VX_ERROR VXNotifyWithTimeout(const char* applicationName, std::uint32_t slotId,
                                  HVXPARAMLIST list, VXNotifyCallback callback, void* userData,
                                  std::int32_t timeoutMs) {
  if (timeoutMs < 0 || callback == nullptr)
    return VXNotify(applicationName, slotId, list, callback, userData);
  const DeadlineClock::time_point deadline =
      DeadlineClock::now() + std::chrono::milliseconds(timeoutMs);
  SessionRef found = Messaging().Sessions().Find(applicationName);
  if (!found.IsValid()) return VX_ERROR_NO_APPLICATION;
  Session& session = *found;
  TimedNotificationRef message(
      new TimedNotification(std::move(found), slotId, list, callback, userData, deadline));
  if (!message.IsValid()) return VX_ERROR_FAILED;  // the heap refused it
  const _tag_VX_ERROR room = AwaitSendRoom(session, message);
  if (room != VX_SUCCESS) return room;
  // Armed before it is queued, so that a completion always finds it armed
  // and takes it off: a finished notification is not held to its deadline.
  DeadlineTimer::Instance().Arm(message);
  session.QueueFrame(message);
  return VX_SUCCESS;
}
