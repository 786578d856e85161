// The queue to one consumer: its order, its byte accounting, producers that
// wait for room, and the two waits built on it: VXNotify's on a send queue, a
// reader's on the dispatch queue. And the table of waiting calls.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <thread>
#include <vector>

#include "paramlist/fast_holder.h"
#include "runtime/process_state.h"
#include "session/application.h"
#include "session/back_pressure.h"
#include "session/message.h"
#include "session/message_queue.h"
#include "session/pending_calls.h"
#include "session/slot_call_message.h"
#include "vxbus.h"

namespace vxbus {
namespace {

// A message that carries only its id.
class TaggedMessage : public IVXMessage {
 public:
  explicit TaggedMessage(std::uint32_t id)
      : IVXMessage(EventRef(), SessionRef(), id, kStateOneWay, nullptr) {}
  std::int32_t Send() override { return 0; }
  std::int32_t Receive(const unsigned char*) override { return 0; }
};

// Order holds across batches; a null shows once, as an empty reference; and
// what is still queued when the queue ends is released, shared or taken.
TEST(MessageQueue, OneProducerKeepsItsOrderAndANullShowsOnce) {
  const std::uint32_t livesBefore = DEBUG_VXObjectCount().messages;
  {
    VXMessageQueue queue;
    MessageRef out(new TaggedMessage(0));
    queue.Pop(out, 20);  // a bounded wait that times out
    EXPECT_FALSE(out);   // and what the reference held was released
    queue.Push(new TaggedMessage(1));
    queue.Push(MessageRef());
    queue.Push(new TaggedMessage(2));
    queue.Pop(out, 0);  // takes the batch of three
    EXPECT_EQ(out->GetId(), 1u);
    queue.Push(new TaggedMessage(3));
    for (std::uint32_t id : {0u, 2u, 3u, 0u}) {  // 0: empty
      queue.Pop(out, 0);
      EXPECT_EQ(out ? out->GetId() : 0u, id);
    }
    queue.Push(new TaggedMessage(4));
    queue.Push(new TaggedMessage(5));
    queue.Pop(out, 0);  // one moves to the consumer's list, one stays shared
    queue.Push(new TaggedMessage(6));
  }
  EXPECT_EQ(DEBUG_VXObjectCount().messages, livesBefore);
}

TEST(PendingCalls, VisitsInOrderOfIdTakesOncePublishesSizeOnAMiss) {
  VXPendingCalls calls;
  for (std::uint32_t id : {30u, 10u, 20u})
    calls.Insert(new TaggedMessage(id));
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

using Room = VXMessageQueue::Room;
constexpr std::uint64_t kOverhead = VXMessageQueue::kMessageOverheadBytes;

// A one-way message to `slot` whose list holds `payload` bytes of binary value.
MessageRef OneWay(std::uint32_t payload, const SessionRef& session = SessionRef(),
                  std::uint32_t slot = 7) {
  HVXPARAMLIST list = VXCreateParamList();
  const std::vector<char> bytes(payload, 'p');
  VXSetBinaryValue(list, "p", bytes.data(), payload);
  MessageRef message(
      new VXSlotCallMessage(IVXMessage::EventRef(), session, slot, list, nullptr, nullptr));
  VXCloseHandle(list);
  return message;
}

std::uint64_t ListBytes(const MessageRef& message) {
  return message->GetInputList()->Used();
}

// What is counted in is given back on every way out: pop, clear, or the
// end of the queue; a reply counts the list it carries back.
TEST(QueueBytes, CountTheCarriedListAndComeBackToZero) {
  VXMessageQueue queue;
  MessageRef small = OneWay(10), large = OneWay(5000);
  queue.Push(small);
  queue.Push(MessageRef());  // a wake-up counts nothing
  queue.Push(large);
  EXPECT_EQ(queue.QueuedBytes(), 2 * kOverhead + ListBytes(small) + ListBytes(large));

  MessageRef out;
  queue.Pop(out, 0);
  // Mid-batch, the popped bytes may not have been given back yet.
  EXPECT_GE(queue.QueuedBytes(), kOverhead + ListBytes(large));
  EXPECT_LE(queue.QueuedBytes(), kOverhead + ListBytes(large) + VXMessageQueue::kLumpBytes);
  QueueTally left = queue.Clear();
  EXPECT_EQ(left.messages, 1u);
  EXPECT_EQ(left.bytes, kOverhead + ListBytes(large));
  EXPECT_EQ(queue.QueuedBytes(), 0u);

  // Turned into a reply, the same message counts its output list instead.
  MessageRef reply(new VXSlotCallMessage(
      IVXMessage::EventRef(), SessionRef(), 7, VX_INVALID_PARAMLIST,
      [](const char*, std::uint32_t, HVXPARAMLIST, HVXPARAMLIST, void*) { return VX_SUCCESS; },
      nullptr));
  VXSetStringValue(HVXPARAMLIST{reply->GetOutputList().get()}, "answer", "forty-two");
  EXPECT_EQ(VXMessageQueue::MessageBytes(reply), kOverhead);
  reply->SetReplyState();
  EXPECT_EQ(VXMessageQueue::MessageBytes(reply), kOverhead + reply->GetOutputList()->Used());
  {
    VXMessageQueue dying;
    dying.Push(reply);
  }
  EXPECT_EQ(VXMessageQueue::MessageBytes(MessageRef()), 0u);
}

// Producers that wait for room before they push are all let through by a
// consumer that pops (a lost wake-up or message shows as a time-out, counted
// with the nulls); each keeps its order among the others' messages and the
// null wake-ups, and the queue passes its bound by no more than one message
// per other producer.
TEST(QueueBytes, WaitingProducersAreWokenAndKeepTheirOrderAndTheBound) {
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
TEST(QueueBytes, StopAndAnAbsentConsumerEndTheWait) {
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

// VXNotify's wait on a session's send queue: room at once, the error once the
// time is up. It and a reader's wait on a full dispatch queue, which has no
// time limit, end as soon as the session stops under them.
TEST(SessionRoom, SendRoomWaitsForTheTimeLimitAndAStopEndsBothWaits) {
  const VXLimits saved = g_limits;
  SessionRef session(new VXAPPImpl);  // no threads: nothing drains its queues
  session->MarkEstablished("host:1/peer");
  MessageRef message = OneWay(2000, session);
  const auto full = static_cast<std::uint32_t>(VXMessageQueue::MessageBytes(message));
  g_limits.limits.RESERVED_E = g_limits.limits.RESERVED_D = full;
  g_limits.limits.IO_TIMEOUT_MS = 20;
  EXPECT_EQ(AwaitSendRoom(*session, message), VX_SUCCESS);  // empty: always room
  session->QueueFrame(message);
  EXPECT_EQ(AwaitSendRoom(*session, OneWay(0, session)), VX_ERROR_QUEUE_FULL);

  g_limits.limits.IO_TIMEOUT_MS = 60000;
  g_dispatchQueue.Push(OneWay(2000, session));
  _tag_VX_ERROR sent = VX_SUCCESS;
  bool admitted = true;
  std::thread notifier([&] { sent = AwaitSendRoom(*session, OneWay(0, session)); });
  std::thread reader([&] { admitted = AwaitDispatchRoom(*session, OneWay(0, session)); });
  session->Stop();
  notifier.join();
  reader.join();
  EXPECT_EQ(sent, VX_ERROR_NO_APPLICATION);
  EXPECT_FALSE(admitted);
  session->CloseSendQueue();
  g_dispatchQueue.Clear();
  g_limits = saved;
}

}  // namespace
}  // namespace vxbus
