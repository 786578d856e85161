// SPDX-License-Identifier: MIT
#include "transport/challenge.h"

#include <cstring>

#include "platform/random_source.h"
#include "transport/md5.h"

namespace vxbus {

int ChallengeByteOfDraw(std::uint32_t v) {
  if (v / 257 >= 0xFF00FFu) return -1;
  return static_cast<int>((v % 257) & 0xFF);
}

bool FillChallenge(unsigned char* out) {
  // One draw per byte, and a few spare for the rare draw that is thrown away.
  std::uint32_t draws[kChallengeBytes + 8];
  std::size_t next = 0, filled = 0;
  if (!platform::FillRandomBytes(draws, sizeof draws)) return false;
  while (filled < kChallengeBytes) {
    if (next == sizeof draws / sizeof draws[0]) {
      if (!platform::FillRandomBytes(draws, sizeof draws)) return false;
      next = 0;
    }
    const int byte = ChallengeByteOfDraw(draws[next++]);
    if (byte >= 0) out[filled++] = static_cast<unsigned char>(byte);
  }
  std::memset(draws, 0, sizeof draws);
  return true;
}

bool AnswerMatches(const unsigned char expected[kAnswerBytes],
                   const unsigned char answer[kAnswerBytes]) {
  unsigned difference = 0;
  for (std::size_t i = 0; i < kAnswerBytes; ++i)
    difference |= static_cast<unsigned>(expected[i] ^ answer[i]);
  return difference == 0;
}

void ComputeAnswer(const unsigned char authBlock[kAuthBlockBytes],
                   const unsigned char challenge[kChallengeBytes],
                   unsigned char digest[kAnswerBytes]) {
  Md5Context context;
  Md5Init(context);
  Md5Update(context, authBlock, kAuthBlockBytes);
  Md5Update(context, challenge, kChallengeBytes);
  Md5Final(context, digest);
}

}  // namespace vxbus
