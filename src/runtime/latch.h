// SPDX-License-Identifier: MIT
// A one-way latch: once set it stays set for the life of the object.
#ifndef VXBUS_RUNTIME_LATCH_H_
#define VXBUS_RUNTIME_LATCH_H_

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>

#include "vxbus.h"

namespace MTObjects {

class Latch : public MTReferencedTypeBase {
 public:
  Latch() = default;
  bool Wait();  // no time-out; always true
  // Waits at most `limit`; true when the event is set.
  bool WaitFor(std::chrono::milliseconds limit);
  void Set();  // wakes every waiter

 protected:
  bool IsObjectValid() const override { return true; }

 private:
  std::mutex mutex_;
  std::condition_variable condition_;
  std::atomic<bool> signalled_{false};
};

}  // namespace MTObjects

#endif  // VXBUS_RUNTIME_LATCH_H_
