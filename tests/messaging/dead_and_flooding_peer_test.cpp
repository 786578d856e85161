// SPDX-License-Identifier: MIT
// Peers whose work waits in a slot of this process that is held shut: killed
// meanwhile, or flooding it; and a receiver flooded from this process.
#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <cstdio>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "bus_test_fixture.h"
#include "runtime/log.h"
#include "session/message.h"
#include "session/message_queue.h"
#include "session/session_registry.h"
#include "support/context.h"
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
    std::this_thread::sleep_for(gate->work);  // the work of a slow slot
    gate->NoteQueue();
    return VX_SUCCESS;
  }
  // Notes how many runs came before it.
  static _tag_VX_ERROR Mark(HVXPARAMLIST, HVXPARAMLIST output, VXSlotContext* context) {
    auto* gate = static_cast<SlotGate*>(context->userData);
    gate->runsAtMark = gate->runs.load();
    VXSetStringValue(output, "servedBy", "tester");
    return VX_SUCCESS;
  }
  void Open(bool open) {
    std::lock_guard<std::mutex> lock(mutex);
    isOpen = open;
    opened.notify_all();
  }
  // Only the dispatch thread writes the maxima and the arrival; the test reads them.
  void NoteQueue() {
    maxQueued = std::max(maxQueued.load(), testing::Context().dispatchQueue.QueuedBytes());
    for (const SessionRef& session : testing::Context().registry.Sessions()) {
      maxShare = std::max(maxShare.load(), session->DispatchShare().Held());
      if (session.get() == watched.load() && session->DispatchShare().Held() > 0 &&
          runsAtArrival.load() == UINT32_MAX)
        runsAtArrival = runs.load();
    }
  }

  std::mutex mutex;
  std::condition_variable opened;
  bool isOpen = false;
  Signal entered;
  std::chrono::microseconds work{100};
  std::atomic<std::uint32_t> runs{0}, runsAtMark{0}, runsAtArrival{UINT32_MAX};
  std::atomic<const Session*> watched{nullptr};  // whose first queued request is noted
  std::atomic<std::uint64_t> maxQueued{0}, maxShare{0};
};

constexpr std::uint32_t kMarkSlot = 13;

class GatedSlotTest : public BusTest {
 protected:
  void SetUp() override {
    VXRegisterSlot(kGatedSlot, SlotGate::Run, &gate_);
    VXRegisterSlot(kMarkSlot, SlotGate::Mark, &gate_);
    BusTest::SetUp();
  }
  void TearDown() override {
    gate_.Open(true);
    BusTest::TearDown();
    VXUnregisterSlot(kGatedSlot);
    VXUnregisterSlot(kMarkSlot);
  }

  // `count` requests of the peer to the gated slot, the first of them running
  // and held there, and all of them read off the socket.
  void HoldPeerInGatedSlot(Peer& peer, int count, bool wantReplies) {
    const std::uint32_t messagesBefore = DEBUG_VXObjectCount().messages;
    peer.Send("notify " + testing::Context().ownAppId + " " + std::to_string(kGatedSlot) + " " +
              std::to_string(count) + " 0" + (wantReplies ? " reply" : ""));
    ASSERT_TRUE(gate_.entered.WaitFor());
    ASSERT_TRUE(WaitUntil([&] {
      return DEBUG_VXObjectCount().messages >= messagesBefore + static_cast<std::uint32_t>(count);
    }));
  }

  SlotGate gate_;
};

using DeadPeerTest = GatedSlotTest;

bool SameCounts(const VXObjectCounters& a, const VXObjectCounters& b) {
  return a.applications == b.applications && a.messages == b.messages &&
         a.paramLists == b.paramLists;
}

TEST_F(DeadPeerTest, APeerKilledMidCallHoldsUpNoNextPeer) {
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
  ASSERT_TRUE(WaitForSessionEnd(doomed.AppId()));
  EXPECT_EQ(VXNotify(doomed.AppId().c_str(), 1, VX_INVALID_PARAMLIST, nullptr, nullptr),
            VX_ERROR_NO_APPLICATION);
  gate_.Open(true);
  for (auto& caller : callers)
    caller.join();
  EXPECT_EQ(emptyReplies, kCalls);

  // The requests of the dead peer behind the running one are not run, so
  // the next peer's first call is answered at once.
  ASSERT_EQ(Connect(next), VX_SUCCESS);
  next.Send("call " + testing::Context().ownAppId + " " + std::to_string(kBarrierSlot));
  EXPECT_EQ(next.Expect("call-result ", std::chrono::seconds(10)), "call-result list tester");
  EXPECT_EQ(gate_.runs, 1u);

  VXObjectCounters withNext = start;
  ++withNext.applications;
  EXPECT_TRUE(WaitUntil([&] { return SameCounts(DEBUG_VXObjectCount(), withNext); }));
  // With no message left no completion can come: each came once, with nothing.
  EXPECT_EQ(done_.calls, kNotifications);
  EXPECT_EQ(done_.nullOutputs + done_.emptyOutputs, kNotifications);
}

TEST_F(DeadPeerTest, APeerKilledInsideItsSlotHasItsQueuedWorkDropped) {
  LogCapture log(kLogWarning);
  Peer doomed(TcpPeer("doomed"));
  ASSERT_TRUE(doomed.Ready());
  const VXObjectCounters start = DEBUG_VXObjectCount();
  const int descriptors = CountOpenDescriptors(), threads = CountThreads();
  ASSERT_EQ(Connect(doomed), VX_SUCCESS);

  constexpr int kCalls = 5;  // each wants a reply
  HoldPeerInGatedSlot(doomed, kCalls, true);
  doomed.Kill();
  ASSERT_TRUE(WaitForSessionEnd(doomed.AppId()));
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

// A session's share of the dispatch queue is an eighth of it.
constexpr std::uint32_t kShareBytes = 32768;
constexpr std::uint32_t kDispatchQueueBytes = 8 * kShareBytes;
constexpr int kPeerSendQueueBytes = 16384;
constexpr std::uint32_t kPayloadBytes = 1000;
constexpr std::uint32_t kFloodCount = 2000;

// The peer's command for `count` one-way requests of `bytes` each to `slot` here.
std::string FloodCommand(std::uint32_t slot = kGatedSlot, std::uint32_t count = kFloodCount,
                         std::uint32_t bytes = kPayloadBytes) {
  return "notify " + testing::Context().ownAppId + " " + std::to_string(slot) + " " +
         std::to_string(count) + " " + std::to_string(bytes);
}

class FloodTest : public GatedSlotTest {
 protected:
  const VXLimits* Limits() override {
    limits_.size = sizeof limits_;
    limits_.limits.RESERVED_D = kDispatchQueueBytes;
    return &limits_;
  }
  // Until the peer's reader has filled its share to half its bound.
  static bool ShareFills(const Peer& peer, std::uint64_t share = kShareBytes) {
    return WaitUntil(
        [&] {
          SessionRef session = testing::Context().registry.Find(peer.AppId().c_str());
          return session && session->DispatchShare().Held() >= share / 2;
        },
        std::chrono::seconds(30));
  }
  VXLimits limits_{};
};

TEST_F(FloodTest, AFloodIsHeldWithinBothQueueBoundsToTheEnd) {
  PeerOptions options = TcpPeer("flooder");
  options.sendQueueBytes = kPeerSendQueueBytes;
  Peer peer(options);
  ASSERT_EQ(Connect(peer), VX_SUCCESS);

  // While the slot is shut, the reader stops at the bound and the peer's
  // notifications wait for room; once it opens, every one arrives.
  peer.Send(FloodCommand());
  ASSERT_TRUE(ShareFills(peer));
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
  EXPECT_LE(gate_.maxShare.load(), kShareBytes);

  // Shut again and flooded: the shutdown ends the session under the waiting
  // reader and the peer's waiting notification, and the slot lets the
  // dispatch thread go only once no session is left, so the backlog stays.
  gate_.Open(false);
  peer.Send(FloodCommand());
  ASSERT_TRUE(ShareFills(peer));
  // Held in the slot before the shutdown starts, or the dispatch thread may
  // take the backlog as an ended session's instead.
  ASSERT_TRUE(WaitUntil([this] { return gate_.runs.load() > kFloodCount; }));
  std::thread opener([this] {
    WaitUntil(
        [] {
          return testing::Context().shuttingDown.load() && testing::Context().registry.Size() == 0;
        },
        std::chrono::seconds(60));
    gate_.Open(true);
  });
  LogCapture log(kLogWarning);
  EXPECT_EQ(VXShutdown(), VX_SUCCESS);
  opener.join();
  EXPECT_LE(gate_.maxShare.load(), kShareBytes);

  int dropLines = 0;
  unsigned long long messages = 0, bytes = 0;
  for (const LogCapture::Line& line : log.Lines())
    if (std::sscanf(line.second.c_str(), "Shutdown dropped %llu queued messages (%llu bytes)",
                    &messages, &bytes) == 2)
      ++dropLines;
  EXPECT_EQ(dropLines, 1);
  EXPECT_GE(messages, 1u);
  EXPECT_GE(bytes, messages * (sizeof(Message) + kPayloadBytes));
  EXPECT_EQ(testing::Context().dispatchQueue.QueuedBytes(), 0u);
  // The peer's flood ends too: its waiting notification saw the session go.
  EXPECT_NE(peer.Expect("notify-result ", std::chrono::seconds(30)), "");
}

// Sessions take turns at the slots: a peer that queued 2,000 requests to a
// slot of 5 ms holds up an honest peer's call for a run or two of it, not for
// the ten seconds of its whole backlog.
using FairnessTest = GatedSlotTest;

TEST_F(FairnessTest, AnHonestCallWaitsForAFewOfAFloodersSlotRunsOnly) {
  Peer flooder(TcpPeer("flooder")), honest(TcpPeer("honest"));
  ASSERT_TRUE(flooder.Ready() && honest.Ready());
  ASSERT_EQ(Connect(flooder), VX_SUCCESS);
  ASSERT_EQ(Connect(honest), VX_SUCCESS);
  gate_.work = std::chrono::milliseconds(5);
  gate_.Open(true);

  constexpr std::uint32_t kRequests = 2000;
  const std::uint32_t messagesBefore = DEBUG_VXObjectCount().messages;
  flooder.Send(FloodCommand(kGatedSlot, kRequests, 0));
  // Most of the backlog is read and waits here before the honest call comes.
  ASSERT_TRUE(
      WaitUntil([&] { return DEBUG_VXObjectCount().messages >= messagesBefore + kRequests / 2; }));
  gate_.watched = testing::Context().registry.Find(honest.AppId().c_str()).get();
  const auto start = std::chrono::steady_clock::now();
  honest.Send("call " + testing::Context().ownAppId + " " + std::to_string(kMarkSlot));
  ASSERT_EQ(honest.Expect("call-result ", std::chrono::seconds(5)), "call-result list tester");
  const auto waited = std::chrono::steady_clock::now() - start;
  // Counted from its arrival here, not from the send: the way over may be slow.
  EXPECT_LE(gate_.runsAtMark.load() - std::min(gate_.runsAtArrival.load(), gate_.runsAtMark.load()),
            3u);
  // The goal is well under 250 ms; this bound leaves room for a loaded machine.
  EXPECT_LT(waited, std::chrono::seconds(1));
  EXPECT_LT(gate_.runs.load(), kRequests / 2) << "the backlog was still there";
}

// 32 KiB of dispatch queue, 4 KiB a share: a flood of 45 KiB keeps the reader
// waiting for room while every byte of it has reached this side.
class KilledFlooderTest : public FloodTest {
 protected:
  static constexpr std::uint32_t kSmallShare = 4096;
  const VXLimits* Limits() override {
    FloodTest::Limits();
    limits_.limits.RESERVED_D = 8 * kSmallShare;
    return &limits_;
  }
};

// Its reader waits for room and so reads nothing: a killed flooder's end of
// stream must still end the session, well within a second of its arrival,
// and what it had queued is dropped unrun.
TEST_F(KilledFlooderTest, SessionEndsWhileItsReaderWaitsForRoom) {
#ifdef _WIN32
  GTEST_SKIP() << "Winsock tells the end of a stream only to a read that reaches it";
#endif
  Peer flooder(TcpPeer("flooder"));
  ASSERT_EQ(Connect(flooder), VX_SUCCESS);
  flooder.Send(FloodCommand(kGatedSlot, 45, kPayloadBytes));
  ASSERT_NE(flooder.Expect("notify-result "), "");
  ASSERT_TRUE(gate_.entered.WaitFor());
  ASSERT_TRUE(ShareFills(flooder, kSmallShare));
  // Nothing is left in the flooder's queue: all of it is on its way here.
  ASSERT_TRUE(WaitUntil([&] {
    flooder.Send("counters");
    const std::string counters = flooder.Expect("counters ");
    unsigned applications = 0, messages = 1;
    return std::sscanf(counters.c_str(), "counters %u %u", &applications, &messages) == 2 &&
           messages == 0;
  }));

  flooder.Kill();
  EXPECT_TRUE(WaitForSessionEnd(flooder.AppId(), std::chrono::seconds(3)));
  gate_.Open(true);
  EXPECT_TRUE(WaitUntil([] { return DEBUG_VXObjectCount().messages == 0; }));
  EXPECT_EQ(gate_.runs, 1u);
}

// The receiver counts what a queued request really holds: flooded with small
// notifications against a slot held shut, its resident size grows by its
// session's share of the dispatch queue and a small constant, however many
// are sent.
class ReceiverMemoryTest : public BusTest {
 protected:
  static constexpr int kReceiverQueueBytes = 128 << 20;  // a share of 16 MiB
  static constexpr long long kShare = kReceiverQueueBytes / 8;
  static constexpr long long kSlack = 2 << 20;
  const VXLimits* Limits() override {
    limits_.size = sizeof limits_;
    limits_.limits.RESERVED_E = 64 << 20;  // this side queues the whole flood at once
    return &limits_;
  }
  static long long Resident(Peer& peer) {
    peer.Send("memory");
    return std::atoll(peer.Expect("memory ").substr(7).c_str());
  }
  VXLimits limits_{};
};

TEST_F(ReceiverMemoryTest, ResidentSizeStaysWithinTheShareUnderAFlood) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
  GTEST_SKIP() << "a sanitizer's own memory hides the queue's";
#endif
  if (ResidentBytes() < 0) GTEST_SKIP() << "resident size unknown here";
  PeerOptions options = TcpPeer("receiver");
  options.dispatchQueueBytes = kReceiverQueueBytes;
  Peer receiver(options);
  ASSERT_EQ(Connect(receiver), VX_SUCCESS);
  const long long before = Resident(receiver);

  // Each small request holds a few hundred bytes, most of them not its list.
  constexpr int kFlood = 100000;
  HVXPARAMLIST list = VXCreateParamList();
  VXSetBinaryValue(list, "p", "0123456789abcdef", 16);
  for (int i = 0; i < kFlood; ++i)
    ASSERT_EQ(VXNotify(receiver.AppId().c_str(), 8, list, nullptr, nullptr), VX_SUCCESS);
  VXCloseHandle(list);
  // The receiver has stopped reading once this side's queue stops draining,
  // or holds the whole flood once it is empty.
  std::uint32_t last = 0;
  auto steadySince = std::chrono::steady_clock::now();
  ASSERT_TRUE(WaitUntil(
      [&] {
        const std::uint32_t now = DEBUG_VXObjectCount().messages;
        if (now != last) steadySince = std::chrono::steady_clock::now();
        last = now;
        return now == 0 ||
               std::chrono::steady_clock::now() - steadySince > std::chrono::milliseconds(300);
      },
      std::chrono::seconds(60)));
  const long long grown = Resident(receiver) - before;
  EXPECT_LE(grown, kShare + kSlack) << "grew by " << (grown >> 10) << " KiB";
  receiver.Send("release");
  receiver.Kill();
}

}  // namespace
}  // namespace testing
}  // namespace vxbus
