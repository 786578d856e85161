// The pipe listener of this process against other processes: a name that
// another process already listens on, and names too long for the system's
// own pipe names.
#include <future>
#include <memory>
#include <string>

#include "bus_test_fixture.h"
#include "runtime/log.h"
#include "session/application_registry.h"
#include "support/channel_pair.h"
#include "support/log_capture.h"
#include "transport/pipe_channel.h"

namespace vxbus {
namespace testing {
namespace {

// The start of the line that a listener on `pipe` writes when its pipes
// can't be made; the system's error code follows.
std::string CreateFailedLine(const std::string& pipe) {
  return "ConnThread Pipe. create pipe '" + pipe + "_in' FAILED with code=";
}

class PipeListenerTest : public BusTest {
 protected:
  void SetUp() override {
    savedWaitMs_ = g_pipeAcceptWaitMs.load();
    BusTest::SetUp();
  }
  void TearDown() override {
    BusTest::TearDown();
    g_pipeAcceptWaitMs = savedWaitMs_;
    listenerPipeInName.clear();  // no later start may listen on these
    listenerPipeOutName.clear();
  }

  int CreateFailures(const std::string& pipe) const {
    return log_.Count(kLogCritical, CreateFailedLine(pipe), true);
  }

  // Connects to `first` over its pipe and calls it. On return its listener
  // has written its last line about this client and is about to make its
  // pipes again, or has made them.
  static void ConnectAndCall(const std::string& pipe, Peer& first) {
    ASSERT_TRUE(first.Ready());
    ASSERT_EQ(ConnectPipeRetrying(pipe), VX_SUCCESS);
    ASSERT_FALSE(first.Expect("log 8 Startup completed for " + g_ownAppId).empty());
    HVXPARAMLIST reply = VXCall(first.AppId().c_str(), 1, VX_INVALID_PARAMLIST);
    EXPECT_STREQ(VXGetStringValue(reply, "servedBy"), first.AppId().c_str());
    VXCloseHandle(reply);
  }

  std::uint32_t savedWaitMs_ = 0;
  LogCapture log_;
};

// Rounds of 50 ms that all fail to make the pipes give one line; the first
// process goes on taking clients, and once it has gone this one takes the
// name.
TEST_F(PipeListenerTest, ATakenNameIsReportedOnceAndTakenWhenItIsFree) {
  const std::string pipe = UniquePipeName("taken");
  auto first = std::make_unique<Peer>(PipePeer("first", pipe));
  ConnectAndCall(pipe, *first);
  g_pipeAcceptWaitMs = 50;
  ASSERT_EQ(VXStartListeners(pipe.c_str(), nullptr, 0), VX_SUCCESS);
  ASSERT_TRUE(WaitUntil([&] { return CreateFailures(pipe) == 1; }));

  Peer other(PipePeer("other", ""));
  ASSERT_TRUE(other.Ready());
  std::string result;
  WaitUntil([&] {
    other.Send("connect-pipe " + pipe);
    result = other.Expect("connect-result ");
    return result.rfind("connect-result -1", 0) != 0;
  });
  EXPECT_EQ(result, "connect-result 0 " + first->AppId());

  first->Send("quit");
  int exitCode = -1;
  ASSERT_TRUE(first->WaitForExit(std::chrono::seconds(10), &exitCode));
  EXPECT_EQ(exitCode, 0);
  // Nobody else listens now: a client that gets in has reached this process.
  ASSERT_TRUE(WaitUntil([&] { return ConnectPipeChannel(pipe).IsValid(); }));
  EXPECT_EQ(CreateFailures(pipe), 1);
}

// The wait after a failed create is a round's wait, and a shutdown cuts it
// short as it cuts an idle round.
TEST_F(PipeListenerTest, AShutdownEndsTheWaitAfterAFailedCreateAtOnce) {
  const std::string pipe = UniquePipeName("taken");
  Peer first(PipePeer("first", pipe));
  ConnectAndCall(pipe, first);
  g_pipeAcceptWaitMs = 60000;
  ASSERT_EQ(VXStartListeners(pipe.c_str(), nullptr, 0), VX_SUCCESS);
  ASSERT_TRUE(WaitUntil([&] { return CreateFailures(pipe) == 1; }));
  auto shutdown = std::async(std::launch::async, [] { return VXShutdown(); });
  EXPECT_EQ(shutdown.wait_for(std::chrono::seconds(20)), std::future_status::ready);
  EXPECT_EQ(shutdown.get(), VX_SUCCESS);
  EXPECT_EQ(log_.Count("ConnThread Shutdown"), 1);
}

// A name of 200 bytes is longer than a POSIX system takes; both ends map it
// onto the same shorter one, while the session still shows the name given.
TEST_F(PipeListenerTest, ANameOfTwoHundredBytesConnectsAndCarriesCalls) {
  std::string pipe = UniquePipeName("long");
  pipe += std::string(200 - pipe.size(), 'n');
  Peer peer(PipePeer("far", pipe));
  ASSERT_TRUE(peer.Ready());
  ConnectAndCall(pipe, peer);
  SessionRef session = g_applications.Find(peer.AppId().c_str());
  ASSERT_TRUE(session.IsValid());
  EXPECT_EQ(session->remoteAddress, pipe + "_in");
  EXPECT_EQ(session->localAddress, pipe + "_out");
}

}  // namespace
}  // namespace testing
}  // namespace vxbus
