// SPDX-License-Identifier: MIT
// The end of --timeout, counted from when the command began to connect.
#ifndef VXCTL_DEADLINE_H_
#define VXCTL_DEADLINE_H_

#include <chrono>
#include <string>

namespace vxctl {

class Deadline {
 public:
  using Clock = std::chrono::steady_clock;

  // `timeoutMs` from now; a negative value is no deadline.
  explicit Deadline(int timeoutMs)
      : timeoutMs_(timeoutMs), end_(Clock::now() + std::chrono::milliseconds(timeoutMs)) {}

  bool Limited() const { return timeoutMs_ >= 0; }

  // Milliseconds left, 0 once passed; -1 without a deadline.
  int LeftMs() const {
    if (!Limited()) return -1;
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(end_ - Clock::now()).count();
    return left > 0 ? static_cast<int>(left) : 0;
  }

  bool Passed() const { return Limited() && Clock::now() >= end_; }

  // The limit as the user wrote it, for messages: "2 s", "0.25 s".
  std::string Text() const {
    std::string s = std::to_string(timeoutMs_ / 1000);
    if (int ms = timeoutMs_ % 1000) {
      std::string fraction = std::to_string(1000 + ms).substr(1);
      s += "." + fraction.substr(0, fraction.find_last_not_of('0') + 1);
    }
    return s + " s";
  }

 private:
  int timeoutMs_;
  Clock::time_point end_;
};

}  // namespace vxctl

#endif  // VXCTL_DEADLINE_H_
