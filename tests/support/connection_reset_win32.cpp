// SPDX-License-Identifier: MIT
#include <winsock2.h>

#include <cstdint>

#include "support/connection_reset.h"

namespace vxbus {
namespace testing {

bool ResetOnClose(platform::SocketHandle socket) {
  const linger zeroLinger{1, 0};
  return ::setsockopt(static_cast<SOCKET>(static_cast<std::int64_t>(socket)), SOL_SOCKET, SO_LINGER,
                      reinterpret_cast<const char*>(&zeroLinger), sizeof zeroLinger) == 0;
}

int ConnectionResetCode() {
  return WSAECONNRESET;
}

bool ResetMayEndAsClose() {
  return true;
}

}  // namespace testing
}  // namespace vxbus
