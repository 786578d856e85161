#include <gtest/gtest.h>

#include <thread>
#include <vector>

#include "messaging/message.h"
#include "session/application.h"
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

std::uint32_t ProducerOf(const MessageRef& m) {
  return static_cast<TaggedMessage*>(m.get())->producer;
}

TEST(MessageQueue, PopWithoutWaitOnAnEmptyQueueGivesNothingAtOnce) {
  VXMessageQueue queue;
  MessageRef out(new TaggedMessage(0, 0));
  queue.Pop(out, 0);
  EXPECT_FALSE(out);   // what the reference held was released
  queue.Pop(out, 20);  // a bounded wait that times out
  EXPECT_FALSE(out);
}

TEST(MessageQueue, OneProducerKeepsItsOrderAcrossBatches) {
  VXMessageQueue queue;
  MessageRef out;
  queue.Push(new TaggedMessage(0, 1));
  queue.Push(new TaggedMessage(0, 2));
  queue.Pop(out, 0);  // takes the batch of two
  EXPECT_EQ(out->GetId(), 1u);
  queue.Push(new TaggedMessage(0, 3));
  queue.Pop(out, 0);
  EXPECT_EQ(out->GetId(), 2u);
  queue.Pop(out, 0);
  EXPECT_EQ(out->GetId(), 3u);
}

TEST(MessageQueue, NullInTheMiddleOfABatchShowsOnceAsEmpty) {
  VXMessageQueue queue;
  queue.Push(new TaggedMessage(0, 1));
  queue.Push(MessageRef());
  queue.Push(new TaggedMessage(0, 2));
  MessageRef out;
  queue.Pop(out, 0);
  EXPECT_EQ(out->GetId(), 1u);
  queue.Pop(out, 0);
  EXPECT_FALSE(out);
  queue.Pop(out, 0);
  ASSERT_TRUE(out);
  EXPECT_EQ(out->GetId(), 2u);
}

TEST(MessageQueue, ManyProducersLoseNothingAndKeepEachOrder) {
  constexpr std::uint32_t kProducers = 4;
  constexpr std::uint32_t kPerProducer = 5000;
  const std::uint32_t livesBefore = DEBUG_VXObjectCount().messages;
  {
    VXMessageQueue queue;
    std::vector<std::thread> producers;
    for (std::uint32_t p = 0; p < kProducers; ++p)
      producers.emplace_back([&queue, p] {
        for (std::uint32_t i = 1; i <= kPerProducer; ++i) {
          queue.Push(new TaggedMessage(p, i));
          if (i % 1000 == 0) queue.Push(MessageRef());  // wake-ups mixed in
        }
      });
    std::vector<std::uint32_t> last(kProducers, 0);
    std::uint32_t received = 0, nulls = 0;
    while (received < kProducers * kPerProducer || nulls < kProducers * kPerProducer / 1000) {
      MessageRef out;
      queue.Pop(out, -1);
      if (!out) {
        ++nulls;
        continue;
      }
      std::uint32_t p = ProducerOf(out);
      EXPECT_EQ(out->GetId(), last[p] + 1) << "producer " << p;
      last[p] = out->GetId();
      ++received;
    }
    for (auto& t : producers)
      t.join();
    for (std::uint32_t p = 0; p < kProducers; ++p)
      EXPECT_EQ(last[p], kPerProducer);
  }
  EXPECT_EQ(DEBUG_VXObjectCount().messages, livesBefore);
}

TEST(MessageQueue, ABlockedConsumerIsWokenByAPush) {
  VXMessageQueue queue;
  std::thread producer([&queue] { queue.Push(new TaggedMessage(0, 7)); });
  MessageRef out;
  queue.Pop(out, -1);
  producer.join();
  ASSERT_TRUE(out);
  EXPECT_EQ(out->GetId(), 7u);
}

TEST(MessageQueue, DestructionReleasesWhatIsStillQueued) {
  const std::uint32_t livesBefore = DEBUG_VXObjectCount().messages;
  {
    VXMessageQueue queue;
    queue.Push(new TaggedMessage(0, 1));
    queue.Push(new TaggedMessage(0, 2));
    MessageRef out;
    queue.Pop(out, 0);  // one moves to the consumer's list, one stays shared
    queue.Push(new TaggedMessage(0, 3));
  }
  EXPECT_EQ(DEBUG_VXObjectCount().messages, livesBefore);
}

TEST(PendingCalls, TakeFindsByIdOnceAndPublishesSizeOnlyOnAMiss) {
  VXPendingCalls calls;
  calls.Insert(new TaggedMessage(0, 10));
  calls.Insert(new TaggedMessage(0, 11));
  EXPECT_EQ(DEBUG_VXObjectCount().pendingCalls, 2u);
  MessageRef out;
  EXPECT_TRUE(calls.Take(10, out));
  EXPECT_EQ(out->GetId(), 10u);
  EXPECT_EQ(DEBUG_VXObjectCount().pendingCalls, 2u);  // a hit publishes nothing
  EXPECT_FALSE(calls.Take(10, out));
  EXPECT_FALSE(out);
  EXPECT_EQ(DEBUG_VXObjectCount().pendingCalls, 1u);
}

TEST(PendingCalls, ForEachVisitsInOrderOfIdAndKeepsEntries) {
  VXPendingCalls calls;
  for (std::uint32_t id : {30u, 10u, 20u})
    calls.Insert(new TaggedMessage(0, id));
  std::vector<std::uint32_t> seen;
  calls.ForEach([&seen](MessageRef& m) { seen.push_back(m->GetId()); });
  EXPECT_EQ(seen, (std::vector<std::uint32_t>{10, 20, 30}));
  MessageRef out;
  EXPECT_TRUE(calls.Take(20, out));
}

}  // namespace
}  // namespace vxbus
