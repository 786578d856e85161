// SPDX-License-Identifier: MIT
// The queue to one consumer: its order, its byte accounting, producers that
// wait for room, and the waits built on it. Sessions over a real channel,
// marked established by hand: frames byte for byte, their order when the
// writer's batches and frames written directly meet, and each way one ends.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "paramlist/handle.h"
#include "paramlist/param_list.h"
#include "runtime/process_state.h"
#include "session/back_pressure.h"
#include "session/message.h"
#include "session/message_queue.h"
#include "session/pending_calls.h"
#include "session/session.h"
#include "session/session_registry.h"
#include "session/session_threads.h"
#include "session/slot_call_message.h"
#include "support/channel_pair.h"
#include "support/log_capture.h"
#include "support/wait.h"
#include "vxbus.h"

namespace vxbus {
namespace {

using testing::WaitUntil;
using Bytes = std::vector<unsigned char>;

// A message that carries only its id.
class TaggedMessage : public IVXMessage {
 public:
  explicit TaggedMessage(std::uint32_t id)
      : IVXMessage(EventRef(), SessionRef(), id, kStateOneWay, nullptr) {}
  std::int32_t Send() override { return 0; }
  std::int32_t Receive(const unsigned char*, Status*) override { return 0; }
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

// A message counts every block it holds: its own, its node's, and each list
// it carries with the list's object, whole image and nested lists. What is
// counted in is given back on every way out: pop, clear, or the end of the
// queue.
TEST(QueueBytes, CountWhatIsHeldAndComeBackToZero) {
  VXMessageQueue queue;
  MessageRef small = OneWay(10), large = OneWay(5000);
  const std::uint64_t smallBytes = VXMessageQueue::MessageBytes(small);
  const std::uint64_t largeBytes = VXMessageQueue::MessageBytes(large);
  const std::uint64_t blocks = sizeof(VXSlotCallMessage) + sizeof(ParamList);
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
  MessageRef reply(new VXSlotCallMessage(
      IVXMessage::EventRef(), SessionRef(), 7, VX_INVALID_PARAMLIST,
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
TEST(TurnTakingQueue, SessionsTakeTurnsAndKeepTheirOwnOrder) {
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
  SessionRef session(new Session);  // no threads: nothing drains its queues
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

// What the handshake would do, minus the exchange. Without threads, frames
// are read and written by hand.
SessionRef EstablishedSession(const ChannelRef& channel, const std::string& peerAppId,
                              bool threads = true) {
  SessionRef session(new Session);
  session->AttachChannel(channel);
  if (threads) session->StartThreads();
  session->MarkEstablished(peerAppId);
  if (threads) session->ReleaseThreads();
  return session;
}

Bytes ReadExactly(const ChannelRef& channel, std::uint32_t n) {
  Bytes bytes(n);
  EXPECT_EQ(channel->Read(bytes.data(), n), static_cast<std::int32_t>(n));
  return bytes;
}

class FrameTest : public ::testing::Test {
 protected:
  void SetUp() override {
    pair_ = testing::MakeSocketChannelPair();
    ASSERT_TRUE(pair_.first && pair_.second);
    sender_ = EstablishedSession(pair_.first, "host:2/receiver", /*threads=*/false);
    receiver_ = EstablishedSession(pair_.second, "host:1/sender", /*threads=*/false);
  }

  // Reads `count` frames and returns their slots, in arrival order.
  std::vector<std::uint32_t> ReceiveSlots(std::size_t count) {
    std::vector<std::uint32_t> slots;
    for (std::size_t i = 0; i < count; ++i) {
      MessageRef message;
      if (!receiver_->ReceiveMessage(message).ok() || !message.IsValid()) break;
      slots.push_back(message->GetSlotId());
      sizes_.push_back(message->GetInputList()->Used());
    }
    return slots;
  }

  testing::ChannelPair pair_;
  SessionRef sender_, receiver_;
  std::vector<std::uint32_t> sizes_;
};

// Ids start at 1; a null list goes out empty and arrives as a valid, empty
// list. A received call answered with nothing leaves as a bare reply.
TEST_F(FrameTest, OneWayWithNullListIsTwentyBytesAndAnEmptyReplySixteen) {
  g_lastMessageId = 0;
  MessageRef message(new VXSlotCallMessage(IVXMessage::EventRef(), sender_, 7, VX_INVALID_PARAMLIST,
                                           nullptr, nullptr));
  EXPECT_GE(message->Send(), 0);
  const Bytes frame = ReadExactly(pair_.second, 20);
  EXPECT_EQ(frame, (Bytes{1, 0, 0, 0, 3, 0, 0, 0, 7, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}));
  EXPECT_EQ(pair_.second->WaitReadable(50), 0);         // nothing more
  ASSERT_EQ(pair_.first->Write(frame.data(), 20), 20);  // the same bytes, now received
  MessageRef request;
  ASSERT_TRUE(receiver_->ReceiveMessage(request).ok());
  ASSERT_TRUE(request->GetInputList().IsValid());
  EXPECT_EQ(VXGetParamCount(HandleFromList(request->GetInputList().get())), 0u);
  EXPECT_FALSE(request->GetOutputList());  // one-way: no reply will come
  g_lastMessageId = 0xFFFFFFFFu;
  EXPECT_EQ(IVXMessage::NextMessageId(), 0u);  // ids wrap to 0

  const unsigned char header[16] = {2, 0, 0, 0, 1, 0, 0, 0, 9, 0, 0, 0, 0, 0, 0, 0};
  MessageRef call(new VXSlotCallMessage(receiver_, header));
  EXPECT_GE(call->Send(), 0);
  EXPECT_EQ(call->GetState(), kStateReply);
  EXPECT_EQ(ReadExactly(pair_.first, 16), (Bytes{2, 0, 0, 0, 2, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}));
}

// A frame is written directly only once nothing is queued ahead of it, and
// never while another thread holds the claim or after writing has ended.
TEST_F(FrameTest, DirectWritesNeverOvertakeQueuedFrames) {
  sender_->QueueFrame(OneWay(8, sender_, 1));
  EXPECT_FALSE(sender_->ClaimIdleWriter());  // frame 1 is queued
  ASSERT_TRUE(sender_->WriteQueuedBatch(0));
  ASSERT_TRUE(sender_->ClaimIdleWriter());
  bool claimedElsewhere = true;
  std::thread([&] { claimedElsewhere = sender_->ClaimIdleWriter(); }).join();
  EXPECT_FALSE(claimedElsewhere);
  sender_->QueueFrame(OneWay(8, sender_, 3));  // queued while 2 holds the claim
  sender_->WriteClaimed(OneWay(8, sender_, 2));
  EXPECT_FALSE(sender_->ClaimIdleWriter());  // frame 3 is still queued
  ASSERT_TRUE(sender_->WriteQueuedBatch(0));
  EXPECT_EQ(ReceiveSlots(3), (std::vector<std::uint32_t>{1, 2, 3}));

  sender_->EndWriting();
  EXPECT_FALSE(sender_->ClaimIdleWriter());
  sender_->QueueFrame(OneWay(8, sender_, 4));
  EXPECT_FALSE(sender_->WriteQueuedBatch(0));
}

// Consecutive queued frames of mixed sizes leave in one batch, some
// collected and some in place, and arrive whole and in order.
TEST_F(FrameTest, ABatchOfQueuedFramesArrivesWholeAndInOrder) {
  std::vector<std::uint32_t> slots, sizes;
  for (std::uint32_t slot = 10; slot < 60; ++slot) {
    const std::uint32_t bytes = slot % 10 == 0 ? 100000 + slot : slot * 3;
    MessageRef message = OneWay(bytes, sender_, slot);
    slots.push_back(slot);
    sizes.push_back(message->GetInputList()->Used());
    sender_->QueueFrame(message);
  }
  bool written = false;
  std::thread writer([&] { written = sender_->WriteQueuedBatch(0); });
  EXPECT_EQ(ReceiveSlots(slots.size()), slots);
  writer.join();
  EXPECT_TRUE(written);
  EXPECT_EQ(sizes_, sizes);
  EXPECT_TRUE(sender_->ClaimIdleWriter());  // all of them are out
  sender_->WriteClaimed(OneWay(1, sender_, 99));
  EXPECT_EQ(ReceiveSlots(1), (std::vector<std::uint32_t>{99}));
}

// What the process-wide callbacks saw; they run on library threads.
struct Observed {
  std::mutex mutex;
  std::vector<std::string> events;
  std::thread::id connectThread, disconnectThread;
  std::atomic<bool> connected{false};

  // Called on a reader thread while the test reads; `thread` records who reported.
  void Add(const std::string& text, std::thread::id* thread) {
    std::lock_guard<std::mutex> lock(mutex);
    events.push_back(text);
    *thread = std::this_thread::get_id();
  }
};
Observed* g_observed = nullptr;

void OnConnect(const char* local, const char* remote, const char* appId, const char* host,
               std::int32_t port, const char* name) {
  g_observed->Add(std::string("connect ") + local + " " + remote + " " + appId + " " + host + " " +
                      std::to_string(port) + " " + name,
                  &g_observed->connectThread);
  g_observed->connected = true;
}

// The session a disconnect listener stops again, as VXDisconnect does once it
// finds the entry; held here so the second stop never misses it.
SessionRef* g_stopAgain = nullptr;

void OnDisconnect(const char* appId, const char* host, std::int32_t port, const char* name) {
  g_observed->Add(
      std::string("disconnect ") + appId + " " + host + " " + std::to_string(port) + " " + name,
      &g_observed->disconnectThread);
  if (g_stopAgain != nullptr) (*g_stopAgain)->Stop();
}

class SessionTest : public ::testing::Test {
 protected:
  void SetUp() override {
    g_observed = &observed_;
    VXSetConnectListener(OnConnect);
    VXSetDisconnectListener(OnDisconnect);
    livesBefore_ = DEBUG_VXObjectCount();
  }
  void TearDown() override {
    EXPECT_TRUE(WaitForSessionThreadsToEnd(std::chrono::seconds(10)));
    EXPECT_TRUE(WaitUntil([this] {
      VXObjectCounters now = DEBUG_VXObjectCount();
      return now.applications == livesBefore_.applications && now.messages == livesBefore_.messages;
    }));
    VXSetConnectListener(nullptr);
    VXSetDisconnectListener(nullptr);
  }

  Observed observed_;
  testing::LogCapture log_;
  VXObjectCounters livesBefore_;
};

// Guards the registry's erase by identity: a session that ends late must not
// erase the newer session that took its name.
TEST(SessionRegistry, AnEndingSessionNeverErasesANewerOneOfTheSameName) {
  SessionRef older(new Session), newer(new Session);
  g_applications.Assign("peer:1/same", older.get());
  g_applications.Assign("peer:1/same", newer.get());
  g_applications.Erase("peer:1/same", older.get());
  EXPECT_EQ(g_applications.Find("peer:1/same").get(), newer.get());
  g_applications.Erase("peer:1/same", newer.get());
  EXPECT_EQ(g_applications.Size(), 0u);
}

// A local stop runs both listeners on the reader; a disconnect listener that
// stops its session again, within that stop, returns without joining itself.
TEST_F(SessionTest, LocalStopRunsBothListenersOnTheReaderWhichMayStopAgain) {
  testing::ChannelPair pair = testing::MakeSocketChannelPair();
  SessionRef a = EstablishedSession(pair.first, "hostX:4711/viewer");
  ASSERT_TRUE(WaitUntil([this] { return observed_.connected.load(); }));
  g_stopAgain = &a;
  testing::Signal disconnectReturned;
  std::thread stopper([&] {
    EXPECT_EQ(VXDisconnect("hostX:4711/viewer"), VX_SUCCESS);
    disconnectReturned.Raise();
  });
  ASSERT_TRUE(disconnectReturned.WaitFor());
  stopper.join();
  g_stopAgain = nullptr;
  // The reader was joined, so the disconnect listener has run already.
  EXPECT_TRUE(log_.Count("Local shutdown: \"hostX:4711/viewer\" stopped") > 0);
  EXPECT_FALSE(a->IsSessionValid());
  std::lock_guard<std::mutex> lock(observed_.mutex);
  EXPECT_EQ(observed_.events,
            (std::vector<std::string>{"connect " + pair.first->GetLocalAddress() + " " +
                                          pair.first->GetPeerAddress() +
                                          " hostX:4711/viewer hostX 4711 viewer",
                                      "disconnect hostX:4711/viewer hostX 4711 viewer"}));
  EXPECT_EQ(observed_.connectThread, observed_.disconnectThread);
  EXPECT_NE(observed_.connectThread, std::this_thread::get_id());
}

TEST_F(SessionTest, UnestablishedSessionEndsAtOnceWithoutListenersOrEntry) {
  testing::ChannelPair pair = testing::MakeSocketChannelPair();
  SessionRef session(new Session);
  session->AttachChannel(pair.first);
  session->StartThreads();
  session->ReleaseThreads();
  EXPECT_TRUE(WaitUntil([this] { return log_.Count("Application '' is not initialized") > 0; }));
  session->JoinReaderThread();
  EXPECT_EQ(g_applications.Size(), 0u);
  std::lock_guard<std::mutex> lock(observed_.mutex);
  EXPECT_TRUE(observed_.events.empty());
}

// A push that meets the end of the session lets its frame go at once, so no
// frame is left holding the session; and the channel closes as the threads
// end, though references to the session live on.
TEST_F(SessionTest, FramesQueuedAsTheSessionEndsGoAtOnceAndItsChannelClosesWithItsThreads) {
  testing::ChannelPair pair = testing::MakeSocketChannelPair();
  SessionRef session = EstablishedSession(pair.first, "peer:5/racing");
  // Producers stop by themselves: the writer's drain runs until it finds the
  // queue empty, which endless producers would never let happen.
  constexpr int kFramesPerProducer = 20000;
  std::atomic<bool> stop{false};
  std::vector<std::thread> producers;
  for (int i = 0; i < 3; ++i)
    producers.emplace_back([&stop, held = session] {
      for (int n = 0; n < kFramesPerProducer && !stop.load(); ++n)
        held->QueueFrame(MessageRef(new VXSlotCallMessage(IVXMessage::EventRef(), held, 1,
                                                          VX_INVALID_PARAMLIST, nullptr, nullptr)));
    });
  pair.second.Reset();  // the peer goes while frames pour in
  const bool ended = WaitForSessionThreadsToEnd(std::chrono::seconds(10));
  stop = true;
  for (auto& producer : producers)
    producer.join();
  ASSERT_TRUE(ended);
  EXPECT_FALSE(session->Channel().IsValid());
  // Nothing waits for a thread any more: the counts are back at once.
  EXPECT_EQ(DEBUG_VXObjectCount().messages, livesBefore_.messages);
  session.Reset();
  EXPECT_EQ(DEBUG_VXObjectCount().applications, livesBefore_.applications);
}

}  // namespace
}  // namespace vxbus
