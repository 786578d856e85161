// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include <thread>

#include "runtime/process_state.h"
#include "session/back_pressure.h"
#include "session/session.h"
#include "session_fixtures.h"
#include "vxbus.h"

namespace vxbus {
namespace {

using testing::OneWay;

// A session without threads, so that nothing drains its queues, whose send
// queue holds one message that fills it.
class BackPressureTest : public ::testing::Test {
 protected:
  void SetUp() override {
    session_->MarkEstablished("host:1/peer");
    MessageRef message = OneWay(2000, session_);
    full_ = static_cast<std::uint32_t>(VXMessageQueue::MessageBytes(message));
    g_limits.limits.RESERVED_E = g_limits.limits.RESERVED_D = full_;
    g_limits.limits.IO_TIMEOUT_MS = 20;
    EXPECT_EQ(AwaitSendRoom(*session_, message), VX_SUCCESS);  // empty: always room
    session_->QueueFrame(message);
  }
  void TearDown() override {
    session_->CloseSendQueue();
    g_dispatchQueue.Clear();
    g_limits = saved_;
  }

  const VXLimits saved_ = g_limits;
  SessionRef session_{new Session};
  std::uint32_t full_ = 0;
};

// VXNotify's wait on a full send queue gives the error once the time is up.
TEST_F(BackPressureTest, SendRoomRunsOutAfterTheTimeLimit) {
  EXPECT_EQ(AwaitSendRoom(*session_, OneWay(0, session_)), VX_ERROR_QUEUE_FULL);
}

// It and a reader's wait on a full dispatch queue, which has no time limit,
// end as soon as the session stops under them.
TEST_F(BackPressureTest, AStopEndsTheSendAndTheDispatchWait) {
  g_limits.limits.IO_TIMEOUT_MS = 60000;
  g_dispatchQueue.Push(OneWay(2000, session_));
  _tag_VX_ERROR sent = VX_SUCCESS;
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
