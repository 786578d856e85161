// SPDX-License-Identifier: MIT
#include "transport/md5.h"

#include <cstring>

namespace vxbus {
namespace {

// Shift amounts per round step.
constexpr std::uint32_t kShift[64] = {7, 12, 17, 22, 7, 12, 17, 22, 7, 12, 17, 22, 7, 12, 17, 22,
                                      5, 9,  14, 20, 5, 9,  14, 20, 5, 9,  14, 20, 5, 9,  14, 20,
                                      4, 11, 16, 23, 4, 11, 16, 23, 4, 11, 16, 23, 4, 11, 16, 23,
                                      6, 10, 15, 21, 6, 10, 15, 21, 6, 10, 15, 21, 6, 10, 15, 21};

// floor(abs(sin(i + 1)) * 2^32).
constexpr std::uint32_t kSine[64] = {
    0xd76aa478, 0xe8c7b756, 0x242070db, 0xc1bdceee, 0xf57c0faf, 0x4787c62a, 0xa8304613, 0xfd469501,
    0x698098d8, 0x8b44f7af, 0xffff5bb1, 0x895cd7be, 0x6b901122, 0xfd987193, 0xa679438e, 0x49b40821,
    0xf61e2562, 0xc040b340, 0x265e5a51, 0xe9b6c7aa, 0xd62f105d, 0x02441453, 0xd8a1e681, 0xe7d3fbc8,
    0x21e1cde6, 0xc33707d6, 0xf4d50d87, 0x455a14ed, 0xa9e3e905, 0xfcefa3f8, 0x676f02d9, 0x8d2a4c8a,
    0xfffa3942, 0x8771f681, 0x6d9d6122, 0xfde5380c, 0xa4beea44, 0x4bdecfa9, 0xf6bb4b60, 0xbebfbc70,
    0x289b7ec6, 0xeaa127fa, 0xd4ef3085, 0x04881d05, 0xd9d4d039, 0xe6db99e5, 0x1fa27cf8, 0xc4ac5665,
    0xf4292244, 0x432aff97, 0xab9423a7, 0xfc93a039, 0x655b59c3, 0x8f0ccc92, 0xffeff47d, 0x85845dd1,
    0x6fa87e4f, 0xfe2ce6e0, 0xa3014314, 0x4e0811a1, 0xf7537e82, 0xbd3af235, 0x2ad7d2bb, 0xeb86d391};

inline std::uint32_t RotateLeft(std::uint32_t x, std::uint32_t n) {
  return (x << n) | (x >> (32 - n));
}

// Words are read byte by byte, so the routine does not depend on the host's
// byte order or on the alignment of the input.
inline std::uint32_t LoadLittleEndian(const unsigned char* p) {
  return static_cast<std::uint32_t>(p[0]) | static_cast<std::uint32_t>(p[1]) << 8 |
         static_cast<std::uint32_t>(p[2]) << 16 | static_cast<std::uint32_t>(p[3]) << 24;
}

inline void StoreLittleEndian(std::uint32_t v, unsigned char* p) {
  p[0] = static_cast<unsigned char>(v);
  p[1] = static_cast<unsigned char>(v >> 8);
  p[2] = static_cast<unsigned char>(v >> 16);
  p[3] = static_cast<unsigned char>(v >> 24);
}

void TransformBlock(std::uint32_t state[4], const unsigned char block[64]) {
  std::uint32_t m[16];
  for (int i = 0; i < 16; ++i)
    m[i] = LoadLittleEndian(block + 4 * i);

  std::uint32_t a = state[0], b = state[1], c = state[2], d = state[3];
  for (int i = 0; i < 64; ++i) {
    std::uint32_t f;
    int g;
    if (i < 16) {
      f = (b & c) | (~b & d);
      g = i;
    } else if (i < 32) {
      f = (d & b) | (~d & c);
      g = (5 * i + 1) % 16;
    } else if (i < 48) {
      f = b ^ c ^ d;
      g = (3 * i + 5) % 16;
    } else {
      f = c ^ (b | ~d);
      g = (7 * i) % 16;
    }
    std::uint32_t rotated = RotateLeft(a + f + kSine[i] + m[g], kShift[i]);
    a = d;
    d = c;
    c = b;
    b = b + rotated;
  }
  state[0] += a;
  state[1] += b;
  state[2] += c;
  state[3] += d;
}

}  // namespace

void Md5Init(Md5Context& context) {
  context.state[0] = 0x67452301;
  context.state[1] = 0xefcdab89;
  context.state[2] = 0x98badcfe;
  context.state[3] = 0x10325476;
  context.totalBytes = 0;
}

void Md5Update(Md5Context& context, const void* bytes, std::size_t length) {
  if (length == 0) return;  // bytes may be null then
  const auto* in = static_cast<const unsigned char*>(bytes);
  std::size_t filled = static_cast<std::size_t>(context.totalBytes % 64);
  context.totalBytes += length;

  if (filled != 0) {
    std::size_t take = 64 - filled;
    if (length < take) {
      std::memcpy(context.pending + filled, in, length);
      return;
    }
    std::memcpy(context.pending + filled, in, take);
    TransformBlock(context.state, context.pending);
    in += take;
    length -= take;
  }
  for (; length >= 64; in += 64, length -= 64)
    TransformBlock(context.state, in);
  if (length != 0) std::memcpy(context.pending, in, length);
}

void Md5Final(Md5Context& context, unsigned char digest[kMd5DigestSize]) {
  // The message length in bits, taken before the padding changes the count.
  std::uint64_t bitLength = context.totalBytes * 8;
  unsigned char tail[8];
  StoreLittleEndian(static_cast<std::uint32_t>(bitLength), tail);
  StoreLittleEndian(static_cast<std::uint32_t>(bitLength >> 32), tail + 4);

  // A one bit, then zeros up to 56 bytes into the last block.
  static const unsigned char kPadding[64] = {0x80};
  std::size_t filled = static_cast<std::size_t>(context.totalBytes % 64);
  std::size_t padLength = filled < 56 ? 56 - filled : 120 - filled;
  Md5Update(context, kPadding, padLength);
  Md5Update(context, tail, sizeof tail);

  for (int i = 0; i < 4; ++i)
    StoreLittleEndian(context.state[i], digest + 4 * i);
}

void Md5(const void* bytes, std::size_t length, unsigned char digest[kMd5DigestSize]) {
  Md5Context context;
  Md5Init(context);
  Md5Update(context, bytes, length);
  Md5Final(context, digest);
}

}  // namespace vxbus
