// SPDX-License-Identifier: MIT
#include "session/unanswered_calls.h"

#include "runtime/object_counters.h"

namespace vxbus {

void VXPendingCalls::PublishSize() {
  Counters().lastPendingCallsSize.store(static_cast<std::uint32_t>(calls_.size()));
}

void VXPendingCalls::Insert(const MessageRef& message) {
  std::lock_guard<std::recursive_mutex> lock(mutex_);
  calls_[message->GetId()] = message;
  PublishSize();
}

// A take that finds its id publishes nothing; one that misses does.
bool VXPendingCalls::Take(std::uint32_t id, MessageRef& out) {
  std::lock_guard<std::recursive_mutex> lock(mutex_);
  auto it = calls_.find(id);
  if (it == calls_.end()) {
    out.Reset();
    PublishSize();
    return false;
  }
  out = std::move(it->second);
  calls_.erase(it);
  return true;
}

std::size_t VXPendingCalls::Size() {
  std::lock_guard<std::recursive_mutex> lock(mutex_);
  return calls_.size();
}

void VXPendingCalls::Clear() {
  std::map<std::uint32_t, MessageRef> dropped;  // released after the unlock
  std::lock_guard<std::recursive_mutex> lock(mutex_);
  dropped.swap(calls_);
}

}  // namespace vxbus
