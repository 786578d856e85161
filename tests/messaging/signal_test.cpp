// Signals between this process and peers over loopback TCP: subscriptions
// made by either side, the order of emissions, and their end with the session.
#include <algorithm>
#include <atomic>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "bus_test_fixture.h"
#include "messaging/signal_table.h"

namespace vxbus {
namespace testing {
namespace {

using SignalTest = BusTest;

// Subscribers of one of this process's signals, or -1 if it isn't registered.
int SubscriberCount(const std::string& signal) {
  std::lock_guard<std::recursive_mutex> lock(g_signalTable.mutex);
  auto it = g_signalTable.signals.find(signal);
  return it == g_signalTable.signals.end() ? -1 : static_cast<int>(it->second.size());
}

TEST_F(SignalTest, NullNameAnswersZeroAndEmissionWithoutSubscribersCallsBackAtOnce) {
  // Registration always answers 0, also when there is no name to register.
  const std::size_t before = g_signalTable.signals.size();
  EXPECT_EQ(VXRegisterSignal(nullptr), VX_SUCCESS);
  EXPECT_EQ(g_signalTable.signals.size(), before);
  ASSERT_EQ(VXRegisterSignal("lonely"), VX_SUCCESS);
  EXPECT_EQ(VXEmit("lonely", VX_INVALID_PARAMLIST, CountCompletion, &done_), VX_SUCCESS);
  EXPECT_EQ(done_.calls, 1);
  EXPECT_EQ(done_.nullApplications, 1);
  EXPECT_EQ(done_.thread.load(), std::this_thread::get_id());
  EXPECT_EQ(VXUnregisterSignal("lonely"), VX_SUCCESS);
  EXPECT_EQ(VXEmit("lonely", VX_INVALID_PARAMLIST, CountCompletion, &done_), VX_ERROR_NO_SIGNAL);
  EXPECT_EQ(done_.calls, 1);
}

TEST_F(SignalTest, EmissionsFollowTheOrderInWhichTheOwnerHandledConnects) {
  Peer peer(TcpPeer("owner"));
  ASSERT_TRUE(peer.Ready());
  peer.Send("register-signal tick");
  peer.Expect("registered ");
  ASSERT_EQ(Connect(peer), VX_SUCCESS);
  const char* owner = peer.AppId().c_str();
  VXConnectSignal(owner, "tick", 22);
  VXConnectSignal(owner, "tick", 21);
  // One-way requests sent back to back must not overtake each other.
  for (int round = 0; round < 20; ++round) {
    VXConnectSignal(owner, "tick", 24);
    VXDisconnectSignal(owner, "tick", 24);
  }
  VXConnectSignal(owner, "tick", 23);
  VXConnectSignal(owner, "tick", 21);  // the same slot twice runs twice
  AwaitDispatchAt(owner);
  EmitAt(peer, "tick");
  const std::string from = " " + peer.AppId() + " tick";
  std::vector<std::string> runs = {"22" + from, "21" + from, "23" + from, "21" + from};
  EXPECT_EQ(delivered_.Runs(), runs);

  EXPECT_EQ(VXDisconnectSignal(owner, "tick", 21), VX_SUCCESS);  // waits for the owner
  EmitAt(peer, "tick");
  runs = delivered_.Runs();
  ASSERT_EQ(runs.size(), 7u);
  EXPECT_EQ(std::count(runs.begin() + 4, runs.end(), "21" + from), 1);
}

// What the disconnect listener saw of the table.
std::atomic<int> g_newsSubscribersThen{-2}, g_multiSubscribersThen{-2};

void NoteSubscribers(const char*, const char*, std::int32_t, const char*) {
  g_newsSubscribersThen = SubscriberCount("news");
  g_multiSubscribersThen = SubscriberCount("multi");
}

TEST_F(SignalTest, SubscriptionsEndWithTheSessionBeforeTheDisconnectListenerRuns) {
  ASSERT_EQ(VXRegisterSignal("news"), VX_SUCCESS);
  ASSERT_EQ(VXRegisterSignal("multi"), VX_SUCCESS);
  VXSetDisconnectListener(NoteSubscribers);
  Peer peer(TcpPeer("reader"));
  ASSERT_TRUE(peer.Ready());
  ASSERT_EQ(Connect(peer), VX_SUCCESS);
  for (const char* signal : {"news", "news", "multi"})
    peer.Send("subscribe " + g_ownAppId + " " + signal + " 6");
  ASSERT_TRUE(
      WaitUntil([] { return SubscriberCount("news") == 2 && SubscriberCount("multi") == 1; }));
  EXPECT_EQ(VXEmit("news", VX_INVALID_PARAMLIST, CountCompletion, &done_), VX_SUCCESS);
  EXPECT_NE(peer.Expect("notified "), "");
  EXPECT_NE(peer.Expect("notified "), "");
  EXPECT_TRUE(WaitUntil([this] { return done_.calls == 2; }));
  EXPECT_EQ(done_.nullApplications + done_.nullOutputs, 0);

  peer.Kill();
  EXPECT_TRUE(WaitUntil([] { return g_multiSubscribersThen != -2; }));
  VXSetDisconnectListener(nullptr);
  EXPECT_EQ(g_newsSubscribersThen, 0);
  EXPECT_EQ(g_multiSubscribersThen, 0);
  VXUnregisterSignal("news");
  VXUnregisterSignal("multi");
}

}  // namespace
}  // namespace testing
}  // namespace vxbus
