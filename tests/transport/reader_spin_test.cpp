// SPDX-License-Identifier: MIT
// The reader's look before it sleeps: bounded, backing off on a quiet
// channel, back in full once bytes come quickly again, and off at zero.
#include <gtest/gtest.h>

#include "transport/reader_spin.h"

namespace vxbus {
namespace testing {
namespace {

using std::chrono::microseconds;
using std::chrono::milliseconds;

TEST(ReaderSpinTest, AQuietChannelHalvesTheLookToNoneAndQuickBytesEarnItBack) {
  ReaderSpin spin(microseconds(50));
  EXPECT_EQ(spin.Look(), microseconds(50));
  const microseconds halved[] = {microseconds(25), microseconds(12), microseconds(6),
                                 microseconds(3),  microseconds(0),  microseconds(0)};
  for (microseconds expected : halved) {
    spin.Slept(milliseconds(5));
    EXPECT_EQ(spin.Look(), expected);
  }
  spin.Slept(microseconds(40));  // a look would have caught these bytes
  EXPECT_EQ(spin.Look(), microseconds(50));
  spin.Slept(milliseconds(5));
  spin.Found();
  EXPECT_EQ(spin.Look(), microseconds(50));
}

TEST(ReaderSpinTest, NoBudgetNeverLooks) {
  ReaderSpin spin(microseconds(0));
  spin.Slept(microseconds(0));
  spin.Found();
  EXPECT_EQ(spin.Look(), microseconds(0));
}

}  // namespace
}  // namespace testing
}  // namespace vxbus
