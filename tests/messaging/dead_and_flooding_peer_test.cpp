// A peer whose work waits in a slot of this process that is held shut: a
// peer killed meanwhile ends its session at once, costs nothing afterwards and
// holds up no next peer; a flooding peer is held within both queue bounds,
// loses nothing while the session lives, and a shutdown counts what it drops.
#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "bus_test_fixture.h"
#include "runtime/log.h"
#include "session/application_registry.h"
#include "session/message_queue.h"
#include "support/log_capture.h"
#include "support/process_resources.h"

namespace vxbus {
namespace testing {
namespace {

constexpr std::uint32_t kGatedSlot = 12;

// A slot whose runs wait at a gate, and take a while even when it is open; it
// notes how full the dispatch queue was each time. The fixture opens the gate
// before it shuts down, so that a failed test does not hang.
struct SlotGate {
  static _tag_VX_ERROR Run(HVXPARAMLIST, HVXPARAMLIST, VXSlotContext* context) {
    auto* gate = static_cast<SlotGate*>(context->userData);
    gate->NoteQueue();
    ++gate->runs;
    gate->entered.Raise();
    {
      std::unique_lock<std::mutex> lock(gate->mutex);
      gate->opened.wait_for(lock, std::chrono::seconds(60), [gate] { return gate->isOpen; });
    }
    std::this_thread::sleep_for(std::chrono::microseconds(100));  // the work of a slow slot
    gate->NoteQueue();
    return VX_SUCCESS;
  }
  void Open(bool open) {
    std::lock_guard<std::mutex> lock(mutex);
    isOpen = open;
    opened.notify_all();
  }
  // Only the dispatch thread writes the maximum; the test reads it.
  void NoteQueue() { maxQueued = std::max(maxQueued.load(), g_dispatchQueue.QueuedBytes()); }

  std::mutex mutex;
  std::condition_variable opened;
  bool isOpen = false;
  Signal entered;
  std::atomic<std::uint32_t> runs{0};
  std::atomic<std::uint64_t> maxQueued{0};
};

class GatedSlotTest : public BusTest {
 protected:
  void SetUp() override {
    VXRegisterSlot(kGatedSlot, SlotGate::Run, &gate_);
    BusTest::SetUp();
  }
  void TearDown() override {
    gate_.Open(true);
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

using DeadPeerTest = GatedSlotTest;

bool SameCounts(const VXObjectCounters& a, const VXObjectCounters& b) {
  return a.applications == b.applications && a.messages == b.messages &&
         a.paramLists == b.paramLists;
}

TEST_F(DeadPeerTest, PeerKilledMidCallLeavesNothingAndTheNextPeerIsServedAtOnce) {
  Peer doomed(TcpPeer("doomed")), next(TcpPeer("next"));
  ASSERT_TRUE(doomed.Ready() && next.Ready());
  const VXObjectCounters start = DEBUG_VXObjectCount();
  ASSERT_EQ(Connect(doomed), VX_SUCCESS);

  // Calls and notifications wait here on a peer slot that never answers, while
  // the peer's one-way requests wait in the gated slot. Each call ends with
  // nothing: a null handle when torn down with the session, or the empty list
  // it was made with when its write fails as the peer dies; so do notifications.
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
  gate_.Open(true);
  for (auto& caller : callers)
    caller.join();
  EXPECT_EQ(emptyReplies, kCalls);

  // The requests of the dead peer behind the running one are not run, so
  // the next peer's first call is answered at once.
  ASSERT_EQ(Connect(next), VX_SUCCESS);
  next.Send("call " + g_ownAppId + " " + std::to_string(kBarrierSlot));
  EXPECT_EQ(next.Expect("call-result ", std::chrono::seconds(10)), "call-result list tester");
  EXPECT_EQ(gate_.runs, 1u);

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
  EXPECT_TRUE(threads < 0 || WaitUntil([&] { return CountThreads() == threads; }));
  EXPECT_TRUE(descriptors < 0 || WaitUntil([&] { return CountOpenDescriptors() == descriptors; }));
  EXPECT_EQ(DEBUG_VXObjectCount().applications, start.applications + 1);

  // The reply goes into a session with no thread left: it is let go, and so
  // are the calls queued behind it, unrun.
  gate_.Open(true);
  EXPECT_TRUE(WaitUntil([&] { return SameCounts(DEBUG_VXObjectCount(), start); }));
  EXPECT_EQ(gate_.runs, 1u);

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

constexpr std::uint32_t kDispatchQueueBytes = 32768;
constexpr int kPeerSendQueueBytes = 16384;
constexpr std::uint32_t kPayloadBytes = 1000;
constexpr std::uint32_t kFloodCount = 2000;

class FloodTest : public GatedSlotTest {
 protected:
  const VXLimits* Limits() override {
    limits_.size = sizeof limits_;
    limits_.limits.RESERVED_D = kDispatchQueueBytes;
    return &limits_;
  }
  // Until the readers have filled the dispatch queue to half its bound.
  bool DispatchQueueFills() {
    return WaitUntil([] { return g_dispatchQueue.QueuedBytes() >= kDispatchQueueBytes / 2; },
                     std::chrono::seconds(30));
  }
  static std::string FloodCommand() {
    return "notify " + g_ownAppId + " " + std::to_string(kGatedSlot) + " " +
           std::to_string(kFloodCount) + " " + std::to_string(kPayloadBytes);
  }

  VXLimits limits_{};
};

TEST_F(FloodTest, BothQueuesStayBoundedAndShutdownCountsWhatItDrops) {
  PeerOptions options = TcpPeer("flooder");
  options.sendQueueBytes = kPeerSendQueueBytes;
  Peer peer(options);
  ASSERT_TRUE(peer.Ready());
  ASSERT_EQ(Connect(peer), VX_SUCCESS);

  // While the slot is shut, the reader stops at the bound and the peer's
  // notifications wait for room; once it opens, every one arrives.
  peer.Send(FloodCommand());
  ASSERT_TRUE(DispatchQueueFills());
  gate_.Open(true);
  const std::string result = peer.Expect("notify-result ", std::chrono::seconds(60));
  unsigned sent = 0, full = 0, gone = 0, maxLive = 0;
  ASSERT_EQ(std::sscanf(result.c_str(), "notify-result sent=%u full=%u gone=%u maxLive=%u", &sent,
                        &full, &gone, &maxLive),
            4)
      << result;
  EXPECT_EQ(sent, kFloodCount);
  EXPECT_EQ(full + gone, 0u);
  // Its send queue, the frame being written and the one just made.
  EXPECT_LE(maxLive, kPeerSendQueueBytes / kPayloadBytes + 4);
  EXPECT_TRUE(
      WaitUntil([this] { return gate_.runs.load() == kFloodCount; }, std::chrono::seconds(60)));
  EXPECT_LE(gate_.maxQueued.load(), kDispatchQueueBytes);

  // Shut again and flooded: the shutdown ends the session under the waiting
  // reader and the peer's waiting notification, and the slot lets the
  // dispatch thread go only once no session is left, so the backlog stays.
  gate_.Open(false);
  peer.Send(FloodCommand());
  ASSERT_TRUE(DispatchQueueFills());
  std::thread opener([this] {
    WaitUntil([] { return g_shuttingDown.load() && g_applications.Size() == 0; },
              std::chrono::seconds(60));
    gate_.Open(true);
  });
  LogCapture log(kLogWarning);
  EXPECT_EQ(VXShutdown(), VX_SUCCESS);
  opener.join();
  EXPECT_LE(gate_.maxQueued.load(), kDispatchQueueBytes);

  int dropLines = 0;
  unsigned long long messages = 0, bytes = 0;
  for (const LogCapture::Line& line : log.Lines())
    if (std::sscanf(line.second.c_str(), "Shutdown dropped %llu queued messages (%llu bytes)",
                    &messages, &bytes) == 2)
      ++dropLines;
  EXPECT_EQ(dropLines, 1);
  EXPECT_GE(messages, 1u);
  EXPECT_GE(bytes, messages * (VXMessageQueue::kMessageOverheadBytes + kPayloadBytes));
  EXPECT_EQ(g_dispatchQueue.QueuedBytes(), 0u);
  // The peer's flood ends too: its waiting notification saw the session go.
  EXPECT_NE(peer.Expect("notify-result ", std::chrono::seconds(30)), "");
}

}  // namespace
}  // namespace testing
}  // namespace vxbus
