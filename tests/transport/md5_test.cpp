#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <string>
#include <vector>

#include "transport/md5.h"

namespace vxbus {
namespace {

std::string Hex(const unsigned char digest[kMd5DigestSize]) {
  char text[2 * kMd5DigestSize + 1];
  for (std::size_t i = 0; i < kMd5DigestSize; ++i)
    std::snprintf(text + 2 * i, 3, "%02x", digest[i]);
  return text;
}

std::string OneShot(const std::string& text) {
  unsigned char digest[kMd5DigestSize];
  Md5(text.data(), text.size(), digest);
  return Hex(digest);
}

TEST(Md5, TestSuiteOfTheRfc) {
  EXPECT_EQ(OneShot(""), "d41d8cd98f00b204e9800998ecf8427e");
  EXPECT_EQ(OneShot("a"), "0cc175b9c0f1b6a831c399e269772661");
  EXPECT_EQ(OneShot("abc"), "900150983cd24fb0d6963f7d28e17f72");
  EXPECT_EQ(OneShot("message digest"), "f96b697d7cb7938d525a2f31aaf161d0");
  EXPECT_EQ(OneShot("abcdefghijklmnopqrstuvwxyz"), "c3fcd3d76192e4007dfb496cca67e13b");
  EXPECT_EQ(OneShot("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789"),
            "d174ab98d277d9f5a5611c2c9f419d9f");
  std::string digits;
  for (int i = 0; i < 8; ++i)
    digits += "1234567890";
  EXPECT_EQ(OneShot(digits), "57edf4a22be3c955ac49da2e2107b67a");
}

// The handshake's 1280 bytes in pieces that end inside, exactly at and beyond
// 64-byte blocks, with an empty update among them.
TEST(Md5, UpdatesCrossingBlockBoundaries) {
  std::vector<unsigned char> bytes(1280);
  for (std::size_t i = 0; i < bytes.size(); ++i)
    bytes[i] = static_cast<unsigned char>(i % 251);
  const std::size_t pieces[] = {7, 57, 0, 63, 1, 65, 127, 100};
  Md5Context context;
  Md5Init(context);
  for (std::size_t at = 0, i = 0; at < bytes.size(); ++i) {
    const std::size_t n = std::min(pieces[i % 8], bytes.size() - at);
    Md5Update(context, bytes.data() + at, n);
    at += n;
  }
  unsigned char digest[kMd5DigestSize];
  Md5Final(context, digest);
  EXPECT_EQ(Hex(digest), "5d91ab8feb1b4b1282ec401423b9d55a");
}

}  // namespace
}  // namespace vxbus
