// SPDX-License-Identifier: MIT
// The system's preferred generator through BCrypt; it needs no handle and is
// safe from any thread.
#include <windows.h>

#include <bcrypt.h>

#include <climits>

#include "platform/random_source.h"

namespace vxbus {
namespace platform {

bool FillRandomBytes(void* buffer, std::size_t size) {
  auto* out = static_cast<unsigned char*>(buffer);
  while (size > 0) {
    const ULONG part = size > ULONG_MAX ? ULONG_MAX : static_cast<ULONG>(size);
    if (!BCRYPT_SUCCESS(::BCryptGenRandom(nullptr, out, part, BCRYPT_USE_SYSTEM_PREFERRED_RNG)))
      return false;
    out += part;
    size -= part;
  }
  return true;
}

}  // namespace platform
}  // namespace vxbus
