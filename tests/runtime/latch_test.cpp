// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "runtime/latch.h"
#include "runtime/referenced_ptr.h"

namespace vxbus {
namespace {

// Guards the waiter's pass through the mutex after it saw the flag while
// spinning: without it the waiter frees the latch while Set still holds its
// mutex, which ThreadSanitizer reports.
TEST(Latch, AWaiterMayDestroyTheLatchAsSoonAsItsWaitReturns) {
  using MTObjects::Latch;
  std::atomic<Latch*> handed{nullptr};
  std::atomic<bool> done{false};
  std::thread setter([&] {
    while (!done.load()) {
      if (Latch* latch = handed.exchange(nullptr))
        latch->Set();
      else
        std::this_thread::yield();
    }
  });
  for (int i = 0; i < 20000; ++i) {
    MTObjects::MTReferencedPtr<Latch> latch(new Latch);
    handed.store(latch.get());
    EXPECT_TRUE(latch->Wait());
  }  // each latch is freed the moment its wait returns
  done = true;
  setter.join();
}

}  // namespace
}  // namespace vxbus
