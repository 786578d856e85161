// The pipe connection thread: its stop without a pipe name, and its shutdown.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/channel_pair.h"
#include "support/log_capture.h"
#include "support/wait.h"
#include "transport/pipe_channel.h"
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

TEST_F(PipeConnectionThreadTest, ShutdownEndsARunningListener) {
  const std::string pipe = UniquePipeName("idle");
  ASSERT_EQ(VXInitializeWithPipeChannel(pipe.c_str(), nullptr, "idle", 0, nullptr), VX_SUCCESS);
  VXConnectionReady();
  // A client gets in, so rounds are under way; it goes away at once.
  ASSERT_TRUE(WaitUntil([&] { return ConnectPipeChannel(pipe).IsValid(); }));
  EXPECT_EQ(VXShutdown(), VX_SUCCESS);
  EXPECT_EQ(log_.Count("ConnThread Shutdown"), 1);
  EXPECT_FALSE(ConnectPipeChannel(pipe).IsValid());  // no pipe stays behind
}

}  // namespace
}  // namespace testing
}  // namespace vxbus
