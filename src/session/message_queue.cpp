#include "session/message_queue.h"

#include <chrono>
#include <new>
#include <utility>

#include "paramlist/fast_holder.h"
#include "runtime/block_pool.h"
#include "runtime/brief_spin.h"

namespace vxbus {

// Never destroyed: a process that exits without shutting down leaves the
// dispatch thread asleep on it, and its condition variable must outlive that.
VXMessageQueue& g_dispatchQueue = *new VXMessageQueue(true);

VXMessageQueue::~VXMessageQueue() {
  Clear();
}

std::uint64_t VXMessageQueue::MessageBytes(const MessageRef& message) {
  if (!message) return 0;
  const ListRef& list =
      message->GetState() == kStateReply ? message->GetOutputList() : message->GetInputList();
  return kMessageOverheadBytes + (list ? list->Used() : 0);
}

QueueTally VXMessageQueue::Clear() {
  GiveBack(unreturnedBytes_);
  unreturnedBytes_ = 0;
  QueueTally tally = FreeList(fifo_);
  fifo_ = nullptr;
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

void VXMessageQueue::WakeRoomWaiters() {
  std::lock_guard<std::mutex> lock(roomMutex_);
  roomFreed_.notify_all();
}

bool VXMessageQueue::MayResume(std::uint64_t bytes, std::uint64_t limit, Room* why) const {
  if (consumerAway_.load()) {
    *why = Room::kConsumerAway;
    return true;
  }
  const std::uint64_t queued = queuedBytes_.load();
  *why = Room::kFree;
  return queued == 0 || (queued <= limit / 2 && queued + bytes <= limit);
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

void VXMessageQueue::Push(MessageRef message) {
  const std::uint64_t bytes = MessageBytes(message);
  Node* node = new (PooledAllocate(sizeof(Node))) Node{nullptr, std::move(message), bytes};
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
  if (old != nullptr || !sleeping_.load()) return;
  std::lock_guard<std::mutex> lock(mutex_);
  notEmpty_.notify_one();
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
  sleeping_.store(true);
  if (limitMs < 0) {
    notEmpty_.wait(lock, take);
  } else {
    auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(limitMs);
    notEmpty_.wait_until(lock, deadline, take);
  }
  sleeping_.store(false);
  return batch;
}

void VXMessageQueue::Pop(MessageRef& out, std::int32_t limitMs) {
  if (!fifo_) {
    Node* batch = TakeBatch(limitMs);
    if (!batch) {
      out.Reset();
      return;
    }
    // The stack holds the newest first; reverse it so the oldest comes out first.
    while (batch) {
      Node* next = batch->next;
      batch->next = fifo_;
      fifo_ = batch;
      batch = next;
    }
  }
  Node* node = fifo_;
  fifo_ = node->next;
  // The next message was made on another thread and lies in that core's
  // cache: fetch it while the consumer works on this one.
  if (fifo_ != nullptr) __builtin_prefetch(fifo_->message.get());
  out = std::move(node->message);
  // One subtraction on the producers' line per lump instead of per message;
  // at once when a producer waits, and when the batch is done.
  unreturnedBytes_ += node->bytes;
  if (fifo_ == nullptr || unreturnedBytes_ >= kLumpBytes || roomWaiters_.load() != 0) {
    GiveBack(unreturnedBytes_);
    unreturnedBytes_ = 0;
  }
  node->~Node();
  PooledFree(node, sizeof(Node));
}

}  // namespace vxbus
