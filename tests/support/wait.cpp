#include "support/wait.h"

#include <thread>

namespace vxbus {
namespace testing {

bool WaitUntil(const std::function<bool()>& condition, std::chrono::milliseconds limit) {
  auto deadline = std::chrono::steady_clock::now() + limit;
  while (!condition()) {
    if (std::chrono::steady_clock::now() >= deadline) return condition();
    std::this_thread::yield();
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return true;
}

// Notifies under the lock: a waiter may destroy the Signal as soon as it
// returns, so nothing may touch it after the unlock.
void Signal::Raise() {
  std::lock_guard<std::mutex> lock(mutex_);
  raised_ = true;
  condition_.notify_all();
}

bool Signal::WaitFor(std::chrono::milliseconds limit) {
  std::unique_lock<std::mutex> lock(mutex_);
  return condition_.wait_for(lock, limit, [this] { return raised_; });
}

}  // namespace testing
}  // namespace vxbus
