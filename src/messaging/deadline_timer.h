// SPDX-License-Identifier: MIT
// The process-wide timer of notifications with a deadline. Its thread runs
// only while a deadline is armed: it starts with the first one and ends once
// none is left, so a process that uses no deadlines has no such thread, and
// one whose notifications have all finished has it no longer.
#ifndef VXBUS_MESSAGING_DEADLINE_TIMER_H_
#define VXBUS_MESSAGING_DEADLINE_TIMER_H_

#include <condition_variable>
#include <cstddef>
#include <map>
#include <mutex>

#include "messaging/timed_notification.h"

namespace vxbus {

class DeadlineTimer {
 public:
  // Never destroyed: its thread may still be ending while the process exits.
  static DeadlineTimer& Instance();

  // Holds the notification until its deadline, then expires it on the
  // timer's thread (with no lock held); a deadline already past expires at
  // once there. Any thread; a thread that can't be made raises the standard
  // system error.
  void Arm(const TimedNotificationRef& notification);
  // Lets go of the notification before its deadline. Any thread, also from
  // inside a completion; never blocks for long.
  void Disarm(const TimedNotification& notification);

  // Deadlines armed and not yet expired or disarmed; for tests.
  std::size_t Armed();

 private:
  DeadlineTimer() = default;
  void Run();

  std::mutex mutex_;
  std::condition_variable changed_;
  std::multimap<DeadlineClock::time_point, TimedNotificationRef> armed_;
  bool running_ = false;  // a thread serves armed_
};

}  // namespace vxbus

#endif  // VXBUS_MESSAGING_DEADLINE_TIMER_H_
