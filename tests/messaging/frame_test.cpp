// Frames byte for byte on a real channel.
#include <gtest/gtest.h>

#include <cstring>
#include <thread>
#include <vector>

#include "messaging/slot_call_message.h"
#include "paramlist/handle.h"
#include "session/application.h"
#include "support/channel_pair.h"

namespace vxbus {
namespace {

using Bytes = std::vector<unsigned char>;

// A session that reads and writes frames by hand: valid, with no threads at work.
SessionRef UsableSession(const ChannelRef& channel, const char* name) {
  SessionRef session(new VXAPPImpl);
  session->channel = channel;
  session->name = name;
  session->established = true;
  session->SetReaderThread(std::thread([] {}));
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
  void TearDown() override {
    sender_->JoinReaderThread();
    receiver_->JoinReaderThread();
  }
  // Nothing more stands on the receiving side's channel.
  void ExpectNothingMore() { EXPECT_EQ(pair_.second->WaitReadable(50), 0); }

  testing::ChannelPair pair_;
  SessionRef sender_, receiver_;
};

TEST_F(FrameTest, IdsStartAtOneAndWrapToZero) {
  g_lastMessageId = 0;
  EXPECT_EQ(IVXMessage::NextMessageId(), 1u);
  g_lastMessageId = 0xFFFFFFFEu;
  EXPECT_EQ(IVXMessage::NextMessageId(), 0xFFFFFFFFu);
  EXPECT_EQ(IVXMessage::NextMessageId(), 0u);
}

TEST_F(FrameTest, OneWayNotificationWithEmptyListIsTwentyBytes) {
  g_lastMessageId = 0;
  MessageRef message(new VXSlotCallMessage(IVXMessage::EventRef(), sender_, 7, VX_INVALID_PARAMLIST,
                                           nullptr, nullptr));
  EXPECT_EQ(message->GetState(), kStateOneWay);
  EXPECT_FALSE(message->GetOutputList());  // no reply will come
  EXPECT_GE(message->Send(), 0);
  EXPECT_EQ(ReadExactly(pair_.second, 20),
            (Bytes{1, 0, 0, 0, 3, 0, 0, 0, 7, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}));
  ExpectNothingMore();
}

TEST_F(FrameTest, ReceivedCallLeavesAsSixteenByteEmptyReply) {
  const unsigned char header[16] = {2, 0, 0, 0, 1, 0, 0, 0, 9, 0, 0, 0, 0, 0, 0, 0};
  MessageRef call(new VXSlotCallMessage(receiver_, header));
  EXPECT_GE(call->Send(), 0);
  EXPECT_EQ(call->GetState(), kStateReply);
  std::vector<unsigned char> got(16);
  ASSERT_EQ(pair_.first->Read(got.data(), 16), 16);
  EXPECT_EQ(got, (Bytes{2, 0, 0, 0, 2, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}));
}

TEST_F(FrameTest, CallWithNestedListsAndItsReplyRoundTrip) {
  HVXPARAMLIST input = VXCreateParamList();
  HVXPARAMLIST sub = VXCreateParamList();
  VXSetInt32Value(input, "id", 7);
  VXSetStringValue(sub, "s", "hi");
  VXSetHandleValue(input, "sub", sub);
  VXCloseHandle(sub);

  IVXMessage::EventRef event(new IVXMessage::ISyncEvent);
  MessageRef call(new VXSlotCallMessage(event, sender_, 42, input, nullptr, nullptr));
  VXCloseHandle(input);  // the message holds its own reference
  ASSERT_EQ(call->GetState(), kStateCall);
  sender_->pendingCalls->Insert(call);
  ASSERT_GE(call->Send(), 0);

  MessageRef request;
  ASSERT_TRUE(receiver_->ReceiveMessage(request));
  EXPECT_EQ(request->GetId(), call->GetId());
  EXPECT_EQ(request->GetSlotId(), 42u);
  HVXPARAMLIST got = HandleFromList(request->GetInputList().get());
  EXPECT_EQ(VXGetInt32Value(got, "id"), 7u);
  HVXPARAMLIST gotSub = VXGetHandleValue(got, "sub");
  EXPECT_STREQ(VXGetStringValue(gotSub, "s"), "hi");
  VXCloseHandle(gotSub);

  HVXPARAMLIST output = HandleFromList(request->GetOutputList().get());
  HVXPARAMLIST nested = VXCreateParamList();
  VXSetStringValue(nested, "deep", "value");
  VXSetHandleValue(output, "nested", nested);
  VXSetInt64Value(output, "big", 1ull << 40);
  VXCloseHandle(nested);
  ASSERT_GE(request->Send(), 0);

  MessageRef reply;
  ASSERT_TRUE(sender_->ReceiveMessage(reply));
  EXPECT_EQ(reply.get(), call.get());  // the same object receives its reply
  EXPECT_EQ(reply->GetState(), kStateReply);
  HVXPARAMLIST answer = HandleFromList(reply->GetOutputList().get());
  EXPECT_EQ(VXGetInt64Value(answer, "big"), 1ull << 40);
  HVXPARAMLIST answerNested = VXGetHandleValue(answer, "nested");
  EXPECT_STREQ(VXGetStringValue(answerNested, "deep"), "value");
  VXCloseHandle(answerNested);
  MessageRef again;
  EXPECT_FALSE(sender_->pendingCalls->Take(call->GetId(), again));
}

// Each of these frames ends the reading after its first 16 bytes.
TEST_F(FrameTest, BadStatesAndUnknownRepliesConsumeNothingMore) {
  const std::uint32_t states[] = {2 /* reply to an unknown id */, 0, 4};
  for (std::uint32_t state : states) {
    unsigned char frame[20] = {5, 0, 0, 0};
    std::memcpy(frame + 4, &state, 4);
    std::memcpy(frame + 16, "WXYZ", 4);
    ASSERT_EQ(pair_.first->Write(frame, sizeof frame), 20);
    MessageRef message;
    EXPECT_FALSE(receiver_->ReceiveMessage(message)) << "state " << state;
    EXPECT_FALSE(message);
    EXPECT_EQ(ReadExactly(pair_.second, 4), (Bytes{'W', 'X', 'Y', 'Z'})) << "state " << state;
  }
}

TEST_F(FrameTest, NullListGoesOutEmptyAndArrivesAsAValidList) {
  MessageRef call(new VXSlotCallMessage(IVXMessage::EventRef(), sender_, 3, VX_INVALID_PARAMLIST,
                                        nullptr, nullptr));
  ASSERT_GE(call->Send(), 0);
  MessageRef request;
  ASSERT_TRUE(receiver_->ReceiveMessage(request));
  ASSERT_TRUE(request->GetInputList().IsValid());
  EXPECT_EQ(VXGetParamCount(HandleFromList(request->GetInputList().get())), 0u);
  EXPECT_FALSE(request->GetOutputList());  // one-way: the slot sees a null output
}

}  // namespace
}  // namespace vxbus
