// Sessions over a real channel, marked established by hand: frames byte for
// byte, their order when the writer's batches and frames written directly by
// their own thread meet, and each way a session ends.
#include <gtest/gtest.h>

#include <atomic>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "paramlist/fast_holder.h"
#include "paramlist/handle.h"
#include "session/application.h"
#include "session/application_registry.h"
#include "session/session_threads.h"
#include "session/slot_call_message.h"
#include "support/channel_pair.h"
#include "support/log_capture.h"
#include "support/wait.h"

namespace vxbus {
namespace {

using testing::WaitUntil;
using Bytes = std::vector<unsigned char>;

// What the handshake would do, minus the exchange. Without threads, frames
// are read and written by hand.
SessionRef EstablishedSession(const ChannelRef& channel, const std::string& peerAppId,
                              bool threads = true) {
  SessionRef session(new VXAPPImpl);
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

  // A one-way frame to `slot` whose list holds `bytes` bytes of payload.
  MessageRef OneWay(std::uint32_t slot, std::size_t bytes) {
    HVXPARAMLIST list = VXCreateParamList();
    const std::vector<char> payload(bytes, static_cast<char>(slot));
    VXSetBinaryValue(list, "p", payload.data(), static_cast<std::uint32_t>(bytes));
    MessageRef message(
        new VXSlotCallMessage(IVXMessage::EventRef(), sender_, slot, list, nullptr, nullptr));
    VXCloseHandle(list);
    return message;
  }

  // Reads `count` frames and returns their slots, in arrival order.
  std::vector<std::uint32_t> ReceiveSlots(std::size_t count) {
    std::vector<std::uint32_t> slots;
    for (std::size_t i = 0; i < count; ++i) {
      MessageRef message;
      if (!receiver_->ReceiveMessage(message) || !message.IsValid()) break;
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
  ASSERT_TRUE(receiver_->ReceiveMessage(request));
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
  sender_->QueueFrame(OneWay(1, 8));
  EXPECT_FALSE(sender_->ClaimIdleWriter());  // frame 1 is queued
  ASSERT_TRUE(sender_->WriteQueuedBatch(0));
  ASSERT_TRUE(sender_->ClaimIdleWriter());
  bool claimedElsewhere = true;
  std::thread([&] { claimedElsewhere = sender_->ClaimIdleWriter(); }).join();
  EXPECT_FALSE(claimedElsewhere);
  sender_->QueueFrame(OneWay(3, 8));  // queued while 2 holds the claim
  sender_->WriteClaimed(OneWay(2, 8));
  EXPECT_FALSE(sender_->ClaimIdleWriter());  // frame 3 is still queued
  ASSERT_TRUE(sender_->WriteQueuedBatch(0));
  EXPECT_EQ(ReceiveSlots(3), (std::vector<std::uint32_t>{1, 2, 3}));

  sender_->EndWriting();
  EXPECT_FALSE(sender_->ClaimIdleWriter());
  sender_->QueueFrame(OneWay(4, 8));
  EXPECT_FALSE(sender_->WriteQueuedBatch(0));
}

// Consecutive queued frames of mixed sizes leave in one batch, some
// collected and some in place, and arrive whole and in order.
TEST_F(FrameTest, ABatchOfQueuedFramesArrivesWholeAndInOrder) {
  std::vector<std::uint32_t> slots, sizes;
  for (std::uint32_t slot = 10; slot < 60; ++slot) {
    const std::size_t bytes = slot % 10 == 0 ? 100000 + slot : slot * 3;
    MessageRef message = OneWay(slot, bytes);
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
  sender_->WriteClaimed(OneWay(99, 1));
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
  SessionRef session(new VXAPPImpl);
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
