// SPDX-License-Identifier: MIT
// Hands messages from any number of producers to exactly one consumer.
//
// Producers prepend to a shared stack with one compare-and-swap and never
// block; the consumer takes a whole batch with one exchange and serves it
// in arrival order from a list only it touches.
//
// A queue that takes turns (the dispatch queue) serves its producers' shares
// in turn instead: each message belongs to the share of its session, the
// messages of one share come out in their order, and the consumer takes one
// message of each share that has any before it takes a second of one.
//
// The queue counts the bytes it holds, with one atomic add per push; the
// consumer gives popped bytes back in lumps. It enforces no limit itself: a
// producer that must not overfill it asks for room first (WaitForRoom) and
// sleeps only then; the consumer's pop wakes such a sleeper only when one is
// there.
#ifndef VXBUS_SESSION_MESSAGE_QUEUE_H_
#define VXBUS_SESSION_MESSAGE_QUEUE_H_

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <thread>
#include <vector>

#include "session/message.h"

namespace vxbus {

// Messages and bytes, of what a queue held or let go.
struct QueueTally {
  std::uint64_t messages = 0;
  std::uint64_t bytes = 0;
  void Add(std::uint64_t messageBytes) {
    ++messages;
    bytes += messageBytes;
  }
};

// One producer's part of a queue that takes turns: the bytes of its messages
// pushed, and those of them the consumer has taken. Both counts only grow,
// and each is written by one side on a line of its own, so that neither hot
// path moves the other's line; what is held is their difference.
struct QueueShare {
  // Bytes pushed and not yet taken; any thread.
  std::uint64_t Held() const {
    const std::uint64_t seen = taken.load();  // first: pushed is never behind it
    return pushed.load() - seen;
  }

  // The producers of the share (a session's reader, and rarely its writer).
  alignas(64) std::atomic<std::uint64_t> pushed{0};
  std::atomic<std::uint64_t> takenSeen{0};  // a `taken` they read: a lower bound of it
  // The consumer alone.
  alignas(64) std::atomic<std::uint64_t> taken{0};
  // Producers that sleep until the share has drained to `wakeAt`.
  alignas(64) std::atomic<int> waiters{0};
  std::atomic<std::uint64_t> wakeAt{0};
};

// The bounds a producer asks room under: the whole queue's, and for a queue
// that takes turns, its share's (null: none).
struct RoomBounds {
  std::uint64_t whole = 0;
  QueueShare* share = nullptr;
  std::uint64_t shareLimit = 0;
};

class VXMessageQueue {
 public:
  // Popped bytes are given back at the latest when this many have gathered.
  static constexpr std::uint64_t kLumpBytes = 4096;
  // What a message counts for while queued: the bytes it really holds of the
  // heap, which are its own block, its queue node, and each list it carries
  // (the list object, its image and its children's). A null message counts
  // nothing.
  static std::uint64_t MessageBytes(const MessageRef& message);

  enum class Room {
    kFree,          // the message fits now
    kConsumerAway,  // the consumer waits on something a producer may owe it
    kStopped,       // `stop` said so
    kTimedOut,
  };

  // A consumer that `spins` looks for a push for a short while before it
  // sleeps (see SpinBriefly): worth it where a push mostly comes within
  // microseconds and a wake-up is on the path of a call, as on the dispatch
  // queue; elsewhere it only takes a core from the threads that do the work.
  // A queue that `takesTurns` keeps its messages in one lane per share (the
  // session of the message, QueueShare of Session) and serves the lanes
  // in turn, looking for new arrivals before every pop; its producers ask
  // room under their share's bound as well as the whole queue's.
  explicit VXMessageQueue(bool spins = false, bool takesTurns = false)
      : spins_(spins), takesTurns_(takesTurns) {}
  ~VXMessageQueue();
  VXMessageQueue(const VXMessageQueue&) = delete;
  VXMessageQueue& operator=(const VXMessageQueue&) = delete;

  // A null message is allowed: it comes out of Pop as an empty reference,
  // which is how a consumer is woken to look at its end conditions. Moved
  // in, so that the count of the message is not touched on the way. False
  // when the heap refuses the queue node: nothing is queued and `message`
  // is left with the caller, who fails it.
  bool Push(MessageRef&& message);
  // The same for a producer that has counted the message already:
  // `bytes` is what MessageBytes gave for it.
  bool Push(MessageRef&& message, std::uint64_t bytes);
  // For a producer that keeps its own reference.
  bool Push(const MessageRef& message) { return Push(MessageRef(message)); }

  // Makes a Pop that waits, or else the next Pop that finds nothing queued,
  // return at once with nothing. Queues nothing; any thread.
  void Wake();

  // Consumer only. `limitMs` 0 does not wait, a negative value waits without
  // limit. `out` is empty on a time-out or for a pushed null.
  void Pop(MessageRef& out, std::int32_t limitMs);
  // Consumer only, on a queue that takes turns: the next message of the lane
  // that the last Pop (or PopSameLane) served, without taking a turn; false
  // and `out` empty when that lane has no more. For dropping a whole run of
  // one share at once.
  bool PopSameLane(MessageRef& out);

  // Consumer only: lets go of everything queued, without handing it out,
  // and says how much that was.
  QueueTally Clear();

  // The bytes of every message pushed and not yet popped; any thread. While
  // the consumer works through a batch the count may lag behind its pops by
  // up to kLumpBytes, never while a producer waits for room, and never once
  // the consumer has popped all it took.
  std::uint64_t QueuedBytes() const { return queuedBytes_.load(std::memory_order_relaxed); }
  // True when `bytes` more keep the queue within `limit`. An empty queue
  // always has room, so that a message larger than the limit still goes,
  // alone. Producers that ask at the same moment may each be let in, so a
  // queue may pass its limit by one message per such producer.
  bool HasRoom(std::uint64_t bytes, std::uint64_t limit) const {
    return HasRoom(bytes, RoomBounds{limit, nullptr, 0});
  }
  // The same under a share's bound too: a share that holds nothing always
  // has room, so that its producer is never kept out by the others; else the
  // message must fit its share and the whole queue. Its producers only.
  bool HasRoom(std::uint64_t bytes, const RoomBounds& bounds) const;
  // Returns at once when HasRoom(bytes, limit). Else it blocks the calling
  // producer until the queue has drained to half its limit with room for
  // the message (so that a full queue wakes its producers once per half, not
  // once per pop), until the consumer is away, until `stop()` is true, or
  // until `limitMs` has passed (negative: no limit); says which came first.
  // `stop` is tested under the queue's lock: whoever makes it true calls
  // WakeRoomWaiters afterwards.
  template <class Stop>
  Room WaitForRoom(std::uint64_t bytes, std::uint64_t limit, std::int32_t limitMs, Stop stop) {
    return WaitForRoom(bytes, RoomBounds{limit, nullptr, 0}, limitMs, stop);
  }
  // The same under a share's bound too: a share that is full waits until it
  // has drained to half its bound, woken by the consumer's take of one of its
  // own messages, not by the others'.
  template <class Stop>
  Room WaitForRoom(std::uint64_t bytes, const RoomBounds& bounds, std::int32_t limitMs, Stop stop);
  // Makes every producer in WaitForRoom look at its conditions again.
  void WakeRoomWaiters();

  // The consumer names its thread while it runs (an empty id once it ends),
  // so that it can be told apart.
  void SetConsumerThread(std::thread::id id) { consumer_.store(id); }

  // While the consumer waits on something that only a producer can bring
  // about (a reply that a session reader reads), producers waiting for room
  // go ahead. Has an effect only on the consumer's thread; scopes nest.
  class ConsumerAway {
   public:
    explicit ConsumerAway(VXMessageQueue& queue);
    ~ConsumerAway();
    ConsumerAway(const ConsumerAway&) = delete;
    ConsumerAway& operator=(const ConsumerAway&) = delete;

   private:
    VXMessageQueue& queue_;
    bool marked_ = false;
  };

  // Any thread, once the consumer has gone for good: lets go of what was
  // pushed since, without handing it out. Never blocks.
  void DropPushed();

 private:
  struct Node {
    Node* next;
    MessageRef message;
    std::uint64_t bytes;  // as counted on the way in
    QueueShare* share;    // of a queue that takes turns; null otherwise or without session
  };
  // The messages of one share waiting for their turn, oldest first.
  struct Lane {
    QueueShare* share;
    Node* first;
    Node* last;
  };
  static constexpr std::size_t kNoLane = static_cast<std::size_t>(-1);

  // Frees the nodes and counts what they held; the bytes are given back.
  QueueTally FreeList(Node* node);
  Node* TakeBatch(std::int32_t limitMs);
  // Consumer: the stack taken in a batch, put in arrival order into fifo_ or,
  // on a queue that takes turns, onto the lanes.
  void Arrange(Node* batch);
  Node* TakeTurn();
  Node* TakeFromLane(std::size_t index);
  void HandOut(Node* node, MessageRef& out);
  // The consumer's note that a node of `share` has left the queue.
  void Taken(QueueShare* share, std::uint64_t bytes);
  void GiveBack(std::uint64_t bytes);
  bool MayResume(std::uint64_t bytes, const RoomBounds& bounds, Room* why) const;
  // Whether a producer that may not resume waits on its share (true) or on
  // the whole queue.
  bool WaitsOnShare(std::uint64_t bytes, const RoomBounds& bounds) const;

  // Grouped by who writes them, one cache line a group, so that the
  // producers' pushes and the consumer's pops don't move each other's lines.
  // Producers:
  alignas(64) std::atomic<Node*> head_{nullptr};
  std::atomic<std::uint64_t> queuedBytes_{0};
  // The consumer alone. Popped bytes are given back to queuedBytes_ in
  // lumps (see Pop), not one atomic subtraction a message.
  alignas(64) Node* fifo_ = nullptr;  // oldest first
  const bool spins_;
  const bool takesTurns_;
  std::uint64_t unreturnedBytes_ = 0;
  std::vector<Lane> lanes_;           // of a queue that takes turns: those with messages
  std::size_t turn_ = 0;              // the lane whose turn is next
  std::size_t servedLane_ = kNoLane;  // the lane served last, while it has more
  // The consumer's sleep:
  alignas(64) std::mutex mutex_;
  std::condition_variable notEmpty_;
  std::atomic<bool> woken_{false};
  std::atomic<bool> consumerAsleep_{false};  // the consumer is in, or on its way to, its sleep
  // Producers waiting for room:
  alignas(64) std::atomic<int> roomWaiters_{0};  // on the whole queue
  std::atomic<int> shareWaiters_{0};             // on a share of theirs
  std::atomic<std::uint64_t> wakeAtBytes_{0};    // a pop down to here wakes waiters
  std::atomic<bool> consumerAway_{false};
  std::atomic<std::thread::id> consumer_{};
  std::mutex roomMutex_;  // only for the sleep of producers waiting for room
  std::condition_variable roomFreed_;
};

template <class Stop>
VXMessageQueue::Room VXMessageQueue::WaitForRoom(std::uint64_t bytes, const RoomBounds& bounds,
                                                 std::int32_t limitMs, Stop stop) {
  if (HasRoom(bytes, bounds)) return Room::kFree;
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(limitMs);
  std::unique_lock<std::mutex> lock(roomMutex_);
  for (;;) {
    Room why = Room::kFree;
    if (MayResume(bytes, bounds, &why)) return why;
    if (stop()) return Room::kStopped;
    // Announced before the last look, so that a pop in between either sees
    // the waiter or leaves what that look finds; the pop wakes it under the
    // lock held here.
    const bool onShare = WaitsOnShare(bytes, bounds);
    std::atomic<int>& waiters = onShare ? bounds.share->waiters : roomWaiters_;
    if (onShare) {
      bounds.share->wakeAt.store(bounds.shareLimit / 2);
      shareWaiters_.fetch_add(1);
    } else {
      wakeAtBytes_.store(bounds.whole / 2);
    }
    waiters.fetch_add(1);
    bool timedOut = false;
    if (!MayResume(bytes, bounds, &why) && !stop()) {
      if (limitMs < 0)
        roomFreed_.wait(lock);
      else
        timedOut = roomFreed_.wait_until(lock, deadline) == std::cv_status::timeout;
    }
    waiters.fetch_sub(1);
    if (onShare) shareWaiters_.fetch_sub(1);
    if (timedOut && !MayResume(bytes, bounds, &why) && !stop()) return Room::kTimedOut;
  }
}

}  // namespace vxbus

#endif  // VXBUS_SESSION_MESSAGE_QUEUE_H_
