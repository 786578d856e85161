// SPDX-License-Identifier: MIT
// The challenge that the accepting side of the handshake sends, and the
// answer that proves the connecting side holds the shared secret.
#ifndef VXBUS_TRANSPORT_CHALLENGE_H_
#define VXBUS_TRANSPORT_CHALLENGE_H_

#include <cstddef>
#include <cstdint>

namespace vxbus {

constexpr std::size_t kChallengeBytes = 1024;
constexpr std::size_t kAuthBlockBytes = 256;
constexpr std::size_t kAnswerBytes = 16;

// Fills `out` with kChallengeBytes bytes by the rule below over 32-bit draws
// from the system's random source, so one challenge tells nothing of the
// next. False, with `out` not to be used, when the source cannot be read.
bool FillChallenge(unsigned char* out);

// The byte that one draw v yields, or -1 when v must be drawn again. The byte
// is v modulo 257 cut to 8 bits, so both 0 and 256 give byte 0 and byte 0
// comes twice as often as any other; that unevenness is part of the scheme.
// Only 0xFFFFFFFF, whose quotient by 257 reaches 0xFF00FF, is thrown away.
int ChallengeByteOfDraw(std::uint32_t v);

// Whether the answer equals the expected digest, in a time that does not
// depend on where they differ.
bool AnswerMatches(const unsigned char expected[kAnswerBytes],
                   const unsigned char answer[kAnswerBytes]);

// MD5 over the 256-byte authentication block followed by the challenge.
void ComputeAnswer(const unsigned char authBlock[kAuthBlockBytes],
                   const unsigned char challenge[kChallengeBytes],
                   unsigned char digest[kAnswerBytes]);

}  // namespace vxbus

#endif  // VXBUS_TRANSPORT_CHALLENGE_H_
