#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include "runtime/referenced_ptr.h"
#include "runtime/sync_event.h"

namespace vxbus {
namespace {

TEST(SyncEvent, OneSetWakesEveryWaiterAndLaterWaitsReturnAtOnce) {
  MTObjects::MTReferencedPtr<MTObjects::ISyncEvent> event(new MTObjects::ISyncEvent);
  std::atomic<int> woken{0};
  std::vector<std::thread> waiters;
  for (int i = 0; i < 4; ++i)
    waiters.emplace_back([&] { woken += event->Wait() ? 1 : 0; });
  event->Set();
  for (auto& t : waiters)
    t.join();
  EXPECT_EQ(woken.load(), 4);
  EXPECT_TRUE(event->Wait());
}

}  // namespace
}  // namespace vxbus
