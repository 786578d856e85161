// SPDX-License-Identifier: MIT
// The one way results cross the platform seam: a small status that the logic
// acts on, plus the system's own code, which is only ever logged.
#ifndef VXBUS_PLATFORM_IO_RESULT_H_
#define VXBUS_PLATFORM_IO_RESULT_H_

#include <cstddef>
#include <cstdint>

namespace vxbus {
namespace platform {

// Time limits are milliseconds. kWaitForever, or any negative value, waits
// without a limit; 0 looks once and does not wait.
constexpr std::int64_t kWaitForever = -1;

enum class IoStatus {
  kOk,          // done; for a transfer, `count` bytes moved
  kWouldBlock,  // not now: a non-blocking call that would have to wait
  kTimedOut,    // the time limit passed first, or a wait was given up
  kClosed,      // the far end ended the stream in order
  kFailed,      // anything else; `systemCode` says what
};

struct IoResult {
  IoStatus status = IoStatus::kFailed;
  std::int64_t count = 0;  // bytes moved; meaningful with kOk only
  int systemCode = 0;      // the system's error number for kFailed; for log lines only

  bool ok() const { return status == IoStatus::kOk; }
};

// One piece of a gathered write: its bytes go out after those of the pieces
// before it, as one stream, without being copied together first.
struct BytePiece {
  const void* data = nullptr;
  std::size_t length = 0;
};

}  // namespace platform
}  // namespace vxbus

#endif  // VXBUS_PLATFORM_IO_RESULT_H_
