#include "transport/handshake_threads.h"

#include <system_error>
#include <utility>

namespace vxbus {

HandshakeThreads::~HandshakeThreads() {
  std::unique_lock<std::mutex> lock(mutex_);
  ended_.wait(lock, [this] {
    JoinEnded();
    return running_.empty();
  });
}

void HandshakeThreads::JoinEnded() {
  // A handshake marks itself done as its last step under the mutex, so the
  // join below waits for no more than the thread's return.
  for (auto it = running_.begin(); it != running_.end();) {
    if (!it->done) {
      ++it;
      continue;
    }
    it->thread.join();
    it = running_.erase(it);
  }
}

void HandshakeThreads::Run(std::function<void()> handshake) {
  std::unique_lock<std::mutex> lock(mutex_);
  ended_.wait(lock, [this] {
    JoinEnded();
    return running_.size() < kMaxRunning;
  });
  auto slot = running_.emplace(running_.end());
  // The work waits in its slot, not in the thread's closure, so that it is
  // still there to run here when no thread can be started.
  slot->work = std::move(handshake);
  try {
    slot->thread = std::thread([this, slot] {
      {
        // What the work holds (the accepted channel) goes with it, not
        // when the slot is reaped: a refused peer sees its close at once.
        std::function<void()> work = std::move(slot->work);
        work();
      }
      std::lock_guard<std::mutex> done(mutex_);
      slot->done = true;
      ended_.notify_all();
    });
  } catch (const std::system_error&) {
    std::function<void()> work = std::move(slot->work);
    running_.erase(slot);
    lock.unlock();
    work();
  }
}

}  // namespace vxbus
