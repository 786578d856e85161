// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include <string>
#include <utility>

#include "runtime/name_key.h"
#include "runtime/private_heap.h"

namespace vxbus {
namespace {

// Guards the copy of an owned name key: a long name whose copy the heap
// refuses leaves an empty key that says so, not uninitialised bytes.
TEST(NameKey, AKeyWhoseCopyIsRefusedIsEmptyAndNotWhole) {
  const std::string longName(300, 'n');
  RefusePrivateBlocksFrom(300);
  VXNameKey refused{longName};
  VXNameKey moved(std::move(refused));
  RefusePrivateBlocksFrom(0);
  EXPECT_FALSE(moved.Whole());
  EXPECT_STREQ(moved.Text(), "");
  VXNameKey granted{longName};
  EXPECT_TRUE(granted.Whole());
  EXPECT_EQ(granted.Text(), longName);
}

}  // namespace
}  // namespace vxbus
