// SPDX-License-Identifier: MIT
// Frames byte for byte, and their order when the writer's batches and frames
// written directly meet.
#include <gtest/gtest.h>

#include <cstdint>
#include <thread>
#include <vector>

#include "paramlist/handle.h"
#include "paramlist/param_list.h"
#include "session/message.h"
#include "session/session.h"
#include "session_fixtures.h"
#include "support/channel_pair.h"
#include "support/context.h"
#include "vxbus.h"

namespace vxbus {
namespace {

using testing::Bytes;
using testing::EstablishedSession;
using testing::OneWay;
using testing::ReadExactly;

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
TEST_F(FrameTest, FramesWithEmptyListsAreByteExact) {
  LastMessageId() = 0;
  MessageRef message(
      new Message(Message::EventRef(), sender_, 7, VX_INVALID_PARAMLIST, nullptr, nullptr));
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
  LastMessageId() = 0xFFFFFFFFu;
  EXPECT_EQ(Message::NextMessageId(), 0u);  // ids wrap to 0

  const unsigned char header[16] = {2, 0, 0, 0, 1, 0, 0, 0, 9, 0, 0, 0, 0, 0, 0, 0};
  MessageRef call(new Message(receiver_, header));
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

}  // namespace
}  // namespace vxbus
