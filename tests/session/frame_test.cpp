// Frames byte for byte on a real channel, and their order when the writer's
// batches and frames written directly by their own thread meet on one session.
#include <gtest/gtest.h>

#include <thread>
#include <vector>

#include "paramlist/fast_holder.h"
#include "paramlist/handle.h"
#include "session/application.h"
#include "session/slot_call_message.h"
#include "support/channel_pair.h"

namespace vxbus {
namespace {

using Bytes = std::vector<unsigned char>;

// A session that reads and writes frames by hand: valid, with no threads at work.
SessionRef UsableSession(const ChannelRef& channel, const char* name) {
  SessionRef session(new VXAPPImpl);
  session->AttachChannel(channel);
  session->MarkEstablished(name);
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
    sender_ = UsableSession(pair_.first, "host:2/receiver");
    receiver_ = UsableSession(pair_.second, "host:1/sender");
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

  // What the writer thread does with its queue.
  bool WriteWhatIsQueued() { return sender_->WriteQueuedBatch(0); }

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

// Ids start at 1; a null list goes out empty and arrives as a valid, empty list.
TEST_F(FrameTest, OneWayNotificationWithNullListIsTwentyBytes) {
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
}

TEST_F(FrameTest, ReceivedCallLeavesAsSixteenByteEmptyReply) {
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
  ASSERT_TRUE(WriteWhatIsQueued());
  ASSERT_TRUE(sender_->ClaimIdleWriter());
  bool claimedElsewhere = true;
  std::thread([&] { claimedElsewhere = sender_->ClaimIdleWriter(); }).join();
  EXPECT_FALSE(claimedElsewhere);
  sender_->QueueFrame(OneWay(3, 8));  // queued while 2 holds the claim
  sender_->WriteClaimed(OneWay(2, 8));
  EXPECT_FALSE(sender_->ClaimIdleWriter());  // frame 3 is still queued
  ASSERT_TRUE(WriteWhatIsQueued());
  EXPECT_EQ(ReceiveSlots(3), (std::vector<std::uint32_t>{1, 2, 3}));

  sender_->EndWriting();
  EXPECT_FALSE(sender_->ClaimIdleWriter());
  sender_->QueueFrame(OneWay(4, 8));
  EXPECT_FALSE(WriteWhatIsQueued());
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
  std::thread writer([&] { written = WriteWhatIsQueued(); });
  EXPECT_EQ(ReceiveSlots(slots.size()), slots);
  writer.join();
  EXPECT_TRUE(written);
  EXPECT_EQ(sizes_, sizes);
  EXPECT_TRUE(sender_->ClaimIdleWriter());  // all of them are out
  sender_->WriteClaimed(OneWay(99, 1));
  EXPECT_EQ(ReceiveSlots(1), (std::vector<std::uint32_t>{99}));
}

}  // namespace
}  // namespace vxbus
