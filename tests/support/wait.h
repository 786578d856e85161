// SPDX-License-Identifier: MIT
// Bounded waits for tests: never sleep to synchronise, wait on an event.
#ifndef VXBUS_TESTS_SUPPORT_WAIT_H_
#define VXBUS_TESTS_SUPPORT_WAIT_H_

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <thread>

namespace vxbus {
namespace testing {

// Polls `condition` until it holds or `limit` passes; true when it held.
inline bool WaitUntil(const std::function<bool()>& condition,
                      std::chrono::milliseconds limit = std::chrono::seconds(10)) {
  const auto deadline = std::chrono::steady_clock::now() + limit;
  while (!condition()) {
    if (std::chrono::steady_clock::now() >= deadline) return condition();
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return true;
}

// A flag that one thread raises and another waits for, with a bound.
class Signal {
 public:
  // Notifies under the lock: a waiter may destroy the Signal as soon as it
  // returns, so nothing may touch it after the unlock.
  void Raise() {
    std::lock_guard<std::mutex> lock(mutex_);
    raised_ = true;
    condition_.notify_all();
  }
  bool WaitFor(std::chrono::milliseconds limit = std::chrono::seconds(10)) {
    std::unique_lock<std::mutex> lock(mutex_);
    return condition_.wait_for(lock, limit, [this] { return raised_; });
  }

 private:
  std::mutex mutex_;
  std::condition_variable condition_;
  bool raised_ = false;
};

}  // namespace testing
}  // namespace vxbus

#endif  // VXBUS_TESTS_SUPPORT_WAIT_H_
