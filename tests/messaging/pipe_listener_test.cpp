// Pipe listeners in two processes: a name that another process already
// listens on.
#include <string>

#include "bus_test_fixture.h"
#include "runtime/log.h"
#include "support/channel_pair.h"
#include "support/log_capture.h"
#include "transport/pipe_channel.h"

namespace vxbus {
namespace testing {
namespace {

// The line that a listener on `pipe` writes when its pipes can't be made,
// up to the system's error code.
std::string CreateFailedLine(const std::string& pipe) {
  return "log 1 ConnThread Pipe. create pipe '" + pipe + "_in' FAILED with code=";
}

class PipeListenerTest : public BusTest {
 protected:
  void TearDown() override {
    BusTest::TearDown();
    listenerPipeInName.clear();  // no later start may listen on these
    listenerPipeOutName.clear();
  }

  LogCapture log_;
};

// This process holds the name; a second process started on it says so once,
// does not take it, and quits at once although its wait after the failed
// create is a whole round of 10 s. This process goes on taking clients.
TEST_F(PipeListenerTest, ASecondProcessOnATakenNameSaysSoOnceAndQuitsAtOnce) {
  const std::string pipe = UniquePipeName("taken");
  ASSERT_EQ(VXStartListeners(pipe.c_str(), nullptr, 0), VX_SUCCESS);
  // A client that names nobody shows that the listener is up; its failure
  // line comes right before the next round makes the pipes again.
  ChannelRef probe;
  ASSERT_TRUE(WaitUntil([&] { return (probe = ConnectPipeChannel(pipe)).IsValid(); }));
  const std::uint32_t noName = 0;
  ASSERT_EQ(probe->Write(&noName, sizeof noName), 4);
  ASSERT_TRUE(log_.WaitFor(kLogError, "Application start failed"));
  probe.Reset();

  Peer second(PipePeer("second", pipe));
  ASSERT_TRUE(second.Ready());
  // Its listener may say so before the peer says it is ready.
  ASSERT_FALSE(second.ExpectSeen(CreateFailedLine(pipe)).empty());
  Peer other(PipePeer("other", ""));
  ASSERT_TRUE(other.Ready());
  EXPECT_EQ(ConnectPipeRetryingFrom(other, pipe), "connect-result 0 " + g_ownAppId);

  second.Send("quit");
  int exitCode = -1;
  ASSERT_TRUE(second.WaitForExit(std::chrono::seconds(5), &exitCode));
  EXPECT_EQ(exitCode, 0);
  EXPECT_EQ(second.CountLines(CreateFailedLine(pipe)), 1);
  EXPECT_EQ(log_.Count(kLogCritical, "ConnThread Pipe. create pipe", true), 0);
}

}  // namespace
}  // namespace testing
}  // namespace vxbus
