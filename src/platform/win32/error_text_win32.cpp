// SPDX-License-Identifier: MIT
#include <windows.h>

#include "platform/error_text.h"

namespace vxbus {
namespace platform {

std::string SystemErrorText(int code) {
  char buffer[256] = {0};
  const DWORD length =
      ::FormatMessageA(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr,
                       static_cast<DWORD>(code), 0, buffer, sizeof buffer, nullptr);
  std::string text(buffer, length);
  // The system ends its texts with a full stop and a line end.
  while (!text.empty() &&
         (text.back() == '\n' || text.back() == '\r' || text.back() == '.' || text.back() == ' '))
    text.pop_back();
  return text;
}

}  // namespace platform
}  // namespace vxbus
