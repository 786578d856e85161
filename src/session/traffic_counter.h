// SPDX-License-Identifier: MIT
// A count of a session's traffic with one writer at a time: the reader for
// what comes in, the holder of the write lock for what goes out. A plain
// store suffices there, and costs the frame path no locked instruction;
// any thread may read it.
#ifndef VXBUS_SESSION_TRAFFIC_COUNTER_H_
#define VXBUS_SESSION_TRAFFIC_COUNTER_H_

#include <atomic>
#include <cstdint>

namespace vxbus {

class TrafficCounter {
 public:
  // The one writer of the moment only.
  void Add(std::uint64_t n) {
    value_.store(value_.load(std::memory_order_relaxed) + n, std::memory_order_relaxed);
  }
  std::uint64_t Load() const { return value_.load(std::memory_order_relaxed); }

 private:
  std::atomic<std::uint64_t> value_{0};
};

}  // namespace vxbus

#endif  // VXBUS_SESSION_TRAFFIC_COUNTER_H_
