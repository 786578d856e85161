// SPDX-License-Identifier: MIT
#ifndef VXBUS_TRANSPORT_PIPE_CONNECTION_THREAD_H_
#define VXBUS_TRANSPORT_PIPE_CONNECTION_THREAD_H_

#include "transport/listener_environment.h"
#include "transport/pipe_listen_name.h"

namespace vxbus {

// The process-wide thread that takes in peers over local pipes. It waits at
// its gate first and ends on the stop of `environment`. It runs every
// handshake on a handshake thread (HandshakeThreads), within its caps and
// deadline, and cuts off and joins those still under way before it ends.
// Listens on the base name that `name` holds as it starts.
void PipeConnectionThread(ListenerEnvironment environment,
                          MTObjects::MTReferencedPtr<PipeListenName> name);

}  // namespace vxbus

#endif  // VXBUS_TRANSPORT_PIPE_CONNECTION_THREAD_H_
