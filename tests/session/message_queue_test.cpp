// The queue to one consumer, and the table of waiting calls.
#include <gtest/gtest.h>

#include <vector>

#include "session/application.h"
#include "session/message.h"
#include "session/message_queue.h"
#include "session/pending_calls.h"
#include "vxbus.h"

namespace vxbus {
namespace {

// A message that only carries who sent it and in which order.
class TaggedMessage : public IVXMessage {
 public:
  TaggedMessage(std::uint32_t producer, std::uint32_t sequence)
      : IVXMessage(EventRef(), SessionRef(), sequence, kStateOneWay, nullptr), producer(producer) {}
  std::int32_t Send() override { return 0; }
  std::int32_t Receive(const unsigned char*) override { return 0; }
  std::uint32_t producer;
};

// Order holds across batches; a null shows once, as an empty reference; and
// what is still queued when the queue ends is released, shared or taken.
TEST(MessageQueue, OneProducerKeepsItsOrderAndANullShowsOnce) {
  const std::uint32_t livesBefore = DEBUG_VXObjectCount().messages;
  {
    VXMessageQueue queue;
    MessageRef out(new TaggedMessage(0, 0));
    queue.Pop(out, 20);  // a bounded wait that times out
    EXPECT_FALSE(out);   // and what the reference held was released
    queue.Push(new TaggedMessage(0, 1));
    queue.Push(MessageRef());
    queue.Push(new TaggedMessage(0, 2));
    queue.Pop(out, 0);  // takes the batch of three
    EXPECT_EQ(out->GetId(), 1u);
    queue.Push(new TaggedMessage(0, 3));
    for (std::uint32_t id : {0u, 2u, 3u, 0u}) {  // 0: empty
      queue.Pop(out, 0);
      EXPECT_EQ(out ? out->GetId() : 0u, id);
    }
    queue.Push(new TaggedMessage(0, 4));
    queue.Push(new TaggedMessage(0, 5));
    queue.Pop(out, 0);  // one moves to the consumer's list, one stays shared
    queue.Push(new TaggedMessage(0, 6));
  }
  EXPECT_EQ(DEBUG_VXObjectCount().messages, livesBefore);
}

TEST(PendingCalls, VisitsInOrderOfIdTakesOncePublishesSizeOnAMiss) {
  VXPendingCalls calls;
  for (std::uint32_t id : {30u, 10u, 20u})
    calls.Insert(new TaggedMessage(0, id));
  std::vector<std::uint32_t> seen;
  calls.ForEach([&seen](MessageRef& m) { seen.push_back(m->GetId()); });
  EXPECT_EQ(seen, (std::vector<std::uint32_t>{10, 20, 30}));
  EXPECT_EQ(DEBUG_VXObjectCount().pendingCalls, 3u);
  MessageRef out;
  EXPECT_TRUE(calls.Take(10, out));
  EXPECT_EQ(out->GetId(), 10u);
  EXPECT_EQ(DEBUG_VXObjectCount().pendingCalls, 3u);
  EXPECT_FALSE(calls.Take(10, out));
  EXPECT_FALSE(out);
  EXPECT_EQ(DEBUG_VXObjectCount().pendingCalls, 2u);
}

}  // namespace
}  // namespace vxbus
