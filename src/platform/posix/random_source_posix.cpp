// SPDX-License-Identifier: MIT
#include <fcntl.h>
#include <sys/random.h>
#include <unistd.h>

#include <cerrno>

#include "platform/random_source.h"

namespace vxbus {
namespace platform {

namespace {

// For kernels without getrandom.
bool FillFromDevice(unsigned char* out, std::size_t size) {
  int fd = open("/dev/urandom", O_RDONLY | O_CLOEXEC);
  if (fd < 0) return false;
  while (size > 0) {
    ssize_t n = read(fd, out, size);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) break;
    out += n;
    size -= static_cast<std::size_t>(n);
  }
  close(fd);
  return size == 0;
}

}  // namespace

bool FillRandomBytes(void* buffer, std::size_t size) {
  auto* out = static_cast<unsigned char*>(buffer);
  while (size > 0) {
    ssize_t n = getrandom(out, size, 0);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0 && errno == ENOSYS) return FillFromDevice(out, size);
    if (n <= 0) return false;
    out += n;
    size -= static_cast<std::size_t>(n);
  }
  return true;
}

}  // namespace platform
}  // namespace vxbus
