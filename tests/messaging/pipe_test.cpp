// SPDX-License-Identifier: MIT
// Two processes over a pair of local pipes. A listener has no pipes out
// between two rounds or during a handshake, and a connect then fails at
// once: clients try again, and so do these tests, within a bound.
#include <algorithm>
#include <string>
#include <vector>

#include "bus_test_fixture.h"
#include "runtime/log.h"
#include "session/session_registry.h"
#include "support/channel_pair.h"
#include "support/log_capture.h"
#include "transport/pipe_channel.h"

namespace vxbus {
namespace testing {
namespace {

using PipeSessionTest = BusTest;

TEST_F(PipeSessionTest, APipeSessionUnderALongNameCarriesALargeList) {
  char buffer[256] = "untouched";
  EXPECT_EQ(VXConnectEx(nullptr, "127.0.0.1", 0, buffer, sizeof buffer, nullptr, 0),
            VX_ERROR_FAILED);  // port 0 takes the pipe path, where no name is a failure
  EXPECT_STREQ(buffer, "untouched");

  // A name of 200 bytes is longer than a POSIX system takes; both ends map it
  // onto the same shorter one, while the session still shows the name given.
  std::string pipe = UniquePipeName("session");
  pipe += std::string(200 - pipe.size(), 'n');
  Peer listener(PipePeer("guard", pipe, 1)), other(PipePeer("other", ""));
  ASSERT_TRUE(listener.Ready() && other.Ready());
  // At a limit of 1 two clients get in: the test is "more than the limit".
  EXPECT_EQ(ConnectPipeRetryingFrom(other, pipe), "connect-result 0 " + listener.AppId());
  // Nothing listens on that TCP port: only the pipe can succeed.
  ASSERT_EQ(ConnectPipeRetrying(pipe, "127.0.0.1", FreeTcpPort()), VX_SUCCESS);
  const char* to = listener.AppId().c_str();
  SessionRef session = g_applications.Find(to);
  ASSERT_TRUE(session.IsValid());
  EXPECT_EQ(session->RemoteAddress(), pipe + "_in");
  EXPECT_EQ(session->LocalAddress(), pipe + "_out");
  // Each side names the pipe it writes as the remote end.
  EXPECT_EQ(listener.ExpectSeen("connected " + g_ownAppId),
            "connected " + g_ownAppId + " " + std::string(g_hostName) + " 0 tester " + pipe +
                "_in " + pipe + "_out");

  // A list far larger than the pipes' buffers.
  std::vector<unsigned char> blob(100000);
  for (std::size_t i = 0; i < blob.size(); ++i)
    blob[i] = static_cast<unsigned char>(i * 7 + 3);
  HVXPARAMLIST list = VXCreateParamList();
  VXSetBinaryValue(list, "blob", blob.data(), static_cast<std::uint32_t>(blob.size()));
  HVXPARAMLIST reply = VXCall(to, 1, list);
  const _tag_BINARYVALUE* echoed = VXGetBinaryValue(reply, "blob");
  ASSERT_NE(echoed, nullptr);
  ASSERT_EQ(echoed->length, blob.size());
  EXPECT_TRUE(std::equal(blob.begin(), blob.end(), echoed->data));
  VXCloseHandle(reply);
  VXCloseHandle(list);

  // The last line the listener writes about this process's session.
  ASSERT_FALSE(listener.ExpectSeen("log 8 Startup completed for " + g_ownAppId).empty());
  const std::size_t linesBefore = listener.Lines().size();
  ChannelRef channel;
  ASSERT_TRUE(WaitUntil([&] { return (channel = ConnectPipeChannel(pipe)).IsValid(); }));
  unsigned char byte = 0;
  EXPECT_EQ(channel->Read(&byte, 1), -1) << "closed before a byte";
  channel.Reset();
  listener.Send("counters");
  EXPECT_EQ(listener.Expect("counters ").rfind("counters 2 ", 0), 0u);
  for (std::size_t i = linesBefore; i < listener.Lines().size(); ++i)
    EXPECT_NE(listener.Lines()[i].rfind("log ", 0), 0u) << listener.Lines()[i];
}

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

// A second process quits at once although it waits a whole round of 10 s
// after a failed create; this process goes on taking clients.
TEST_F(PipeListenerTest, ASecondProcessOnATakenNameQuitsAtOnce) {
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
