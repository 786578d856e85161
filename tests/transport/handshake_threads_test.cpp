// SPDX-License-Identifier: MIT
// The caps of pending handshakes, with handshakes that wait until they are
// cut off: which one is cut, which newcomer is refused, and when.
#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <vector>

#include "support/memory_channel.h"
#include "support/wait.h"
#include "transport/handshake_threads.h"

namespace vxbus {
namespace testing {
namespace {

// A handshake that holds its thread until its channel's reads are cut off.
class StalledChannel : public MemoryChannel {
 public:
  void InterruptReads() override { cut.Raise(); }
  bool Cut() { return cut.WaitFor(std::chrono::milliseconds(0)); }
  Signal cut;
};

class Pending {
 public:
  explicit Pending(HandshakeThreads& threads) : threads_(threads) {}
  // Starts one from `source`; false when it was refused.
  bool Start(std::uint32_t source, std::int64_t deadlineMs = 60000) {
    MTObjects::MTReferencedPtr<StalledChannel> channel(new StalledChannel);
    channels_.push_back(channel);
    return threads_.Run(source, ChannelRef(channel.get()), deadlineMs,
                        [channel] { channel->cut.WaitFor(std::chrono::seconds(10)); });
  }
  bool Cut(std::size_t index) { return channels_[index]->Cut(); }

 private:
  HandshakeThreads& threads_;
  std::vector<MTObjects::MTReferencedPtr<StalledChannel>> channels_;
};

TEST(HandshakeThreads, CapsFollowTheHandleLimit) {
  EXPECT_EQ(HandshakeThreads::CapForHandleLimit(64), 16u);
  EXPECT_EQ(HandshakeThreads::CapForHandleLimit(20), HandshakeThreads::kFewestRunning);
  EXPECT_EQ(HandshakeThreads::CapForHandleLimit(1u << 20), HandshakeThreads::kMostRunning);
}

TEST(HandshakeThreads, NoSourceHoldsMoreThanItsShare) {
  HandshakeThreads threads(12);
  Pending pending(threads);
  for (int i = 0; i < 8; ++i)
    ASSERT_TRUE(pending.Start(1));  // 0-7
  EXPECT_FALSE(threads.HasRoom(1));
  EXPECT_FALSE(pending.Start(1)) << "a ninth from one source";  // 8
  for (int i = 0; i < 4; ++i)
    ASSERT_TRUE(pending.Start(2));  // 9-12: the table is full
  EXPECT_TRUE(threads.HasRoom(3));
  EXPECT_FALSE(pending.Cut(0)) << "HasRoom changes nothing";

  EXPECT_TRUE(pending.Start(3));  // 13
  EXPECT_TRUE(pending.Cut(0)) << "the oldest of the source that holds the most";
  EXPECT_FALSE(pending.Cut(1));
  for (std::size_t i = 9; i <= 12; ++i)
    EXPECT_FALSE(pending.Cut(i));

  // Sources 1 and 2 hold 7 and 4: room is made from source 1 until it holds
  // no more than the newcomer's source would.
  EXPECT_TRUE(pending.Start(2));  // 14: source 2 at 5, source 1 cut to 6
  EXPECT_TRUE(pending.Cut(1));
  EXPECT_FALSE(pending.Start(2)) << "6 against 6: nobody is cut for a source as large";  // 15
  EXPECT_FALSE(pending.Cut(2));
}

TEST(HandshakeThreads, NoHandshakeOutlivesItsDeadlineOrTheListener) {
  auto threads = std::make_unique<HandshakeThreads>(8);
  Pending pending(*threads);
  ASSERT_TRUE(pending.Start(1, 1));
  ASSERT_TRUE(pending.Start(1, 60000));
  EXPECT_TRUE(WaitUntil([&] { return threads->CutOffOverdue() >= 0 && pending.Cut(0); }));
  const std::int64_t next = threads->CutOffOverdue();
  EXPECT_GT(next, 50000) << "the next deadline is the other one's";
  EXPECT_FALSE(pending.Cut(1));
  threads.reset();
  EXPECT_TRUE(pending.Cut(1)) << "the listener's end cuts what is still pending";
}

}  // namespace
}  // namespace testing
}  // namespace vxbus
