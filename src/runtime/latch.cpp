// SPDX-License-Identifier: MIT
#include "runtime/latch.h"

#include "runtime/brief_spin.h"

namespace MTObjects {

bool Latch::Wait() {
  // A reply mostly comes within about one round trip; a short look first
  // spares the caller a sleep and the setter a wake-up.
  if (vxbus::SpinBriefly([this] { return signalled_.load(std::memory_order_acquire); })) {
    // Set may still be inside its lock; once we have held the mutex it is
    // done with the event, so the caller may destroy it.
    std::lock_guard<std::mutex> lock(mutex_);
    return true;
  }
  std::unique_lock<std::mutex> lock(mutex_);
  condition_.wait(lock, [this] { return signalled_.load(std::memory_order_acquire); });
  return true;
}

bool Latch::WaitFor(std::chrono::milliseconds limit) {
  const auto deadline = std::chrono::steady_clock::now() + limit;
  std::unique_lock<std::mutex> lock(mutex_);
  return condition_.wait_until(lock, deadline,
                               [this] { return signalled_.load(std::memory_order_acquire); });
}

// The wake-up goes out before the mutex is let go: a waiter that returns
// may destroy the event at once, and none returns before Set lets go. (A
// wake after the unlock also hung a listener's stop now and then under Wine.)
void Latch::Set() {
  std::lock_guard<std::mutex> lock(mutex_);
  signalled_.store(true, std::memory_order_release);
  condition_.notify_all();
}

}  // namespace MTObjects
