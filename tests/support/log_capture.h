// Keeps the log lines the library delivers, from any of its threads.
#ifndef VXBUS_TESTS_SUPPORT_LOG_CAPTURE_H_
#define VXBUS_TESTS_SUPPORT_LOG_CAPTURE_H_

#include <chrono>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace vxbus {
namespace testing {

// Installs itself as the log sink for the levels in `mask` and switches
// logging off again when it goes. One at a time: the sink is process-wide.
class LogCapture {
 public:
  using Line = std::pair<std::uint32_t, std::string>;

  explicit LogCapture(std::uint32_t mask = 0xF);
  ~LogCapture();
  LogCapture(const LogCapture&) = delete;
  LogCapture& operator=(const LogCapture&) = delete;

  std::vector<Line> Lines() const;
  // Lines of `level` that equal `text`, or start with it when `prefix`.
  int Count(std::uint32_t level, const std::string& text, bool prefix = false) const;
  // Lines of any level that equal `text`.
  int Count(const std::string& text) const;
  bool WaitFor(std::uint32_t level, const std::string& text,
               std::chrono::milliseconds limit = std::chrono::seconds(10)) const;
};

}  // namespace testing
}  // namespace vxbus

#endif  // VXBUS_TESTS_SUPPORT_LOG_CAPTURE_H_
