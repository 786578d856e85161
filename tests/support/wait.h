// Bounded waits for tests: never sleep to synchronise, wait on an event.
#ifndef VXBUS_TESTS_SUPPORT_WAIT_H_
#define VXBUS_TESTS_SUPPORT_WAIT_H_

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>

namespace vxbus {
namespace testing {

// Polls `condition` until it holds or `limit` passes; true when it held.
bool WaitUntil(const std::function<bool()>& condition,
               std::chrono::milliseconds limit = std::chrono::seconds(10));

// A flag that one thread raises and another waits for, with a bound.
class Signal {
 public:
  void Raise();
  bool WaitFor(std::chrono::milliseconds limit = std::chrono::seconds(10));

 private:
  std::mutex mutex_;
  std::condition_variable condition_;
  bool raised_ = false;
};

}  // namespace testing
}  // namespace vxbus

#endif  // VXBUS_TESTS_SUPPORT_WAIT_H_
