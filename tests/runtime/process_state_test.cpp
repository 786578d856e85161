// SPDX-License-Identifier: MIT
// The limits record in force and the secret block it carries.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstring>
#include <thread>

#include "runtime/process_state.h"
#include "vxbus.h"

namespace vxbus {
namespace {

TEST(Limits, ASecretOfAtMost256BytesGoesIntoBothRecords) {
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

// Guards the lock around the secret block: a handshake's snapshot taken while
// the secret changes is all of the old secret or all of the new one.
TEST(Limits, SecretChangedDuringAHandshakeIsNeverTorn) {
  unsigned char blocks[2][256];
  std::memset(blocks[0], 'a', 256);
  std::memset(blocks[1], 'b', 256);
  ASSERT_EQ(VXSetAuthenticationInfo(blocks[0], 256), VX_SUCCESS);
  std::atomic<bool> done{false};
  std::atomic<int> writes{0};
  std::thread writer([&] {
    for (int i = 0; !done.load(); ++i, ++writes)
      VXSetAuthenticationInfo(blocks[i % 2], 256);
  });
  int torn = 0;
  // At least 200000 snapshots, with at least 10000 writes among them.
  for (int n = 0; n < 200000 || writes.load() < 10000; ++n) {
    unsigned char seen[256];
    SnapshotSecret(seen);
    if (std::count(seen, seen + 256, seen[0]) != 256 || seen[0] == 0) ++torn;
  }
  done = true;
  writer.join();
  EXPECT_EQ(torn, 0);
  EXPECT_EQ(VXSetAuthenticationInfo(nullptr, 0), VX_SUCCESS);
}

}  // namespace
}  // namespace vxbus
