// SPDX-License-Identifier: MIT
#include "messaging/deadline_timer.h"

#include <thread>
#include <utility>
#include <vector>

namespace vxbus {

DeadlineTimer& DeadlineTimer::Instance() {
  static DeadlineTimer* const timer = new DeadlineTimer;
  return *timer;
}

void DeadlineTimer::Arm(const TimedNotificationRef& notification) {
  std::lock_guard<std::mutex> lock(mutex_);
  const bool earliest = armed_.empty() || notification->Deadline() < armed_.begin()->first;
  armed_.emplace(notification->Deadline(), notification);
  if (!running_) {
    // Detached: nothing joins it, and it holds nothing once it leaves.
    std::thread([this] { Run(); }).detach();
    running_ = true;
  } else if (earliest) {
    changed_.notify_one();
  }
}

void DeadlineTimer::Disarm(const TimedNotification& notification) {
  TimedNotificationRef dropped;  // let go after the unlock
  std::lock_guard<std::mutex> lock(mutex_);
  auto range = armed_.equal_range(notification.Deadline());
  for (auto it = range.first; it != range.second; ++it) {
    if (it->second.get() != &notification) continue;
    dropped = std::move(it->second);
    armed_.erase(it);
    break;
  }
}

std::size_t DeadlineTimer::Armed() {
  std::lock_guard<std::mutex> lock(mutex_);
  return armed_.size();
}

void DeadlineTimer::Run() {
  std::unique_lock<std::mutex> lock(mutex_);
  while (!armed_.empty()) {
    const DeadlineClock::time_point next = armed_.begin()->first;
    if (DeadlineClock::now() < next) {
      changed_.wait_until(lock, next);
      continue;
    }
    std::vector<TimedNotificationRef> due;
    const auto now = DeadlineClock::now();
    while (!armed_.empty() && armed_.begin()->first <= now) {
      due.push_back(std::move(armed_.begin()->second));
      armed_.erase(armed_.begin());
    }
    // Callbacks run with no lock held, so they may notify again.
    lock.unlock();
    for (TimedNotificationRef& notification : due)
      notification->Expire();
    due.clear();
    lock.lock();
  }
  running_ = false;
}

}  // namespace vxbus
