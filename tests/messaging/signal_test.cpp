// Signals between this process and peers over loopback TCP: subscriptions
// made by either side, the order of emissions, and the end of subscriptions
// with their session.
#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "bus_test_fixture.h"
#include "messaging/signal_table.h"
#include "session/application.h"
#include "support/wait.h"

namespace vxbus {
namespace testing {
namespace {

// Subscribers of one of this process's signals, or -1 if it isn't registered.
int SubscriberCount(const std::string& signal) {
  std::lock_guard<std::recursive_mutex> lock(g_signalTable.mutex);
  auto it = g_signalTable.signals.find(signal);
  return it == g_signalTable.signals.end() ? -1 : static_cast<int>(it->second.size());
}

// An emission's callback, as it was called.
struct CallbackRecord {
  std::atomic<int> calls{0};
  std::atomic<int> withNullApplication{0};
  std::atomic<int> withNullOutput{0};
  std::mutex mutex;
  std::vector<std::string> applications;
  std::vector<std::uint32_t> slots;
  std::vector<void*> inputs;
  std::vector<std::thread::id> threads;
};

_tag_VX_ERROR RecordCallback(const char* application, std::uint32_t slot, HVXPARAMLIST input,
                             HVXPARAMLIST output, void* userData) {
  auto* record = static_cast<CallbackRecord*>(userData);
  {
    std::lock_guard<std::mutex> lock(record->mutex);
    record->applications.push_back(application ? application : "(null)");
    record->slots.push_back(slot);
    record->inputs.push_back(input.value);
    record->threads.push_back(std::this_thread::get_id());
  }
  if (application == nullptr) ++record->withNullApplication;
  if (output.value == nullptr) ++record->withNullOutput;
  ++record->calls;
  return VX_SUCCESS;
}

class SignalTest : public BusTest {
 protected:
  void SetUp() override {
    BusTest::SetUp();
    VXRegisterSlot(21, RecordAt<21>, &delivered_);
    VXRegisterSlot(22, RecordAt<22>, &delivered_);
    VXRegisterSlot(23, RecordAt<23>, &delivered_);
  }
  void TearDown() override {
    VXSetDisconnectListener(nullptr);
    for (std::uint32_t slot : {21u, 22u, 23u})
      VXUnregisterSlot(slot);
    for (const char* signal : {"lonely", "news", "multi"})
      VXUnregisterSignal(signal);
    BusTest::TearDown();
  }

  // The peer emits `signal`; on return this process has run every delivery.
  static void EmitAt(Peer& peer, const std::string& signal) {
    peer.Send("emit " + signal);
    EXPECT_EQ(peer.Expect("emit-result "), "emit-result 0");
    AwaitDispatchOf(peer);
  }

  // Starts a peer that owns `signal`, and connects to it.
  static std::unique_ptr<Peer> SignalOwner(const std::string& name, const std::string& signal,
                                           std::string* appId) {
    auto peer = std::make_unique<Peer>(TcpPeer(name));
    if (!peer->Ready()) return peer;
    peer->Send("register-signal " + signal);
    peer->Expect("registered ");
    *appId = ConnectTcp(*peer);
    return peer;
  }

  DeliveryLog delivered_;
};

TEST_F(SignalTest, EmissionWithoutSubscribersCallsBackAtOnceOnTheEmittingThread) {
  ASSERT_EQ(VXRegisterSignal("lonely"), VX_SUCCESS);
  HVXPARAMLIST list = VXCreateParamList();
  VXSetInt32Value(list, "k", 5);
  CallbackRecord record;
  EXPECT_EQ(VXEmit("lonely", list, RecordCallback, &record), VX_SUCCESS);
  // Already done when VXEmit returns: it ran here, not on a library thread.
  ASSERT_EQ(record.calls, 1);
  EXPECT_EQ(record.withNullApplication, 1);
  EXPECT_EQ(record.withNullOutput, 1);
  EXPECT_EQ(record.slots[0], 0u);
  EXPECT_EQ(record.inputs[0], list.value);
  EXPECT_EQ(record.threads[0], std::this_thread::get_id());

  EXPECT_EQ(VXEmit("lonely", list, nullptr, nullptr), VX_SUCCESS);

  // The flow variant marks the list before it goes the same way.
  EXPECT_EQ(VXEmitWithFlow(42, "lonely", list, RecordCallback, &record), VX_SUCCESS);
  EXPECT_EQ(record.calls, 2);
  EXPECT_EQ(VXGetInt32Value(list, "...FlowID"), 42u);
  VXCloseHandle(list);
}

TEST_F(SignalTest, UnknownSignalsGiveMinusFourAndNoCallback) {
  CallbackRecord record;
  EXPECT_EQ(VXEmit("never-registered", VX_INVALID_PARAMLIST, RecordCallback, &record),
            VX_ERROR_NO_SIGNAL);
  EXPECT_EQ(VXEmitWithFlow(1, "never-registered", VX_INVALID_PARAMLIST, RecordCallback, &record),
            VX_ERROR_NO_SIGNAL);
  EXPECT_EQ(VXEmit(nullptr, VX_INVALID_PARAMLIST, RecordCallback, &record), VX_ERROR_NO_SIGNAL);
  EXPECT_EQ(record.calls, 0);

  ASSERT_EQ(VXRegisterSignal("lonely"), VX_SUCCESS);
  EXPECT_EQ(VXUnregisterSignal("lonely"), VX_SUCCESS);
  EXPECT_EQ(VXUnregisterSignal("lonely"), VX_ERROR_NO_SIGNAL);
  EXPECT_EQ(VXUnregisterSignal(nullptr), VX_ERROR_NO_SIGNAL);
  EXPECT_EQ(VXRegisterSignal(nullptr), VX_ERROR_FAILED);
  EXPECT_EQ(VXEmit("lonely", VX_INVALID_PARAMLIST, RecordCallback, &record), VX_ERROR_NO_SIGNAL);
  // Names differ by case and by length, byte for byte.
  ASSERT_EQ(VXRegisterSignal("news"), VX_SUCCESS);
  EXPECT_EQ(VXEmit("News", VX_INVALID_PARAMLIST, nullptr, nullptr), VX_ERROR_NO_SIGNAL);
  EXPECT_EQ(VXEmit("news ", VX_INVALID_PARAMLIST, nullptr, nullptr), VX_ERROR_NO_SIGNAL);
  EXPECT_EQ(record.calls, 0);
}

TEST_F(SignalTest, RegisteringSeveralReadsExactlyTheGivenRecords) {
  EXPECT_EQ(VXRegisterSignals(nullptr, 0), VX_SUCCESS);
  EXPECT_EQ(VXRegisterSignals(nullptr, -1), VX_SUCCESS);
  const _tag_SIGNAL_DESCRIPTION signals[] = {{"lonely"}, {"news"}, {"multi"}};
  EXPECT_EQ(VXRegisterSignals(signals, 2), VX_SUCCESS);
  EXPECT_EQ(SubscriberCount("lonely"), 0);
  EXPECT_EQ(SubscriberCount("news"), 0);
  EXPECT_EQ(SubscriberCount("multi"), -1);
}

TEST_F(SignalTest, EmissionReachesOurSlotsInTheOrderTheirConnectsWereHandled) {
  std::string owner;
  auto peer = SignalOwner("owner", "tick", &owner);
  ASSERT_FALSE(owner.empty());
  EXPECT_EQ(VXConnectSignal(owner.c_str(), "tick", 22), VX_SUCCESS);
  EXPECT_EQ(VXConnectSignal(owner.c_str(), "tick", 21), VX_SUCCESS);
  EXPECT_EQ(VXConnectSignal(owner.c_str(), "tick", 23), VX_SUCCESS);
  AwaitDispatchAt(owner);  // the connects are one-way: wait until the owner ran them
  EmitAt(*peer, "tick");

  EXPECT_EQ(delivered_.Slots(), (std::vector<std::uint32_t>{22, 21, 23}));
  for (const Delivery& d : delivered_.Snapshot()) {
    EXPECT_EQ(d.sender, owner);
    EXPECT_EQ(d.signal, "tick");
    EXPECT_FALSE(d.hasOutput) << "an emission without a callback is one-way";
  }
  peer->Kill();
}

TEST_F(SignalTest, SameSlotTwiceRunsTwiceAndOneDisconnectLeavesOne) {
  std::string owner;
  auto peer = SignalOwner("owner", "tick", &owner);
  ASSERT_FALSE(owner.empty());
  VXConnectSignal(owner.c_str(), "tick", 21);
  VXConnectSignal(owner.c_str(), "tick", 21);
  AwaitDispatchAt(owner);
  EmitAt(*peer, "tick");
  EXPECT_EQ(delivered_.Size(), 2u);

  // The disconnect waits for the owner, so no barrier is needed after it.
  EXPECT_EQ(VXDisconnectSignal(owner.c_str(), "tick", 21), VX_SUCCESS);
  EmitAt(*peer, "tick");
  EXPECT_EQ(delivered_.Size(), 3u);

  EXPECT_EQ(VXDisconnectSignal(owner.c_str(), "tick", 21), VX_SUCCESS);
  EXPECT_EQ(VXDisconnectSignal(owner.c_str(), "tick", 21), VX_SUCCESS);  // nothing left to remove
  EmitAt(*peer, "tick");
  EXPECT_EQ(delivered_.Size(), 3u);
  peer->Kill();
}

TEST_F(SignalTest, ConnectFollowedAtOnceByDisconnectKeepsTheirOrder) {
  std::string owner;
  auto peer = SignalOwner("owner", "tick", &owner);
  ASSERT_FALSE(owner.empty());
  for (int round = 0; round < 20; ++round) {
    VXConnectSignal(owner.c_str(), "tick", 21);
    VXDisconnectSignal(owner.c_str(), "tick", 21);
  }
  // Requests for a signal the owner doesn't have are dropped without a word.
  EXPECT_EQ(VXConnectSignal(owner.c_str(), "no-such-signal", 22), VX_SUCCESS);
  EXPECT_EQ(VXDisconnectSignal(owner.c_str(), "no-such-signal", 22), VX_SUCCESS);
  EXPECT_EQ(VXConnectSignal(owner.c_str(), nullptr, 22), VX_SUCCESS);
  EXPECT_EQ(VXDisconnectSignal(owner.c_str(), nullptr, 22), VX_SUCCESS);
  EXPECT_EQ(VXConnectSignal("nobody:1/none", "tick", 22), VX_SUCCESS);
  EXPECT_EQ(VXDisconnectSignal("nobody:1/none", "tick", 22), VX_SUCCESS);
  VXConnectSignal(owner.c_str(), "tick", 23);
  AwaitDispatchAt(owner);
  peer->Send("register-signal no-such-signal");
  peer->Expect("registered ");

  EmitAt(*peer, "tick");
  EmitAt(*peer, "no-such-signal");
  EXPECT_EQ(delivered_.Slots(), std::vector<std::uint32_t>{23});
  peer->Kill();
}

TEST_F(SignalTest, EmissionToPeersCallsBackOncePerSubscriberOnReceivingThreads) {
  ASSERT_EQ(VXRegisterSignal("multi"), VX_SUCCESS);
  Peer first(TcpPeer("first"));
  Peer second(TcpPeer("second"));
  ASSERT_TRUE(first.Ready() && second.Ready());
  ASSERT_EQ(ConnectTcp(first), first.AppId());
  ASSERT_EQ(ConnectTcp(second), second.AppId());
  // Slot 6 of a peer prints each notification it gets.
  first.Send("subscribe " + g_ownAppId + " multi 6");
  ASSERT_NE(first.Expect("subscribed"), "");
  ASSERT_TRUE(WaitUntil([] { return SubscriberCount("multi") == 1; }));
  second.Send("subscribe " + g_ownAppId + " multi 6");
  ASSERT_NE(second.Expect("subscribed"), "");
  ASSERT_TRUE(WaitUntil([] { return SubscriberCount("multi") == 2; }));
  {
    std::lock_guard<std::recursive_mutex> lock(g_signalTable.mutex);
    const auto& subscribers = g_signalTable.signals["multi"];
    EXPECT_EQ(subscribers[0].session->name, first.AppId());
    EXPECT_EQ(subscribers[1].session->name, second.AppId());
  }

  HVXPARAMLIST list = VXCreateParamList();
  VXSetStringValue(list, "signal", "multi");
  CallbackRecord record;
  EXPECT_EQ(VXEmit("multi", list, RecordCallback, &record), VX_SUCCESS);
  const std::string expected = "notified from " + g_ownAppId + " output=list count=1";
  EXPECT_EQ(first.Expect("notified "), expected);
  EXPECT_EQ(second.Expect("notified "), expected);
  ASSERT_TRUE(WaitUntil([&record] { return record.calls == 2; }));
  {
    std::lock_guard<std::mutex> lock(record.mutex);
    std::set<std::string> applications(record.applications.begin(), record.applications.end());
    EXPECT_EQ(applications, (std::set<std::string>{first.AppId(), second.AppId()}));
    EXPECT_EQ(record.slots, (std::vector<std::uint32_t>{6, 6}));
    for (std::thread::id thread : record.threads)
      EXPECT_NE(thread, std::this_thread::get_id());
  }
  EXPECT_EQ(record.withNullOutput, 0);
  VXCloseHandle(list);
  first.Kill();
  second.Kill();
}

TEST_F(SignalTest, RegisteringASignalAgainDropsItsSubscribers) {
  ASSERT_EQ(VXRegisterSignal("news"), VX_SUCCESS);
  Peer peer(TcpPeer("reader"));
  ASSERT_TRUE(peer.Ready());
  ASSERT_EQ(ConnectTcp(peer), peer.AppId());
  peer.Send("subscribe " + g_ownAppId + " news 6");
  ASSERT_TRUE(WaitUntil([] { return SubscriberCount("news") == 1; }));

  ASSERT_EQ(VXRegisterSignal("news"), VX_SUCCESS);
  EXPECT_EQ(SubscriberCount("news"), 0);
  CallbackRecord record;
  EXPECT_EQ(VXEmit("news", VX_INVALID_PARAMLIST, RecordCallback, &record), VX_SUCCESS);
  EXPECT_EQ(record.withNullApplication, 1) << "taken as an emission without subscribers";
  AwaitDispatchAt(peer.AppId());
  peer.Send("counters");
  peer.Expect("counters ");
  EXPECT_EQ(peer.CountLines("notified "), 0);

  // The session itself goes on, and may subscribe anew.
  peer.Send("subscribe " + g_ownAppId + " news 6");
  ASSERT_TRUE(WaitUntil([] { return SubscriberCount("news") == 1; }));
  EXPECT_EQ(VXEmit("news", VX_INVALID_PARAMLIST, nullptr, nullptr), VX_SUCCESS);
  EXPECT_EQ(peer.Expect("notified "), "notified from " + g_ownAppId + " output=null count=0");
  peer.Kill();
}

// Set while the disconnect listener of SubscriptionsEndWithTheSession runs.
CallbackRecord* g_emitDuringDisconnect = nullptr;
std::atomic<int> g_subscribersDuringDisconnect{-2};
// Its last act; a Signal would still be inside its notify when the test
// that owns it goes on and destroys it.
std::atomic<bool> g_disconnectSeen{false};

void EmitFromDisconnectListener(const char*, const char*, std::int32_t, const char*) {
  g_subscribersDuringDisconnect = SubscriberCount("news");
  VXEmit("news", VX_INVALID_PARAMLIST, RecordCallback, g_emitDuringDisconnect);
  g_disconnectSeen = true;
}

TEST_F(SignalTest, SubscriptionsEndWithTheSessionBeforeTheDisconnectListenerRuns) {
  ASSERT_EQ(VXRegisterSignal("news"), VX_SUCCESS);
  ASSERT_EQ(VXRegisterSignal("multi"), VX_SUCCESS);
  // All set before the session exists, so that its reader sees it.
  CallbackRecord record;
  g_emitDuringDisconnect = &record;
  g_disconnectSeen = false;
  VXSetDisconnectListener(EmitFromDisconnectListener);

  Peer peer(TcpPeer("reader"));
  ASSERT_TRUE(peer.Ready());
  ASSERT_EQ(ConnectTcp(peer), peer.AppId());
  peer.Send("subscribe " + g_ownAppId + " news 6");
  peer.Send("subscribe " + g_ownAppId + " news 6");
  peer.Send("subscribe " + g_ownAppId + " multi 6");
  ASSERT_TRUE(
      WaitUntil([] { return SubscriberCount("news") == 2 && SubscriberCount("multi") == 1; }));
  EXPECT_EQ(VXEmit("news", VX_INVALID_PARAMLIST, nullptr, nullptr), VX_SUCCESS);
  EXPECT_NE(peer.Expect("notified "), "");
  EXPECT_NE(peer.Expect("notified "), "");

  peer.Kill();
  ASSERT_TRUE(WaitUntil([] { return g_disconnectSeen.load(); }));
  VXSetDisconnectListener(nullptr);
  EXPECT_EQ(g_subscribersDuringDisconnect, 0);
  EXPECT_EQ(record.withNullApplication, 1) << "the emission found no subscriber";
  EXPECT_EQ(SubscriberCount("multi"), 0);
}

}  // namespace
}  // namespace testing
}  // namespace vxbus
