#include "runtime/object_counters.h"

#include "vxbus.h"

namespace vxbus {

std::atomic<std::uint32_t> g_liveApplications{0};
std::atomic<std::uint32_t> g_liveMessages{0};
std::atomic<std::uint32_t> g_lastPendingCallsSize{0};
std::atomic<std::uint32_t> g_liveParamLists{0};
std::atomic<std::uint32_t> g_transportSendCalls{0};
std::atomic<std::uint32_t> g_transportReceiveCalls{0};

}  // namespace vxbus

// Each value is read atomically; together they are not one snapshot.
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
