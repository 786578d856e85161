// SPDX-License-Identifier: MIT
#include "read_all.h"

#include <sys/stat.h>

#include <fstream>
#include <iostream>

namespace vxctl {
namespace {

bool TooLarge(const std::string& path, std::size_t limit, std::string& error) {
  error = "'" + path + "' is larger than " + std::to_string(limit) + " bytes";
  return false;
}

}  // namespace

bool ReadAll(const std::string& path, std::size_t limit, std::string& out, std::string& error) {
  std::ifstream file;
  std::istream* in = &std::cin;
  if (path != "-") {
    struct stat status = {};
    if (stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode) &&
        static_cast<std::uint64_t>(status.st_size) > limit)
      return TooLarge(path, limit, error);
    file.open(path, std::ios::binary);
    if (!file) {
      error = "cannot open '" + path + "'";
      return false;
    }
    in = &file;
  }
  out.clear();
  char buffer[65536];
  while (in->read(buffer, sizeof buffer) || in->gcount() > 0) {
    const auto got = static_cast<std::size_t>(in->gcount());
    if (got > limit - out.size()) return TooLarge(path, limit, error);
    out.append(buffer, got);
  }
  return true;
}

}  // namespace vxctl
