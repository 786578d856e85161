// SPDX-License-Identifier: MIT
// Turns a channel that a connection thread accepted into a session.
#ifndef VXBUS_SESSION_SESSION_ACCEPTOR_H_
#define VXBUS_SESSION_SESSION_ACCEPTOR_H_

#include "transport/channel_acceptor.h"

namespace vxbus {

// The process's one acceptor; lives as long as the process.
IChannelAcceptor& SessionAcceptor();

// True on a thread that is inside the acceptor: a connection thread or one of
// its handshake threads, where the listeners of a handshake run.
bool OnAcceptingThread();

}  // namespace vxbus

#endif  // VXBUS_SESSION_SESSION_ACCEPTOR_H_
