// SPDX-License-Identifier: MIT
#include <string.h>

#include "platform/error_text.h"

namespace vxbus {
namespace platform {
namespace {

// strerror_r comes in two forms; each overload takes the result of one.
[[maybe_unused]] std::string FromStrerror(int result, const char* buffer) {
  return result == 0 ? std::string(buffer) : std::string();
}
[[maybe_unused]] std::string FromStrerror(const char* text, const char*) {
  return text != nullptr ? std::string(text) : std::string();
}

}  // namespace

std::string SystemErrorText(int code) {
  char buffer[256] = {0};
  return FromStrerror(::strerror_r(code, buffer, sizeof buffer), buffer);
}

}  // namespace platform
}  // namespace vxbus
