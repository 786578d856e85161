// SPDX-License-Identifier: MIT
// The queue to one consumer: its order, its byte accounting, the turns it
// takes between sessions and the producers that wait for room.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "paramlist/handle.h"
#include "paramlist/param_list.h"
#include "session/message_queue.h"
#include "session/session.h"
#include "session_fixtures.h"
#include "support/wait.h"
#include "vxbus.h"

namespace vxbus {
namespace {

using testing::OneWay;
using testing::TaggedMessage;
using testing::WaitUntil;
using Room = VXMessageQueue::Room;

// Order holds across batches; a null shows once, as an empty reference; and
// what is still queued when the queue ends is released, shared or taken.
TEST(MessageQueue, PushesComeOutInTheirOrderAcrossBatches) {
  const std::uint32_t livesBefore = DEBUG_VXObjectCount().messages;
  {
    VXMessageQueue queue;
    MessageRef out(TaggedMessage(0));
    queue.Pop(out, 20);  // a bounded wait that times out
    EXPECT_FALSE(out);   // and what the reference held was released
    queue.Push(TaggedMessage(1));
    queue.Push(MessageRef());
    queue.Push(TaggedMessage(2));
    queue.Pop(out, 0);  // takes the batch of three
    EXPECT_EQ(out->GetId(), 1u);
    queue.Push(TaggedMessage(3));
    for (std::uint32_t id : {0u, 2u, 3u, 0u}) {  // 0: empty
      queue.Pop(out, 0);
      EXPECT_EQ(out ? out->GetId() : 0u, id);
    }
    queue.Push(TaggedMessage(4));
    queue.Push(TaggedMessage(5));
    queue.Pop(out, 0);  // one moves to the consumer's list, one stays shared
    queue.Push(TaggedMessage(6));
  }
  EXPECT_EQ(DEBUG_VXObjectCount().messages, livesBefore);
}

// A message counts every block it holds: its own, its node's, and each list
// it carries with the list's object, whole image and nested lists. What is
// counted in is given back on every way out: pop, clear, or the end of the
// queue.
TEST(QueueBytes, WhatAMessageHoldsIsCountedUntilItLeaves) {
  VXMessageQueue queue;
  MessageRef small = OneWay(10), large = OneWay(5000);
  const std::uint64_t smallBytes = VXMessageQueue::MessageBytes(small);
  const std::uint64_t largeBytes = VXMessageQueue::MessageBytes(large);
  const std::uint64_t blocks = sizeof(Message) + sizeof(ParamList);
  EXPECT_GE(smallBytes, blocks + small->GetInputList()->Used());
  EXPECT_GE(largeBytes, blocks + large->GetInputList()->Used());
  EXPECT_LT(largeBytes, blocks + large->GetInputList()->Used() + 512);
  queue.Push(small);
  queue.Push(MessageRef());  // a wake-up counts nothing
  queue.Push(large);
  EXPECT_EQ(queue.QueuedBytes(), smallBytes + largeBytes);

  MessageRef out;
  queue.Pop(out, 0);
  // Mid-batch, the popped bytes may not have been given back yet.
  EXPECT_GE(queue.QueuedBytes(), largeBytes);
  EXPECT_LE(queue.QueuedBytes(), largeBytes + VXMessageQueue::kLumpBytes);
  QueueTally left = queue.Clear();
  EXPECT_EQ(left.messages, 1u);
  EXPECT_EQ(left.bytes, largeBytes);
  EXPECT_EQ(queue.QueuedBytes(), 0u);

  // A reply's output list counts, and so does a nested list, image and all.
  MessageRef reply(new Message(
      Message::EventRef(), SessionRef(), 7, VX_INVALID_PARAMLIST,
      [](const char*, std::uint32_t, HVXPARAMLIST, HVXPARAMLIST, void*) { return VX_SUCCESS; },
      nullptr));
  const std::uint64_t bare = VXMessageQueue::MessageBytes(reply);
  HVXPARAMLIST output{reply->GetOutputList().get()};
  HVXPARAMLIST nested = VXCreateParamList();
  const std::vector<char> payload(3000, 'n');
  VXSetBinaryValue(nested, "n", payload.data(), 3000);
  VXSetHandleValue(output, "nested", nested);
  VXCloseHandle(nested);
  EXPECT_GE(VXMessageQueue::MessageBytes(reply), bare + sizeof(ParamList) + 3000);
  {
    VXMessageQueue dying;
    dying.Push(reply);
  }
  EXPECT_EQ(VXMessageQueue::MessageBytes(MessageRef()), 0u);
}

// A queue that takes turns serves one message of each session in turn, each
// session's in its order, sessionless wake-ups in theirs; a session that
// comes later is served within one round; a lane's rest can be taken at once.
TEST(TurnTakingQueue, SessionsTakeTurnsEachInItsOwnOrder) {
  VXMessageQueue queue(false, true);
  SessionRef a(new Session), b(new Session), c(new Session);
  std::string served;
  auto pop = [&] {
    MessageRef out;
    queue.Pop(out, 0);
    if (!out) return served += '-', false;
    const SessionRef& session = out->GetSession();
    served += session.get() == a.get() ? 'a' : session.get() == b.get() ? 'b' : 'c';
    served += std::to_string(out->GetSlotId());
    return true;
  };
  for (std::uint32_t i = 1; i <= 3; ++i)
    queue.Push(OneWay(0, a, i));
  queue.Push(MessageRef());
  queue.Push(OneWay(0, b, 1));
  queue.Push(OneWay(0, b, 2));
  pop();
  pop();
  queue.Push(OneWay(0, c, 1));  // arrives while a and b still wait
  while (queue.QueuedBytes() != 0)
    pop();
  EXPECT_EQ(served, "a1-b1c1a2b2a3");

  // The rest of the lane just served comes without a turn; the others wait.
  served.clear();
  for (std::uint32_t i = 1; i <= 3; ++i) {
    queue.Push(OneWay(0, a, i));
    queue.Push(OneWay(0, b, i));
  }
  pop();
  MessageRef out;
  while (queue.PopSameLane(out))
    served += std::to_string(out->GetSlotId());
  EXPECT_FALSE(out);
  EXPECT_FALSE(queue.PopSameLane(out));  // the lane is gone with its last message
  while (queue.QueuedBytes() != 0)
    pop();
  EXPECT_EQ(served, "a123b1b2b3");
  EXPECT_EQ(a->DispatchShare().Held() + b->DispatchShare().Held() + c->DispatchShare().Held(), 0u);
}

// Shares of a queue that takes turns: a session that holds nothing always
// has room, even in a full queue; a full share waits, is not woken by the
// others' messages, and goes on once its own have drained to half its bound.
TEST(TurnTakingQueue, AFullShareWaitsForItsOwnMessagesOnly) {
  VXMessageQueue queue(false, true);
  queue.SetConsumerThread(std::this_thread::get_id());
  SessionRef greedy(new Session), honest(new Session);
  const std::uint64_t each = VXMessageQueue::MessageBytes(OneWay(100, greedy));
  auto bounds = [&](const SessionRef& session, std::uint64_t whole) {
    return RoomBounds{whole * each, &session->DispatchShare(), 4 * each};
  };
  for (int i = 0; i < 4; ++i)
    queue.Push(OneWay(100, greedy));
  for (int i = 0; i < 11; ++i)
    queue.Push(OneWay(100));  // sessionless: only the whole bound sees them
  EXPECT_FALSE(queue.HasRoom(each, bounds(greedy, 100)));  // its share is full
  EXPECT_TRUE(queue.HasRoom(each, bounds(honest, 15)));    // holds nothing
  queue.Push(OneWay(100, honest));
  EXPECT_TRUE(queue.HasRoom(each, bounds(honest, 17)));
  EXPECT_FALSE(queue.HasRoom(each, bounds(honest, 16)));  // the whole queue is full

  std::atomic<bool> resumed{false};
  std::thread producer([&] {
    EXPECT_EQ(queue.WaitForRoom(each, bounds(greedy, 100), 30000, [] { return false; }),
              Room::kFree);
    resumed = true;
  });
  ASSERT_TRUE(WaitUntil([&] { return greedy->DispatchShare().waiters.load() == 1; }));
  // Its turns: greedy, sessionless, honest, then greedy once each round.
  std::uint32_t greedyTaken = 0;
  MessageRef out;
  while (greedyTaken < 2) {
    EXPECT_FALSE(resumed);
    queue.Pop(out, 0);
    if (out->GetSession().get() == greedy.get()) ++greedyTaken;
  }
  EXPECT_TRUE(WaitUntil([&] { return resumed.load(); }));
  producer.join();
  EXPECT_EQ(greedy->DispatchShare().Held(), 2 * each);
  queue.Clear();
  EXPECT_EQ(greedy->DispatchShare().Held(), 0u);
  EXPECT_EQ(honest->DispatchShare().Held(), 0u);
}

// Producers that wait for room before they push are all let through by a
// popping consumer (a lost wake-up or message shows as a time-out); each keeps
// its order among the others' messages and the nulls, and the queue passes its
// bound by no more than one message per other producer.
TEST(QueueBytes, WaitingProducersAreAllLetThroughWithinTheBound) {
  constexpr std::uint32_t kProducers = 4, kPerProducer = 2000, kNullEvery = 500;
  VXMessageQueue queue;
  const std::uint64_t each = VXMessageQueue::MessageBytes(OneWay(100));
  const std::uint64_t limit = 20 * each;
  std::atomic<int> timedOut{0};
  std::vector<std::thread> producers;
  for (std::uint32_t p = 0; p < kProducers; ++p)
    producers.emplace_back([&, p] {
      for (std::uint32_t i = 1; i <= kPerProducer; ++i) {
        MessageRef message = OneWay(100, SessionRef(), p);  // its ids rise as it makes them
        if (queue.WaitForRoom(each, limit, 30000, [] { return false; }) == Room::kTimedOut)
          ++timedOut;
        queue.Push(message);
        if (i % kNullEvery == 0) queue.Push(MessageRef());
      }
    });
  std::uint64_t most = 0;
  std::vector<std::uint32_t> lastId(kProducers, 0), received(kProducers, 0);
  std::uint32_t nulls = 0;
  for (std::uint32_t n = 0; n < kProducers * (kPerProducer + kPerProducer / kNullEvery); ++n) {
    most = std::max(most, queue.QueuedBytes());
    MessageRef out;
    queue.Pop(out, 30000);
    if (!out) {
      ++nulls;
      continue;
    }
    const std::uint32_t p = out->GetSlotId();
    EXPECT_GT(out->GetId(), lastId[p]) << "producer " << p;
    lastId[p] = out->GetId();
    ++received[p];
  }
  for (std::thread& producer : producers)
    producer.join();
  EXPECT_EQ(timedOut, 0);
  EXPECT_EQ(received, std::vector<std::uint32_t>(kProducers, kPerProducer));
  EXPECT_EQ(nulls, kProducers * kPerProducer / kNullEvery);
  EXPECT_LE(most, limit + (kProducers - 1) * each);
  EXPECT_EQ(queue.QueuedBytes(), 0u);
}

// A full queue holds a producer until a stop, or until its consumer goes
// away to wait on something else; another thread's absence changes nothing.
TEST(QueueBytes, OnlyAStopOrAnAwayConsumerEndsAWaitForRoom) {
  VXMessageQueue queue;
  queue.Push(OneWay(1000));
  const std::uint64_t limit = queue.QueuedBytes();
  std::atomic<bool> stop{false};
  Room room = Room::kFree;
  std::thread waiter([&] { room = queue.WaitForRoom(1, limit, -1, [&] { return stop.load(); }); });
  stop = true;
  queue.WakeRoomWaiters();
  waiter.join();
  EXPECT_EQ(room, Room::kStopped);

  {
    VXMessageQueue::ConsumerAway notTheConsumer(queue);
    EXPECT_EQ(queue.WaitForRoom(1, limit, 20, [] { return false; }), Room::kTimedOut);
  }
  queue.SetConsumerThread(std::this_thread::get_id());
  waiter = std::thread([&] { room = queue.WaitForRoom(1, limit, -1, [] { return false; }); });
  {
    VXMessageQueue::ConsumerAway away(queue);
    waiter.join();
  }
  EXPECT_EQ(room, Room::kConsumerAway);
  EXPECT_EQ(queue.WaitForRoom(1, limit, 0, [] { return false; }), Room::kTimedOut);
}

}  // namespace
}  // namespace vxbus
