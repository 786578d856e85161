// SPDX-License-Identifier: MIT
#include "session/message_queue.h"

#include <chrono>
#include <new>
#include <utility>

#include "paramlist/param_list.h"
#include "runtime/block_pool.h"
#include "runtime/brief_spin.h"
#include "runtime/private_heap.h"
#include "session/session.h"

namespace vxbus {

// Never destroyed: a process that exits without shutting down leaves the
// dispatch thread asleep on it, and its condition variable must outlive that.

namespace {

// What a block that the pool handed out really takes: the pool's rounding,
// then the heap's, as every pooled block is a heap block of its own. Worked
// out once per pool class, as every message is counted on its way in.
class PooledSizes {
 public:
  PooledSizes() {
    for (std::size_t i = 0; i < kSlots; ++i)
      held_[i] = PrivateBlockBytes(PooledBlockBytes(i * kStep));
  }
  // A size the pool serves, at most kLargestPooledBlock.
  std::uint64_t Held(std::size_t size) const { return held_[(size + kStep - 1) / kStep]; }

 private:
  static constexpr std::size_t kStep = 16;
  static constexpr std::size_t kSlots = kLargestPooledBlock / kStep + 1;
  std::uint64_t held_[kSlots];
};

const PooledSizes& Pooled() {
  static const PooledSizes sizes;
  return sizes;
}

// The list object, its image and its array of children, without the children.
std::uint64_t OwnListBytes(const ParamList& list) {
  std::uint64_t bytes = Pooled().Held(sizeof(ParamList));
  if (list.capacity != 0)
    bytes += list.capacity > kLargestPooledBlock ? PrivateBlockBytes(list.capacity)
                                                 : Pooled().Held(list.capacity);
  if (list.ChildCapacity() != 0) bytes += PrivateBlockBytes(list.ChildCapacity() * sizeof(ListRef));
  return bytes;
}

// A whole tree of lists, walked without recursion: a list built here may
// nest deeper than a received one can.
std::uint64_t ListBytes(const ParamList* root) {
  if (root == nullptr) return 0;
  std::uint64_t bytes = OwnListBytes(*root);
  if (root->ChildCount() == 0) return bytes;  // the common case needs no stack
  std::vector<const ParamList*> pending{root};
  bytes = 0;
  while (!pending.empty()) {
    const ParamList* list = pending.back();
    pending.pop_back();
    bytes += OwnListBytes(*list);
    for (std::uint32_t i = 0; i < list->ChildCount(); ++i)
      if (const ParamList* child = list->Child(i)) pending.push_back(child);
  }
  return bytes;
}

}  // namespace

VXMessageQueue::~VXMessageQueue() {
  Clear();
}

std::uint64_t VXMessageQueue::MessageBytes(const MessageRef& message) {
  if (!message) return 0;
  return Pooled().Held(sizeof(Node)) + message->ObjectBytes() +
         ListBytes(message->GetInputList().get()) + ListBytes(message->GetOutputList().get());
}

QueueTally VXMessageQueue::Clear() {
  GiveBack(unreturnedBytes_);
  unreturnedBytes_ = 0;
  QueueTally tally = FreeList(fifo_);
  fifo_ = nullptr;
  for (const Lane& lane : lanes_) {
    const QueueTally laned = FreeList(lane.first);
    tally.messages += laned.messages;
    tally.bytes += laned.bytes;
  }
  lanes_.clear();
  turn_ = 0;
  servedLane_ = kNoLane;
  const QueueTally stacked = FreeList(head_.exchange(nullptr));
  tally.messages += stacked.messages;
  tally.bytes += stacked.bytes;
  return tally;
}

void VXMessageQueue::DropPushed() {
  FreeList(head_.exchange(nullptr));
}

QueueTally VXMessageQueue::FreeList(Node* node) {
  QueueTally tally;
  while (node) {
    Node* next = node->next;
    if (node->message) tally.Add(node->bytes);
    GiveBack(node->bytes);
    Taken(node->share, node->bytes);
    node->~Node();
    PooledFree(node, sizeof(Node));
    node = next;
  }
  return tally;
}

void VXMessageQueue::GiveBack(std::uint64_t bytes) {
  const std::uint64_t left = queuedBytes_.fetch_sub(bytes) - bytes;
  if (roomWaiters_.load() != 0 && left <= wakeAtBytes_.load()) WakeRoomWaiters();
}

void VXMessageQueue::Taken(QueueShare* share, std::uint64_t bytes) {
  if (share == nullptr) return;
  // Only the consumer writes it; sequentially consistent against the
  // waiter's announcement, as in GiveBack.
  share->taken.store(share->taken.load(std::memory_order_relaxed) + bytes);
  if (shareWaiters_.load() == 0 || share->waiters.load() == 0) return;
  // Once as the share drains past the mark, and once as it empties (for a
  // message larger than the rest of the share): not on every take while the
  // woken producer is on its way.
  const std::uint64_t held = share->Held(), mark = share->wakeAt.load();
  if (held == 0 || (held <= mark && held + bytes > mark)) WakeRoomWaiters();
}

void VXMessageQueue::WakeRoomWaiters() {
  std::lock_guard<std::mutex> lock(roomMutex_);
  roomFreed_.notify_all();
}

bool VXMessageQueue::HasRoom(std::uint64_t bytes, const RoomBounds& bounds) const {
  if (QueueShare* share = bounds.share) {
    // The count seen last is a lower bound of the taken bytes: while it
    // leaves room, the consumer's line need not be read. Taken counts are
    // read before pushed ones, which are never behind them.
    std::uint64_t seen = share->takenSeen.load(std::memory_order_relaxed);
    std::uint64_t pushed = share->pushed.load();
    if (pushed - seen + bytes > bounds.shareLimit && pushed != seen) {
      seen = share->taken.load();
      pushed = share->pushed.load();
      share->takenSeen.store(seen, std::memory_order_relaxed);
      if (pushed - seen + bytes > bounds.shareLimit && pushed != seen) return false;
    }
    if (pushed == seen) return true;  // it holds nothing
  }
  const std::uint64_t queued = queuedBytes_.load();
  return queued == 0 || queued + bytes <= bounds.whole;
}

bool VXMessageQueue::MayResume(std::uint64_t bytes, const RoomBounds& bounds, Room* why) const {
  if (consumerAway_.load()) {
    *why = Room::kConsumerAway;
    return true;
  }
  *why = Room::kFree;
  if (bounds.share != nullptr) {
    const std::uint64_t held = bounds.share->Held();
    if (held == 0) return true;
    if (held > bounds.shareLimit / 2 || held + bytes > bounds.shareLimit) return false;
  }
  const std::uint64_t queued = queuedBytes_.load();
  return queued == 0 || (queued <= bounds.whole / 2 && queued + bytes <= bounds.whole);
}

bool VXMessageQueue::WaitsOnShare(std::uint64_t bytes, const RoomBounds& bounds) const {
  if (bounds.share == nullptr) return false;
  const std::uint64_t held = bounds.share->Held();
  return held > bounds.shareLimit / 2 || held + bytes > bounds.shareLimit;
}

VXMessageQueue::ConsumerAway::ConsumerAway(VXMessageQueue& queue) : queue_(queue) {
  if (queue_.consumer_.load() != std::this_thread::get_id() || queue_.consumerAway_.load()) return;
  marked_ = true;
  queue_.consumerAway_.store(true);
  queue_.WakeRoomWaiters();
}

VXMessageQueue::ConsumerAway::~ConsumerAway() {
  if (marked_) queue_.consumerAway_.store(false);
}

bool VXMessageQueue::Push(MessageRef&& message) {
  const std::uint64_t bytes = MessageBytes(message);
  return Push(std::move(message), bytes);
}

bool VXMessageQueue::Push(MessageRef&& message, std::uint64_t bytes) {
  void* block = PooledAllocate(sizeof(Node));
  if (block == nullptr) return false;
  QueueShare* share = nullptr;
  // Any session, established or not, ended or not: its messages are its own.
  if (takesTurns_ && message && message->GetSession().get() != nullptr) {
    share = &message->GetSession()->DispatchShare();
    share->pushed.fetch_add(bytes);  // before the node can be taken
  }
  Node* node = new (block) Node{nullptr, std::move(message), bytes, share};
  queuedBytes_.fetch_add(bytes);
  Node* old = head_.load(std::memory_order_relaxed);
  // Acquires as well: a producer whose node lands after a DropPushed sees
  // what was published before that (a closed session queue, say).
  do {
    node->next = old;
  } while (!head_.compare_exchange_weak(old, node, std::memory_order_seq_cst,
                                        std::memory_order_relaxed));
  // Only the push onto an empty stack wakes the consumer, and only one that
  // sleeps or is about to: one that is still looking finds the node itself.
  // The swap above and the consumer's flag are both sequentially consistent,
  // so either this push sees the flag or the consumer's last look sees the
  // node. The mutex closes the gap between that look and the sleep.
  if (old != nullptr || !consumerAsleep_.load()) return true;
  std::lock_guard<std::mutex> lock(mutex_);
  notEmpty_.notify_one();
  return true;
}

void VXMessageQueue::Wake() {
  woken_.store(true);
  {
    std::lock_guard<std::mutex> lock(mutex_);
    notEmpty_.notify_one();
  }
  WakeRoomWaiters();  // a stop that wakes the consumer ends producers' waits too
}

VXMessageQueue::Node* VXMessageQueue::TakeBatch(std::int32_t limitMs) {
  Node* batch = head_.exchange(nullptr, std::memory_order_acquire);
  if (batch || limitMs == 0) return batch;
  auto take = [this, &batch] {
    batch = head_.exchange(nullptr, std::memory_order_seq_cst);
    return batch != nullptr || woken_.exchange(false);
  };
  // On a queue that spins, the next request mostly comes within a few
  // microseconds: a short look spares a sleep and a wake.
  if (spins_ && SpinBriefly([this] { return head_.load(std::memory_order_relaxed) != nullptr; }) &&
      take())
    return batch;
  std::unique_lock<std::mutex> lock(mutex_);
  consumerAsleep_.store(true);
  if (limitMs < 0) {
    notEmpty_.wait(lock, take);
  } else {
    auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(limitMs);
    notEmpty_.wait_until(lock, deadline, take);
  }
  consumerAsleep_.store(false);
  return batch;
}

void VXMessageQueue::Arrange(Node* batch) {
  // The stack holds the newest first; reversed, the oldest comes out first.
  Node* ordered = nullptr;
  while (batch) {
    Node* next = batch->next;
    batch->next = ordered;
    ordered = batch;
    batch = next;
  }
  if (!takesTurns_) {
    fifo_ = ordered;  // only ever arranged once the last batch is served
    return;
  }
  std::size_t last = kNoLane;  // a batch mostly comes from one share in runs
  while (ordered) {
    Node* node = ordered;
    ordered = node->next;
    node->next = nullptr;
    if (last == kNoLane || lanes_[last].share != node->share) {
      last = kNoLane;
      for (std::size_t i = 0; i < lanes_.size(); ++i)
        if (lanes_[i].share == node->share) last = i;
    }
    if (last == kNoLane) {
      lanes_.push_back(Lane{node->share, node, node});
      last = lanes_.size() - 1;
    } else {
      lanes_[last].last->next = node;
      lanes_[last].last = node;
    }
  }
}

VXMessageQueue::Node* VXMessageQueue::TakeFromLane(std::size_t index) {
  Lane& lane = lanes_[index];
  Node* node = lane.first;
  lane.first = node->next;
  servedLane_ = index;
  if (lane.first == nullptr) {
    lanes_.erase(lanes_.begin() + static_cast<std::ptrdiff_t>(index));
    if (turn_ > index) --turn_;
    servedLane_ = kNoLane;
  }
  return node;
}

VXMessageQueue::Node* VXMessageQueue::TakeTurn() {
  if (turn_ >= lanes_.size()) turn_ = 0;
  const std::size_t index = turn_++;
  return TakeFromLane(index);
}

void VXMessageQueue::HandOut(Node* node, MessageRef& out) {
  out = std::move(node->message);
  Taken(node->share, node->bytes);
  // One subtraction on the producers' line per lump instead of per message;
  // at once when a producer waits, and when all taken is served.
  unreturnedBytes_ += node->bytes;
  if ((fifo_ == nullptr && lanes_.empty()) || unreturnedBytes_ >= kLumpBytes ||
      roomWaiters_.load() != 0) {
    GiveBack(unreturnedBytes_);
    unreturnedBytes_ = 0;
  }
  node->~Node();
  PooledFree(node, sizeof(Node));
}

void VXMessageQueue::Pop(MessageRef& out, std::int32_t limitMs) {
  if (takesTurns_) {
    // Arrivals join their lanes before every turn, so that a share that was
    // quiet is served within one round of the others.
    if (lanes_.empty()) {
      Node* batch = TakeBatch(limitMs);
      if (!batch) {
        out.Reset();
        return;
      }
      Arrange(batch);
    } else if (head_.load(std::memory_order_relaxed) != nullptr) {
      Arrange(head_.exchange(nullptr, std::memory_order_acquire));
    }
    HandOut(TakeTurn(), out);
    return;
  }
  if (!fifo_) {
    Node* batch = TakeBatch(limitMs);
    if (!batch) {
      out.Reset();
      return;
    }
    Arrange(batch);
  }
  Node* node = fifo_;
  fifo_ = node->next;
  // The next message was made on another thread and lies in that core's
  // cache: fetch it while the consumer works on this one.
  if (fifo_ != nullptr) __builtin_prefetch(fifo_->message.get());
  HandOut(node, out);
}

bool VXMessageQueue::PopSameLane(MessageRef& out) {
  if (servedLane_ == kNoLane || servedLane_ >= lanes_.size()) {
    out.Reset();
    return false;
  }
  HandOut(TakeFromLane(servedLane_), out);
  return true;
}

}  // namespace vxbus
