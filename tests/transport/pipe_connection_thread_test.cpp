// The pipe connection thread of this process: its start without a pipe
// name, its rounds, the names it keeps, and how long a shutdown waits for it.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <mutex>
#include <random>
#include <string>
#include <vector>

#include "runtime/process_state.h"
#include "support/wait.h"
#include "transport/pipe_channel.h"
#include "vxbus.h"

namespace vxbus {
namespace testing {
namespace {

std::mutex g_logMutex;
std::vector<std::string> g_logLines;

void CollectLog(std::uint32_t, std::uint32_t, const char* text) {
  std::lock_guard<std::mutex> lock(g_logMutex);
  g_logLines.emplace_back(text);
}

int CountLog(const std::string& text) {
  std::lock_guard<std::mutex> lock(g_logMutex);
  int n = 0;
  for (const std::string& line : g_logLines)
    if (line == text) ++n;
  return n;
}

std::string UniquePipeName(const std::string& tag) {
  static std::atomic<int> serial{0};
  static const unsigned salt = std::random_device{}();
  return "vxbus-thread-" + tag + "-" + std::to_string(salt) + "-" + std::to_string(++serial);
}

// Every test starts from a process that never listened on a pipe, with a
// short accept wait, and hands the log, the names and the wait back after.
class PipeConnectionThreadTest : public ::testing::Test {
 protected:
  void SetUp() override {
    savedWaitMs_ = g_pipeAcceptWaitMs.exchange(200);
    listenerPipeInName.clear();
    listenerPipeOutName.clear();
    {
      std::lock_guard<std::mutex> lock(g_logMutex);
      g_logLines.clear();
    }
    VXSetLogLevel(0xF, 0, CollectLog);
  }
  void TearDown() override {
    VXSetLogLevel(0, 0, nullptr);
    listenerPipeInName.clear();
    listenerPipeOutName.clear();
    g_pipeAcceptWaitMs = savedWaitMs_;
    // Sessions that never came up are let go by their own threads, which
    // nobody joins: wait for them.
    EXPECT_TRUE(WaitUntil([] {
      VXObjectCounters after = DEBUG_VXObjectCount();
      return after.applications == 0 && after.messages == 0;
    }));
  }

  // A client of this process's own listener, tried until a round takes it.
  static ChannelRef ConnectRetrying(const std::string& pipe) {
    ChannelRef channel;
    WaitUntil([&] {
      channel = ConnectPipeChannel(pipe);
      return channel.IsValid();
    });
    return channel;
  }

  std::uint32_t savedWaitMs_ = 0;
};

TEST_F(PipeConnectionThreadTest, WithoutAPipeNameTheThreadStopsAndNeverLogsItsShutdown) {
  ASSERT_EQ(VXInitialize("no-pipes", 0, nullptr), VX_SUCCESS);
  VXConnectionReady();
  EXPECT_TRUE(
      WaitUntil([] { return CountLog("ConnThread Pipe stopped - pipes are not defined") == 1; }));
  EXPECT_EQ(CountLog("ConnThread Pipe Startup"), 1);
  EXPECT_EQ(VXShutdown(), VX_SUCCESS);
  EXPECT_EQ(CountLog("ConnThread Shutdown"), 0);
  EXPECT_EQ(CountLog("ConnThread Pipe stopped - pipes are not defined"), 1);
}

TEST_F(PipeConnectionThreadTest, IdleListenerShutsDownWithinOneAcceptWait) {
  const std::string pipe = UniquePipeName("idle");
  ASSERT_EQ(VXInitializeWithPipeChannel(pipe.c_str(), nullptr, "idle", 0, nullptr), VX_SUCCESS);
  VXConnectionReady();
  ASSERT_TRUE(WaitUntil([] { return CountLog("ConnThread Pipe Startup") == 1; }));
  // Proof that rounds are under way: a client gets in, goes away at once,
  // and the next round takes the next client.
  ASSERT_TRUE(ConnectRetrying(pipe).IsValid());
  ASSERT_TRUE(ConnectRetrying(pipe).IsValid());

  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(VXShutdown(), VX_SUCCESS);
  const auto took = std::chrono::steady_clock::now() - start;
  // A generous bound, far below the 10 s of an unshortened idle round.
  EXPECT_LT(took, std::chrono::seconds(5));
  EXPECT_EQ(CountLog("ConnThread Shutdown"), 1);
  // No pipe stays behind once the thread has ended.
  EXPECT_FALSE(ConnectPipeChannel(pipe).IsValid());
}

TEST_F(PipeConnectionThreadTest, NextStartWithoutAPipeNameListensOnTheEarlierNames) {
  const std::string pipe = UniquePipeName("kept");
  ASSERT_EQ(VXInitializeWithPipeChannel(pipe.c_str(), nullptr, "first", 0, nullptr), VX_SUCCESS);
  VXConnectionReady();
  EXPECT_TRUE(ConnectRetrying(pipe).IsValid());
  EXPECT_EQ(VXShutdown(), VX_SUCCESS);

  ASSERT_EQ(VXInitialize("second", 0, nullptr), VX_SUCCESS);
  // The gates stay open over a shutdown: the thread runs at once, on the old names.
  EXPECT_TRUE(ConnectRetrying(pipe).IsValid());
  EXPECT_EQ(VXShutdown(), VX_SUCCESS);
  EXPECT_EQ(CountLog("ConnThread Pipe stopped - pipes are not defined"), 0);
  EXPECT_EQ(CountLog("ConnThread Shutdown"), 2);
}

}  // namespace
}  // namespace testing
}  // namespace vxbus
