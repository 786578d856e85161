// SPDX-License-Identifier: MIT
#include "runtime/log.h"

namespace vxbus {

std::atomic<std::uint32_t> g_logMask{0};
std::atomic<std::int32_t> g_logThreshold{0};
std::atomic<VXLogSink> g_logSink{nullptr};

void LogDeliver(std::uint32_t level, const std::string& text) {
  VXLogSink sink = g_logSink.load(std::memory_order_acquire);
  if (sink) sink(level, 0, text.c_str());
}

}  // namespace vxbus

void VXSetLogLevel(std::uint32_t mask, std::int32_t threshold, VXLogSink sink) {
  vxbus::g_logMask.store(mask, std::memory_order_relaxed);
  vxbus::g_logThreshold.store(threshold, std::memory_order_relaxed);
  vxbus::g_logSink.store(sink, std::memory_order_release);
}

// Kept as an entry point; it has nothing to do.
void VXHandleUsageLog(void) {}
