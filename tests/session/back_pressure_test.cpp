// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include <thread>

#include "session/back_pressure.h"
#include "session/session.h"
#include "session_fixtures.h"
#include "support/context.h"
#include "vxbus.h"

namespace vxbus {
namespace {

using testing::OneWay;

// A session without threads, so that nothing drains its queues, whose send
// queue holds one message that fills it, as do its bounds on both queues.
class BackPressureTest : public ::testing::Test {
 protected:
  void MakeFullSession(std::int32_t ioTimeoutMs) {
    SessionRef probe(testing::NewSession());
    SessionEnvironment environment = testing::Context().SessionEnvironmentNow();
    environment.sendQueueBytes = environment.dispatchQueueBytes =
        VXMessageQueue::MessageBytes(OneWay(2000, probe));
    environment.ioTimeoutMs = ioTimeoutMs;
    session_ = new Session(environment);
    session_->MarkEstablished("host:1/peer");
    MessageRef message = OneWay(2000, session_);
    EXPECT_EQ(AwaitSendRoom(*session_, message), VX_SUCCESS);  // empty: always room
    session_->QueueFrame(message);
  }
  void TearDown() override {
    session_->CloseSendQueue();
    testing::Context().dispatchQueue.Clear();
  }

  SessionRef session_;
};

// VXNotify's wait on a full send queue gives the error once the time is up.
TEST_F(BackPressureTest, SendRoomRunsOutAfterTheTimeLimit) {
  MakeFullSession(20);
  EXPECT_EQ(AwaitSendRoom(*session_, OneWay(0, session_)), VX_ERROR_QUEUE_FULL);
}

// It and a reader's wait on a full dispatch queue, which has no time limit,
// end as soon as the session stops under them.
TEST_F(BackPressureTest, AStopEndsTheSendAndTheDispatchWait) {
  MakeFullSession(60000);
  testing::Context().dispatchQueue.Push(OneWay(2000, session_));
  VX_ERROR sent = VX_SUCCESS;
  bool admitted = true;
  std::thread notifier([&] { sent = AwaitSendRoom(*session_, OneWay(0, session_)); });
  std::thread reader([&] { admitted = AwaitDispatchRoom(*session_, OneWay(0, session_)); });
  session_->Stop();
  notifier.join();
  reader.join();
  EXPECT_EQ(sent, VX_ERROR_NO_APPLICATION);
  EXPECT_FALSE(admitted);
}

}  // namespace
}  // namespace vxbus
