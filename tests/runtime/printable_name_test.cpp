// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include <string>

#include "runtime/printable_name.h"

namespace vxbus {
namespace {

// Every control byte, the ends of the range included, and nothing else.
TEST(PrintableName, EscapesControlBytesOnly) {
  EXPECT_EQ(PrintableName("vm:7001/server \\ \x80\xff~"), "vm:7001/server \\ \x80\xff~");
  EXPECT_EQ(PrintableName(std::string("a\0b\x1f\n\r\x7f\x20", 8)), "a\\x00b\\x1f\\x0a\\x0d\\x7f ");
  EXPECT_EQ(PrintableName(""), "");
}

}  // namespace
}  // namespace vxbus
