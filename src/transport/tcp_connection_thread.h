// SPDX-License-Identifier: MIT
#ifndef VXBUS_TRANSPORT_TCP_CONNECTION_THREAD_H_
#define VXBUS_TRANSPORT_TCP_CONNECTION_THREAD_H_

namespace vxbus {

// The process-wide thread that takes in peers over TCP. It waits at its gate
// first and ends on g_shuttingDown. It runs each handshake on a handshake
// thread (HandshakeThreads), within its caps and deadline, and cuts off and
// joins those still under way before it ends.
void TcpConnectionThread();

}  // namespace vxbus

#endif  // VXBUS_TRANSPORT_TCP_CONNECTION_THREAD_H_
