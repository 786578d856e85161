// The threads on which a listener runs the handshakes of the peers it
// accepted, so that a peer that stays silent holds up only its own thread
// and never the admission of the next one.
#ifndef VXBUS_TRANSPORT_HANDSHAKE_THREADS_H_
#define VXBUS_TRANSPORT_HANDSHAKE_THREADS_H_

#include <condition_variable>
#include <cstddef>
#include <functional>
#include <list>
#include <mutex>
#include <thread>

namespace vxbus {

// Owned by one listener thread and used only from it.
class HandshakeThreads {
 public:
  // At most this many handshakes run at once.
  static constexpr std::size_t kMaxRunning = 4;

  HandshakeThreads() = default;
  // Waits for every handshake still running: each ends within the channel's
  // time limit, and none may outlive the listener that started it.
  ~HandshakeThreads();
  HandshakeThreads(const HandshakeThreads&) = delete;
  HandshakeThreads& operator=(const HandshakeThreads&) = delete;

  // Runs `handshake` on a thread of its own. While kMaxRunning run already,
  // it first waits for one of them to end, so the next peer waits in the
  // listen queue. Runs it on the calling thread when no thread can be started.
  void Run(std::function<void()> handshake);

 private:
  struct Handshake {
    std::function<void()> work;
    std::thread thread;
    bool done = false;
  };
  // Joins the handshakes that have ended; called with `mutex_` held.
  void JoinEnded();

  std::mutex mutex_;
  std::condition_variable ended_;
  std::list<Handshake> running_;
};

}  // namespace vxbus

#endif  // VXBUS_TRANSPORT_HANDSHAKE_THREADS_H_
