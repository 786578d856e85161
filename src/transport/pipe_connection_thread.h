// SPDX-License-Identifier: MIT
#ifndef VXBUS_TRANSPORT_PIPE_CONNECTION_THREAD_H_
#define VXBUS_TRANSPORT_PIPE_CONNECTION_THREAD_H_

namespace vxbus {

// The process-wide thread that takes in peers over local pipes. It waits at
// its gate first and ends on g_shuttingDown, and runs each handshake itself.
void PipeConnectionThread();

}  // namespace vxbus

#endif  // VXBUS_TRANSPORT_PIPE_CONNECTION_THREAD_H_
