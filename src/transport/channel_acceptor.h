// SPDX-License-Identifier: MIT
// The hook through which the listener threads hand accepted channels up to
// the layer that owns sessions.
#ifndef VXBUS_TRANSPORT_CHANNEL_ACCEPTOR_H_
#define VXBUS_TRANSPORT_CHANNEL_ACCEPTOR_H_

#include <cstddef>

#include "transport/transport_channel.h"

namespace vxbus {

// What the connection threads hand every accepted channel to: the layer that
// owns sessions. The threads log each outcome in their own words.
class IChannelAcceptor {
 public:
  enum class Outcome {
    kStarted,    // the handshake passed; the session lives on in its own threads
    kNoSession,  // no session object could be made; the channel is let go
    kFailed,     // the handshake failed; the session ends itself
  };
  // Sessions now, for the connection limit; read without a lock, so the
  // value may be a moment old.
  virtual std::size_t SessionCount() = 0;
  // Runs the whole handshake on the calling thread; blocks until it is done.
  virtual Outcome Accept(const ChannelRef& channel) = 0;

 protected:
  ~IChannelAcceptor() = default;
};

// Set once at load, before any thread starts; not owned.
void SetChannelAcceptor(IChannelAcceptor* acceptor);
IChannelAcceptor& ChannelAcceptor();
// Hands `channel` to the acceptor and logs a failure at level 2, each
// thread's lines starting with its own `linePrefix`.
void AcceptAndLog(const ChannelRef& channel, const char* linePrefix);

}  // namespace vxbus

#endif  // VXBUS_TRANSPORT_CHANNEL_ACCEPTOR_H_
