// The pipe connection thread: its stop without a pipe name, and its shutdown.
#include <gtest/gtest.h>

#include <chrono>
#include <cstring>
#include <future>
#include <string>
#include <vector>

#ifndef _WIN32
#include <stddef.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>
#endif

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

#ifndef _WIN32
// A client that connects only the "_in" half, as a raw socket on the name
// under which the listener of this platform takes it; -1 when it can't.
int ConnectOnlyTheInHalf(const std::string& pipe) {
  const std::string name = pipe + "_in";
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (name.size() + 1 > sizeof address.sun_path) return -1;
  std::memcpy(address.sun_path + 1, name.data(), name.size());  // abstract name
  const auto length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + name.size());
  const int fd = ::socket(AF_UNIX, SOCK_STREAM, 0);
  if (fd >= 0 && ::connect(fd, reinterpret_cast<const sockaddr*>(&address), length) == 0) return fd;
  if (fd >= 0) ::close(fd);
  return -1;
}
#endif

// A client gets in, so rounds are under way, and goes away at once; one that
// connects only the "_in" half must not hold up the shutdown either.
TEST_F(PipeConnectionThreadTest, ShutdownEndsARunningListener) {
  const std::string pipe = UniquePipeName("idle");
  ASSERT_EQ(VXInitializeWithPipeChannel(pipe.c_str(), nullptr, "idle", 0, nullptr), VX_SUCCESS);
  VXConnectionReady();
  ASSERT_TRUE(WaitUntil([&] { return ConnectPipeChannel(pipe).IsValid(); }));
#ifndef _WIN32
  int half = -1;
  ASSERT_TRUE(WaitUntil([&] { return (half = ConnectOnlyTheInHalf(pipe)) >= 0; }));
#endif
  auto shutdown = std::async(std::launch::async, [] { return VXShutdown(); });
  const bool ended = shutdown.wait_for(std::chrono::seconds(10)) == std::future_status::ready;
#ifndef _WIN32
  ::close(half);  // lets a listener that still waits go, so that the test ends
#endif
  EXPECT_TRUE(ended);
  EXPECT_EQ(shutdown.get(), VX_SUCCESS);
  EXPECT_EQ(log_.Count("ConnThread Shutdown"), 1);
  EXPECT_FALSE(ConnectPipeChannel(pipe).IsValid());  // no pipe stays behind
}

}  // namespace
}  // namespace testing
}  // namespace vxbus
