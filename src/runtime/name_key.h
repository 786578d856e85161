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
  // Owns: the text with its NUL, padded to a multiple of 4. A name too long
  // for the inline bytes whose copy the heap refuses leaves the key empty
  // and not Whole(); such a key must not go into a map.
  explicit VXNameKey(const std::string& text) : name(nullptr) {
    CopyOrEmpty(text.c_str(), static_cast<std::uint32_t>(text.size() + 1));
  }
  VXNameKey(VXNameKey&& other) : name(other.name) {
    if (!name) CopyOrEmpty(other.owned.data, static_cast<std::uint32_t>(other.owned.used));
    whole_ = whole_ && other.whole_;
  }
  VXNameKey(const VXNameKey&) = delete;
  VXNameKey& operator=(const VXNameKey&) = delete;

  // False when the heap refused the owned copy of the text.
  bool Whole() const { return whole_; }

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

 private:
  // An empty text always fits the inline bytes.
  void CopyOrEmpty(const void* text, std::uint32_t length) {
    if (owned.AppendPadded(text, length)) return;
    whole_ = false;
    owned.AppendPadded("", 1);
  }

  bool whole_ = true;
};

}  // namespace vxbus

#endif  // VXBUS_RUNTIME_NAME_KEY_H_
