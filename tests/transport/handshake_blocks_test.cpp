// SPDX-License-Identifier: MIT
// The blocks of the handshake: MD5 against the RFC's suite, the challenge and
// its answer, and the blocks that carry application ids.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "runtime/private_heap.h"
#include "support/memory_channel.h"
#include "transport/app_id_block.h"
#include "transport/challenge.h"
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

TEST(Md5, DigestsMatchTheRfcTestSuite) {
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

// A draw gives its remainder by 257 cut to a byte, so 0 and 256 both give 0;
// only 0xFFFFFFFF is drawn again.
TEST(Challenge, ADrawGivesItsRemainderBy257AndOnlyTheLargestIsDrawnAgain) {
  EXPECT_EQ(ChallengeByteOfDraw(0), 0);
  EXPECT_EQ(ChallengeByteOfDraw(255), 255);
  EXPECT_EQ(ChallengeByteOfDraw(256), 0);
  EXPECT_EQ(ChallengeByteOfDraw(258), 1);
  EXPECT_EQ(ChallengeByteOfDraw(0xFFFFFFFEu), 0);
  EXPECT_EQ(ChallengeByteOfDraw(0xFFFFFFFFu), -1);
}

// Each challenge comes fresh from the system's random source: no two agree,
// and no byte is still the zero the buffer started with in most of them.
TEST(Challenge, ChallengesComeFreshFromTheSystemSource) {
  unsigned char a[kChallengeBytes] = {}, b[kChallengeBytes] = {};
  ASSERT_TRUE(FillChallenge(a));
  ASSERT_TRUE(FillChallenge(b));
  EXPECT_NE(std::memcmp(a, b, kChallengeBytes), 0);
  std::size_t zeros = 0;
  for (unsigned char byte : a)
    zeros += byte == 0;
  EXPECT_LT(zeros, kChallengeBytes / 16);  // about 8 in 1024 expected
}

// A known answer, and a match only when every byte of it agrees.
TEST(Challenge, OnlyTheDigestOfBlockThenChallengeIsAnAnswer) {
  unsigned char block[kAuthBlockBytes], challenge[kChallengeBytes], answer[kAnswerBytes];
  for (std::size_t i = 0; i < kAuthBlockBytes; ++i)
    block[i] = static_cast<unsigned char>(i);
  for (std::size_t i = 0; i < kChallengeBytes; ++i)
    challenge[i] = static_cast<unsigned char>(i * 7 + 3);
  ComputeAnswer(block, challenge, answer);
  const unsigned char expected[kAnswerBytes] = {0x3e, 0xc4, 0x42, 0x3d, 0x30, 0x67, 0x19, 0x50,
                                                0x9a, 0x17, 0xbe, 0x2f, 0x8b, 0x91, 0xbd, 0x6b};
  EXPECT_EQ(std::memcmp(answer, expected, kAnswerBytes), 0);
  EXPECT_TRUE(AnswerMatches(expected, answer));
  for (std::size_t i = 0; i < kAnswerBytes; ++i) {
    answer[i] ^= 0x01;
    EXPECT_FALSE(AnswerMatches(expected, answer)) << "byte " << i;
    answer[i] ^= 0x01;
  }
}

using testing::MemoryChannel;
using Bytes = MemoryChannel::Bytes;

Bytes Block(std::uint32_t n, const std::string& body) {
  Bytes out(4 + body.size());
  std::memcpy(out.data(), &n, 4);
  std::memcpy(out.data() + 4, body.data(), body.size());
  return out;
}

// The text, its end byte and zero bytes up to a multiple of 4; read back whole.
TEST(AppIdBlock, WritesExactBytesThatReadBack) {
  const std::string longest(255, 'x');
  const std::vector<std::pair<std::string, Bytes>> cases = {
      {"", Block(4, std::string(4, '\0'))},
      {"abc", Block(4, std::string("abc\0", 4))},
      {"abcd", Block(8, std::string("abcd\0\0\0\0", 8))},
      {longest, Block(256, longest + '\0')},
  };
  for (const auto& [name, expected] : cases) {
    MemoryChannel channel;
    EXPECT_EQ(WriteAppId(channel, name), static_cast<std::int32_t>(expected.size()));
    EXPECT_EQ(channel.Written(), expected) << name;
    EXPECT_EQ(ReadAppId(channel), name);
    EXPECT_EQ(channel.Queued(), 0u);
  }
}

// Guards the check of the block's growth: a name longer than the inline
// bytes whose block the heap refuses fails the write, and nothing goes out.
TEST(AppIdBlock, ALongNameWhoseBlockTheHeapRefusesFailsTheWrite) {
  MemoryChannel channel;
  RefusePrivateBlocksFrom(1024);
  const std::int32_t written = WriteAppId(channel, std::string(1000, 'l'));
  RefusePrivateBlocksFrom(0);
  EXPECT_EQ(written, -1);
  EXPECT_TRUE(channel.Written().empty());
}

// What a read leaves queued shows how far it went.
TEST(AppIdBlock, ReadsTheLargestBlockAndStopsEarlyOnTheOthers) {
  const struct {
    const char* what;
    Bytes fed;
    std::string name;
    std::size_t left;
  } cases[] = {
      {"the largest block", Block(256, std::string(256, 'n') + '\xEE'), std::string(256, 'n'), 1},
      {"a larger one: only its length is read", Block(257, std::string(257, 'y')), "", 257},
      {"N = 0: only the length is read", Block(0, "\xEE"), "", 1},
      {"a zero first byte: the whole block is read", Block(8, std::string("\0host\0\0\0", 8)), "",
       0},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    MemoryChannel channel;
    channel.Feed(c.fed);
    EXPECT_EQ(ReadAppId(channel), c.name);
    EXPECT_EQ(channel.Queued(), c.left);
  }
}

}  // namespace
}  // namespace vxbus
