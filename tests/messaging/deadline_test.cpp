// SPDX-License-Identifier: MIT
// Calls and notifications with a deadline, and the look inside the bus. A raw
// peer (the far end of a channel pair, written byte by byte by the test)
// answers late, never, or dies inside a reply's body; a second process holds
// a call in a slow slot and then goes on serving the same session.
#include <atomic>
#include <chrono>
#include <cstring>
#include <string>
#include <vector>

#include "bus_test_fixture.h"
#include "messaging/deadline_timer.h"
#include "raw_client.h"
#include "session/session.h"
#include "session/session_registry.h"
#include "support/channel_pair.h"
#include "support/context.h"
#include "support/log_capture.h"

namespace vxbus {
namespace testing {
namespace {

using std::chrono::milliseconds;

// The image of a list holding the int32 "id" = 7.
const Bytes kIdRecord = {7, 'i', 'd', 0, 0, 0, 0, 2, 7, 0, 0, 0};

// This process's session to a peer that the test plays by hand on the far
// end of a socket pair; the session is established without a handshake.
class RawPeer {
 public:
  explicit RawPeer(const std::string& appId) : appId_(appId), pair_(MakeSocketChannelPair()) {
    session_ = testing::NewSession();
    session_->AttachChannel(pair_.first);
    session_->StartThreads();
    session_->MarkEstablished(appId);
    session_->ReleaseThreads();
  }
  const char* AppId() const { return appId_.c_str(); }
  Session& TheSession() { return *session_; }

  // The next request frame, with an empty list: its id after checking the
  // layout (state 1, the slot, no list).
  std::uint32_t ReadCall(std::uint32_t slot) {
    Bytes frame(20);
    if (pair_.second->Read(frame.data(), 20) != 20) return 0;
    std::uint32_t words[5];
    std::memcpy(words, frame.data(), sizeof words);
    EXPECT_EQ(words[1], 1u);
    EXPECT_EQ(words[2], slot);
    EXPECT_EQ(words[3] | words[4], 0u);
    return words[0];
  }
  // A reply of the list {"id": 7}, or its first `cut` bytes and then the end.
  void Reply(std::uint32_t id, std::size_t cut = SIZE_MAX) {
    Bytes frame = Words({id, 2, static_cast<std::uint32_t>(kIdRecord.size()), 0}, kIdRecord);
    frame.resize(std::min(cut, frame.size()));
    pair_.second->Write(frame.data(), static_cast<std::uint32_t>(frame.size()));
    if (cut != SIZE_MAX) pair_.second.Reset();
  }
  bool Registered() { return testing::Context().registry.Find(AppId()).IsValid(); }

 private:
  std::string appId_;
  ChannelPair pair_;
  SessionRef session_;
};

constexpr auto Count = CountCompletion;

// Looks up field `name` of the session `appId` in `info`.
std::uint64_t SessionField(HVXPARAMLIST info, const std::string& appId, const char* name) {
  const _tag_VXDWORDARRAY sessions = VXGetHandleArray(info, "sessions");
  for (std::uint32_t i = 0; i < sessions.count; ++i) {
    HVXPARAMLIST session = VXGetHandleById(info, sessions.data[i]);
    const char* id = VXGetStringValue(session, "appId");
    if (id == nullptr || appId != id) continue;
    const _tag_VXPARAMINFO* field = VXParamInfo(session, name);
    return field && field->GetType() == PT_INT32 ? VXGetInt32Value(session, name)
                                                 : VXGetInt64Value(session, name);
  }
  return UINT64_MAX;
}

std::uint64_t LocalSessionField(const std::string& appId, const char* name) {
  HVXPARAMLIST info = VXGetBusInfo();
  const std::uint64_t value = SessionField(info, appId, name);
  VXCloseHandle(info);
  return value;
}

using DeadlineTest = BusTest;

// The peer dies inside a reply's body. Where the designed calls wait for ever
// (a plain notification's callback never runs), the ones with a deadline end
// at it: the call returns null, the notification's callback runs once, null.
// One still waiting as the session ends is completed then, not at its deadline.
TEST_F(DeadlineTest, APeerThatDiesInsideAReplyEndsOnlyTheCallsWithADeadline) {
  RawPeer callee("raw:1/dies-in-call"), notified("raw:2/dies-in-notify"),
      plain("raw:3/dies-in-plain");
  std::atomic<bool> returned{false};
  HVXPARAMLIST reply = {reinterpret_cast<void*>(1)};
  std::thread caller([&] {
    reply = VXCallWithTimeout(callee.AppId(), 5, VX_INVALID_PARAMLIST, 300);
    returned = true;
  });
  callee.Reply(callee.ReadCall(5), 16 + 5);  // the header and 5 of 12 body bytes
  ASSERT_TRUE(WaitUntil([&] { return returned.load(); }));
  caller.join();
  EXPECT_EQ(reply, VX_INVALID_PARAMLIST);

  Completions timed, untimed, ended;
  ASSERT_EQ(VXNotifyWithTimeout(notified.AppId(), 5, VX_INVALID_PARAMLIST, Count, &timed, 300),
            VX_SUCCESS);
  // Still waiting when the session ends: completed then, and off the timer.
  ASSERT_EQ(VXNotifyWithTimeout(notified.AppId(), 5, VX_INVALID_PARAMLIST, Count, &ended, 60000),
            VX_SUCCESS);
  ASSERT_EQ(VXNotify(plain.AppId(), 5, VX_INVALID_PARAMLIST, Count, &untimed), VX_SUCCESS);
  notified.Reply(notified.ReadCall(5), 20);
  plain.Reply(plain.ReadCall(5), 20);
  ASSERT_TRUE(WaitUntil([&] { return timed.calls == 1; }));
  EXPECT_EQ(timed.nullOutputs, 1);
  ASSERT_TRUE(WaitUntil([&] { return !plain.Registered() && !notified.Registered(); }));
  EXPECT_TRUE(WaitUntil([] { return DeadlineTimer::Instance().Armed() == 0; }));
  EXPECT_EQ(untimed.calls, 0);  // the designed gap stays
  EXPECT_EQ(timed.calls, 1);
  EXPECT_EQ(ended.calls, 1);
  EXPECT_EQ(ended.nullOutputs, 1);
}

// A reply after the deadline is read whole and let go: the session goes on,
// the next call on it gets its own reply, and the counts of the look inside
// are the frames' sizes.
TEST_F(DeadlineTest, ALateReplyIsDroppedWithoutEndingTheSession) {
  LogCapture log;
  RawPeer peer("raw:4/late");
  EXPECT_EQ(VXCallWithTimeout(peer.AppId(), 5, VX_INVALID_PARAMLIST, 20), VX_INVALID_PARAMLIST);
  const std::uint32_t lateCall = peer.ReadCall(5);
  EXPECT_EQ(LocalSessionField(peer.AppId(), "pendingCalls"), 1u);  // abandoned, still there
  Completions outcomes;
  ASSERT_EQ(VXNotifyWithTimeout(peer.AppId(), 6, VX_INVALID_PARAMLIST, Count, &outcomes, 20),
            VX_SUCCESS);
  const std::uint32_t lateNotify = peer.ReadCall(6);
  ASSERT_TRUE(WaitUntil([&] { return outcomes.calls == 1; }));
  peer.Reply(lateNotify);
  peer.Reply(lateCall);

  std::atomic<bool> answered{false};
  std::thread responder([&] {
    peer.Reply(peer.ReadCall(7));
    answered = true;
  });
  HVXPARAMLIST reply = VXCallWithTimeout(peer.AppId(), 7, VX_INVALID_PARAMLIST, 10000);
  responder.join();
  EXPECT_EQ(VXGetInt32Value(reply, "id"), 7u);
  VXCloseHandle(reply);
  EXPECT_EQ(outcomes.calls, 1);  // the late reply ran no second callback
  EXPECT_EQ(outcomes.nullOutputs, 1);
  EXPECT_EQ(LocalSessionField(peer.AppId(), "pendingCalls"), 0u);
  EXPECT_EQ(LocalSessionField(peer.AppId(), "framesReceived"), 3u);
  EXPECT_EQ(LocalSessionField(peer.AppId(), "bytesReceived"), 3u * (16 + kIdRecord.size()));
  // The writer counts a frame just after it went out, maybe after its reply came.
  EXPECT_TRUE(WaitUntil([&] { return LocalSessionField(peer.AppId(), "framesSent") == 3; }));
  EXPECT_EQ(LocalSessionField(peer.AppId(), "bytesSent"), 3u * 20);
  EXPECT_EQ(log.Count(8, "Remote disconnect: \"raw:4/late\" stopped"), 0);
  EXPECT_TRUE(peer.Registered());
}

// Thousands of calls and notifications given up on leave nothing once their
// replies came: no pending entry, no armed deadline, no message, no list.
TEST_F(DeadlineTest, ThousandsOfAbandonedCallsLeaveNothingOnceAnswered) {
  RawPeer peer("raw:5/slow");
  const VXObjectCounters before = DEBUG_VXObjectCount();
  constexpr int kCalls = 3000, kNotifications = 1000;
  std::vector<std::uint32_t> ids;
  std::thread reader([&] {
    for (int i = 0; i < kCalls + kNotifications; ++i)
      ids.push_back(peer.ReadCall(i < kCalls ? 5 : 6));
  });
  for (int i = 0; i < kCalls; ++i)
    ASSERT_EQ(VXCallWithTimeout(peer.AppId(), 5, VX_INVALID_PARAMLIST, 0), VX_INVALID_PARAMLIST);
  Completions outcomes;
  for (int i = 0; i < kNotifications; ++i)
    ASSERT_EQ(VXNotifyWithTimeout(peer.AppId(), 6, VX_INVALID_PARAMLIST, Count, &outcomes, 1),
              VX_SUCCESS);
  reader.join();
  ASSERT_TRUE(WaitUntil([&] { return outcomes.calls == kNotifications; }));
  EXPECT_EQ(outcomes.nullOutputs, kNotifications);
  EXPECT_EQ(LocalSessionField(peer.AppId(), "pendingCalls"),
            static_cast<std::uint64_t>(kCalls + kNotifications));
  for (std::uint32_t id : ids)
    peer.Reply(id);
  EXPECT_TRUE(WaitUntil([&] {
    const VXObjectCounters now = DEBUG_VXObjectCount();
    return LocalSessionField(peer.AppId(), "pendingCalls") == 0 &&
           now.messages == before.messages && now.paramLists == before.paramLists;
  }));
  EXPECT_EQ(DeadlineTimer::Instance().Armed(), 0u);
  EXPECT_EQ(outcomes.calls, kNotifications);
  EXPECT_TRUE(peer.Registered());
}

// The C++ side of a deadline against another process: a slow slot holds the
// call past its deadline, and the same session then serves calls as before.
// The peer's look inside, asked through the slot it serves it on, tells this
// session and its own slots.
TEST_F(DeadlineTest, ASlowSlotOfAPeerMissesTheDeadlineWithoutEndingTheSession) {
  Peer peer(TcpPeer("slow"));
  ASSERT_EQ(Connect(peer), VX_SUCCESS);
  const char* to = peer.AppId().c_str();
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(VXCallWithTimeout(to, 8, VX_INVALID_PARAMLIST, 200), VX_INVALID_PARAMLIST);
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(5));
  EXPECT_NE(peer.Expect("holding"), "");
  peer.Send("release");
  EXPECT_NE(peer.Expect("released"), "");
  HVXPARAMLIST reply = VXCallWithTimeout(to, 1, VX_INVALID_PARAMLIST, 10000);
  EXPECT_STREQ(VXGetStringValue(reply, "servedBy"), to);
  VXCloseHandle(reply);
  EXPECT_EQ(LocalSessionField(peer.AppId(), "pendingCalls"), 0u);

  peer.Send("register-signal opened");  // signals and sessions both as handle arrays
  EXPECT_NE(peer.Expect("registered opened"), "");
  peer.Send("serve-info 40");
  EXPECT_EQ(peer.Expect("serve-info-result "), "serve-info-result 0");
  HVXPARAMLIST info = VXCall(to, 40, VX_INVALID_PARAMLIST);
  const _tag_VXDWORDARRAY served = VXGetHandleArray(info, "sessions");
  ASSERT_EQ(served.count, 1u) << "the served sessions hold sessions only";
  const _tag_VXDWORDARRAY signals = VXGetHandleArray(info, "signals");
  ASSERT_EQ(signals.count, 1u);
  HVXPARAMLIST signal = VXGetHandleById(info, signals.data[0]);
  EXPECT_STREQ(VXGetStringValue(signal, "name"), "opened");  // borrowed from `info`
  EXPECT_STREQ(VXGetStringValue(info, "appId"), to);
  EXPECT_STREQ(VXGetStringValue(info, "version"), VXBUS_VERSION_STRING);
  const _tag_VXDWORDARRAY slots = VXGetInt32Array(info, "slots");
  EXPECT_EQ(std::vector<std::uint32_t>(slots.data, slots.data + slots.count),
            (std::vector<std::uint32_t>{1, 2, 3, 6, 7, 8, 40, 0xFFFFFFFEu, 0xFFFFFFFFu}));
  EXPECT_EQ(SessionField(info, testing::Context().ownAppId, "framesReceived"),
            3u);  // the three calls
  const std::uint64_t sent = SessionField(info, testing::Context().ownAppId, "framesSent");
  EXPECT_TRUE(sent == 1 || sent == 2) << sent;  // two replies, the last maybe not counted yet
  EXPECT_EQ(SessionField(info, testing::Context().ownAppId, "pendingCalls"), 0u);
  HVXPARAMLIST counters = VXGetHandleValue(info, "counters");
  EXPECT_EQ(VXGetInt32Value(counters, "applications"), 1u);
  VXCloseHandle(counters);
  VXCloseHandle(info);
  EXPECT_EQ(peer.CountLines("disconnected "), 0);
}

// The look inside this process: the signals with their subscribers, the
// session's channel and address, and a slot that serves it only on request.
TEST_F(DeadlineTest, BusInfoDescribesThisProcess) {
  Peer peer(TcpPeer("subscriber"));
  ASSERT_EQ(Connect(peer), VX_SUCCESS);
  ASSERT_EQ(VXRegisterSignal("opened"), VX_SUCCESS);
  ASSERT_EQ(VXRegisterSignal("closed"), VX_SUCCESS);
  peer.Send("subscribe " + testing::Context().ownAppId + " opened 6");
  peer.Send("subscribe " + testing::Context().ownAppId + " opened 1");
  AwaitDispatchOf(peer);

  HVXPARAMLIST info = VXGetBusInfo();
  EXPECT_STREQ(VXGetStringValue(info, "appId"), testing::Context().ownAppId.c_str());
  const _tag_VXDWORDARRAY signals = VXGetHandleArray(info, "signals");
  ASSERT_EQ(signals.count, 2u);
  HVXPARAMLIST closed = VXGetHandleById(info, signals.data[0]);
  HVXPARAMLIST opened = VXGetHandleById(info, signals.data[1]);
  EXPECT_STREQ(VXGetStringValue(closed, "name"), "closed");
  EXPECT_EQ(VXParamInfo(closed, "subscribers")->GetArraySize(), 0u);
  EXPECT_STREQ(VXGetStringValue(opened, "name"), "opened");
  const char* subscribers[3] = {};
  ASSERT_EQ(VXGetStringArray(opened, "subscribers", subscribers, 3, 0), 2u);
  EXPECT_EQ(peer.AppId(), subscribers[0]);
  EXPECT_EQ(peer.AppId(), subscribers[1]);
  const _tag_VXDWORDARRAY slots = VXGetInt32Array(opened, "slots");
  EXPECT_EQ(std::vector<std::uint32_t>(slots.data, slots.data + slots.count),
            (std::vector<std::uint32_t>{6, 1}));
  const _tag_VXDWORDARRAY sessions = VXGetHandleArray(info, "sessions");
  ASSERT_EQ(sessions.count, 1u);
  HVXPARAMLIST session = VXGetHandleById(info, sessions.data[0]);
  EXPECT_STREQ(VXGetStringValue(session, "channel"), "tcp");
  EXPECT_EQ(std::string(VXGetStringValue(session, "address")),
            "127.0.0.1:" + std::to_string(peer.Port()));
  EXPECT_LT(VXGetInt64Value(session, "connectedMs"), 60000u);
  VXCloseHandle(info);
  EXPECT_EQ(VXUnregisterSlot(41), VX_ERROR_NO_SLOT);  // nothing serves it unasked
  EXPECT_EQ(VXServeBusInfo(41), VX_SUCCESS);
  EXPECT_EQ(VXUnregisterSlot(41), VX_SUCCESS);
  VXUnregisterSignal("opened");
  VXUnregisterSignal("closed");
}

}  // namespace
}  // namespace testing
}  // namespace vxbus
