#include "runtime/sync_event.h"

namespace MTObjects {

bool ISyncEvent::Wait() {
  std::unique_lock<std::mutex> lock(mutex_);
  condition_.wait(lock, [this] { return signalled_; });
  return true;
}

void ISyncEvent::Set() {
  {
    std::lock_guard<std::mutex> lock(mutex_);
    signalled_ = true;
  }
  condition_.notify_all();
}

}  // namespace MTObjects
