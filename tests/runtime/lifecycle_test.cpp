// Start and stop of the library in this process: counted initialise calls,
// the limits record, the TCP connection thread, the end of every session at
// shutdown and the connect and disconnect listeners. Peers are separate
// processes (vxbus_test_peer) on loopback.
//
// Every test ends with the library shut down and the process-wide settings
// it changed put back, so the whole program can also run in one process.
// The gates stay open once any test opened them; the one test that depends
// on closed gates checks that it runs first.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <memory>
#include <mutex>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "platform/socket.h"
#include "runtime/log.h"
#include "runtime/process_state.h"
#include "session/application_registry.h"
#include "support/peer.h"
#include "support/wait.h"
#include "transport/connection_threads.h"
#include "vxbus.h"

namespace vxbus {
namespace {

using std::chrono::milliseconds;
using testing::Peer;
using testing::PeerOptions;
using testing::WaitUntil;

// ---------------------------------------------------------------------------
// Log capture. Library threads call the sink at any time, also a moment
// after a test has ended, so it only ever appends under a lock.

struct LogLine {
  std::uint32_t level;
  std::string text;
};
std::mutex g_logMutex;
std::vector<LogLine> g_logLines;

void CaptureLog(std::uint32_t level, std::uint32_t, const char* text) {
  std::lock_guard<std::mutex> lock(g_logMutex);
  g_logLines.push_back({level, text ? text : ""});
}

void ClearLog() {
  std::lock_guard<std::mutex> lock(g_logMutex);
  g_logLines.clear();
}

int CountLog(std::uint32_t level, const std::string& text) {
  std::lock_guard<std::mutex> lock(g_logMutex);
  int n = 0;
  for (const LogLine& line : g_logLines)
    if (line.level == level && line.text == text) ++n;
  return n;
}

// Lines of any level that start with `prefix`.
int CountLogPrefix(const std::string& prefix) {
  std::lock_guard<std::mutex> lock(g_logMutex);
  int n = 0;
  for (const LogLine& line : g_logLines)
    if (line.text.compare(0, prefix.size(), prefix) == 0) ++n;
  return n;
}

bool WaitForLog(std::uint32_t level, const std::string& text,
                milliseconds limit = std::chrono::seconds(5)) {
  return WaitUntil([&] { return CountLog(level, text) > 0; }, limit);
}

std::string ListeningLine(int port) {
  return "listen for incoming connection on :0.0.0.0:" + std::to_string(port);
}

// ---------------------------------------------------------------------------
// Listener records, written on library threads.

struct ConnectCall {
  std::thread::id thread;
  std::string local, remote, appId, host, name;
  std::int32_t port;
};
struct DisconnectCall {
  std::string appId, host, name;
  std::int32_t port;
};
std::mutex g_listenerMutex;
std::vector<ConnectCall> g_connectCalls;
std::vector<DisconnectCall> g_disconnectCalls;

std::string Text(const char* s) {
  return s ? s : "(null)";
}

void RecordConnect(const char* local, const char* remote, const char* appId, const char* host,
                   std::int32_t port, const char* name) {
  std::lock_guard<std::mutex> lock(g_listenerMutex);
  g_connectCalls.push_back({std::this_thread::get_id(), Text(local), Text(remote), Text(appId),
                            Text(host), Text(name), port});
}

void RecordDisconnect(const char* appId, const char* host, std::int32_t port, const char* name) {
  std::lock_guard<std::mutex> lock(g_listenerMutex);
  g_disconnectCalls.push_back({Text(appId), Text(host), Text(name), port});
}

std::size_t ConnectCount() {
  std::lock_guard<std::mutex> lock(g_listenerMutex);
  return g_connectCalls.size();
}

std::size_t DisconnectCount() {
  std::lock_guard<std::mutex> lock(g_listenerMutex);
  return g_disconnectCalls.size();
}

// ---------------------------------------------------------------------------
// Helpers over the platform layer and the peer program.

platform::Ipv4Endpoint Loopback(int port) {
  platform::Ipv4Endpoint endpoint;
  platform::ParseDottedAddress("127.0.0.1", &endpoint.address);
  endpoint.port = static_cast<std::uint16_t>(port);
  return endpoint;
}

// True when something listens on the port. The library's listener socket
// stays open exactly as long as its TCP connection thread runs.
bool PortAccepts(int port) {
  platform::SocketHandle s = platform::CreateStreamSocket();
  bool connected = platform::Connect(s, Loopback(port)) == 0;
  platform::CloseSocket(s);
  return connected;
}

PeerOptions PeerNamed(const std::string& name, int port = 0) {
  PeerOptions options;
  options.name = name;
  options.port = port;
  return options;
}

// Has the peer connect to this process; gives its "connect-result" line.
std::string ConnectFrom(Peer& peer, int port) {
  peer.Send("connect 127.0.0.1 " + std::to_string(port));
  return peer.Expect("connect-result ");
}

// A line the peer wrote already, or the next one with that start.
std::string LineFrom(Peer& peer, const std::string& prefix) {
  for (const std::string& line : peer.Lines())
    if (line.compare(0, prefix.size(), prefix) == 0) return line;
  return peer.Expect(prefix);
}

std::string Accepted() {
  return "connect-result 0 " + g_ownAppId;
}

std::vector<std::string> Words(const std::string& line) {
  std::istringstream in(line);
  std::vector<std::string> words;
  for (std::string word; in >> word;)
    words.push_back(word);
  return words;
}

bool NoSessionsLeft() {
  return WaitUntil([] { return DEBUG_VXObjectCount().applications == 0; });
}

VXLimits RecordOfRightSize() {
  VXLimits record;
  std::memset(&record, 0, sizeof record);
  record.size = sizeof record;
  return record;
}

bool BlockIsZero(const unsigned char* block) {
  for (int i = 0; i < 256; ++i)
    if (block[i] != 0) return false;
  return true;
}

bool SameRecord(const VXLimits& a, const VXLimits& b) {
  return std::memcmp(&a, &b, sizeof a) == 0;
}

// ---------------------------------------------------------------------------

bool g_firstTestInProcess = true;

class LifecycleTest : public ::testing::Test {
 protected:
  void SetUp() override {
    gatesMayBeOpen_ = !g_firstTestInProcess;  // every test's shutdown opens them
    g_firstTestInProcess = false;
    savedLimits_ = g_limits;
    savedDefaults_ = g_defaultLimits;
    savedMask_ = g_logMask.load();
    savedThreshold_ = g_logThreshold.load();
    savedSink_ = g_logSink.load();
    savedConnect_ = g_connectListener.load();
    savedDisconnect_ = g_disconnectListener.load();
    {
      std::lock_guard<std::mutex> lock(g_listenerMutex);
      g_connectCalls.clear();
      g_disconnectCalls.clear();
    }
    ClearLog();
    VXSetLogLevel(0xF, 0, CaptureLog);
    listsBefore_ = DEBUG_VXObjectCount().paramLists;
  }

  void TearDown() override {
    while (outstanding_ > 0)
      Shutdown();
    EXPECT_TRUE(NoSessionsLeft());
    EXPECT_TRUE(WaitUntil([] { return DEBUG_VXObjectCount().messages == 0; }));
    EXPECT_EQ(DEBUG_VXObjectCount().paramLists, listsBefore_);
    VXSetConnectListener(savedConnect_);
    VXSetDisconnectListener(savedDisconnect_);
    g_limits = savedLimits_;
    g_defaultLimits = savedDefaults_;
    // The capture sink stays valid for good, so a late line of a thread that
    // is just ending is harmless; only the settings go back.
    VXSetLogLevel(savedMask_, savedThreshold_, savedSink_);
  }

  // Every initialise call counts, whatever its result, and needs its shutdown.
  _tag_VX_ERROR Counted(_tag_VX_ERROR result) {
    ++outstanding_;
    return result;
  }
  _tag_VX_ERROR Init(const char* name, int port, const VXLimits* limits = nullptr) {
    return Counted(VXInitialize(name, port, limits));
  }
  void Shutdown() {
    --outstanding_;
    EXPECT_EQ(VXShutdown(), VX_SUCCESS);
  }

  // Initialises on a free port, opens the gates and waits for the listener.
  int InitListening(const char* name, const VXLimits* limits = nullptr) {
    int port = testing::FreeTcpPort();
    EXPECT_EQ(Init(name, port, limits), VX_SUCCESS);
    VXConnectionReady();
    EXPECT_TRUE(WaitForLog(kLogInfo, ListeningLine(port)));
    return port;
  }

  std::string OwnAppId(int port, const std::string& name) const {
    return std::string(g_hostName) + ":" + std::to_string(port) + "/" + name;
  }

  bool gatesMayBeOpen_ = false;
  int outstanding_ = 0;
  std::uint32_t listsBefore_ = 0;
  VXLimits savedLimits_;
  VXLimits savedDefaults_;
  std::uint32_t savedMask_ = 0;
  std::int32_t savedThreshold_ = 0;
  VXLogSink savedSink_ = nullptr;
  VXConnectListener savedConnect_ = nullptr;
  VXDisconnectListener savedDisconnect_ = nullptr;
};

// Declared first so that it runs first when the whole program runs in one
// process: only then are the gates still closed.
TEST_F(LifecycleTest, ShutdownBeforeTheGatesOpenedEndsTheListenerThreadWithoutASocket) {
  int port = testing::FreeTcpPort();
  ASSERT_EQ(Init("early", port), VX_SUCCESS);
  if (!gatesMayBeOpen_) {
    EXPECT_EQ(CountLog(kLogInfo, "ConnThread Startup"), 0);
  }
  Shutdown();  // opens the gates itself, or it would wait for ever
  EXPECT_EQ(CountLog(kLogInfo, "ConnThread Startup"), 1);
  EXPECT_EQ(CountLog(kLogInfo, "ConnectionThread. Shutdown"), 1);
  if (!gatesMayBeOpen_) {
    EXPECT_EQ(CountLogPrefix("listen for incoming connection"), 0);
    EXPECT_EQ(CountLogPrefix("bind to:"), 0);
  }
  EXPECT_FALSE(PortAccepts(port));
}

TEST_F(LifecycleTest, RepeatedInitialiseWithTheSameIdentityIsCounted) {
  int port = InitListening("twice");
  const std::string appId = g_ownAppId;
  EXPECT_EQ(appId, OwnAppId(port, "twice"));
  // A second start of the three threads would end the process here.
  EXPECT_EQ(Init("twice", port), VX_SUCCESS);
  EXPECT_EQ(g_ownAppId, appId);

  Shutdown();  // matches the second call: nothing stops
  EXPECT_EQ(CountLog(kLogInfo, "ConnectionThread. Shutdown"), 0);
  Peer guest(PeerNamed("guest"));
  ASSERT_TRUE(guest.Ready());
  EXPECT_EQ(ConnectFrom(guest, port), Accepted());
  guest.Kill();  // the session ends at once, not at the end of a poll period
  EXPECT_TRUE(NoSessionsLeft());

  Shutdown();  // the last one stops everything
  EXPECT_EQ(CountLog(kLogInfo, "ConnectionThread. Shutdown"), 1);
  EXPECT_EQ(CountLog(kLogInfo, "ConnThread Startup"), 1);
  EXPECT_EQ(CountLog(kLogInfo, ListeningLine(port)), 1);
  EXPECT_FALSE(PortAccepts(port));
}

TEST_F(LifecycleTest, InitialiseUnderAnotherIdentityIsRefusedButStillCounted) {
  int port = InitListening("first");
  const std::string appId = g_ownAppId;
  EXPECT_EQ(Init("first", port + 1), VX_ERROR_NAME_IN_USE);
  EXPECT_EQ(Init("second", port), VX_ERROR_NAME_IN_USE);
  EXPECT_EQ(Counted(VXInitializeEx("127.0.0.1", "third", port, nullptr)), VX_ERROR_NAME_IN_USE);
  EXPECT_EQ(g_ownAppId, appId);

  for (int i = 0; i < 3; ++i) {
    Shutdown();
    EXPECT_EQ(CountLog(kLogInfo, "ConnectionThread. Shutdown"), 0) << "after shutdown " << i + 1;
    EXPECT_TRUE(PortAccepts(port)) << "after shutdown " << i + 1;
  }
  Shutdown();
  EXPECT_EQ(CountLog(kLogInfo, "ConnectionThread. Shutdown"), 1);
  EXPECT_FALSE(PortAccepts(port));
}

TEST_F(LifecycleTest, ShutdownWithoutInitialiseReturnsAndLeavesTheCountAtZero) {
  EXPECT_EQ(VXShutdown(), VX_SUCCESS);
  EXPECT_EQ(VXShutdown(), VX_SUCCESS);
  // Had the count gone below zero, this would take the repeated path and be
  // refused, since the stored identity is another one.
  ASSERT_EQ(Init("fresh", 0), VX_SUCCESS);
  EXPECT_EQ(g_ownAppId, OwnAppId(0, "fresh"));
  Shutdown();
  ASSERT_EQ(Init("fresher", 0), VX_SUCCESS);
  EXPECT_EQ(g_ownAppId, OwnAppId(0, "fresher"));
  Shutdown();
}

// ---------------------------------------------------------------------------
// The limits record, merged by the first initialise call of a run.

TEST_F(LifecycleTest, NonZeroWordsReplaceTheDefaultsAndZeroWordsKeepThem) {
  VXLimits record = RecordOfRightSize();
  record.limits.RESERVED_A = 7;
  record.limits.RESERVED_E = 9;
  record.limits.IO_TIMEOUT_MS = 1234;
  ASSERT_EQ(Init("merged", 0, &record), VX_SUCCESS);
  EXPECT_EQ(g_limits.size, 292u);
  EXPECT_EQ(g_limits.limits.MAX_CONNECTIONS, 10u);  // zero keeps the default
  EXPECT_EQ(g_limits.limits.RESERVED_A, 7u);
  EXPECT_EQ(g_limits.limits.MAX_READ_SIZE, 1073741824u);
  EXPECT_EQ(g_limits.limits.RESERVED_B, 1073741824u);
  EXPECT_EQ(g_limits.limits.RESERVED_C, 64u);
  EXPECT_EQ(g_limits.limits.RESERVED_D, 67108864u);
  EXPECT_EQ(g_limits.limits.RESERVED_E, 9u);
  EXPECT_EQ(g_limits.limits.IO_TIMEOUT_MS, 1234);
  Shutdown();

  // The next run starts again from the defaults.
  record = RecordOfRightSize();
  record.limits.MAX_CONNECTIONS = 5;
  ASSERT_EQ(Init("merged", 0, &record), VX_SUCCESS);
  EXPECT_EQ(g_limits.limits.MAX_CONNECTIONS, 5u);
  EXPECT_EQ(g_limits.limits.RESERVED_A, 64u);
  EXPECT_EQ(g_limits.limits.IO_TIMEOUT_MS, 60000);
  Shutdown();
}

TEST_F(LifecycleTest, RecordWithAWrongSizeWordIsIgnoredWhole) {
  ASSERT_EQ(VXSetAuthenticationInfo("abc", 3), VX_SUCCESS);
  for (std::uint32_t size : {0u, 291u, 293u}) {
    VXLimits record = RecordOfRightSize();
    record.size = size;
    record.limits.MAX_CONNECTIONS = 5;
    record.limits.IO_TIMEOUT_MS = 10;
    std::memset(record.limits.authBlock, 'x', sizeof record.limits.authBlock);
    ASSERT_EQ(Init("unsized", 0, &record), VX_SUCCESS);
    EXPECT_TRUE(SameRecord(g_limits, g_defaultLimits)) << "size word " << size;
    EXPECT_EQ(g_limits.limits.MAX_CONNECTIONS, 10u);
    EXPECT_EQ(std::memcmp(g_limits.limits.authBlock, "abc\0", 4), 0);  // the stored secret stays
    Shutdown();
  }
}

TEST_F(LifecycleTest, BlockOfTheRecordReplacesTheStoredSecretEvenWhenAllZero) {
  ASSERT_EQ(VXSetAuthenticationInfo("abc", 3), VX_SUCCESS);
  VXLimits record = RecordOfRightSize();
  ASSERT_EQ(Init("wiped", 0, &record), VX_SUCCESS);
  EXPECT_TRUE(BlockIsZero(g_limits.limits.authBlock));
  EXPECT_EQ(std::memcmp(g_defaultLimits.limits.authBlock, "abc\0", 4), 0);
  Shutdown();

  std::memcpy(record.limits.authBlock, "xyz", 3);
  ASSERT_EQ(Init("wiped", 0, &record), VX_SUCCESS);
  EXPECT_EQ(std::memcmp(g_limits.limits.authBlock, "xyz\0", 4), 0);
  Shutdown();
}

TEST_F(LifecycleTest, RecordGivenToARepeatedInitialiseHasNoEffect) {
  ASSERT_EQ(Init("steady", 0), VX_SUCCESS);
  const VXLimits inForce = g_limits;
  VXLimits record = RecordOfRightSize();
  record.limits.MAX_CONNECTIONS = 3;
  record.limits.IO_TIMEOUT_MS = 50;
  std::memset(record.limits.authBlock, 'q', sizeof record.limits.authBlock);
  EXPECT_EQ(Init("steady", 0, &record), VX_SUCCESS);
  EXPECT_TRUE(SameRecord(g_limits, inForce));
  EXPECT_EQ(Init("other", 0, &record), VX_ERROR_NAME_IN_USE);
  EXPECT_TRUE(SameRecord(g_limits, inForce));
  Shutdown();
  Shutdown();
  Shutdown();
}

// ---------------------------------------------------------------------------
// The TCP connection thread.

TEST_F(LifecycleTest, TakenPortIsLoggedOnceAndTheListenerComesUpWhenItIsFreed) {
  platform::Ipv4Endpoint any;  // all local addresses, the port of the kernel's choice
  platform::SocketHandle squatter = platform::CreateStreamSocket();
  ASSERT_EQ(platform::Bind(squatter, any), 0);
  ASSERT_EQ(platform::Listen(squatter, 1), 0);
  ASSERT_TRUE(platform::GetLocalEndpoint(squatter, &any));
  const int port = any.port;

  ASSERT_EQ(Init("squatted", port), VX_SUCCESS);
  VXConnectionReady();
  const std::string failure =
      "bind to:0.0.0.0:" + std::to_string(port) + " FAILED. Try to reinitialize listener";
  EXPECT_TRUE(WaitForLog(kLogCritical, failure));
  // Retries go on once a second, silently.
  EXPECT_FALSE(WaitUntil([&] { return CountLog(kLogCritical, failure) > 1; }, milliseconds(2500)));
  EXPECT_EQ(CountLogPrefix("listen for incoming connection"), 0);

  platform::CloseSocket(squatter);
  EXPECT_TRUE(WaitForLog(kLogInfo, ListeningLine(port)));
  EXPECT_EQ(CountLog(kLogCritical, failure), 1);
  Peer guest(PeerNamed("guest"));
  ASSERT_TRUE(guest.Ready());
  EXPECT_EQ(ConnectFrom(guest, port), Accepted());
  guest.Kill();
  EXPECT_TRUE(NoSessionsLeft());
  Shutdown();
}

TEST_F(LifecycleTest, PortZeroMeansNoListenerButAWorkingIdentity) {
  ASSERT_EQ(Init("zero", 0), VX_SUCCESS);
  VXConnectionReady();
  EXPECT_TRUE(WaitForLog(kLogInfo, "ConnThread Startup"));
  EXPECT_EQ(g_ownAppId, OwnAppId(0, "zero"));

  // Outgoing connections don't need the listener, and the peer learns the
  // appID with its port 0.
  Peer remote(PeerNamed("remote", testing::FreeTcpPort()));
  ASSERT_TRUE(remote.Ready());
  char appId[256] = {};
  EXPECT_EQ(VXConnect("127.0.0.1", remote.Port(), appId, sizeof appId, nullptr, 0), VX_SUCCESS);
  EXPECT_EQ(std::string(appId), remote.AppId());
  EXPECT_NE(remote.Expect("connected " + g_ownAppId + " "), "");
  remote.Kill();
  EXPECT_TRUE(NoSessionsLeft());

  Shutdown();  // the thread ended long ago; the join finds it done
  EXPECT_EQ(CountLog(kLogInfo, "ConnThread Startup"), 1);
  EXPECT_EQ(CountLog(kLogInfo, "ConnectionThread. Shutdown"), 0);
  EXPECT_EQ(CountLogPrefix("listen for incoming connection"), 0);
  EXPECT_EQ(CountLogPrefix("bind to:"), 0);
}

TEST_F(LifecycleTest, ConnectionLimitLetsOneMoreInAndRefusesTheNext) {
  VXLimits record = RecordOfRightSize();
  record.limits.MAX_CONNECTIONS = 1;
  VXSetConnectListener(RecordConnect);
  int port = InitListening("crowded", &record);
  ASSERT_EQ(g_limits.limits.MAX_CONNECTIONS, 1u);

  Peer first(PeerNamed("first")), second(PeerNamed("second")), third(PeerNamed("third"));
  ASSERT_TRUE(first.Ready() && second.Ready() && third.Ready());
  EXPECT_EQ(ConnectFrom(first, port), Accepted());
  EXPECT_EQ(ConnectFrom(second, port), Accepted());           // the limit is strictly greater
  EXPECT_EQ(ConnectFrom(third, port), "connect-result -1 ");  // closed before the first byte
  EXPECT_EQ(CountLog(kLogCritical,
                     "ConnectionThread. Connection limit reached. Closing connection. "
                     "g_applications.size()=2. limits.MAX_CONNECTIONS = 1"),
            1);
  EXPECT_EQ(g_applications.Size(), 2u);

  first.Kill();
  second.Kill();
  EXPECT_TRUE(NoSessionsLeft());
  EXPECT_EQ(ConnectCount(), 2u);  // no listener call for the refused one
  Shutdown();
}

TEST_F(LifecycleTest, HostNameAsBindAddressMeansAllLocalAddresses) {
  // A dotted address is stored as it is.
  ASSERT_EQ(Counted(VXInitializeEx("127.0.0.1", "dotted", 0, nullptr)), VX_SUCCESS);
  std::uint32_t loopback = Loopback(0).address;
  EXPECT_EQ(g_connThreadInfo->Address().address, loopback);
  Shutdown();

  int port = testing::FreeTcpPort();
  ASSERT_EQ(Counted(VXInitializeEx("localhost", "named", port, nullptr)), VX_SUCCESS);
  EXPECT_EQ(g_connThreadInfo->Address().address, 0u);
  EXPECT_EQ(g_connThreadInfo->Address().port, port);
  VXConnectionReady();
  EXPECT_TRUE(WaitForLog(kLogInfo, ListeningLine(port)));
  EXPECT_EQ(CountLogPrefix("bind to:"), 0);
  EXPECT_TRUE(PortAccepts(port));

  // The running listener keeps its socket; only the record changes.
  EXPECT_EQ(VXStartListeners(nullptr, "127.0.0.1", static_cast<std::uint16_t>(port)), VX_SUCCESS);
  EXPECT_EQ(g_connThreadInfo->Address().address, loopback);
  EXPECT_EQ(VXStartListeners(nullptr, nullptr, static_cast<std::uint16_t>(port)), VX_SUCCESS);
  EXPECT_EQ(g_connThreadInfo->Address().address, 0u);
  EXPECT_EQ(g_connThreadInfo->Address().port, port);
  Shutdown();
}

// ---------------------------------------------------------------------------
// The end of everything at shutdown, and a new start afterwards.

TEST_F(LifecycleTest, ShutdownEndsEverySessionAndFailsBlockedCalls) {
  const VXObjectCounters before = DEBUG_VXObjectCount();
  VXSetDisconnectListener(RecordDisconnect);
  int port = InitListening("hub");
  const std::string firstAppId = g_ownAppId;

  // One session each way: `inbound` connects here, this process connects
  // to `outbound`.
  Peer inbound(PeerNamed("inbound"));
  Peer outbound(PeerNamed("outbound", testing::FreeTcpPort()));
  ASSERT_TRUE(inbound.Ready() && outbound.Ready());
  ASSERT_EQ(ConnectFrom(inbound, port), Accepted());
  ASSERT_EQ(VXConnect("127.0.0.1", outbound.Port(), nullptr, 0, nullptr, 0), VX_SUCCESS);
  ASSERT_EQ(g_applications.Size(), 2u);

  // Slot 2 of a peer never answers. The state is shared with the calling
  // thread, so that a thread left behind on a failure touches nothing freed.
  struct BlockedCall {
    std::string target;
    testing::Signal returned;
    std::atomic<bool> nullReply{false};
  };
  std::vector<std::shared_ptr<BlockedCall>> calls;
  std::vector<std::thread> callers;
  for (Peer* peer : {&inbound, &outbound}) {
    auto call = std::make_shared<BlockedCall>();
    call->target = peer->AppId();
    calls.push_back(call);
    callers.emplace_back([call] {
      HVXPARAMLIST reply = VXCall(call->target.c_str(), 2, VX_INVALID_PARAMLIST);
      call->nullReply = reply.value == nullptr;
      VXCloseHandle(reply);
      call->returned.Raise();
    });
    EXPECT_NE(peer->Expect("blocking"), "") << call->target;
  }

  Shutdown();
  // Both readers were joined: each had ended and told the application
  // before the shutdown returned, whichever thread let go of the registry
  // entry first.
  EXPECT_EQ(CountLog(kLogInfo, "Global shutdown: \"" + inbound.AppId() + "\" stopped"), 1);
  EXPECT_EQ(CountLog(kLogInfo, "Global shutdown: \"" + outbound.AppId() + "\" stopped"), 1);
  EXPECT_EQ(DisconnectCount(), 2u);
  EXPECT_EQ(g_applications.Size(), 0u);
  EXPECT_EQ(CountLog(kLogInfo, "ConnectionThread. Shutdown"), 1);
  EXPECT_FALSE(PortAccepts(port));
  for (std::size_t i = 0; i < calls.size(); ++i) {
    bool returned = calls[i]->returned.WaitFor(std::chrono::seconds(5));
    EXPECT_TRUE(returned) << calls[i]->target;
    EXPECT_TRUE(calls[i]->nullReply) << calls[i]->target;
    if (returned)
      callers[i].join();
    else
      callers[i].detach();  // already failed; don't hang the program
  }
  // With the callers gone nothing holds a session or a message any more:
  // no session thread is left running.
  EXPECT_EQ(DEBUG_VXObjectCount().applications, 0u);
  EXPECT_EQ(DEBUG_VXObjectCount().messages, 0u);
  EXPECT_EQ(DEBUG_VXObjectCount().paramLists, before.paramLists);

  // A fresh start at once, under another name and port; the gates are still
  // open.
  int newPort = testing::FreeTcpPort();
  ASSERT_EQ(Init("hub2", newPort), VX_SUCCESS);
  EXPECT_EQ(g_ownAppId, OwnAppId(newPort, "hub2"));
  EXPECT_NE(g_ownAppId, firstAppId);
  EXPECT_TRUE(WaitForLog(kLogInfo, ListeningLine(newPort)));
  Peer latecomer(PeerNamed("latecomer"));
  ASSERT_TRUE(latecomer.Ready());
  EXPECT_EQ(ConnectFrom(latecomer, newPort), Accepted());
  latecomer.Kill();
  EXPECT_TRUE(NoSessionsLeft());
  Shutdown();
}

// ---------------------------------------------------------------------------
// Connect and disconnect listeners.

TEST_F(LifecycleTest, ListenersDescribeTheSessionAndStopWhenCleared) {
  VXSetConnectListener(RecordConnect);
  VXSetDisconnectListener(RecordDisconnect);
  int port = InitListening("door");

  // A peer with a listener port of its own, so that the port in its appID
  // differs from the ephemeral port it connects from.
  Peer guest(PeerNamed("guest", testing::FreeTcpPort()));
  ASSERT_TRUE(guest.Ready());
  ASSERT_EQ(ConnectFrom(guest, port), Accepted());
  // The guest's own connect listener names its end of the connection.
  std::vector<std::string> guestView = Words(LineFrom(guest, "connected " + g_ownAppId + " "));
  ASSERT_EQ(guestView.size(), 7u);
  const std::string guestLocal = guestView[5];

  ASSERT_TRUE(WaitUntil([] { return ConnectCount() == 1; }));
  ConnectCall seen;
  {
    std::lock_guard<std::mutex> lock(g_listenerMutex);
    seen = g_connectCalls[0];
  }
  EXPECT_NE(seen.thread, std::this_thread::get_id());
  EXPECT_EQ(seen.local, "127.0.0.1:" + std::to_string(port));
  EXPECT_EQ(seen.remote, guestLocal);
  EXPECT_NE(seen.remote, "127.0.0.1:" + std::to_string(guest.Port()));
  EXPECT_EQ(seen.remote.rfind("127.0.0.1:", 0), 0u);
  EXPECT_EQ(seen.appId, guest.AppId());
  EXPECT_EQ(seen.host, std::string(g_hostName));
  EXPECT_EQ(seen.port, guest.Port());
  EXPECT_EQ(seen.name, "guest");

  guest.Kill();
  EXPECT_TRUE(NoSessionsLeft());  // the reader has passed its listener calls
  ASSERT_EQ(DisconnectCount(), 1u);
  DisconnectCall gone;
  {
    std::lock_guard<std::mutex> lock(g_listenerMutex);
    gone = g_disconnectCalls[0];
  }
  EXPECT_EQ(gone.appId, guest.AppId());
  EXPECT_EQ(gone.host, std::string(g_hostName));
  EXPECT_EQ(gone.port, guest.Port());
  EXPECT_EQ(gone.name, "guest");

  // Switched off: a whole session comes and goes unreported.
  VXSetConnectListener(nullptr);
  VXSetDisconnectListener(nullptr);
  Peer other(PeerNamed("other"));
  ASSERT_TRUE(other.Ready());
  ASSERT_EQ(ConnectFrom(other, port), Accepted());
  ASSERT_TRUE(WaitForLog(kLogInfo, "Application connected:" + other.AppId()));
  other.Kill();
  EXPECT_TRUE(NoSessionsLeft());
  EXPECT_EQ(CountLog(kLogInfo, "Remote disconnect: \"" + other.AppId() + "\" stopped"), 1);
  EXPECT_EQ(ConnectCount(), 1u);
  EXPECT_EQ(DisconnectCount(), 1u);
  Shutdown();
}

}  // namespace
}  // namespace vxbus
