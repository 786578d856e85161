// SPDX-License-Identifier: MIT
#include <errno.h>
#include <sys/socket.h>

#include <cstdint>

#include "support/connection_reset.h"

namespace vxbus {
namespace testing {

bool ResetOnClose(platform::SocketHandle socket) {
  const linger zeroLinger{1, 0};
  return ::setsockopt(static_cast<int>(static_cast<std::int64_t>(socket)), SOL_SOCKET, SO_LINGER,
                      &zeroLinger, sizeof zeroLinger) == 0;
}

int ConnectionResetCode() {
  return ECONNRESET;
}

bool ResetMayEndAsClose() {
  return false;
}

}  // namespace testing
}  // namespace vxbus
