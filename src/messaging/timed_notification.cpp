// SPDX-License-Identifier: MIT
#include "messaging/timed_notification.h"

#include "messaging/deadline_timer.h"
#include "paramlist/param_list.h"
#include "session/session.h"

namespace vxbus {

TimedNotification::TimedNotification(SessionRef session, std::uint32_t slotId, HVXPARAMLIST input,
                                     VXNotifyCallback callback, void* userData,
                                     DeadlineClock::time_point deadline)
    : Message(EventRef(), std::move(session), slotId, input, callback, userData),
      deadline_(deadline) {}

void TimedNotification::Complete(bool discardOutput) {
  if (!Finish()) return;
  Message::Complete(discardOutput);
  DeadlineTimer::Instance().Disarm(*this);
}

void TimedNotification::Expire() {
  if (Finish()) CompleteUnanswered();
}

}  // namespace vxbus
