// SPDX-License-Identifier: MIT
// Start and stop of the library, with peers as separate processes on
// loopback. Every test ends with the library shut down and its settings back.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <future>
#include <memory>
#include <mutex>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "platform/socket.h"
#include "runtime/log.h"
#include "support/context.h"
#include "support/log_capture.h"
#include "support/peer.h"
#include "support/wait.h"
#include "transport/socket_channel.h"
#include "vxbus.h"

namespace vxbus {
namespace {

using testing::Peer;
using testing::PeerOptions;
using testing::WaitUntil;

// Written by library threads at any time, also just after a test has ended.
std::mutex g_mutex;
std::vector<std::string> g_connects, g_disconnects;

std::string Text(const char* s) {
  return s ? s : "(null)";
}

void RecordConnect(const char* local, const char* remote, const char* appId, const char* host,
                   std::int32_t port, const char* name) {
  std::lock_guard<std::mutex> lock(g_mutex);
  g_connects.push_back(Text(local) + " " + Text(remote) + " " + Text(appId) + " " + Text(host) +
                       " " + std::to_string(port) + " " + Text(name));
}

void RecordDisconnect(const char* appId, const char* host, std::int32_t port, const char* name) {
  std::lock_guard<std::mutex> lock(g_mutex);
  g_disconnects.push_back(Text(appId) + " " + Text(host) + " " + std::to_string(port) + " " +
                          Text(name));
}

std::vector<std::string> Copy(const std::vector<std::string>& calls) {
  std::lock_guard<std::mutex> lock(g_mutex);
  return calls;
}

class LifecycleTest : public ::testing::Test {
 protected:
  void SetUp() override {
    savedLimits_ = testing::Context().limits;
    savedDefaults_ = testing::Context().defaultLimits;
    {
      std::lock_guard<std::mutex> lock(g_mutex);
      g_connects.clear();
      g_disconnects.clear();
    }
    listsBefore_ = DEBUG_VXObjectCount().paramLists;
  }

  void TearDown() override {
    while (outstanding_ > 0)
      Shutdown();
    EXPECT_TRUE(WaitUntil([this] { return Idle(); }));
    testing::Context().limits = savedLimits_;
    testing::Context().defaultLimits = savedDefaults_;
    VXSetConnectListener(nullptr);
    VXSetDisconnectListener(nullptr);
  }

  // Every initialise call counts, whatever its result, and needs its shutdown.
  _tag_VX_ERROR Init(const char* name, int port, const VXLimits* limits = nullptr) {
    ++outstanding_;
    return VXInitialize(name, port, limits);
  }
  void Shutdown() {
    --outstanding_;
    EXPECT_EQ(VXShutdown(), VX_SUCCESS);
  }
  int InitListening(const char* name) {
    int port = testing::FreeTcpPort();
    EXPECT_EQ(Init(name, port), VX_SUCCESS);
    VXConnectionReady();
    EXPECT_TRUE(WaitForListener(port));
    return port;
  }

  // No session, message or list of this test is left.
  bool Idle() const {
    VXObjectCounters now = DEBUG_VXObjectCount();
    return now.applications == 0 && now.messages == 0 && now.paramLists == listsBefore_;
  }
  bool WaitForListener(int port) {
    return log_.WaitFor(kLogInfo,
                        "listen for incoming connection on :0.0.0.0:" + std::to_string(port));
  }
  static std::string OwnAppId(int port, const std::string& name) {
    return std::string(testing::Context().hostName) + ":" + std::to_string(port) + "/" + name;
  }
  static std::string ConnectFrom(Peer& peer, int port) {
    peer.Send("connect 127.0.0.1 " + std::to_string(port));
    return peer.Expect("connect-result ");
  }
  static PeerOptions Named(std::string name, int port = 0) {
    PeerOptions options;
    options.name = name;
    options.port = port;
    return options;
  }
  static std::string Accepted() { return "connect-result 0 " + testing::Context().ownAppId; }
  static VXLimits Record() { return VXLimits{sizeof(VXLimits), {}}; }
  static bool Same(const VXLimits& a, const VXLimits& b) { return !std::memcmp(&a, &b, sizeof a); }

  testing::LogCapture log_;
  int outstanding_ = 0;
  std::uint32_t listsBefore_ = 0;
  VXLimits savedLimits_, savedDefaults_;
};

TEST_F(LifecycleTest, FirstInitialiseMergesTheLimitsRecord) {
  ASSERT_EQ(VXSetAuthenticationInfo("abc", 3), VX_SUCCESS);
  const VXLimits defaults = testing::Context().defaultLimits;
  EXPECT_EQ(std::memcmp(defaults.limits.authBlock, "abc\0", 4), 0);
  VXLimits record = Record();
  record.limits.MAX_CONNECTIONS = 5;
  std::memset(record.limits.authBlock, 'x', sizeof record.limits.authBlock);
  for (std::uint32_t size : {0u, 291u, 293u}) {
    record.size = size;
    ASSERT_EQ(Init("unsized", 0, &record), VX_SUCCESS);
    EXPECT_TRUE(Same(testing::Context().limits, defaults))
        << "ignored whole, secret kept; size word " << size;
    Shutdown();
  }

  // Zero words keep the defaults, others replace them; so does an all-zero block.
  record = Record();
  record.limits.RESERVED_A = 7;
  record.limits.IO_TIMEOUT_MS = 1234;
  ASSERT_EQ(Init("zero", 0, &record), VX_SUCCESS);
  VXLimits expected = defaults;
  expected.limits.RESERVED_A = 7;
  expected.limits.IO_TIMEOUT_MS = 1234;
  std::memset(expected.limits.authBlock, 0, sizeof expected.limits.authBlock);
  EXPECT_TRUE(Same(testing::Context().limits, expected));
  Shutdown();
}

TEST_F(LifecycleTest, PortZeroListensNowhere) {
  ASSERT_EQ(Init("zero", 0), VX_SUCCESS);
  EXPECT_EQ(testing::Context().ownAppId, OwnAppId(0, "zero"));
  VXConnectionReady();
  Shutdown();  // joins the TCP thread; a listener would have logged its end
  EXPECT_EQ(log_.Count(kLogInfo, "ConnThread Startup"), 1);
  EXPECT_EQ(log_.Count(kLogInfo, "ConnectionThread. Shutdown"), 0);
}

TEST_F(LifecycleTest, TcpListenerServesItsPortWithinTheConnectionLimit) {
  platform::Ipv4Endpoint any;  // all local addresses, a port of the kernel's choice
  platform::SocketHandle squatter = platform::CreateStreamSocket();
  ASSERT_TRUE(platform::Bind(squatter, any));
  ASSERT_TRUE(platform::Listen(squatter, 1));
  ASSERT_TRUE(platform::GetLocalEndpoint(squatter, &any));
  const int port = any.port;
  VXLimits record = Record();
  record.limits.MAX_CONNECTIONS = 1;
  VXSetConnectListener(RecordConnect);
  VXSetDisconnectListener(RecordDisconnect);
  ASSERT_EQ(Init("door", port, &record), VX_SUCCESS);
  VXConnectionReady();
  const std::string failure =
      "bind to:0.0.0.0:" + std::to_string(port) + " FAILED. Try to reinitialize listener";
  EXPECT_TRUE(log_.WaitFor(kLogCritical, failure));
  // It retries once a second, silently.
  EXPECT_FALSE(WaitUntil([&] { return log_.Count(kLogCritical, failure) > 1; },
                         std::chrono::milliseconds(1500)));
  platform::CloseSocket(squatter);
  EXPECT_TRUE(WaitForListener(port));
  EXPECT_EQ(log_.Count(kLogCritical, failure), 1);

  // The guest listens too: the port in its appID isn't the one it connects from.
  Peer guest(Named("guest", testing::FreeTcpPort())), second(Named("second")),
      third(Named("third"));
  ASSERT_TRUE(guest.Ready() && second.Ready() && third.Ready());
  ASSERT_EQ(ConnectFrom(guest, port), Accepted());
  // The guest's own connect listener names its end: "connected ... local remote".
  std::istringstream guestView(guest.ExpectSeen("connected " + testing::Context().ownAppId + " "));
  std::string word[6];  // connected appId host port name local
  guestView >> word[0] >> word[1] >> word[2] >> word[3] >> word[4] >> word[5];
  ASSERT_TRUE(WaitUntil([] { return Copy(g_connects).size() == 1; }));
  const std::string guestSession = guest.AppId() + " " + testing::Context().hostName + " " +
                                   std::to_string(guest.Port()) + " guest";
  EXPECT_EQ(Copy(g_connects)[0],
            "127.0.0.1:" + std::to_string(port) + " " + word[5] + " " + guestSession);

  EXPECT_EQ(ConnectFrom(second, port), Accepted());  // the limit is strictly greater
  // Handshakes run beside the listener: the limit counts the sessions that
  // are in the registry, which the second joins just before its listener call.
  ASSERT_TRUE(WaitUntil([] { return Copy(g_connects).size() == 2; }));
  EXPECT_EQ(ConnectFrom(third, port), "connect-result -1 ");  // closed before the first byte
  EXPECT_EQ(log_.Count(kLogCritical,
                       "ConnectionThread. Connection limit reached. Closing connection. "
                       "g_applications.size()=2. limits.MAX_CONNECTIONS = 1"),
            1);

  guest.Kill();
  // Once the session is gone its reader has passed the listener call.
  ASSERT_TRUE(WaitUntil([] { return DEBUG_VXObjectCount().applications == 1; }));
  EXPECT_EQ(Copy(g_disconnects), std::vector<std::string>{guestSession});
  second.Kill();
  ASSERT_TRUE(WaitUntil([] { return DEBUG_VXObjectCount().applications == 0; }));
  EXPECT_EQ(Copy(g_disconnects).size(), 2u);
  EXPECT_EQ(Copy(g_connects).size(), 2u);  // none for the refused one
}

TEST_F(LifecycleTest, OnlyTheLastOfRepeatedShutdownsStopsTheLibrary) {
  const int port = InitListening("hub");
  const VXLimits inForce = testing::Context().limits;
  VXLimits record = Record();
  record.limits.MAX_CONNECTIONS = 3;
  std::memset(record.limits.authBlock, 'q', sizeof record.limits.authBlock);
  EXPECT_EQ(Init("hub", port, &record), VX_SUCCESS);  // a second start of threads would abort
  EXPECT_EQ(Init("other", port, &record), VX_ERROR_NAME_IN_USE);
  EXPECT_EQ(Init("hub", port + 1), VX_ERROR_NAME_IN_USE);
  EXPECT_EQ(testing::Context().ownAppId, OwnAppId(port, "hub"));
  EXPECT_TRUE(Same(testing::Context().limits, inForce)) << "only the first call's record counts";
  for (int i = 0; i < 3; ++i)
    Shutdown();
  // The listener socket lives exactly as long as the TCP thread.
  EXPECT_TRUE(ConnectSocketChannel("127.0.0.1", port, ChannelLimits()))
      << "the fourth call holds the library up";

  // A session each way, each with a call blocked in the peer's slot 2.
  Peer inbound(Named("inbound")), outbound(Named("outbound", testing::FreeTcpPort()));
  ASSERT_TRUE(inbound.Ready() && outbound.Ready());
  ASSERT_EQ(ConnectFrom(inbound, port), Accepted());
  ASSERT_EQ(VXConnect("127.0.0.1", outbound.Port(), nullptr, 0, nullptr, 0), VX_SUCCESS);
  std::vector<std::future<bool>> nullReplies;  // detached: a caller that never returns is let go
  for (Peer* peer : {&inbound, &outbound}) {
    auto nullReply = std::make_shared<std::promise<bool>>();
    nullReplies.push_back(nullReply->get_future());
    std::thread([nullReply, target = peer->AppId()] {
      HVXPARAMLIST reply = VXCall(target.c_str(), 2, VX_INVALID_PARAMLIST);
      VXCloseHandle(reply);
      nullReply->set_value(reply.value == nullptr);
    }).detach();
    EXPECT_NE(peer->Expect("blocking"), "");
  }

  Shutdown();
  for (Peer* peer : {&inbound, &outbound})
    EXPECT_EQ(log_.Count(kLogInfo, "Global shutdown: \"" + peer->AppId() + "\" stopped"), 1);
  EXPECT_EQ(log_.Count(kLogInfo, "ConnectionThread. Shutdown"), 1);
  for (auto& nullReply : nullReplies)
    EXPECT_TRUE(nullReply.wait_for(std::chrono::seconds(5)) == std::future_status::ready &&
                nullReply.get());
  EXPECT_TRUE(Idle()) << "the last shutdown frees every session before it returns";

  // A fresh start at once, under another name and port.
  const int newPort = InitListening("hub2");
  EXPECT_EQ(testing::Context().ownAppId, OwnAppId(newPort, "hub2"));
  EXPECT_EQ(ConnectFrom(inbound, newPort), Accepted());
}

testing::Signal* g_shutdownDone = nullptr;

// A shutdown on the session's own reader thread must not wait for that thread.
void ShutDownFromListener(const char*, const char*, std::int32_t, const char*) {
  VXShutdown();
  g_shutdownDone->Raise();
}

// Sessions that end while the library runs: a connection that never says a
// word holds up only its own handshake; peers with live sessions and never a
// VXShutdown still end, with their own exit code, whether they return from
// main or call exit inside a slot; and the last one's disconnect listener may
// shut the library down.
TEST_F(LifecycleTest, SessionsEndCleanlyHoweverThePeerGoes) {
  const int port = InitListening("door");
  ChannelRef silent = ConnectSocketChannel("127.0.0.1", port, ChannelLimits());
  ASSERT_TRUE(silent);
  ASSERT_TRUE(log_.WaitFor(kLogInfo, "ConnectionThread. Starting new application"));

  // Threads left running at exit are the point here, not a leak to report
  // under ThreadSanitizer, whose report would replace the exit code.
  testing::SetInheritedVariable("TSAN_OPTIONS", "report_thread_leaks=0");
  Peer returner(Named("returner")), exiter(Named("exiter")), leaver(Named("leaver"));
  testing::SetInheritedVariable("TSAN_OPTIONS", nullptr);
  ASSERT_TRUE(returner.Ready() && exiter.Ready() && leaver.Ready());
  // The silent one's handshake waits out the default read limit of a minute;
  // the answers come within the peer's bound of 15 s all the same.
  for (Peer* peer : {&returner, &exiter, &leaver})
    ASSERT_EQ(ConnectFrom(*peer, port), Accepted());
  silent.Reset();  // its handshake fails at once
  EXPECT_TRUE(log_.WaitFor(kLogError, "ConnectionThread. Application start failed"));

  returner.Send("return-without-shutdown 5");
  // The peer reports its connect before this side's reader has entered it.
  EXPECT_TRUE(WaitUntil([&exiter] {
    return VXNotify(exiter.AppId().c_str(), 7, VX_INVALID_PARAMLIST, nullptr, nullptr) ==
           VX_SUCCESS;
  }));
  for (auto [peer, expected] : {std::pair<Peer*, int>{&returner, 5}, {&exiter, 7}}) {
    int code = -1;
    EXPECT_TRUE(peer->WaitForExit(std::chrono::seconds(10), &code));
    EXPECT_EQ(code, expected) << peer->AppId();
  }

  // Once those sessions are gone their readers have passed the listener call.
  ASSERT_TRUE(WaitUntil([] { return DEBUG_VXObjectCount().applications == 1; }));
  testing::Signal done;
  g_shutdownDone = &done;
  VXSetDisconnectListener(ShutDownFromListener);
  leaver.Kill();
  // Well inside the bound a shutdown gives session threads to finish.
  EXPECT_TRUE(done.WaitFor(std::chrono::seconds(8)));
  --outstanding_;
}

// The last VXShutdown joins the dispatch thread and the connection threads:
// called on one of them, from a slot or from a handshake's listener, it is
// refused with one error line each, and the library runs on until a shutdown
// from a thread of the application. One that is not the last counts there.
std::atomic<int> g_shutdownInSlot{1}, g_shutdownInListener{1};
testing::Signal* g_listenerRan = nullptr;

_tag_VX_ERROR ShutDownInSlot(HVXPARAMLIST, HVXPARAMLIST output, VXSlotContext*) {
  g_shutdownInSlot = VXShutdown();
  VXSetStringValue(output, "servedBy", "still here");
  return VX_SUCCESS;
}

void ShutDownInAuthFailedListener(const char*, const char*, const char*) {
  g_shutdownInListener = VXShutdown();
  g_listenerRan->Raise();
}

TEST_F(LifecycleTest, ShutdownIsRefusedOnAThreadItWouldJoin) {
  constexpr std::uint32_t kSlot = 30;
  const std::string refusal =
      "VXShutdown refused on a thread that it would join (a slot, a callback on the dispatch "
      "thread, or a connection thread); the library keeps running";
  ASSERT_EQ(VXSetAuthenticationInfo("abc", 3), VX_SUCCESS);
  VXRegisterSlot(kSlot, ShutDownInSlot, nullptr);
  testing::Signal listenerRan;
  g_listenerRan = &listenerRan;
  VXSetAuthFailedListener(ShutDownInAuthFailedListener);
  const int port = InitListening("door");
  Peer guesser(Named("guesser")), caller(Named("caller"));
  ASSERT_TRUE(guesser.Ready() && caller.Ready());

  guesser.Send("connect 127.0.0.1 " + std::to_string(port) + " 78797a");
  ASSERT_TRUE(listenerRan.WaitFor());
  EXPECT_EQ(g_shutdownInListener, VX_ERROR_FAILED);
  caller.Send("connect 127.0.0.1 " + std::to_string(port) + " 616263");
  ASSERT_EQ(caller.Expect("connect-result "), Accepted());
  ASSERT_EQ(Init("door", port), VX_SUCCESS);
  for (int expected : {VX_SUCCESS, VX_ERROR_FAILED}) {
    caller.Send("call " + OwnAppId(port, "door") + " " + std::to_string(kSlot));
    EXPECT_EQ(caller.Expect("call-result "), "call-result list still here");
    EXPECT_EQ(g_shutdownInSlot, expected);
  }
  --outstanding_;  // the first in the slot counted
  EXPECT_EQ(log_.Count(kLogError, refusal), 2);

  VXSetAuthFailedListener(nullptr);
  VXUnregisterSlot(kSlot);
  Shutdown();
  EXPECT_EQ(log_.Count(kLogInfo, "ConnectionThread. Shutdown"), 1);
}

}  // namespace
}  // namespace vxbus
