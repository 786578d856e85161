// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <thread>

#include "runtime/object_counters.h"

namespace vxbus {
namespace {

// One thread counts objects up, another counts each one down after it (the
// hand-off of a message from a reader to the dispatch thread), while a third
// reads. A read that saw an object's end but not its start would wrap below
// zero; at rest the count is exact.
TEST(StripedCounter, ReadsUnderChangeNeverWrap) {
  constexpr std::uint32_t kObjects = 50000;
  StripedCounter counter;
  std::atomic<std::uint32_t> made{0}, taken{0};
  std::atomic<bool> done{false};
  std::thread maker([&] {
    for (std::uint32_t i = 0; i < kObjects; ++i) {
      while (i - taken.load() >= 8)
        std::this_thread::yield();  // at most 8 in flight
      ++counter;
      made.fetch_add(1);
    }
  });
  std::thread taker([&] {
    for (std::uint32_t i = 0; i < kObjects; ++i) {
      while (made.load() == i)
        std::this_thread::yield();
      --counter;
      taken.fetch_add(1);
    }
    done.store(true);
  });
  std::uint32_t highest = 0;
  while (!done.load())
    highest = std::max(highest, counter.load());
  maker.join();
  taker.join();
  EXPECT_LE(highest, kObjects);
  EXPECT_EQ(counter.load(), 0u);
}

}  // namespace
}  // namespace vxbus
