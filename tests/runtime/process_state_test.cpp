// The limits record: its defaults and the authentication block within it.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>

#include "runtime/process_state.h"

namespace vxbus {
namespace {

TEST(Limits, AuthBlockOfAtMost256BytesGoesIntoDefaultsAndRecordInForce) {
  unsigned char secret[257];
  std::memset(secret, 0x5A, sizeof secret);
  EXPECT_EQ(VXSetAuthenticationInfo(secret, 257), VX_ERROR_FAILED);
  EXPECT_EQ(g_limits.limits.authBlock[0], 0);
  EXPECT_EQ(VXSetAuthenticationInfo(secret, 256), VX_SUCCESS);
  EXPECT_EQ(g_limits.limits.authBlock[255], 0x5A);
  EXPECT_EQ(g_defaultLimits.limits.authBlock[255], 0x5A);
  EXPECT_EQ(VXSetAuthenticationInfo("abc", 3), VX_SUCCESS);
  EXPECT_EQ(g_limits.limits.authBlock[2], 'c');
  EXPECT_EQ(g_limits.limits.authBlock[3], 0);

  // Refused blocks change nothing; a negative length used to reach the copy
  // as an enormous count.
  EXPECT_EQ(VXSetAuthenticationInfo(secret, -1), VX_ERROR_FAILED);
  EXPECT_EQ(VXSetAuthenticationInfo(secret, INT32_MIN), VX_ERROR_FAILED);
  EXPECT_EQ(VXSetAuthenticationInfo(nullptr, 4), VX_ERROR_FAILED);
  EXPECT_EQ(g_limits.limits.authBlock[0], 'a');
  EXPECT_EQ(g_defaultLimits.limits.authBlock[2], 'c');
  EXPECT_EQ(VXSetAuthenticationInfo(nullptr, 0), VX_SUCCESS);
  EXPECT_EQ(g_defaultLimits.limits.authBlock[0], 0);
}

}  // namespace
}  // namespace vxbus
