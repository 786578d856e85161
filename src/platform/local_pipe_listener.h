// SPDX-License-Identifier: MIT
// A pipe listener that stays up between clients (an addition beside the
// one-round AcceptLocalPipe of local_pipe.h): both names are made once and
// kept until the listener is closed, so that a client may connect while
// others are being taken or served, instead of failing at once and trying
// again.
//
// A client opens "in" and then "out" as two separate connections; the
// listener pairs them by the client's process. Within one process
// ConnectLocalPipe opens its halves one client at a time, so a process's
// halves pair in the order they came. An "in" half waits a bounded time for
// its "out" half, and the halves waiting are capped per client process and
// overall (PendingPipeHalves); an "out" half with no "in" half of its
// process is closed at once.
#ifndef VXBUS_PLATFORM_LOCAL_PIPE_LISTENER_H_
#define VXBUS_PLATFORM_LOCAL_PIPE_LISTENER_H_

#include <atomic>
#include <cstdint>
#include <string>

#include "platform/local_pipe.h"

namespace vxbus {
namespace platform {

class LocalPipeListener;

// Makes both names and listens on them. Null when they cannot be made, with
// the system's code in `*createError` (may be null): a name that another
// process listens on cannot be made, as with AcceptLocalPipe. Owned by the
// caller, given back with CloseLocalPipeListener. Does not block.
LocalPipeListener* OpenLocalPipeListener(const std::string& inName, const std::string& outName,
                                         int* createError);

// Waits up to `waitMs` for the next client whose both halves have come, and
// returns the connected pair, owned by the caller, with the client's process
// id in `*client` (may be null; 0 when the system cannot tell). An "in" half
// that waits longer than `halfWaitMs` for its "out" half is closed. Null when
// the time passed, `*stop` (may be null) read true, or WakeLocalPipeAccept
// woke the wait. One thread at a time.
LocalPipe* AcceptFromLocalPipeListener(LocalPipeListener* listener, std::int64_t waitMs,
                                       std::int64_t halfWaitMs, const std::atomic<bool>* stop,
                                       std::uint32_t* client);

// Closes both names and every half still waiting; null is allowed. A client
// that connects afterwards fails at once.
void CloseLocalPipeListener(LocalPipeListener* listener);

}  // namespace platform
}  // namespace vxbus

#endif  // VXBUS_PLATFORM_LOCAL_PIPE_LISTENER_H_
