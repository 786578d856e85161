// SPDX-License-Identifier: MIT
// Keeps the log lines the library delivers, from any of its threads.
#ifndef VXBUS_TESTS_SUPPORT_LOG_CAPTURE_H_
#define VXBUS_TESTS_SUPPORT_LOG_CAPTURE_H_

#include <chrono>
#include <cstdint>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "support/wait.h"
#include "vxbus.h"

namespace vxbus {
namespace testing {

// Installs itself as the log sink for the levels in `mask` and switches
// logging off again when it goes. One at a time: the sink is process-wide.
class LogCapture {
 public:
  using Line = std::pair<std::uint32_t, std::string>;

  explicit LogCapture(std::uint32_t mask = 0xF) {
    {
      std::lock_guard<std::mutex> lock(mutex_);
      lines_.clear();
    }
    VXSetLogLevel(mask, 0, Keep);
  }
  ~LogCapture() { VXSetLogLevel(0, 0, nullptr); }
  LogCapture(const LogCapture&) = delete;
  LogCapture& operator=(const LogCapture&) = delete;

  std::vector<Line> Lines() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return lines_;
  }
  // Lines of `level` that equal `text`, or start with it when `prefix`.
  int Count(std::uint32_t level, const std::string& text, bool prefix = false) const {
    int n = 0;
    for (const Line& line : Lines())
      n += line.first == level && (prefix ? line.second.rfind(text, 0) == 0 : line.second == text);
    return n;
  }
  // Lines of any level that equal `text`.
  int Count(const std::string& text) const {
    int n = 0;
    for (const Line& line : Lines())
      n += line.second == text;
    return n;
  }
  bool WaitFor(std::uint32_t level, const std::string& text,
               std::chrono::milliseconds limit = std::chrono::seconds(10)) const {
    return WaitUntil([&] { return Count(level, text) > 0; }, limit);
  }

 private:
  static void Keep(std::uint32_t level, std::uint32_t, const char* text) {
    std::lock_guard<std::mutex> lock(mutex_);
    lines_.emplace_back(level, text);
  }

  // Static, not per object: a library thread may still log after a test ended.
  static inline std::mutex mutex_;
  static inline std::vector<Line> lines_;
};

}  // namespace testing
}  // namespace vxbus

#endif  // VXBUS_TESTS_SUPPORT_LOG_CAPTURE_H_
