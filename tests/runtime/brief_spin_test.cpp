// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include <chrono>

#include "runtime/brief_spin.h"

namespace vxbus {
namespace {

// VXBUS_SPIN_US: whole microseconds, 0 switches spinning off, a large value
// is cut to the longest spin, and a text that is not a number keeps the
// default rather than switching spinning off by mistake.
TEST(BriefSpin, TheSpinSettingReadsWholeMicrosecondsWithinItsBounds) {
  using std::chrono::microseconds;
  EXPECT_EQ(ParseSpinSetting("0"), microseconds(0));
  EXPECT_EQ(ParseSpinSetting("120"), microseconds(120));
  EXPECT_EQ(ParseSpinSetting("10000"), kLongestSpin);
  EXPECT_EQ(ParseSpinSetting("99999999999999999999"), kLongestSpin);
  for (const char* text : {"", "-5", "50us", " 7", "off"})
    EXPECT_EQ(ParseSpinSetting(text), kBriefSpin) << text;
  EXPECT_EQ(ParseSpinSetting(nullptr), kBriefSpin);
}

}  // namespace
}  // namespace vxbus
