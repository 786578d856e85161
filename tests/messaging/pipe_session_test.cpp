// Two processes over a pair of local pipes: the peer listens on a pipe name,
// this process connects to it with VXConnectEx.
//
// The pipe listener has no instance of its pipes between two rounds or while
// it runs a handshake, and a connect then fails at once: clients try again,
// and so do these tests, within a bound.
//
// A pipe session's reader notices a stop request only after a whole read
// time-out, and the peer's idle pipe round lasts 10 s, so each test ends by
// killing its peers rather than by a polite shutdown.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <random>
#include <string>
#include <vector>

#include "bus_test_fixture.h"
#include "session/application.h"
#include "session/application_registry.h"
#include "support/wait.h"
#include "transport/pipe_channel.h"

namespace vxbus {
namespace testing {
namespace {

std::string UniquePipeName(const std::string& tag) {
  static std::atomic<int> serial{0};
  static const unsigned salt = std::random_device{}();
  return "vxbus-test-" + tag + "-" + std::to_string(salt) + "-" + std::to_string(++serial);
}

PeerOptions PipePeer(const std::string& name, const std::string& pipe, int maxConnections = 0) {
  PeerOptions options;
  options.name = name;
  options.pipe = pipe;
  options.maxConnections = maxConnections;
  return options;  // port 0: no TCP listener
}

std::atomic<int> g_callbacks{0};
std::atomic<int> g_callbacksWithOutput{0};
_tag_VX_ERROR CountCompletion(const char*, std::uint32_t, HVXPARAMLIST, HVXPARAMLIST output,
                              void*) {
  if (output.value != nullptr) ++g_callbacksWithOutput;
  ++g_callbacks;
  return VX_SUCCESS;
}

class PipeSessionTest : public BusTest {
 protected:
  void SetUp() override {
    g_callbacks = 0;
    g_callbacksWithOutput = 0;
    BusTest::SetUp();
  }

  // VXConnectEx, tried again while the listener has no pipes out; stops at
  // the first result other than -1. `appId` gets the buffer's contents.
  static int ConnectRetrying(const std::string& pipe, const char* host, int port,
                             std::string* appId = nullptr) {
    int result = VX_ERROR_FAILED;
    WaitUntil([&] {
      char buffer[256] = {};
      result = VXConnectEx(pipe.c_str(), host, port, buffer, sizeof buffer, nullptr, 0);
      if (appId) *appId = buffer;
      return result != VX_ERROR_FAILED;
    });
    return result;
  }

  // The peer connects to `pipe` itself, trying again the same way.
  static std::string PeerConnectsRetrying(Peer& peer, const std::string& pipe) {
    for (int attempt = 0; attempt < 200; ++attempt) {
      peer.Send("connect-pipe " + pipe);
      std::string result = peer.Expect("connect-result ");
      if (result.rfind("connect-result -1", 0) != 0) return result;
    }
    return "";
  }

  static SessionRef SessionOf(const std::string& appId) {
    return g_applications.Find(appId.c_str());
  }
};

TEST_F(PipeSessionTest, HandshakeCallsAndNotificationsRunOverThePipes) {
  const std::string pipe = UniquePipeName("calls");
  Peer peer(PipePeer("piped", pipe));
  ASSERT_TRUE(peer.Ready());
  std::string appId;
  ASSERT_EQ(ConnectRetrying(pipe, nullptr, 0, &appId), VX_SUCCESS);
  EXPECT_EQ(appId, peer.AppId());

  // Each side names the pipe it writes as the remote end.
  SessionRef session = SessionOf(appId);
  ASSERT_TRUE(session.IsValid());
  EXPECT_EQ(session->remoteAddress, pipe + "_in");
  EXPECT_EQ(session->localAddress, pipe + "_out");
  session.Reset();
  std::string connected = peer.Expect("connected " + g_ownAppId);
  EXPECT_EQ(connected, "connected " + g_ownAppId + " " + std::string(g_hostName) + " 0 tester " +
                           pipe + "_in " + pipe + "_out");

  // A list far larger than the pipes' buffers, with a nested list, both ways.
  std::vector<unsigned char> blob(100000);
  for (std::size_t i = 0; i < blob.size(); ++i)
    blob[i] = static_cast<unsigned char>(i * 7 + 3);
  HVXPARAMLIST list = VXCreateParamList();
  HVXPARAMLIST inner = VXCreateParamList();
  VXSetStringValue(inner, "s", "deep");
  VXSetHandleValue(list, "sub", inner);
  VXCloseHandle(inner);
  VXSetBinaryValue(list, "blob", blob.data(), static_cast<std::uint32_t>(blob.size()));
  HVXPARAMLIST reply = VXCall(appId.c_str(), 1, list);
  ASSERT_NE(reply.value, nullptr);
  EXPECT_STREQ(VXGetStringValue(reply, "servedBy"), peer.AppId().c_str());
  const _tag_BINARYVALUE* echoed = VXGetBinaryValue(reply, "blob");
  ASSERT_NE(echoed, nullptr);
  ASSERT_EQ(echoed->length, blob.size());
  EXPECT_TRUE(std::equal(blob.begin(), blob.end(), echoed->data));
  HVXPARAMLIST echoedInner = VXGetHandleValue(reply, "sub");
  EXPECT_STREQ(VXGetStringValue(echoedInner, "s"), "deep");
  VXCloseHandle(echoedInner);
  VXCloseHandle(reply);
  VXCloseHandle(list);

  HVXPARAMLIST note = VXCreateParamList();
  VXSetInt32Value(note, "n", 1);
  EXPECT_EQ(VXNotify(appId.c_str(), 6, note, nullptr, nullptr), VX_SUCCESS);
  EXPECT_EQ(peer.Expect("notified "), "notified from " + g_ownAppId + " output=null count=1");
  EXPECT_EQ(VXNotify(appId.c_str(), 6, note, CountCompletion, nullptr), VX_SUCCESS);
  EXPECT_EQ(peer.Expect("notified "), "notified from " + g_ownAppId + " output=list count=1");
  EXPECT_TRUE(WaitUntil([] { return g_callbacks == 1; }));
  EXPECT_EQ(g_callbacksWithOutput, 1);
  VXCloseHandle(note);

  // The listening peer calls back over the same pipes.
  AwaitDispatchOf(peer);
  peer.Kill();
}

TEST_F(PipeSessionTest, SignalsRunOverThePipes) {
  const std::string pipe = UniquePipeName("signals");
  Peer peer(PipePeer("announcer", pipe));
  ASSERT_TRUE(peer.Ready());
  std::string appId;
  ASSERT_EQ(ConnectRetrying(pipe, nullptr, 0, &appId), VX_SUCCESS);
  DeliveryLog delivered;
  VXRegisterSlot(21, RecordAt<21>, &delivered);
  peer.Send("register-signal bell");
  peer.Expect("registered ");
  EXPECT_EQ(VXConnectSignal(appId.c_str(), "bell", 21), VX_SUCCESS);
  AwaitDispatchAt(appId);

  peer.Send("emit bell");
  EXPECT_EQ(peer.Expect("emit-result "), "emit-result 0");
  AwaitDispatchOf(peer);
  std::vector<Delivery> got = delivered.Snapshot();
  ASSERT_EQ(got.size(), 1u);
  EXPECT_EQ(got[0].sender, appId);
  EXPECT_EQ(got[0].signal, "bell");

  EXPECT_EQ(VXDisconnectSignal(appId.c_str(), "bell", 21), VX_SUCCESS);
  peer.Send("emit bell");
  EXPECT_EQ(peer.Expect("emit-result "), "emit-result 0");
  AwaitDispatchOf(peer);
  EXPECT_EQ(delivered.Size(), 1u);

  // And the other way: the peer subscribes to a signal of this process.
  VXRegisterSignal("chime");
  peer.Send("subscribe " + g_ownAppId + " chime 6");
  peer.Expect("subscribed");
  AwaitDispatchOf(peer);  // its subscribe went before this call
  EXPECT_EQ(VXEmit("chime", VX_INVALID_PARAMLIST, nullptr, nullptr), VX_SUCCESS);
  EXPECT_EQ(peer.Expect("notified "), "notified from " + g_ownAppId + " output=null count=0");
  peer.Kill();
  VXUnregisterSignal("chime");
  VXUnregisterSlot(21);
}

TEST_F(PipeSessionTest, PipeNameWinsOverAHostAndAPort) {
  const std::string pipe = UniquePipeName("wins");
  Peer peer(PipePeer("both", pipe));
  ASSERT_TRUE(peer.Ready());
  // Nothing listens on that TCP port, so only the pipe can succeed.
  std::string appId;
  ASSERT_EQ(ConnectRetrying(pipe, "127.0.0.1", FreeTcpPort(), &appId), VX_SUCCESS);
  EXPECT_EQ(appId, peer.AppId());
  SessionRef session = SessionOf(appId);
  ASSERT_TRUE(session.IsValid());
  EXPECT_EQ(session->remoteAddress, pipe + "_in");
  session.Reset();
  peer.Kill();
}

TEST_F(PipeSessionTest, TcpIsChosenOnlyWithHostPortAndNoPipeName) {
  Peer peer(TcpPeer("tcp"));
  ASSERT_TRUE(peer.Ready());
  char buffer[256] = "untouched";
  // A port of 0 sends the call down the pipe path, where no name means failure.
  EXPECT_EQ(VXConnectEx(nullptr, "127.0.0.1", 0, buffer, sizeof buffer, nullptr, 0),
            VX_ERROR_FAILED);
  EXPECT_EQ(VXConnectEx("", "127.0.0.1", 0, buffer, sizeof buffer, nullptr, 0), VX_ERROR_FAILED);
  EXPECT_EQ(VXConnectEx(nullptr, nullptr, peer.Port(), buffer, sizeof buffer, nullptr, 0),
            VX_ERROR_FAILED);
  EXPECT_EQ(VXConnectEx(nullptr, "", peer.Port(), buffer, sizeof buffer, nullptr, 0),
            VX_ERROR_FAILED);
  EXPECT_EQ(
      VXConnectEx(UniquePipeName("nobody").c_str(), nullptr, 0, buffer, sizeof buffer, nullptr, 0),
      VX_ERROR_FAILED);
  EXPECT_STREQ(buffer, "untouched");

  EXPECT_EQ(VXConnectEx("", "127.0.0.1", peer.Port(), buffer, sizeof buffer, nullptr, 0),
            VX_SUCCESS);
  EXPECT_EQ(std::string(buffer), peer.AppId());
  SessionRef session = SessionOf(peer.AppId());
  ASSERT_TRUE(session.IsValid());
  EXPECT_EQ(session->remoteAddress.rfind("127.0.0.1", 0), 0u) << session->remoteAddress;
  session.Reset();
  peer.Kill();
}

TEST_F(PipeSessionTest, AtTheLimitTheThirdClientsPipesCloseWithoutALogLine) {
  const std::string pipe = UniquePipeName("limit");
  Peer listener(PipePeer("guard", pipe, 1));
  Peer other(PipePeer("other", ""));
  ASSERT_TRUE(listener.Ready() && other.Ready());

  // At a limit of 1 two clients get in: the test is "more than the limit".
  EXPECT_EQ(PeerConnectsRetrying(other, pipe), "connect-result 0 " + listener.AppId());
  ASSERT_EQ(ConnectRetrying(pipe, nullptr, 0), VX_SUCCESS);
  // The last lines the listener writes about this process's session.
  const std::string lastLine = "log 8 Startup completed for " + g_ownAppId;
  ASSERT_NE(listener.Expect("connected " + g_ownAppId), "");
  if (listener.CountLines(lastLine) == 0) {
    ASSERT_NE(listener.Expect(lastLine), "");
  }
  const std::size_t linesBefore = listener.Lines().size();

  // The third reaches the listener, which closes its pipes before a byte.
  ChannelRef channel;
  ASSERT_TRUE(WaitUntil([&] {
    channel = ConnectPipeChannel(pipe);
    return channel.IsValid();
  }));
  unsigned char byte = 0;
  EXPECT_EQ(channel->Read(&byte, 1), -1);
  SessionRef third(new VXAPPImpl);
  char buffer[256] = "untouched";
  EXPECT_EQ(third->ConnectApplication(channel, buffer, sizeof buffer, nullptr, 0), VX_ERROR_FAILED);
  EXPECT_STREQ(buffer, "untouched");
  third.Reset();
  channel.Reset();

  listener.Send("counters");
  EXPECT_EQ(listener.Expect("counters ").rfind("counters 2 ", 0), 0u);
  for (std::size_t i = linesBefore; i < listener.Lines().size(); ++i)
    EXPECT_NE(listener.Lines()[i].rfind("log ", 0), 0u) << listener.Lines()[i];
  EXPECT_EQ(listener.CountLines("connected "), 2);
  listener.Kill();
  other.Kill();
}

}  // namespace
}  // namespace testing
}  // namespace vxbus
