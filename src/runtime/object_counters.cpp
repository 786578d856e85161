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

std::atomic<std::uint32_t>& StripedCounter::MySlot() {
  if (t_slotPlusOne == 0) t_slotPlusOne = NextThreadSlot() % kSlots + 1;
  return slots_[t_slotPlusOne - 1].value;
}

// Unsigned, so that a slot that only ever went down still adds up right.
std::uint32_t StripedCounter::load() const {
  std::uint32_t sum = 0;
  for (const Slot& slot : slots_)
    sum += slot.value.load(std::memory_order_relaxed);
  return sum;
}

StripedCounter g_liveApplications;
StripedCounter g_liveMessages;
std::atomic<std::uint32_t> g_lastPendingCallsSize{0};
StripedCounter g_liveParamLists;
StripedCounter g_transportSendCalls;
StripedCounter g_transportReceiveCalls;

}  // namespace vxbus

// Each value is read on its own; together they are not one snapshot.
VXObjectCounters DEBUG_VXObjectCount(void) {
  VXObjectCounters c{};
  c.applications = vxbus::g_liveApplications.load();
  c.messages = vxbus::g_liveMessages.load();
  c.pendingCalls = vxbus::g_lastPendingCallsSize.load();
  c.paramLists = vxbus::g_liveParamLists.load();
  c.sendCalls = vxbus::g_transportSendCalls.load();
  c.receiveCalls = vxbus::g_transportReceiveCalls.load();
  return c;
}
