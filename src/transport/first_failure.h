// SPDX-License-Identifier: MIT
// The first failure a channel saw, kept for the line that logs a session's
// end: reader and writer may both fail, and the earlier one is the cause.
#ifndef VXBUS_TRANSPORT_FIRST_FAILURE_H_
#define VXBUS_TRANSPORT_FIRST_FAILURE_H_

#include <mutex>

#include "platform/io_result.h"
#include "runtime/status.h"

namespace vxbus {

// The status of a platform result that was not ok: kClosed is the peer's
// orderly end, kTimedOut a time limit, anything else the system's refusal
// with its code.
inline Status StatusOfIoResult(const platform::IoResult& result) {
  switch (result.status) {
    case platform::IoStatus::kOk:
      return Status::Ok();
    case platform::IoStatus::kClosed:
      return Status::Of(Cause::kPeerClosed);
    case platform::IoStatus::kTimedOut:
      return Status::Of(Cause::kTimedOut);
    default:
      return Status::Of(Cause::kSystemError, result.systemCode);
  }
}

// Keeps the first status it is told of; later ones are dropped. Any thread;
// a short lock, taken only on a failure and when the status is read.
class FirstFailureRecord {
 public:
  void Note(const Status& status) {
    if (status.ok()) return;
    std::lock_guard<std::mutex> lock(mutex_);
    if (first_.ok()) first_ = status;
  }
  Status Get() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return first_;
  }

 private:
  mutable std::mutex mutex_;
  Status first_;
};

}  // namespace vxbus

#endif  // VXBUS_TRANSPORT_FIRST_FAILURE_H_
