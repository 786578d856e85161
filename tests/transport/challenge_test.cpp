#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <thread>
#include <vector>

#include "transport/challenge.h"
#include "transport/md5.h"

namespace vxbus {
namespace {

TEST(ChallengeByteRule, ModuloTwoFiftySevenCutToEightBits) {
  EXPECT_EQ(ChallengeByteOfDraw(0), 0);
  EXPECT_EQ(ChallengeByteOfDraw(1), 1);
  EXPECT_EQ(ChallengeByteOfDraw(255), 255);
  EXPECT_EQ(ChallengeByteOfDraw(256), 0);  // 256 loses its ninth bit
  EXPECT_EQ(ChallengeByteOfDraw(257), 0);
  EXPECT_EQ(ChallengeByteOfDraw(258), 1);
  EXPECT_EQ(ChallengeByteOfDraw(257 * 1000 + 200), 200);
}

TEST(ChallengeByteRule, OnlyTheLargestDrawIsThrownAway) {
  EXPECT_EQ(ChallengeByteOfDraw(0xFFFFFFFFu), -1);
  // 0xFFFFFFFE is 257 * 0xFF00FE + 256: kept, and it gives byte 0.
  EXPECT_EQ(ChallengeByteOfDraw(0xFFFFFFFEu), 0);
  EXPECT_EQ(ChallengeByteOfDraw(0xFFFFFFFDu), 255);
}

// Replays a seeded engine next to FillChallenge: every byte must be the rule
// applied to the engine's next draw, and the stretch must contain draws that
// leave 0 and 256, both of which become byte 0.
TEST(ChallengeFill, FollowsTheRuleOverASeededEngine) {
  std::mt19937 engine(20240517u);
  std::mt19937 replay(20240517u);
  unsigned char challenge[kChallengeBytes];
  FillChallenge(engine, challenge);

  bool zeroFromZero = false;
  bool zeroFromTwoFiftySix = false;
  for (std::size_t i = 0; i < kChallengeBytes; ++i) {
    std::uint32_t v = static_cast<std::uint32_t>(replay());
    ASSERT_NE(v, 0xFFFFFFFFu) << "this seed would need a redraw; pick another";
    ASSERT_EQ(challenge[i], static_cast<unsigned char>((v % 257) & 0xFF)) << "byte " << i;
    if (v % 257 == 0) zeroFromZero = true;
    if (v % 257 == 256) zeroFromTwoFiftySix = true;
  }
  EXPECT_TRUE(zeroFromZero);
  EXPECT_TRUE(zeroFromTwoFiftySix);
  // Both engines stand at the same place afterwards: one draw per byte.
  EXPECT_EQ(engine(), replay());
}

TEST(ChallengeFill, ZeroComesTwiceAsOftenAsAnyOtherByte) {
  std::mt19937 engine(7u);
  std::array<std::size_t, 256> counts{};
  const std::size_t draws = 257 * 2000;
  for (std::size_t i = 0; i < draws; ++i)
    ++counts[DrawChallengeByte(engine)];
  double others = 0;
  for (std::size_t b = 1; b < 256; ++b)
    others += static_cast<double>(counts[b]);
  const double ratio = static_cast<double>(counts[0]) / (others / 255.0);
  EXPECT_GT(ratio, 1.8);
  EXPECT_LT(ratio, 2.2);
}

TEST(ChallengeFill, ProcessGeneratorGivesFreshChallenges) {
  unsigned char first[kChallengeBytes];
  unsigned char second[kChallengeBytes];
  FillChallenge(first);
  FillChallenge(second);
  EXPECT_NE(std::memcmp(first, second, kChallengeBytes), 0);
}

// The TCP and the pipe listener can fill a challenge each at the same time.
TEST(ChallengeFill, ProcessGeneratorIsSafeFromTwoThreads) {
  std::vector<std::vector<unsigned char>> results(2,
                                                  std::vector<unsigned char>(kChallengeBytes * 50));
  std::vector<std::thread> threads;
  for (auto& result : results) {
    threads.emplace_back([&result] {
      for (std::size_t i = 0; i < 50; ++i)
        FillChallenge(result.data() + i * kChallengeBytes);
    });
  }
  for (auto& t : threads)
    t.join();
  EXPECT_NE(results[0], results[1]);
}

TEST(ChallengeAnswer, IsTheDigestOfBlockThenChallenge) {
  unsigned char block[kAuthBlockBytes];
  unsigned char challenge[kChallengeBytes];
  for (std::size_t i = 0; i < kAuthBlockBytes; ++i)
    block[i] = static_cast<unsigned char>(i);
  for (std::size_t i = 0; i < kChallengeBytes; ++i)
    challenge[i] = static_cast<unsigned char>((i * 7 + 3) % 256);

  unsigned char answer[kAnswerBytes];
  ComputeAnswer(block, challenge, answer);
  const unsigned char expected[kAnswerBytes] = {0x3e, 0xc4, 0x42, 0x3d, 0x30, 0x67, 0x19, 0x50,
                                                0x9a, 0x17, 0xbe, 0x2f, 0x8b, 0x91, 0xbd, 0x6b};
  EXPECT_EQ(std::memcmp(answer, expected, kAnswerBytes), 0);
}

// Two processes without any secret share the all-zero block.
TEST(ChallengeAnswer, AllZeroBlockAndChallenge) {
  unsigned char block[kAuthBlockBytes] = {};
  unsigned char challenge[kChallengeBytes] = {};
  unsigned char answer[kAnswerBytes];
  ComputeAnswer(block, challenge, answer);
  const unsigned char expected[kAnswerBytes] = {0xa5, 0x05, 0x84, 0x31, 0x02, 0x2a, 0xd5, 0x6a,
                                                0x09, 0x1a, 0x49, 0x52, 0x1b, 0x5c, 0xb3, 0x5b};
  EXPECT_EQ(std::memcmp(answer, expected, kAnswerBytes), 0);
}

}  // namespace
}  // namespace vxbus
