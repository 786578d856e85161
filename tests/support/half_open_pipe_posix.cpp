// SPDX-License-Identifier: MIT
// The "_in" half as the POSIX listener takes it: a stream connection to a
// Unix socket in the abstract namespace.
#include <stddef.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>

#include "support/half_open_pipe.h"

namespace vxbus {
namespace testing {

bool HalfOpenPipe::Open(const std::string& systemName) {
  Close();
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (systemName.size() + 1 > sizeof address.sun_path) return false;
  std::memcpy(address.sun_path + 1, systemName.data(), systemName.size());
  const auto length =
      static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + systemName.size());
  const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (fd < 0) return false;
  if (::connect(fd, reinterpret_cast<const sockaddr*>(&address), length) != 0) {
    ::close(fd);
    return false;
  }
  handle_ = fd;
  return true;
}

void HalfOpenPipe::Close() {
  if (handle_ >= 0) ::close(static_cast<int>(handle_));
  handle_ = -1;
}

}  // namespace testing
}  // namespace vxbus
