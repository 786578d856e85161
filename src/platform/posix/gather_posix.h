// SPDX-License-Identifier: MIT
// The one gathered send that both stream kinds use on POSIX: sockets and
// local pipes are both stream sockets here.
#ifndef VXBUS_PLATFORM_POSIX_GATHER_POSIX_H_
#define VXBUS_PLATFORM_POSIX_GATHER_POSIX_H_

#include <sys/socket.h>
#include <sys/uio.h>

#include <cerrno>
#include <cstddef>

#include "platform/io_result.h"

namespace vxbus {
namespace platform {
namespace posix {

constexpr std::size_t kMaxGatherPieces = 16;

// One sendmsg over the pieces, retried on EINTR only; MSG_NOSIGNAL so that a
// reader that has gone fails the call instead of raising SIGPIPE. Returns
// what sendmsg returned, with errno set on -1; pieces past the 16th are left
// for the next call.
inline ssize_t SendPieces(int fd, const BytePiece* pieces, std::size_t count, int flags) {
  iovec vectors[kMaxGatherPieces];
  if (count > kMaxGatherPieces) count = kMaxGatherPieces;
  for (std::size_t i = 0; i < count; ++i) {
    vectors[i].iov_base = const_cast<void*>(pieces[i].data);
    vectors[i].iov_len = pieces[i].length;
  }
  msghdr message{};
  message.msg_iov = vectors;
  message.msg_iovlen = count;
  for (;;) {
    ssize_t sent = ::sendmsg(fd, &message, flags | MSG_NOSIGNAL);
    if (sent >= 0 || errno != EINTR) return sent;
  }
}

}  // namespace posix
}  // namespace platform
}  // namespace vxbus

#endif  // VXBUS_PLATFORM_POSIX_GATHER_POSIX_H_
