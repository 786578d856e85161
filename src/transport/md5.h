// SPDX-License-Identifier: MIT
// MD5 message digest (RFC 1321). The handshake proves knowledge of the shared
// secret with it; nothing else in the library hashes.
#ifndef VXBUS_TRANSPORT_MD5_H_
#define VXBUS_TRANSPORT_MD5_H_

#include <cstddef>
#include <cstdint>

namespace vxbus {

constexpr std::size_t kMd5DigestSize = 16;

// Incremental digest: Md5Init, any number of Md5Update, one Md5Final.
struct Md5Context {
  std::uint32_t state[4];
  std::uint64_t totalBytes;   // bytes fed so far
  unsigned char pending[64];  // the unfinished block
};

void Md5Init(Md5Context& context);
void Md5Update(Md5Context& context, const void* bytes, std::size_t length);
// Writes the digest; the context must be initialised again before reuse.
void Md5Final(Md5Context& context, unsigned char digest[kMd5DigestSize]);

// The digest of one contiguous range.
void Md5(const void* bytes, std::size_t length, unsigned char digest[kMd5DigestSize]);

}  // namespace vxbus

#endif  // VXBUS_TRANSPORT_MD5_H_
