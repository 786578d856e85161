// Process-wide counters reported by DEBUG_VXObjectCount.
#ifndef VXBUS_RUNTIME_OBJECT_COUNTERS_H_
#define VXBUS_RUNTIME_OBJECT_COUNTERS_H_

#include <atomic>
#include <cstdint>

namespace vxbus {

// A count changed on every message by several threads, mostly one adding and
// another taking away (a reader makes a message, the dispatch thread lets it
// go). Each thread changes a slot of its own, on a cache line of its own, so
// the changes don't move one line between the cores for every message;
// reading adds the slots up. A read while others change the count sees some
// of those changes and not others; once they stop, it is exact. Never
// blocks; any thread.
class StripedCounter {
 public:
  StripedCounter& operator++() {
    MySlot().fetch_add(1, std::memory_order_relaxed);
    return *this;
  }
  StripedCounter& operator--() {
    MySlot().fetch_sub(1, std::memory_order_relaxed);
    return *this;
  }
  std::uint32_t load() const;
  operator std::uint32_t() const { return load(); }  // NOLINT: reads like the atomic it replaces

 private:
  static constexpr std::uint32_t kSlots = 16;
  struct alignas(64) Slot {
    std::atomic<std::uint32_t> value{0};
  };
  std::atomic<std::uint32_t>& MySlot();
  Slot slots_[kSlots];
};

extern StripedCounter g_liveApplications;
extern StripedCounter g_liveMessages;
extern std::atomic<std::uint32_t> g_lastPendingCallsSize;
extern StripedCounter g_liveParamLists;
extern StripedCounter g_transportSendCalls;
extern StripedCounter g_transportReceiveCalls;

}  // namespace vxbus

#endif  // VXBUS_RUNTIME_OBJECT_COUNTERS_H_
