// SPDX-License-Identifier: MIT
#include "runtime/brief_spin.h"

#include <string>

#include "platform/host.h"

namespace vxbus {

std::chrono::microseconds ParseSpinSetting(const char* text) {
  if (text == nullptr || *text == '\0') return kBriefSpin;
  std::int64_t value = 0;
  for (const char* at = text; *at != '\0'; ++at) {
    if (*at < '0' || *at > '9') return kBriefSpin;
    value = value * 10 + (*at - '0');
    if (value > kLongestSpin.count()) return kLongestSpin;
  }
  return std::chrono::microseconds(value);
}

std::chrono::microseconds BriefSpinBudget() {
  static const std::chrono::microseconds budget = [] {
    std::string text;
    if (!platform::ReadEnvironmentVariable("VXBUS_SPIN_US", &text)) return kBriefSpin;
    return ParseSpinSetting(text.c_str());
  }();
  return budget;
}

}  // namespace vxbus
