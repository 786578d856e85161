// SPDX-License-Identifier: MIT
// Key of the session registry: borrowed text for look-ups, owned text in the map.
#ifndef VXBUS_RUNTIME_NAME_KEY_H_
#define VXBUS_RUNTIME_NAME_KEY_H_

#include <cstring>
#include <string>

#include "runtime/memory_buffer.h"

namespace vxbus {

class VXNameKey {
 public:
  // Borrows: no copy is made, so a look-up costs no allocation.
  explicit VXNameKey(const char* text) : name(text) {}
  // Owns: the text with its NUL, padded to a multiple of 4.
  explicit VXNameKey(const std::string& text) : name(nullptr) {
    owned.AppendPadded(text.c_str(), static_cast<std::uint32_t>(text.size() + 1));
  }
  VXNameKey(VXNameKey&& other) : name(other.name) {
    if (!name) owned.AppendPadded(other.owned.data, static_cast<std::uint32_t>(other.owned.used));
  }
  VXNameKey(const VXNameKey&) = delete;
  VXNameKey& operator=(const VXNameKey&) = delete;

  const char* Text() const { return name ? name : reinterpret_cast<const char*>(owned.data); }

  // Byte order of unsigned bytes; case matters.
  bool operator<(const VXNameKey& other) const {
    const auto* a = reinterpret_cast<const unsigned char*>(Text());
    const auto* b = reinterpret_cast<const unsigned char*>(other.Text());
    for (;; ++a, ++b) {
      if (*a != *b) return *a < *b;
      if (*a == 0) return false;
    }
  }

  const char* name;
  VXMemoryBufferTpl<256> owned;
};

}  // namespace vxbus

#endif  // VXBUS_RUNTIME_NAME_KEY_H_
