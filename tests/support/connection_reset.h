// SPDX-License-Identifier: MIT
// A socket that ends its connection with a reset instead of an orderly
// close, as a crashed or killed peer's system may; the system calls are in
// connection_reset_<system>.cpp.
#ifndef VXBUS_TESTS_SUPPORT_CONNECTION_RESET_H_
#define VXBUS_TESTS_SUPPORT_CONNECTION_RESET_H_

#include "platform/socket.h"

namespace vxbus {
namespace testing {

// Makes the socket's close send a reset (a zero linger time). False when
// the system refused the option.
bool ResetOnClose(platform::SocketHandle socket);

// The code the system gives a reader whose peer reset the connection.
int ConnectionResetCode();

// True where a reset may reach the reader as an orderly end of the stream
// instead: under Wine, which runs the Windows suite, it does.
bool ResetMayEndAsClose();

}  // namespace testing
}  // namespace vxbus

#endif  // VXBUS_TESTS_SUPPORT_CONNECTION_RESET_H_
