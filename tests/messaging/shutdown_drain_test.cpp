// SPDX-License-Identifier: MIT
// What the shutdown does with the dispatch queue once its thread has ended.
#include <gtest/gtest.h>

#include <chrono>

#include "messaging/dispatch_queue.h"
#include "session/message.h"
#include "session/message_queue.h"
#include "session/session.h"
#include "support/context.h"
#include "vxbus.h"

namespace vxbus {
namespace {

// Guards the drain's completion of a call whose request failed to write as
// the process shut down: without it that VXCall would wait for ever.
TEST(ShutdownDrain, CompletesACallWhoseRequestFailedToWrite) {
  SessionRef session(testing::NewSession());  // no threads: the queue is ours alone
  session->MarkEstablished("host:1/peer");
  Message::EventRef completed(new MTObjects::Latch);
  MessageRef call(new Message(completed, session, 7, VX_INVALID_PARAMLIST, nullptr, nullptr));
  call->SetReplyState();  // as the writer hands over a call it could not write
  testing::Context().dispatchQueue.Push(call);
  const QueueTally dropped = testing::Context().dispatchQueue.DropBacklog();
  EXPECT_TRUE(completed->WaitFor(std::chrono::seconds(5)));
  EXPECT_EQ(dropped.messages, 1u);
  EXPECT_EQ(testing::Context().dispatchQueue.QueuedBytes(), 0u);
  session->CloseSendQueue();
}

}  // namespace
}  // namespace vxbus
