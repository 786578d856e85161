// SPDX-License-Identifier: MIT
// The operating system's cryptographically secure random source.
#ifndef VXBUS_PLATFORM_RANDOM_SOURCE_H_
#define VXBUS_PLATFORM_RANDOM_SOURCE_H_

#include <cstddef>

namespace vxbus {
namespace platform {

// Fills all `size` bytes of `buffer` from the system's random source
// (getrandom or /dev/urandom on POSIX, BCryptGenRandom or RtlGenRandom on
// Windows). Thread-safe; may block only while the system seeds its source at
// boot. Returns false when the source cannot be read; the buffer's contents
// must then not be used.
bool FillRandomBytes(void* buffer, std::size_t size);

}  // namespace platform
}  // namespace vxbus

#endif  // VXBUS_PLATFORM_RANDOM_SOURCE_H_
