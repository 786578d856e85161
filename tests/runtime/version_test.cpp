// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include <string>

#include "vxbus.h"

namespace vxbus {
namespace {

// The header's version is the library's, and both are the three numbers.
TEST(Version, HeaderAndLibraryAgree) {
  EXPECT_STREQ(VXGetVersion(), VXBUS_VERSION_STRING);
  EXPECT_EQ(std::string(VXGetVersion()), std::to_string(VXBUS_VERSION_MAJOR) + "." +
                                             std::to_string(VXBUS_VERSION_MINOR) + "." +
                                             std::to_string(VXBUS_VERSION_PATCH));
}

}  // namespace
}  // namespace vxbus
