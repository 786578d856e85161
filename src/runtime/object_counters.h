// Process-wide counters reported by DEBUG_VXObjectCount.
#ifndef VXBUS_RUNTIME_OBJECT_COUNTERS_H_
#define VXBUS_RUNTIME_OBJECT_COUNTERS_H_

#include <atomic>
#include <cstdint>

namespace vxbus {

extern std::atomic<std::uint32_t> g_liveApplications;
extern std::atomic<std::uint32_t> g_liveMessages;
extern std::atomic<std::uint32_t> g_lastPendingCallsSize;
extern std::atomic<std::uint32_t> g_liveParamLists;
extern std::atomic<std::uint32_t> g_transportSendCalls;
extern std::atomic<std::uint32_t> g_transportReceiveCalls;

}  // namespace vxbus

#endif  // VXBUS_RUNTIME_OBJECT_COUNTERS_H_
