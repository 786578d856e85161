// SPDX-License-Identifier: MIT
#include "transport/pipe_name.h"

#include "platform/local_pipe.h"
#include "transport/md5.h"

namespace vxbus {

std::string MapPipeName(const std::string& name, std::size_t limit) {
  if (name.size() <= limit) return name;
  unsigned char digest[kMd5DigestSize];
  Md5(name.data(), name.size(), digest);
  static const char kHex[] = "0123456789abcdef";
  std::string tail = "-";
  for (unsigned char byte : digest) {
    tail += kHex[byte >> 4];
    tail += kHex[byte & 0xF];
  }
  // The kept head tells a person which name it was; the digest keeps two
  // names with the same head apart.
  return name.substr(0, limit - tail.size()) + tail;
}

std::string SystemPipeName(const std::string& name) {
  return MapPipeName(name, platform::MaxLocalPipeNameLength());
}

}  // namespace vxbus
