// A flood of notifications from a second process at a slot that can't keep
// up: both ends stay within their queue bounds, nothing is lost while the
// session lives, and what a shutdown lets go of is counted in the log.
#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <cstdio>
#include <mutex>
#include <string>
#include <thread>

#include "bus_test_fixture.h"
#include "runtime/log.h"
#include "session/application_registry.h"
#include "session/message_queue.h"
#include "support/log_capture.h"

namespace vxbus {
namespace testing {
namespace {

constexpr std::uint32_t kSlowSlot = 31;
constexpr std::uint32_t kDispatchQueueBytes = 32768;
constexpr int kPeerSendQueueBytes = 16384;
constexpr std::uint32_t kPayloadBytes = 1000;
constexpr std::uint32_t kFloodCount = 2000;

// The slot waits at a gate, and takes a little while even when it is open.
// It notes how full the dispatch queue was each time it looked.
struct SlowSlot {
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
  std::atomic<std::uint64_t> maxQueued{0};
  std::atomic<std::uint32_t> runs{0};
};

_tag_VX_ERROR RunSlowly(HVXPARAMLIST, HVXPARAMLIST, VXSlotContext* context) {
  auto* slot = static_cast<SlowSlot*>(context->userData);
  slot->NoteQueue();
  {
    std::unique_lock<std::mutex> lock(slot->mutex);
    slot->opened.wait_for(lock, std::chrono::seconds(60), [slot] { return slot->isOpen; });
  }
  std::this_thread::sleep_for(std::chrono::microseconds(100));  // the work of a slow slot
  slot->NoteQueue();
  ++slot->runs;
  return VX_SUCCESS;
}

class FloodTest : public BusTest {
 protected:
  const VXLimits* Limits() override {
    limits_.size = sizeof limits_;
    limits_.limits.RESERVED_D = kDispatchQueueBytes;
    return &limits_;
  }
  void SetUp() override {
    VXRegisterSlot(kSlowSlot, RunSlowly, &slot_);
    BusTest::SetUp();
  }
  void TearDown() override {
    slot_.Open(true);
    BusTest::TearDown();
    VXUnregisterSlot(kSlowSlot);
  }

  // Waits until the readers have filled the dispatch queue to half its bound.
  bool DispatchQueueFills() {
    return WaitUntil([] { return g_dispatchQueue.QueuedBytes() >= kDispatchQueueBytes / 2; },
                     std::chrono::seconds(30));
  }
  static std::string FloodCommand() {
    return "notify " + g_ownAppId + " " + std::to_string(kSlowSlot) + " " +
           std::to_string(kFloodCount) + " " + std::to_string(kPayloadBytes);
  }

  VXLimits limits_{};
  SlowSlot slot_;
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
  slot_.Open(true);
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
      WaitUntil([this] { return slot_.runs.load() == kFloodCount; }, std::chrono::seconds(60)));
  EXPECT_LE(slot_.maxQueued.load(), kDispatchQueueBytes);

  // Shut again and flooded: the shutdown ends the session under the waiting
  // reader and the peer's waiting notification, and the slot lets the
  // dispatch thread go only once no session is left, so the backlog stays.
  slot_.Open(false);
  peer.Send(FloodCommand());
  ASSERT_TRUE(DispatchQueueFills());
  std::thread opener([this] {
    WaitUntil([] { return g_shuttingDown.load() && g_applications.Size() == 0; },
              std::chrono::seconds(60));
    slot_.Open(true);
  });
  LogCapture log(kLogWarning);
  EXPECT_EQ(VXShutdown(), VX_SUCCESS);
  opener.join();
  EXPECT_LE(slot_.maxQueued.load(), kDispatchQueueBytes);

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
