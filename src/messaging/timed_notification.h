// SPDX-License-Identifier: MIT
// A notification with a deadline: its callback runs exactly once, with the
// reply, or with a null output when the session ends or the deadline passes
// first. What comes second finds it finished and does nothing.
#ifndef VXBUS_MESSAGING_TIMED_NOTIFICATION_H_
#define VXBUS_MESSAGING_TIMED_NOTIFICATION_H_

#include <atomic>
#include <chrono>
#include <cstdint>

#include "session/message.h"

namespace vxbus {

using DeadlineClock = std::chrono::steady_clock;

class TimedNotification final : public Message {
 public:
  // `callback` must not be null: without one no reply exists to wait for.
  TimedNotification(SessionRef session, std::uint32_t slotId, HVXPARAMLIST input,
                    VXNotifyCallback callback, void* userData, DeadlineClock::time_point deadline);

  // The reply came (on the reader) or the session ended (on its writer).
  // The first completion also takes the message off the deadline timer.
  void Complete(bool discardOutput) override;
  // The deadline passed; on the deadline timer's thread. A reply that comes
  // later is still read into the output list, and let go with the message.
  void Expire();

  DeadlineClock::time_point Deadline() const { return deadline_; }

 private:
  // True for the one caller that finishes the message.
  bool Finish() { return !finished_.exchange(true, std::memory_order_acq_rel); }

  DeadlineClock::time_point deadline_;
  std::atomic<bool> finished_{false};
};

using TimedNotificationRef = MTObjects::MTReferencedPtr<TimedNotification>;

}  // namespace vxbus

#endif  // VXBUS_MESSAGING_TIMED_NOTIFICATION_H_
