#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <string>
#include <vector>

#include "transport/md5.h"

namespace vxbus {
namespace {

std::string Hex(const unsigned char digest[kMd5DigestSize]) {
  std::string out;
  char two[3];
  for (std::size_t i = 0; i < kMd5DigestSize; ++i) {
    std::snprintf(two, sizeof two, "%02x", digest[i]);
    out += two;
  }
  return out;
}

std::string OneShot(const std::string& text) {
  unsigned char digest[kMd5DigestSize];
  Md5(text.data(), text.size(), digest);
  return Hex(digest);
}

// Feeds `bytes` in pieces whose sizes cycle through `pieces`.
std::string Incremental(const std::vector<unsigned char>& bytes,
                        const std::vector<std::size_t>& pieces) {
  Md5Context context;
  Md5Init(context);
  std::size_t at = 0;
  for (std::size_t i = 0; at < bytes.size(); ++i) {
    std::size_t n = std::min(pieces[i % pieces.size()], bytes.size() - at);
    Md5Update(context, bytes.data() + at, n);
    at += n;
  }
  unsigned char digest[kMd5DigestSize];
  Md5Final(context, digest);
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

// Lengths on either side of the points where the padding needs a second block.
TEST(Md5, PaddingAroundTheBlockEnd) {
  EXPECT_EQ(OneShot(std::string(55, 'a')), "ef1772b6dff9a122358552954ad0df65");
  EXPECT_EQ(OneShot(std::string(56, 'a')), "3b0c8ac703f828b04c6c197006d17218");
  EXPECT_EQ(OneShot(std::string(63, 'a')), "b06521f39153d618550606be297466d5");
  EXPECT_EQ(OneShot(std::string(64, 'a')), "014842d480b571495a4a0363793f7367");
  EXPECT_EQ(OneShot(std::string(65, 'a')), "c743a45e0d2e6a95cb859adae0248435");
  EXPECT_EQ(OneShot(std::string(119, 'a')), "8a7bd0732ed6a28ce75f6dabc90e1613");
  EXPECT_EQ(OneShot(std::string(120, 'a')), "5f61c0ccad4cac44c75ff505e1f1e537");
  EXPECT_EQ(OneShot(std::string(128, 'a')), "e510683b3f5ffe4093d021808bc6ff70");
}

// The handshake's 1280 bytes, fed in pieces that straddle block boundaries in
// every way: single bytes, odd sizes, a piece that fills a partial block
// exactly, and pieces larger than one block.
TEST(Md5, IncrementalFeedsCrossingBlockBoundaries) {
  std::vector<unsigned char> bytes(1280);
  for (std::size_t i = 0; i < bytes.size(); ++i)
    bytes[i] = static_cast<unsigned char>(i % 251);
  const std::string expected = "5d91ab8feb1b4b1282ec401423b9d55a";

  EXPECT_EQ(Incremental(bytes, {1280}), expected);
  EXPECT_EQ(Incremental(bytes, {1}), expected);
  EXPECT_EQ(Incremental(bytes, {7, 13, 64, 0, 100}), expected);
  EXPECT_EQ(Incremental(bytes, {60, 4, 63, 1, 65, 127}), expected);
  EXPECT_EQ(Incremental(bytes, {256, 1024}), expected);
}

TEST(Md5, ZeroLengthUpdateWithNullChangesNothing) {
  Md5Context context;
  Md5Init(context);
  Md5Update(context, "ab", 2);
  Md5Update(context, nullptr, 0);
  Md5Update(context, "c", 1);
  unsigned char digest[kMd5DigestSize];
  Md5Final(context, digest);
  EXPECT_EQ(Hex(digest), "900150983cd24fb0d6963f7d28e17f72");
}

}  // namespace
}  // namespace vxbus
