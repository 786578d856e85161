// Byte accounting of the message queue, producers waiting for room, and the
// two waits built on it: VXNotify's on a send queue, a reader's on the
// dispatch queue.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <thread>
#include <vector>

#include "paramlist/fast_holder.h"
#include "runtime/process_state.h"
#include "session/application.h"
#include "session/back_pressure.h"
#include "session/message_queue.h"
#include "session/slot_call_message.h"

namespace vxbus {
namespace {

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

// A session with no threads: nothing drains its send queue.
class SessionRoomTest : public ::testing::Test {
 protected:
  void SetUp() override {
    saved_ = g_limits;
    session_ = new VXAPPImpl;
    session_->MarkEstablished("host:1/peer");
  }
  void TearDown() override {
    session_->CloseSendQueue();
    g_dispatchQueue.Clear();
    g_limits = saved_;
  }

  VXLimits saved_{};
  SessionRef session_;
};

// VXNotify's wait: room at once, the error once the time is up, and an
// immediate end when the session stops under it.
TEST_F(SessionRoomTest, SendRoomWaitsForTheTimeLimitOrTheStop) {
  MessageRef message = OneWay(2000, session_);
  g_limits.limits.RESERVED_E = static_cast<std::uint32_t>(VXMessageQueue::MessageBytes(message));
  g_limits.limits.IO_TIMEOUT_MS = 20;
  EXPECT_EQ(AwaitSendRoom(*session_, message), VX_SUCCESS);  // empty: always room
  session_->QueueFrame(message);
  EXPECT_EQ(AwaitSendRoom(*session_, OneWay(0, session_)), VX_ERROR_QUEUE_FULL);

  g_limits.limits.IO_TIMEOUT_MS = 60000;
  _tag_VX_ERROR result = VX_SUCCESS;
  std::thread notifier([&] { result = AwaitSendRoom(*session_, OneWay(0, session_)); });
  session_->Stop();
  notifier.join();
  EXPECT_EQ(result, VX_ERROR_NO_APPLICATION);
}

// A reader's wait on a full dispatch queue has no time limit; a stop ends it.
TEST_F(SessionRoomTest, DispatchRoomWaitEndsOnAStop) {
  MessageRef queued = OneWay(2000, session_);
  g_limits.limits.RESERVED_D = static_cast<std::uint32_t>(VXMessageQueue::MessageBytes(queued));
  g_dispatchQueue.Push(queued);
  bool admitted = true;
  std::thread reader([&] { admitted = AwaitDispatchRoom(*session_, OneWay(0, session_)); });
  session_->Stop();
  reader.join();
  EXPECT_FALSE(admitted);
}

}  // namespace
}  // namespace vxbus
