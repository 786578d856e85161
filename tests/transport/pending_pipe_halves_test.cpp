// SPDX-License-Identifier: MIT
// The "in" halves a lasting pipe listener holds: its caps, the order in which
// a client's halves pair, and their deadline.
#include "platform/pending_pipe_halves.h"

#include <gtest/gtest.h>

#include <vector>

namespace vxbus {
namespace testing {
namespace {

using Halves = platform::PendingPipeHalves<int>;
using std::chrono::milliseconds;

TEST(PendingPipeHalvesTest, CapsPerClientAndOverall) {
  Halves halves;
  const auto later = Halves::Clock::now() + milliseconds(60000);
  for (int i = 0; i < 8; ++i)
    EXPECT_TRUE(halves.Add(i, 7, later));
  EXPECT_FALSE(halves.Add(8, 7, later)) << "a ninth from one process";
  EXPECT_TRUE(halves.Add(9, 8, later)) << "another process still has room";
  for (std::uint32_t client = 100; halves.Size() < Halves::kMost; ++client)
    ASSERT_TRUE(halves.Add(static_cast<int>(client), client, later));
  EXPECT_FALSE(halves.Add(-1, 99, later)) << "the whole table is full";
}

TEST(PendingPipeHalvesTest, AClientsHalvesPairOldestFirstPassingOverClosedOnes) {
  Halves halves;
  const auto later = Halves::Clock::now() + milliseconds(60000);
  halves.Add(1, 5, later);
  halves.Add(2, 6, later);
  halves.Add(3, 5, later);
  halves.Add(4, 5, later);
  int half = 0;
  std::vector<int> closed;
  auto open = [](int h) { return h != 3; };
  ASSERT_TRUE(halves.Take(5, open, &half, &closed));
  EXPECT_EQ(half, 1);
  ASSERT_TRUE(halves.Take(5, open, &half, &closed));
  EXPECT_EQ(half, 4) << "3 was closed by its client";
  EXPECT_EQ(closed, std::vector<int>{3});
  EXPECT_FALSE(halves.Take(5, open, &half, &closed));
  EXPECT_EQ(halves.Size(), 1u) << "the other process's half stays";
}

TEST(PendingPipeHalvesTest, HalvesPastTheirDeadlineAreHandedBack) {
  Halves halves;
  const auto now = Halves::Clock::now();
  halves.Add(1, 5, now + milliseconds(100));
  halves.Add(2, 6, now + milliseconds(300));
  std::vector<int> expired;
  EXPECT_EQ(halves.TakeExpired(now, &expired), 100);
  EXPECT_TRUE(expired.empty());
  EXPECT_EQ(halves.TakeExpired(now + milliseconds(100), &expired), 200);
  EXPECT_EQ(expired, std::vector<int>{1});
  EXPECT_EQ(halves.TakeExpired(now + milliseconds(300), &expired), -1);
  EXPECT_EQ(expired, (std::vector<int>{1, 2}));
}

}  // namespace
}  // namespace testing
}  // namespace vxbus
