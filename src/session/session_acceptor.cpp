// SPDX-License-Identifier: MIT
#include "session/session_acceptor.h"

#include <new>

#include "session/session.h"
#include "session/session_registry.h"

namespace vxbus {
namespace {

thread_local bool t_accepting = false;

// Marks the thread for the whole handshake, listeners included.
class AcceptingScope {
 public:
  AcceptingScope() : outer_(t_accepting) { t_accepting = true; }
  ~AcceptingScope() { t_accepting = outer_; }
  AcceptingScope(const AcceptingScope&) = delete;
  AcceptingScope& operator=(const AcceptingScope&) = delete;

 private:
  const bool outer_;
};

}  // namespace

bool OnAcceptingThread() {
  return t_accepting;
}

std::size_t SessionAcceptor::SessionCount() {
  return environment_->registry->Size();
}

IChannelAcceptor::Outcome SessionAcceptor::Accept(const ChannelRef& channel) {
  AcceptingScope accepting;
  SessionRef session(new (std::nothrow) Session(*environment_));
  if (!session) return Outcome::kNoSession;
  return session->AcceptApplication(channel) ? Outcome::kStarted : Outcome::kFailed;
}

}  // namespace vxbus
