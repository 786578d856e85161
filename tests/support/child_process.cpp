#include "support/child_process.h"

namespace vxbus {
namespace testing {

bool ChildProcess::ReadLine(std::string& line, std::chrono::milliseconds limit) {
  const auto deadline = std::chrono::steady_clock::now() + limit;
  for (;;) {
    auto newline = pending_.find('\n');
    if (newline != std::string::npos) {
      line = pending_.substr(0, newline);
      pending_.erase(0, newline + 1);
      if (!line.empty() && line.back() == '\r') line.pop_back();
      return true;
    }
    if (!ReadMore(deadline)) return false;
  }
}

}  // namespace testing
}  // namespace vxbus
