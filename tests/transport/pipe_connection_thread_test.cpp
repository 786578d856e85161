// SPDX-License-Identifier: MIT
// The pipe listener thread, run through the library's start and shutdown.
#include <gtest/gtest.h>

#include <chrono>
#include <future>
#include <string>

#include "runtime/object_counters.h"
#include "runtime/process_state.h"
#include "support/channel_pair.h"
#include "support/half_open_pipe.h"
#include "support/log_capture.h"
#include "support/wait.h"
#include "transport/pipe_channel.h"
#include "transport/pipe_name.h"
#include "vxbus.h"

namespace vxbus {
namespace testing {
namespace {

// Each test starts with no pipe names kept and a short accept wait.
class PipeConnectionThreadTest : public ::testing::Test {
 protected:
  void SetUp() override {
    savedWaitMs_ = g_pipeAcceptWaitMs.exchange(10000);
    listenerPipeInName.clear();
    listenerPipeOutName.clear();
  }
  void TearDown() override {
    g_pipeAcceptWaitMs = savedWaitMs_;
    // Sessions that never came up are let go by their own, unjoined threads.
    EXPECT_TRUE(WaitUntil([] { return DEBUG_VXObjectCount().applications == 0; }));
  }
  std::uint32_t savedWaitMs_ = 0;
  LogCapture log_;
};

TEST_F(PipeConnectionThreadTest, WithoutAPipeNameTheThreadStopsAndNeverLogsItsShutdown) {
  ASSERT_EQ(VXInitialize("no-pipes", 0, nullptr), VX_SUCCESS);
  VXConnectionReady();
  EXPECT_TRUE(WaitUntil(
      [this] { return log_.Count("ConnThread Pipe stopped - pipes are not defined") == 1; }));
  EXPECT_EQ(VXShutdown(), VX_SUCCESS);
  EXPECT_EQ(log_.Count("ConnThread Shutdown"), 0);
}

// A client gets in, so rounds are under way, and goes away at once; one that
// connects only the "_in" half must not hold up the shutdown either.
TEST_F(PipeConnectionThreadTest, ShutdownEndsARunningListener) {
  const std::string pipe = UniquePipeName("idle");
  ASSERT_EQ(VXInitializeWithPipeChannel(pipe.c_str(), nullptr, "idle", 0, nullptr), VX_SUCCESS);
  VXConnectionReady();
  ASSERT_TRUE(WaitUntil([&] { return ConnectPipeChannel(pipe).IsValid(); }));
  HalfOpenPipe half;
  ASSERT_TRUE(WaitUntil([&] { return half.Open(SystemPipeName(pipe + "_in")); }));
  auto shutdown = std::async(std::launch::async, [] { return VXShutdown(); });
  const bool ended = shutdown.wait_for(std::chrono::seconds(10)) == std::future_status::ready;
  half.Close();  // lets a listener that still waits go, where it can, so that the test ends
  EXPECT_TRUE(ended);
  EXPECT_EQ(shutdown.get(), VX_SUCCESS);
  EXPECT_EQ(log_.Count("ConnThread Shutdown"), 1);
  EXPECT_FALSE(ConnectPipeChannel(pipe).IsValid());  // no pipe stays behind
}

// A client that opens only "_in" and holds it holds the listener for one
// accept wait at most: the next client gets in while it still holds on.
TEST_F(PipeConnectionThreadTest, AClientWithOnlyTheInHalfHoldsTheListenerForOneWaitAtMost) {
  g_pipeAcceptWaitMs = 500;
  const std::string pipe = UniquePipeName("half");
  ASSERT_EQ(VXInitializeWithPipeChannel(pipe.c_str(), nullptr, "half", 0, nullptr), VX_SUCCESS);
  VXConnectionReady();
  HalfOpenPipe half;
  ASSERT_TRUE(WaitUntil([&] { return half.Open(SystemPipeName(pipe + "_in")); }));
  // Generous: a connect that waits for a busy listener may see the next
  // round only when its own 10-second wait for a pipe instance ends.
  EXPECT_TRUE(
      WaitUntil([&] { return ConnectPipeChannel(pipe).IsValid(); }, std::chrono::seconds(30)));
  half.Close();
  EXPECT_EQ(VXShutdown(), VX_SUCCESS);
}

}  // namespace
}  // namespace testing
}  // namespace vxbus
