// SPDX-License-Identifier: MIT
// The merge of a caller's limits record into the defaults, field by field.
#include <gtest/gtest.h>

#include <cstring>

#include "process/limits_merge.h"

namespace vxbus {
namespace {

VXLimits Numbered(std::uint32_t first) {
  VXLimits record{sizeof(VXLimits), {}};
  VXLimits::Values& v = record.limits;
  v.MAX_CONNECTIONS = first;
  v.RESERVED_A = first + 1;
  v.MAX_READ_SIZE = first + 2;
  v.RESERVED_B = first + 3;
  v.RESERVED_C = first + 4;
  v.RESERVED_D = first + 5;
  v.RESERVED_E = first + 6;
  v.IO_TIMEOUT_MS = static_cast<std::int32_t>(first + 7);
  std::memset(v.authBlock, static_cast<int>(first), sizeof v.authBlock);
  return record;
}

bool Same(const VXLimits& a, const VXLimits& b) {
  return std::memcmp(&a, &b, sizeof a) == 0;
}

// Catches a field taken from the wrong place of the caller's record, or
// written to the wrong place of the merged one: every field differs.
TEST(LimitsMerge, EachFieldComesFromItsOwnPlace) {
  const VXLimits defaults = Numbered(100);
  const VXLimits given = Numbered(10);
  EXPECT_TRUE(Same(MergeLimits(defaults, &given), given));

  // One field set at a time: that one from the caller, the rest defaults.
  for (std::size_t word = 0; word < 8; ++word) {
    VXLimits one{sizeof(VXLimits), {}};
    VXLimits expected = defaults;
    std::memset(expected.limits.authBlock, 0, sizeof expected.limits.authBlock);
    std::uint32_t value = 7;
    std::memcpy(reinterpret_cast<unsigned char*>(&one.limits) + 4 * word, &value, 4);
    std::memcpy(reinterpret_cast<unsigned char*>(&expected.limits) + 4 * word, &value, 4);
    EXPECT_TRUE(Same(MergeLimits(defaults, &one), expected)) << "field " << word;
  }
}

}  // namespace
}  // namespace vxbus
