// SPDX-License-Identifier: MIT
// This process and peers started as separate processes, over loopback TCP:
// handshakes, calls, notifications and signals both ways, and the holder class.
#include <algorithm>
#include <atomic>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest-spi.h>

#include "bus_test_fixture.h"
#include "messaging/signal_table.h"
#include "session/session_registry.h"

namespace vxbus {
namespace testing {
namespace {

using TwoProcessTest = BusTest;
using SignalTest = BusTest;

// The dispatch thread holds the slot table's lock across a slot function;
// this one registers another function under its own number while it runs.
constexpr std::uint32_t kSelfReplacingSlot = 25;
_tag_VX_ERROR ReplaceItself(HVXPARAMLIST, HVXPARAMLIST output, VXSlotContext*) {
  VXRegisterSlot(kSelfReplacingSlot, AnswerBarrier, nullptr);
  VXSetStringValue(output, "servedBy", "replaced");
  return VX_SUCCESS;
}

// Guards the test peer's fail-fast wait: a line that never comes fails the
// test as the peer's output ends, with the lines it did see, and the next
// wait of that peer fails at once instead of waiting out its bound again.
TEST_F(TwoProcessTest, AWaitForALineThatNeverComesFailsAtOnceWithTheLinesSeen) {
  PeerOptions options = TcpPeer("leaving");
  options.quiet = true;  // "ready" is its first line
  Peer peer(options);
  ASSERT_TRUE(peer.Ready());
  peer.Send("quit");
  const auto start = std::chrono::steady_clock::now();
  EXPECT_NONFATAL_FAILURE(peer.Expect("no such line", std::chrono::seconds(100)),
                          "before its output ended; lines seen:\n  ready ");
  EXPECT_NONFATAL_FAILURE(peer.Expect("ready ", std::chrono::seconds(100)),
                          "after an earlier line was missed");
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(50));
}

TEST_F(TwoProcessTest, AHandshakeAdmitsOneSessionPerPeerWithTheRightSecret) {
  Peer open(TcpPeer("open")), guarded(TcpPeer("guarded", "616263"));
  Peer padded(TcpPeer("padded", "61626300"));
  ASSERT_TRUE(open.Ready() && guarded.Ready() && padded.Ready());
  EXPECT_EQ(Connect(open, std::string(257, 'k')), VX_ERROR_FAILED);  // longer than the block
  std::string appId;
  EXPECT_EQ(Connect(open, "", &appId), VX_SUCCESS);
  EXPECT_EQ(appId, open.AppId());
  EXPECT_EQ(Connect(open), VX_ERROR_NAME_IN_USE);
  HVXPARAMLIST reply = VXCall(open.AppId().c_str(), 1, VX_INVALID_PARAMLIST);
  EXPECT_STREQ(VXGetStringValue(reply, "servedBy"), open.AppId().c_str());
  VXCloseHandle(reply);

  EXPECT_EQ(Connect(guarded, "abc"), VX_SUCCESS);
  EXPECT_EQ(Connect(padded, "abc"), VX_SUCCESS);  // blocks are compared zero-padded

  // A wrong secret between two peers: refused, and reported by the acceptor.
  padded.Send("connect 127.0.0.1 " + std::to_string(guarded.Port()) + " 616264");
  EXPECT_EQ(padded.Expect("connect-result ").rfind("connect-result -7", 0), 0u);
  EXPECT_NE(guarded.Expect("log 4 Stage 2: credentials failed"), "");
  EXPECT_NE(guarded.Expect("authfailed ").find(padded.AppId()), std::string::npos);
}

TEST_F(TwoProcessTest, RequestsReachTheirSlotsEveryWay) {
  Peer front(TcpPeer("front")), back(TcpPeer("back"));
  ASSERT_TRUE(front.Ready() && back.Ready());
  ASSERT_EQ(Connect(front), VX_SUCCESS);
  const char* to = front.AppId().c_str();

  HVXPARAMLIST list = VXCreateParamList(), inner = VXCreateParamList();
  VXSetStringValue(inner, "s", "hi");
  VXSetHandleValue(list, "sub", inner);
  VXCloseHandle(inner);
  HVXPARAMLIST reply = VXCall(to, 1, list);  // slot 1 echoes
  inner = VXGetHandleValue(reply, "sub");
  EXPECT_STREQ(VXGetStringValue(inner, "s"), "hi");
  VXCloseHandle(inner);
  VXCloseHandle(reply);
  AwaitDispatchOf(front);  // and the peer calls this process
  VXRegisterSlot(kSelfReplacingSlot, ReplaceItself, nullptr);
  const std::string callSelfReplacing =
      "call " + testing::Context().ownAppId + " " + std::to_string(kSelfReplacingSlot);
  front.Send(callSelfReplacing);
  EXPECT_EQ(front.Expect("call-result "), "call-result list replaced");
  front.Send(callSelfReplacing);
  EXPECT_EQ(front.Expect("call-result "), "call-result list tester");
  EXPECT_EQ(VXUnregisterSlot(kSelfReplacingSlot), VX_SUCCESS);
  EXPECT_EQ(VXUnregisterSlot(kSelfReplacingSlot), VX_ERROR_NO_SLOT);

  reply = VXCall(to, 99, list);
  ASSERT_NE(reply.value, nullptr);
  EXPECT_EQ(VXGetParamCount(reply), 0u) << "an unknown slot answers with an empty list";
  VXCloseHandle(reply);

  EXPECT_EQ(VXNotify(to, 6, list, nullptr, nullptr), VX_SUCCESS);
  EXPECT_EQ(front.Expect("notified "),
            "notified from " + testing::Context().ownAppId + " output=null count=1");
  EXPECT_EQ(VXNotify(to, 6, list, CountCompletion, &done_), VX_SUCCESS);
  EXPECT_EQ(front.Expect("notified "),
            "notified from " + testing::Context().ownAppId + " output=list count=1");

  // Slot 3 of the front peer calls slot 1 of the back peer.
  front.Send("connect 127.0.0.1 " + std::to_string(back.Port()));
  ASSERT_EQ(front.Expect("connect-result "), "connect-result 0 " + back.AppId());
  VXCloseHandle(list);  // the notification may still be reading it
  list = VXCreateParamList();
  VXSetStringValue(list, "target", back.AppId().c_str());
  reply = VXCall(to, 3, list);
  HVXPARAMLIST forwarded = VXGetHandleValue(reply, "reply");
  EXPECT_STREQ(VXGetStringValue(forwarded, "servedBy"), back.AppId().c_str());
  VXCloseHandle(forwarded);
  VXCloseHandle(reply);
  EXPECT_TRUE(WaitUntil([] { return DEBUG_VXObjectCount().messages == 0; }));
  EXPECT_EQ(done_.calls, 1);
  EXPECT_EQ(done_.nullOutputs, 0);

  // The back peer through the holder class, which cuts a long name.
  const std::string longName(300, 'n');
  EXPECT_EQ(VX::VXApplicationHolder(longName.c_str()).getName(), longName.substr(0, 255));
  VX::VXApplicationHolder holder;
  ASSERT_TRUE(holder.Connect("127.0.0.1", back.Port(), nullptr, 0));
  EXPECT_EQ(holder.getName(), back.AppId());
  reply = holder.CallWithFlow(0x80000001u, 1, list);
  EXPECT_EQ(VXParamInfo(list, "...FlowID")->GetType(), PT_INT32);
  EXPECT_EQ(VXGetInt32Value(list, "...FlowID"), 0x80000001u) << "the caller's list keeps it";
  EXPECT_EQ(VXGetInt32Value(reply, "...FlowID"), 0x80000001u) << "the peer echoed what it got";
  VXCloseHandle(reply);
  VXCloseHandle(list);

  // A temporary copy: the call through it works, and its end disconnects.
  reply = VX::VXApplicationHolder(holder).Call(1, VX_INVALID_PARAMLIST);
  EXPECT_NE(reply.value, nullptr);
  VXCloseHandle(reply);
  EXPECT_NE(back.Expect("disconnected " + testing::Context().ownAppId), "");
  EXPECT_TRUE(WaitForSessionEnd(back.AppId()));
  EXPECT_EQ(holder.Call(1, VX_INVALID_PARAMLIST).value, nullptr);
  EXPECT_EQ(holder.getName(), back.AppId()) << "the original still holds the name";
}

// Subscribers of one of this process's signals, or -1 if it isn't registered.
int SubscriberCount(const std::string& signal) {
  std::lock_guard<std::recursive_mutex> lock(testing::Context().signalTable.mutex);
  auto it = testing::Context().signalTable.signals.find(signal);
  return it == testing::Context().signalTable.signals.end() ? -1
                                                            : static_cast<int>(it->second.size());
}

TEST_F(SignalTest, ANullNameRegistersNothing) {
  const std::size_t before = testing::Context().signalTable.signals.size();
  EXPECT_EQ(VXRegisterSignal(nullptr), VX_SUCCESS);
  EXPECT_EQ(testing::Context().signalTable.signals.size(), before);
}

TEST_F(SignalTest, AnEmissionWithoutSubscribersCompletesAtOnce) {
  ASSERT_EQ(VXRegisterSignal("lonely"), VX_SUCCESS);
  EXPECT_EQ(VXEmit("lonely", VX_INVALID_PARAMLIST, CountCompletion, &done_), VX_SUCCESS);
  EXPECT_EQ(done_.calls, 1);
  EXPECT_EQ(done_.nullApplications, 1);
  EXPECT_EQ(done_.thread.load(), std::this_thread::get_id());
  EXPECT_EQ(VXUnregisterSignal("lonely"), VX_SUCCESS);
  EXPECT_EQ(VXEmit("lonely", VX_INVALID_PARAMLIST, CountCompletion, &done_), VX_ERROR_NO_SIGNAL);
  EXPECT_EQ(done_.calls, 1);
}

// What the disconnect listener saw of the table.
std::atomic<int> g_newsSubscribersThen{-2}, g_multiSubscribersThen{-2};

void NoteSubscribers(const char*, const char*, std::int32_t, const char*) {
  g_newsSubscribersThen = SubscriberCount("news");
  g_multiSubscribersThen = SubscriberCount("multi");
}

TEST_F(SignalTest, SubscriptionsRunInOrderUntilTheirSessionEnds) {
  ASSERT_EQ(VXRegisterSignal("news"), VX_SUCCESS);
  ASSERT_EQ(VXRegisterSignal("multi"), VX_SUCCESS);
  VXSetDisconnectListener(NoteSubscribers);
  Peer peer(TcpPeer("owner"));
  ASSERT_TRUE(peer.Ready());
  peer.Send("register-signal tick");
  peer.Expect("registered ");
  ASSERT_EQ(Connect(peer), VX_SUCCESS);

  // Emissions follow the order in which the owner handled the subscriptions.
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

  // The peer's subscriptions here end with its session.
  for (const char* signal : {"news", "news", "multi"})
    peer.Send("subscribe " + testing::Context().ownAppId + " " + signal + " 6");
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
