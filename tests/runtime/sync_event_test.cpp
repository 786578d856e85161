#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include "runtime/referenced_ptr.h"
#include "runtime/sync_event.h"
#include "support/wait.h"

namespace vxbus {
namespace {

TEST(SyncEvent, SetWakesEveryWaiterAndStaysSet) {
  MTObjects::MTReferencedPtr<MTObjects::ISyncEvent> event(new MTObjects::ISyncEvent);
  std::atomic<int> woken{0};
  std::vector<std::thread> waiters;
  for (int i = 0; i < 4; ++i)
    waiters.emplace_back([&] {
      event->Wait();
      ++woken;
    });
  event->Set();
  event->Set();  // a second Set changes nothing
  for (auto& t : waiters)
    t.join();
  EXPECT_EQ(woken.load(), 4);
  EXPECT_TRUE(event->Wait());  // returns at once after Set
}

}  // namespace
}  // namespace vxbus
