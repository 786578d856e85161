// SPDX-License-Identifier: MIT
// One poll() on one descriptor, shared by the POSIX socket and pipe code.
// poll() stands where other platforms use select(), which cannot watch a
// descriptor numbered 1024 or higher.
#ifndef VXBUS_PLATFORM_POSIX_POLL_POSIX_H_
#define VXBUS_PLATFORM_POSIX_POLL_POSIX_H_

#include <poll.h>

#include <cerrno>
#include <chrono>
#include <climits>
#include <cstdint>

namespace vxbus {
namespace platform {
namespace posix {

// Waits for `events` on `fd`; a negative time-out waits without a limit.
// Returns poll's result (1, 0 or -1) and the events seen. A signal that
// interrupts the wait does not end it: the rest of the time is waited.
inline int PollOne(int fd, short events, std::int64_t timeoutMs, short* seen) {
  using Clock = std::chrono::steady_clock;
  const bool forever = timeoutMs < 0;
  const Clock::time_point deadline =
      Clock::now() + std::chrono::milliseconds(forever ? 0 : timeoutMs);
  for (;;) {
    int wait = -1;
    if (!forever) {
      auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
      std::int64_t ms = left.count() < 0 ? 0 : left.count();
      wait = ms > INT_MAX ? INT_MAX : static_cast<int>(ms);
    }
    pollfd entry{fd, events, 0};
    int result = ::poll(&entry, 1, wait);
    if (result < 0 && errno == EINTR) continue;
    if (result == 0 && !forever && Clock::now() < deadline) continue;  // a wait capped at INT_MAX
    if (seen != nullptr) *seen = entry.revents;
    if (result > 0 && (entry.revents & POLLNVAL) != 0) {
      errno = EBADF;
      return -1;
    }
    return result;
  }
}

}  // namespace posix
}  // namespace platform
}  // namespace vxbus

#endif  // VXBUS_PLATFORM_POSIX_POLL_POSIX_H_
