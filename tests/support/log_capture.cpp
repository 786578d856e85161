#include "support/log_capture.h"

#include <mutex>

#include "support/wait.h"
#include "vxbus.h"

namespace vxbus {
namespace testing {
namespace {

// Static, not per object: a library thread may still log after a test ended.
std::mutex g_mutex;
std::vector<LogCapture::Line> g_lines;

void Keep(std::uint32_t level, std::uint32_t, const char* text) {
  std::lock_guard<std::mutex> lock(g_mutex);
  g_lines.emplace_back(level, text);
}

}  // namespace

LogCapture::LogCapture(std::uint32_t mask) {
  {
    std::lock_guard<std::mutex> lock(g_mutex);
    g_lines.clear();
  }
  VXSetLogLevel(mask, 0, Keep);
}

LogCapture::~LogCapture() {
  VXSetLogLevel(0, 0, nullptr);
}

std::vector<LogCapture::Line> LogCapture::Lines() const {
  std::lock_guard<std::mutex> lock(g_mutex);
  return g_lines;
}

int LogCapture::Count(std::uint32_t level, const std::string& text, bool prefix) const {
  int n = 0;
  for (const Line& line : Lines())
    n += line.first == level && (prefix ? line.second.rfind(text, 0) == 0 : line.second == text);
  return n;
}

int LogCapture::Count(const std::string& text) const {
  int n = 0;
  for (const Line& line : Lines())
    n += line.second == text;
  return n;
}

bool LogCapture::WaitFor(std::uint32_t level, const std::string& text,
                         std::chrono::milliseconds limit) const {
  return WaitUntil([&] { return Count(level, text) > 0; }, limit);
}

}  // namespace testing
}  // namespace vxbus
