// SPDX-License-Identifier: MIT
#include "runtime/printable_name.h"

namespace vxbus {

std::string PrintableName(const std::string& name) {
  static const char kHexDigits[] = "0123456789abcdef";
  std::string printable;
  printable.reserve(name.size());
  for (char c : name) {
    const auto byte = static_cast<unsigned char>(c);
    if (byte >= 0x20 && byte != 0x7F) {
      printable += c;
      continue;
    }
    printable += "\\x";
    printable += kHexDigits[byte >> 4];
    printable += kHexDigits[byte & 0x0F];
  }
  return printable;
}

}  // namespace vxbus
