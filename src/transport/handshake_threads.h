// SPDX-License-Identifier: MIT
// The handshakes that a TCP listener has under way, each on a thread of its
// own, so that a peer that stays silent or trickles its bytes holds up only
// its own thread and never the admission of the next one.
//
// Admission is bounded three ways, so that an honest peer always finds room:
// each handshake has one deadline for the whole exchange, after which its
// reads are cut off; one source address has at most kMostPerSource under
// way; and all together at most the overall cap. A connection beyond its
// source's share is refused at once. When the overall cap is reached, the
// oldest handshake of the source that holds the most is cut off to make room,
// as long as that source holds more than the newcomer's would; otherwise the
// newcomer is refused at once.
#ifndef VXBUS_TRANSPORT_HANDSHAKE_THREADS_H_
#define VXBUS_TRANSPORT_HANDSHAKE_THREADS_H_

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <list>
#include <mutex>
#include <thread>

#include "transport/transport_channel.h"

namespace vxbus {

// Owned by one listener thread and used only from it.
class HandshakeThreads {
 public:
  static constexpr std::size_t kMostPerSource = 8;
  // The overall cap is a quarter of the process's handle limit, within these
  // bounds, so that pending handshakes never take the handles that sessions
  // and the next accept need.
  static constexpr std::size_t kFewestRunning = 8;
  static constexpr std::size_t kMostRunning = 128;
  // The overall cap for a process that may hold `handleLimit` handles.
  static std::size_t CapForHandleLimit(std::size_t handleLimit);

  explicit HandshakeThreads(std::size_t maxRunning);
  // Cuts off every handshake still under way and waits for their threads;
  // none may outlive the listener that started it.
  ~HandshakeThreads();
  HandshakeThreads(const HandshakeThreads&) = delete;
  HandshakeThreads& operator=(const HandshakeThreads&) = delete;

  // Whether Run would find room for a handshake from `source` now; changes
  // nothing.
  bool HasRoom(std::uint32_t source);

  // Runs `handshake` over `channel` on a thread of its own, to be over within
  // `deadlineMs` (at least 1). False, with nothing started and `handshake`
  // dropped, when the caps leave no room for `source` or no thread can be
  // started; the caller lets the channel go.
  bool Run(std::uint32_t source, const ChannelRef& channel, std::int64_t deadlineMs,
           std::function<void()> handshake);

  // Cuts off the reads of every handshake past its deadline and joins the
  // threads that have ended. Returns the milliseconds to the next deadline,
  // or -1 when no handshake is under way.
  std::int64_t CutOffOverdue();

 private:
  using Clock = std::chrono::steady_clock;
  struct Handshake {
    std::uint32_t source = 0;
    ChannelRef channel;  // until the work is done; reads are cut through it
    Clock::time_point deadline;
    std::function<void()> work;
    std::thread thread;
    bool cutOff = false;  // no longer counted against the caps
    bool done = false;
  };
  // With `mutex_` held, all of these.
  void JoinEnded();
  static void CutOff(Handshake& handshake);
  std::size_t Counted() const;
  std::size_t CountedFrom(std::uint32_t source) const;
  // The oldest handshake of the source that holds the most, if that source
  // holds more than `newcomer` would after being let in; else the end.
  std::list<Handshake>::iterator RoomMaker(std::uint32_t newcomer);

  const std::size_t mostAtOnce_;
  std::mutex mutex_;
  std::list<Handshake> underWay_;
};

}  // namespace vxbus

#endif  // VXBUS_TRANSPORT_HANDSHAKE_THREADS_H_
