// SPDX-License-Identifier: MIT
// Words in lists, frames and the handshake are little-endian exactly as the
// host holds them, with no conversion: a load or store is an unaligned copy.
#ifndef VXBUS_RUNTIME_LITTLE_ENDIAN_H_
#define VXBUS_RUNTIME_LITTLE_ENDIAN_H_

#include <cstdint>
#include <cstring>

#include "vxbus.h"

namespace vxbus {

inline std::uint32_t Load32(const unsigned char* p) {
  return vxbus_detail::LoadU32(p);
}

inline std::uint64_t Load64(const unsigned char* p) {
  std::uint64_t v;
  std::memcpy(&v, p, sizeof v);
  return v;
}

inline void Store32(unsigned char* p, std::uint32_t v) {
  std::memcpy(p, &v, sizeof v);
}

}  // namespace vxbus

#endif  // VXBUS_RUNTIME_LITTLE_ENDIAN_H_
