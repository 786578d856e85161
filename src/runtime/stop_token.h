// SPDX-License-Identifier: MIT
// A read-only view of a stop flag that another layer owns and sets, so that
// a thread can be told to stop without knowing whose flag it is.
#ifndef VXBUS_RUNTIME_STOP_TOKEN_H_
#define VXBUS_RUNTIME_STOP_TOKEN_H_

#include <atomic>

namespace vxbus {

class StopToken {
 public:
  StopToken() = default;  // never asks to stop
  explicit StopToken(const std::atomic<bool>* flag) : flag_(flag) {}

  // Relaxed: a thread that sees the request one turn late only makes one
  // more turn of its loop. Never blocks; any thread.
  bool StopRequested() const { return flag_ != nullptr && flag_->load(std::memory_order_relaxed); }
  // For the calls below that take the flag itself (may be null).
  const std::atomic<bool>* Flag() const { return flag_; }

 private:
  const std::atomic<bool>* flag_ = nullptr;  // not owned; outlives the token
};

}  // namespace vxbus

#endif  // VXBUS_RUNTIME_STOP_TOKEN_H_
