// SPDX-License-Identifier: MIT
// Tracking of the session threads that still run, so that a shutdown can
// wait until none of them is inside the library, and their poll periods. The
// threads themselves are members of the session (session_io.cpp).
#ifndef VXBUS_SESSION_SESSION_THREADS_H_
#define VXBUS_SESSION_SESSION_THREADS_H_

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>

namespace vxbus {

// True on a session thread; set by the thread's frame as it starts.
extern thread_local bool t_onSessionThread;

// The count of session threads that have started and not yet ended.
class LiveThreads {
 public:
  void Started() {
    std::lock_guard<std::mutex> lock(mutex_);
    ++count_;
  }
  void Ended() {
    std::lock_guard<std::mutex> lock(mutex_);
    --count_;
    allEnded_.notify_all();
  }
  // A session thread that waits (a shutdown called from a listener) does not
  // wait for itself.
  bool WaitForNone(std::chrono::milliseconds limit) {
    const int self = t_onSessionThread ? 1 : 0;
    std::unique_lock<std::mutex> lock(mutex_);
    return allEnded_.wait_for(lock, limit, [this, self] { return count_ <= self; });
  }

 private:
  std::mutex mutex_;
  std::condition_variable allEnded_;
  int count_ = 0;
};
// The process's one count.
LiveThreads& LiveSessionThreads();

// Waits until no session thread runs any more; false when `limit` passed first.
bool WaitForSessionThreadsToEnd(std::chrono::milliseconds limit);

// The poll periods that bound how long a local stop takes. Every stop of a
// writer (a local stop, the reader's end, a failed write, a shutdown through
// the local stops) wakes its queue, so the writer's period is only a
// backstop; the designed 200 ms woke each idle session five times a second.
constexpr std::uint32_t kReaderPollMs = 5000;
constexpr std::int32_t kWriterPollMs = 5000;

}  // namespace vxbus

#endif  // VXBUS_SESSION_SESSION_THREADS_H_
