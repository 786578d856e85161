// SPDX-License-Identifier: MIT
#include "runtime/object_counters.h"

#include "vxbus.h"

namespace vxbus {
namespace {

std::uint32_t NextThreadSlot() {
  static std::atomic<std::uint32_t> threads{0};
  return threads.fetch_add(1, std::memory_order_relaxed);
}

// Threads take slots in turn, so that the few threads of a busy session land
// on different ones. Plain and constant-initialised: nothing to construct or
// destroy as a thread starts or ends.
thread_local std::uint32_t t_slotPlusOne = 0;

}  // namespace

std::uint32_t StripedCounter::MySlot() {
  if (t_slotPlusOne == 0) t_slotPlusOne = NextThreadSlot() % kSlots + 1;
  return t_slotPlusOne - 1;
}

std::uint32_t StripedCounter::Sum(const Slot (&slots)[kSlots]) {
  std::uint32_t sum = 0;  // unsigned: wraps, and the difference stays right
  for (const Slot& slot : slots)
    sum += slot.value.load(std::memory_order_acquire);
  return sum;
}

// Every down follows its up in time, and is seen with it. Downs read before
// and after the ups that stayed the same mean none happened in between, so
// ups minus downs is the count at a moment while the ups were read. A count
// that keeps changing is read as ups minus the downs before them: too high
// by what came up meanwhile, never below zero.
std::uint32_t StripedCounter::load() const {
  std::uint32_t downs = Sum(downs_);
  for (int round = 0;; ++round) {
    const std::uint32_t ups = Sum(ups_);
    const std::uint32_t downsAfter = Sum(downs_);
    if (downsAfter == downs || round == 63) return ups - downs;
    downs = downsAfter;
  }
}

ObjectCounters& Counters() {
  static ObjectCounters& counters = *new ObjectCounters;
  return counters;
}

}  // namespace vxbus

// Each value is read on its own; together they are not one snapshot.
VXObjectCounters DEBUG_VXObjectCount(void) {
  const vxbus::ObjectCounters& counters = vxbus::Counters();
  VXObjectCounters c{};
  c.applications = counters.liveSessions.load();
  c.messages = counters.liveMessages.load();
  c.pendingCalls = counters.lastPendingCallsSize.load();
  c.paramLists = counters.liveParamLists.load();
  c.sendCalls = counters.transportSendCalls.load();
  c.receiveCalls = counters.transportReceiveCalls.load();
  return c;
}
