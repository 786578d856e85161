// SPDX-License-Identifier: MIT
#ifndef VXBUS_TRANSPORT_TCP_CONNECTION_THREAD_H_
#define VXBUS_TRANSPORT_TCP_CONNECTION_THREAD_H_

#include "transport/listener_environment.h"
#include "transport/tcp_listen_address.h"

namespace vxbus {

// The process-wide thread that takes in peers over TCP. It waits at its gate
// first and ends on the stop of `environment`; binds to `address`. It runs each handshake on a
// handshake thread (HandshakeThreads), within its caps and deadline, and cuts off and joins those
// still under way before it ends.
void TcpConnectionThread(ListenerEnvironment environment,
                         MTObjects::MTReferencedPtr<TcpListenAddress> address);

}  // namespace vxbus

#endif  // VXBUS_TRANSPORT_TCP_CONNECTION_THREAD_H_
