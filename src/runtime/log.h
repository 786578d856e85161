// SPDX-License-Identifier: MIT
// Delivery of the library's fixed log texts to the application's one sink.
//
// Every site runs the three tests of LogEnabled before any text is composed,
// so a process with logging off pays for three loads and no allocation.
#ifndef VXBUS_RUNTIME_LOG_H_
#define VXBUS_RUNTIME_LOG_H_

#include <atomic>
#include <cstdint>
#include <sstream>
#include <string>

#include "vxbus.h"

namespace vxbus {

enum LogLevel : std::uint32_t {
  kLogCritical = 1,  // a listener can't work, or the connection limit refused a peer
  kLogError = 2,     // an accept failed, or a session could not be started
  kLogWarning = 4,   // a peer failed the handshake, or a session came up without one
  kLogInfo = 8,      // the ordinary course of things
  // An addition: what really ended a session, beside the designed line.
  // Only a mask that names this bit gets it; the designed levels are 1-8.
  kLogDebug = 16,
};

// Atomics only so that a sink set while threads run is not a data race. The
// gate tests load relaxed; the sink is published with release and loaded with
// acquire for the call itself.
extern std::atomic<std::uint32_t> g_logMask;
extern std::atomic<std::int32_t> g_logThreshold;
extern std::atomic<VXLogSink> g_logSink;

inline bool LogEnabled(std::uint32_t level) {
  if (g_logSink.load(std::memory_order_relaxed) == nullptr) return false;
  if ((g_logMask.load(std::memory_order_relaxed) & level) == 0) return false;
  if (g_logThreshold.load(std::memory_order_relaxed) < 0) return false;
  return true;
}

// Reads the sink once more and calls it with the level, 0 and the text.
void LogDeliver(std::uint32_t level, const std::string& text);

template <class... Parts>
std::string ComposeLogText(const Parts&... parts) {
  std::ostringstream out;
  (out << ... << parts);
  return out.str();
}

}  // namespace vxbus

#define VX_LOG(level, ...)                                                \
  do {                                                                    \
    if (::vxbus::LogEnabled(level))                                       \
      ::vxbus::LogDeliver((level), ::vxbus::ComposeLogText(__VA_ARGS__)); \
  } while (0)

#endif  // VXBUS_RUNTIME_LOG_H_
