// SPDX-License-Identifier: MIT
// Turns a channel that a connection thread accepted into a session.
#ifndef VXBUS_SESSION_SESSION_ACCEPTOR_H_
#define VXBUS_SESSION_SESSION_ACCEPTOR_H_

#include "session/session_environment.h"
#include "transport/channel_acceptor.h"

namespace vxbus {

// Every session it makes gets a copy of `*environment` as it stands then;
// the environment is not owned and outlives the acceptor's users.
class SessionAcceptor final : public IChannelAcceptor {
 public:
  explicit SessionAcceptor(const SessionEnvironment* environment) : environment_(environment) {}

  std::size_t SessionCount() override;
  // The set-up reference goes when this returns: after a success the session
  // lives on in its own threads, after a failure they end it.
  Outcome Accept(const ChannelRef& channel) override;

 private:
  const SessionEnvironment* environment_;
};

// True on a thread that is inside an acceptor: a connection thread or one of
// its handshake threads, where the listeners of a handshake run.
bool OnAcceptingThread();

}  // namespace vxbus

#endif  // VXBUS_SESSION_SESSION_ACCEPTOR_H_
