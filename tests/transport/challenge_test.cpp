#include <gtest/gtest.h>

#include <cstring>

#include "transport/challenge.h"

namespace vxbus {
namespace {

// A draw gives its remainder by 257 cut to a byte, so 0 and 256 both give 0;
// only 0xFFFFFFFF is drawn again.
TEST(Challenge, ByteRule) {
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

TEST(Challenge, AnswerMatchesOnlyWhenEveryByteAgrees) {
  unsigned char expected[kAnswerBytes], answer[kAnswerBytes];
  for (std::size_t i = 0; i < kAnswerBytes; ++i)
    expected[i] = answer[i] = static_cast<unsigned char>(0xA0 + i);
  EXPECT_TRUE(AnswerMatches(expected, answer));
  for (std::size_t i = 0; i < kAnswerBytes; ++i) {
    answer[i] ^= 0x01;
    EXPECT_FALSE(AnswerMatches(expected, answer)) << "byte " << i;
    answer[i] ^= 0x01;
  }
}

TEST(Challenge, AnswerIsTheDigestOfBlockThenChallenge) {
  unsigned char block[kAuthBlockBytes], challenge[kChallengeBytes], answer[kAnswerBytes];
  for (std::size_t i = 0; i < kAuthBlockBytes; ++i)
    block[i] = static_cast<unsigned char>(i);
  for (std::size_t i = 0; i < kChallengeBytes; ++i)
    challenge[i] = static_cast<unsigned char>(i * 7 + 3);
  ComputeAnswer(block, challenge, answer);
  const unsigned char expected[kAnswerBytes] = {0x3e, 0xc4, 0x42, 0x3d, 0x30, 0x67, 0x19, 0x50,
                                                0x9a, 0x17, 0xbe, 0x2f, 0x8b, 0x91, 0xbd, 0x6b};
  EXPECT_EQ(std::memcmp(answer, expected, kAnswerBytes), 0);
}

}  // namespace
}  // namespace vxbus
