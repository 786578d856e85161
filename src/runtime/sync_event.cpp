#include "runtime/sync_event.h"

#include "runtime/brief_spin.h"

namespace MTObjects {

bool ISyncEvent::Wait() {
  // A reply mostly comes within about one round trip; a short look first
  // spares the caller a sleep and the setter a wake-up.
  if (vxbus::SpinBriefly([this] { return signalled_.load(std::memory_order_acquire); }))
    return true;
  std::unique_lock<std::mutex> lock(mutex_);
  condition_.wait(lock, [this] { return signalled_.load(std::memory_order_acquire); });
  return true;
}

void ISyncEvent::Set() {
  {
    std::lock_guard<std::mutex> lock(mutex_);
    signalled_.store(true, std::memory_order_release);
  }
  condition_.notify_all();
}

}  // namespace MTObjects
