// SPDX-License-Identifier: MIT
// Two processes over a pair of local pipes. A listener has no pipes out
// between two rounds or during a handshake, and a connect then fails at
// once: clients try again, and so do these tests, within a bound.
#include <algorithm>
#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "bus_test_fixture.h"
#include "runtime/log.h"
#include "session/session_registry.h"
#include "support/channel_pair.h"
#include "support/context.h"
#include "support/half_open_pipe.h"
#include "support/log_capture.h"
#include "transport/pipe_channel.h"
#include "transport/pipe_name.h"

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
  SessionRef session = testing::Context().registry.Find(to);
  ASSERT_TRUE(session.IsValid());
  EXPECT_EQ(session->RemoteAddress(), pipe + "_in");
  EXPECT_EQ(session->LocalAddress(), pipe + "_out");
  // Each side names the pipe it writes as the remote end.
  EXPECT_EQ(listener.ExpectSeen("connected " + testing::Context().ownAppId),
            "connected " + testing::Context().ownAppId + " " +
                std::string(testing::Context().hostName) + " 0 tester " + pipe + "_in " + pipe +
                "_out");

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

  // The last lines the listener writes about the two sessions, whose
  // handshakes ran on threads of their own and may end in either order.
  for (const std::string& client : {other.AppId(), testing::Context().ownAppId}) {
    ASSERT_FALSE(listener.ExpectSeen("log 8 Application connected:" + client).empty());
    ASSERT_FALSE(listener.ExpectSeen("log 8 Startup completed for " + client).empty());
  }
  const std::size_t linesBefore = listener.Lines().size();
  ChannelRef channel;
  ASSERT_TRUE(
      WaitUntil([&] { return (channel = ConnectPipeChannel(pipe, ChannelLimits())).IsValid(); }));
  unsigned char byte = 0;
  EXPECT_EQ(channel->Read(&byte, 1), -1) << "closed before a byte";
  channel.Reset();
  listener.Send("counters");
  EXPECT_EQ(listener.Expect("counters ").rfind("counters 2 ", 0), 0u);
  for (std::size_t i = linesBefore; i < listener.Lines().size(); ++i)
    EXPECT_NE(listener.Lines()[i].rfind("log ", 0), 0u) << listener.Lines()[i];
}

// Clients of forty processes that come together all get in on their first
// try, although one that connected before them stays silent: its handshake
// holds a thread of its own, not the listener.
TEST_F(PipeSessionTest, FortyClientsAtOnceAllGetInOnTheirFirstTryBesideASilentOne) {
  const std::string pipe = UniquePipeName("crowd");
  Peer listener(PipePeer("crowd", pipe, 64));
  ASSERT_TRUE(listener.Ready());
  std::vector<std::unique_ptr<Peer>> clients;
  for (int i = 0; i < 40; ++i) {
    PeerOptions options = PipePeer("client" + std::to_string(i), "");
    options.quiet = true;
    clients.push_back(std::make_unique<Peer>(options));
    ASSERT_TRUE(clients.back()->Ready());
  }
  ChannelRef silent;
  ASSERT_TRUE(
      WaitUntil([&] { return (silent = ConnectPipeChannel(pipe, ChannelLimits())).IsValid(); }));
  const auto start = std::chrono::steady_clock::now();
  for (auto& client : clients)
    client->Send("connect-pipe " + pipe);
  for (auto& client : clients)  // each waits up to 15 s
    EXPECT_EQ(client->Expect("connect-result "), "connect-result 0 " + listener.AppId());
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(20))
      << "goal: a few seconds";
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
  ASSERT_TRUE(
      WaitUntil([&] { return (probe = ConnectPipeChannel(pipe, ChannelLimits())).IsValid(); }));
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
  EXPECT_EQ(ConnectPipeRetryingFrom(other, pipe),
            "connect-result 0 " + testing::Context().ownAppId);

  second.Send("quit");
  int exitCode = -1;
  ASSERT_TRUE(second.WaitForExit(std::chrono::seconds(5), &exitCode));
  EXPECT_EQ(exitCode, 0);
  EXPECT_EQ(second.CountLines(CreateFailedLine(pipe)), 1);
  EXPECT_EQ(log_.Count(kLogCritical, "ConnThread Pipe. create pipe", true), 0);
}

// A client that holds only the "_in" pipe holds up nobody else: a client
// of another process gets in on its first try meanwhile.
TEST_F(PipeSessionTest, AHalfOpenClientHoldsUpNoOtherClient) {
  const std::string pipe = UniquePipeName("halfway");
  Peer listener(PipePeer("halfway", pipe)), other(PipePeer("other", ""));
  ASSERT_TRUE(listener.Ready() && other.Ready());
  HalfOpenPipe half;
  ASSERT_TRUE(WaitUntil([&] { return half.Open(SystemPipeName(pipe + "_in")); }));
  other.Send("connect-pipe " + pipe);
  EXPECT_EQ(other.Expect("connect-result "), "connect-result 0 " + listener.AppId());
}

}  // namespace
}  // namespace testing
}  // namespace vxbus
