// Hands messages from any number of producers to exactly one consumer.
//
// Producers prepend to a shared stack with one compare-and-swap and never
// block; the consumer takes a whole batch with one exchange and serves it
// in arrival order from a list only it touches.
#ifndef VXBUS_SESSION_MESSAGE_QUEUE_H_
#define VXBUS_SESSION_MESSAGE_QUEUE_H_

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <mutex>

#include "session/message.h"

namespace vxbus {

class VXMessageQueue {
 public:
  VXMessageQueue() = default;
  ~VXMessageQueue();
  VXMessageQueue(const VXMessageQueue&) = delete;
  VXMessageQueue& operator=(const VXMessageQueue&) = delete;

  // A null message is allowed: it comes out of Pop as an empty reference,
  // which is how a consumer is woken to look at its end conditions.
  void Push(const MessageRef& message);

  // Makes a Pop that waits, or else the next Pop that finds nothing queued,
  // return at once with nothing. Queues nothing; any thread.
  void Wake();

  // Consumer only. `limitMs` 0 does not wait, a negative value waits without
  // limit. `out` is empty on a time-out or for a pushed null.
  void Pop(MessageRef& out, std::int32_t limitMs);

  // Consumer only: lets go of everything queued, without handing it out.
  void Clear();

 private:
  struct Node {
    Node* next;
    MessageRef message;
  };
  static void FreeList(Node* node);
  Node* TakeBatch(std::int32_t limitMs);

  std::atomic<Node*> head_{nullptr};
  std::mutex mutex_;  // only for the consumer's sleep
  std::condition_variable notEmpty_;
  std::atomic<bool> woken_{false};
  std::atomic<bool> sleeping_{false};  // the consumer is in, or on its way to, its sleep
  Node* fifo_ = nullptr;               // consumer-private, oldest first
};

extern VXMessageQueue& g_dispatchQueue;

}  // namespace vxbus

#endif  // VXBUS_SESSION_MESSAGE_QUEUE_H_
