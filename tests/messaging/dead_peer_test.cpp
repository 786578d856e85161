// A peer killed while this process works for it, or waits for it: its
// session ends at once and costs nothing afterwards, whatever of its work is
// still on the way, and the next peer is served without waiting for it.
#include <atomic>
#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "bus_test_fixture.h"
#include "runtime/log.h"
#include "session/application_registry.h"
#include "support/log_capture.h"
#include "support/process_resources.h"

namespace vxbus {
namespace testing {
namespace {

constexpr std::uint32_t kGatedSlot = 12;

// A slot of this process that counts its runs and holds them until the test
// opens it. A run that is never let through ends by itself after a while, so
// that a fault shows as a failed expectation, not a hung suite.
struct SlotGate {
  static _tag_VX_ERROR Run(HVXPARAMLIST, HVXPARAMLIST, VXSlotContext* context) {
    auto* gate = static_cast<SlotGate*>(context->userData);
    ++gate->runs;
    gate->entered.Raise();
    gate->open.WaitFor(std::chrono::seconds(5));
    return VX_SUCCESS;
  }

  std::atomic<int> runs{0};
  Signal entered, open;
};

class DeadPeerTest : public BusTest {
 protected:
  void SetUp() override {
    BusTest::SetUp();
    VXRegisterSlot(kGatedSlot, SlotGate::Run, &gate_);
  }
  void TearDown() override {
    BusTest::TearDown();
    VXUnregisterSlot(kGatedSlot);
  }

  // `count` requests of the peer to the gated slot, the first of them running
  // and held there, and all of them read off the socket.
  void HoldPeerInGatedSlot(Peer& peer, int count, bool wantReplies) {
    const std::uint32_t messagesBefore = DEBUG_VXObjectCount().messages;
    peer.Send("notify " + g_ownAppId + " " + std::to_string(kGatedSlot) + " " +
              std::to_string(count) + " 0" + (wantReplies ? " reply" : ""));
    ASSERT_TRUE(gate_.entered.WaitFor());
    ASSERT_TRUE(WaitUntil([&] {
      return DEBUG_VXObjectCount().messages >= messagesBefore + static_cast<std::uint32_t>(count);
    }));
  }

  // The session is out of the registry once both its threads are past their
  // loops: the writer erases it after the reader's end.
  static bool WaitForSessionEnd(const Peer& peer) {
    return WaitUntil([&] { return !g_applications.Find(peer.AppId().c_str()).IsValid(); });
  }

  SlotGate gate_;
};

bool SameCounts(const VXObjectCounters& a, const VXObjectCounters& b) {
  return a.applications == b.applications && a.messages == b.messages &&
         a.paramLists == b.paramLists;
}

TEST_F(DeadPeerTest, PeerKilledMidCallLeavesNothingAndTheNextPeerIsServedAtOnce) {
  Peer doomed(TcpPeer("doomed")), next(TcpPeer("next"));
  ASSERT_TRUE(doomed.Ready() && next.Ready());
  const VXObjectCounters start = DEBUG_VXObjectCount();
  ASSERT_EQ(Connect(doomed), VX_SUCCESS);

  // This process waits in two calls and four notifications of a slot of the
  // peer that never answers, while the peer has six one-way requests here,
  // the first of them running in the gated slot. A call ends with nothing in
  // one of two ways: torn down with the session (a null handle), or, when its
  // write fails as the peer dies, through the dispatch thread with the empty
  // list it was made with; so does a notification.
  constexpr int kCalls = 2, kNotifications = 4, kRequests = 6;
  std::atomic<int> emptyReplies{0};
  std::vector<std::thread> callers;
  for (int i = 0; i < kCalls; ++i)
    callers.emplace_back([&doomed, &emptyReplies] {
      HVXPARAMLIST reply = VXCall(doomed.AppId().c_str(), 2, VX_INVALID_PARAMLIST);
      if (reply.value == nullptr || VXGetParamCount(reply) == 0) ++emptyReplies;
      VXCloseHandle(reply);
    });
  for (int i = 0; i < kNotifications; ++i)
    VXNotify(doomed.AppId().c_str(), 2, VX_INVALID_PARAMLIST, CountCompletion, &done_);
  ASSERT_NE(doomed.Expect("blocking"), "");
  HoldPeerInGatedSlot(doomed, kRequests, false);

  doomed.Kill();
  ASSERT_TRUE(WaitForSessionEnd(doomed));
  EXPECT_EQ(VXNotify(doomed.AppId().c_str(), 1, VX_INVALID_PARAMLIST, nullptr, nullptr),
            VX_ERROR_NO_APPLICATION);
  gate_.open.Raise();
  for (auto& caller : callers)
    caller.join();
  EXPECT_EQ(emptyReplies, kCalls);

  // The requests of the dead peer behind the running one are not run, so
  // the next peer's first call is answered at once.
  ASSERT_EQ(Connect(next), VX_SUCCESS);
  next.Send("call " + g_ownAppId + " " + std::to_string(kBarrierSlot));
  EXPECT_EQ(next.Expect("call-result ", std::chrono::seconds(10)), "call-result list tester");
  EXPECT_EQ(gate_.runs, 1);

  VXObjectCounters withNext = start;
  ++withNext.applications;
  EXPECT_TRUE(WaitUntil([&] { return SameCounts(DEBUG_VXObjectCount(), withNext); }));
  // With no message left no completion can come: each came once, with nothing.
  EXPECT_EQ(done_.calls, kNotifications);
  EXPECT_EQ(done_.nullOutputs + done_.emptyOutputs, kNotifications);
}

TEST_F(DeadPeerTest, PeerKilledInsideItsSlotHasItsSocketClosedAndItsRepliesAndCallsDropped) {
  LogCapture log(kLogWarning);
  Peer doomed(TcpPeer("doomed"));
  ASSERT_TRUE(doomed.Ready());
  const VXObjectCounters start = DEBUG_VXObjectCount();
  const int descriptors = CountOpenDescriptors(), threads = CountThreads();
  ASSERT_EQ(Connect(doomed), VX_SUCCESS);

  constexpr int kCalls = 5;  // each wants a reply
  HoldPeerInGatedSlot(doomed, kCalls, true);
  doomed.Kill();
  ASSERT_TRUE(WaitForSessionEnd(doomed));
  // Both session threads end and the socket is closed, though the call in
  // the slot still holds the session.
  if (threads >= 0) {
    EXPECT_TRUE(WaitUntil([&] { return CountThreads() == threads; }));
  }
  if (descriptors >= 0) {
    EXPECT_TRUE(WaitUntil([&] { return CountOpenDescriptors() == descriptors; }));
  }
  EXPECT_EQ(DEBUG_VXObjectCount().applications, start.applications + 1);

  // The reply goes into a session with no thread left: it is let go, and so
  // are the calls queued behind it, unrun.
  gate_.open.Raise();
  EXPECT_TRUE(WaitUntil([&] { return SameCounts(DEBUG_VXObjectCount(), start); }));
  EXPECT_EQ(gate_.runs, 1);

  const std::string linePrefix = "Dropped ";
  const std::string lineEnd = " messages of ended session \"" + doomed.AppId() + "\"";
  int dropped = 0;
  for (const LogCapture::Line& line : log.Lines()) {
    if (line.second.rfind(linePrefix, 0) != 0) continue;
    EXPECT_EQ(line.second.substr(line.second.find(' ', linePrefix.size())), lineEnd);
    dropped += std::stoi(line.second.substr(linePrefix.size()));
  }
  EXPECT_EQ(dropped, kCalls) << "the reply and the calls behind it";
}

}  // namespace
}  // namespace testing
}  // namespace vxbus
