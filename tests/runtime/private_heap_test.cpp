// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>

#include "vxbus.h"

namespace vxbus {
namespace {

// As the heap's realloc: from null it allocates, and a size of 0 gives a
// block that can be used and freed. Blocks cross between the small and the
// large kind as they grow and shrink; each move keeps the bytes, and a freed
// large block that is handed out again serves as a fresh one.
TEST(PrivateHeap, ReallocKeepsTheBytesAcrossTheLargeBlockThreshold) {
  VXFree(nullptr);
  void* zero = VXRealloc(nullptr, 16);
  ASSERT_NE(zero, nullptr);
  zero = VXRealloc(zero, 0);
  ASSERT_NE(zero, nullptr);
  const std::size_t small = 1000, large = 3 * 1024 * 1024 + 5, larger = 9 * 1024 * 1024;
  auto* p = static_cast<unsigned char*>(VXRealloc(zero, small));
  ASSERT_NE(p, nullptr);
  for (std::size_t i = 0; i < small; ++i)
    p[i] = static_cast<unsigned char>(i * 7);
  p = static_cast<unsigned char*>(VXRealloc(p, large));
  ASSERT_NE(p, nullptr);
  EXPECT_EQ(reinterpret_cast<std::uintptr_t>(p) % 16, 0u);
  p[large - 1] = 0x5A;
  p = static_cast<unsigned char*>(VXRealloc(p, large + 100));  // room in place
  ASSERT_NE(p, nullptr);
  p = static_cast<unsigned char*>(VXRealloc(p, larger));
  ASSERT_NE(p, nullptr);
  EXPECT_EQ(p[large - 1], 0x5A);
  p = static_cast<unsigned char*>(VXRealloc(p, small));
  ASSERT_NE(p, nullptr);
  for (std::size_t i = 0; i < small; ++i)
    ASSERT_EQ(p[i], static_cast<unsigned char>(i * 7)) << i;
  VXFree(p);

  for (int round = 0; round < 6; ++round) {
    auto* block = static_cast<unsigned char*>(VXAllocate(large));
    ASSERT_NE(block, nullptr);
    std::memset(block, round, large);
    EXPECT_EQ(block[large / 2], round);
    VXFree(block);
  }
}

}  // namespace
}  // namespace vxbus
