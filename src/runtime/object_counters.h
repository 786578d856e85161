// SPDX-License-Identifier: MIT
// Process-wide counters reported by DEBUG_VXObjectCount.
#ifndef VXBUS_RUNTIME_OBJECT_COUNTERS_H_
#define VXBUS_RUNTIME_OBJECT_COUNTERS_H_

#include <atomic>
#include <cstdint>

namespace vxbus {

// A count changed on every message by several threads, mostly one adding and
// another taking away (a reader makes a message, the dispatch thread lets it
// go). Threads take turns over sixteen slots, each on a cache line of its
// own, so the changes don't move one line between the cores for every
// message. Ups and downs are kept apart, so that a read can tell a moment at
// which the sum was true (see load). Never blocks; any thread.
class StripedCounter {
 public:
  StripedCounter& operator++() {
    ups_[MySlot()].value.fetch_add(1, std::memory_order_release);
    return *this;
  }
  StripedCounter& operator--() {
    downs_[MySlot()].value.fetch_add(1, std::memory_order_release);
    return *this;
  }
  // The count as it stood at some moment during the call: exact at rest,
  // never a value that the count did not have.
  std::uint32_t load() const;
  operator std::uint32_t() const { return load(); }  // NOLINT: reads like the atomic it replaces

 private:
  static constexpr std::uint32_t kSlots = 16;
  struct alignas(64) Slot {
    std::atomic<std::uint32_t> value{0};
  };
  static std::uint32_t MySlot();
  static std::uint32_t Sum(const Slot (&slots)[kSlots]);
  Slot ups_[kSlots];
  Slot downs_[kSlots];
};

// The counts behind DEBUG_VXObjectCount, one set per process.
struct ObjectCounters {
  StripedCounter liveSessions;
  StripedCounter liveMessages;
  std::atomic<std::uint32_t> lastPendingCallsSize{0};
  StripedCounter liveParamLists;
  StripedCounter transportSendCalls;
  StripedCounter transportReceiveCalls;
};

// Made on first use and never destroyed, as threads of the library may still
// count while the process exits. Any thread.
ObjectCounters& Counters();

}  // namespace vxbus

#endif  // VXBUS_RUNTIME_OBJECT_COUNTERS_H_
