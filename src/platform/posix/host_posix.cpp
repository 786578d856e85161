// SPDX-License-Identifier: MIT
#include <sys/resource.h>
#include <unistd.h>

#include <cstdlib>

#include "platform/host.h"

namespace vxbus {
namespace platform {

bool ReadEnvironmentVariable(const char* name, std::string* value) {
  const char* text = std::getenv(name);
  if (text == nullptr) return false;
  *value = text;
  return true;
}

bool GetHostName(char* buffer, std::size_t size) {
  return ::gethostname(buffer, size) == 0;
}

// POSIX sockets need no library start.
void StartSocketLibrary() {}
void StopSocketLibrary() {}

// The soft limit; "unlimited" and a failed query both count as large.
std::size_t OpenHandleLimit() {
  constexpr std::size_t kLarge = 1u << 20;
  rlimit limit{};
  if (::getrlimit(RLIMIT_NOFILE, &limit) != 0 || limit.rlim_cur == RLIM_INFINITY) return kLarge;
  return limit.rlim_cur < kLarge ? static_cast<std::size_t>(limit.rlim_cur) : kLarge;
}

}  // namespace platform
}  // namespace vxbus
