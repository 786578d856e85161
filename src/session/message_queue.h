// Hands messages from any number of producers to exactly one consumer.
//
// Producers prepend to a shared stack with one compare-and-swap and never
// block; the consumer takes a whole batch with one exchange and serves it
// in arrival order from a list only it touches.
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

class VXMessageQueue {
 public:
  // Counted for every message on top of its list, so that empty lists count.
  static constexpr std::uint64_t kMessageOverheadBytes = 128;
  // Popped bytes are given back at the latest when this many have gathered.
  static constexpr std::uint64_t kLumpBytes = 4096;
  // What a message counts for while queued: the overhead and the image of
  // the list its frame carries (the input list of a request, the output
  // list of a reply). A null message counts nothing.
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
  explicit VXMessageQueue(bool spins = false) : spins_(spins) {}
  ~VXMessageQueue();
  VXMessageQueue(const VXMessageQueue&) = delete;
  VXMessageQueue& operator=(const VXMessageQueue&) = delete;

  // A null message is allowed: it comes out of Pop as an empty reference,
  // which is how a consumer is woken to look at its end conditions. Taken by
  // value, so that a producer done with its reference moves it in and the
  // count of the message is not touched on the way.
  void Push(MessageRef message);

  // Makes a Pop that waits, or else the next Pop that finds nothing queued,
  // return at once with nothing. Queues nothing; any thread.
  void Wake();

  // Consumer only. `limitMs` 0 does not wait, a negative value waits without
  // limit. `out` is empty on a time-out or for a pushed null.
  void Pop(MessageRef& out, std::int32_t limitMs);

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
    const std::uint64_t queued = queuedBytes_.load();
    return queued == 0 || queued + bytes <= limit;
  }
  // Returns at once when HasRoom(bytes, limit). Else it blocks the calling
  // producer until the queue has drained to half its limit with room for
  // the message (so that a full queue wakes its producers once per half, not
  // once per pop), until the consumer is away, until `stop()` is true, or
  // until `limitMs` has passed (negative: no limit); says which came first.
  // `stop` is tested under the queue's lock: whoever makes it true calls
  // WakeRoomWaiters afterwards.
  template <class Stop>
  Room WaitForRoom(std::uint64_t bytes, std::uint64_t limit, std::int32_t limitMs, Stop stop);
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
  };
  // Frees the nodes and counts what they held; the bytes are given back.
  QueueTally FreeList(Node* node);
  Node* TakeBatch(std::int32_t limitMs);
  void GiveBack(std::uint64_t bytes);
  bool MayResume(std::uint64_t bytes, std::uint64_t limit, Room* why) const;

  // Grouped by who writes them, one cache line a group, so that the
  // producers' pushes and the consumer's pops don't move each other's lines.
  // Producers:
  alignas(64) std::atomic<Node*> head_{nullptr};
  std::atomic<std::uint64_t> queuedBytes_{0};
  // The consumer alone. Popped bytes are given back to queuedBytes_ in
  // lumps (see Pop), not one atomic subtraction a message.
  alignas(64) Node* fifo_ = nullptr;  // oldest first
  const bool spins_;
  std::uint64_t unreturnedBytes_ = 0;
  // The consumer's sleep:
  alignas(64) std::mutex mutex_;
  std::condition_variable notEmpty_;
  std::atomic<bool> woken_{false};
  std::atomic<bool> sleeping_{false};  // the consumer is in, or on its way to, its sleep
  // Producers waiting for room:
  alignas(64) std::atomic<int> roomWaiters_{0};
  std::atomic<std::uint64_t> wakeAtBytes_{0};  // a pop down to here wakes waiters
  std::atomic<bool> consumerAway_{false};
  std::atomic<std::thread::id> consumer_{};
  std::mutex roomMutex_;  // only for the sleep of producers waiting for room
  std::condition_variable roomFreed_;
};

template <class Stop>
VXMessageQueue::Room VXMessageQueue::WaitForRoom(std::uint64_t bytes, std::uint64_t limit,
                                                 std::int32_t limitMs, Stop stop) {
  if (HasRoom(bytes, limit)) return Room::kFree;
  Room why = Room::kFree;
  wakeAtBytes_.store(limit / 2);
  // Announced before the first look under the lock, so that a pop in
  // between either sees the waiter or leaves what that look finds.
  roomWaiters_.fetch_add(1);
  std::unique_lock<std::mutex> lock(roomMutex_);
  auto ready = [&] {
    if (MayResume(bytes, limit, &why)) return true;
    if (!stop()) return false;
    why = Room::kStopped;
    return true;
  };
  bool done;
  if (limitMs < 0) {
    roomFreed_.wait(lock, ready);
    done = true;
  } else {
    done = roomFreed_.wait_for(lock, std::chrono::milliseconds(limitMs), ready);
  }
  lock.unlock();
  roomWaiters_.fetch_sub(1);
  return done ? why : Room::kTimedOut;
}

extern VXMessageQueue& g_dispatchQueue;

}  // namespace vxbus

#endif  // VXBUS_SESSION_MESSAGE_QUEUE_H_
