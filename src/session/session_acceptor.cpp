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

class Acceptor final : public IChannelAcceptor {
 public:
  std::size_t SessionCount() override { return g_applications.Size(); }

  // The set-up reference goes when this returns: after a success the session
  // lives on in its own threads, after a failure they end it.
  Outcome Accept(const ChannelRef& channel) override {
    AcceptingScope accepting;
    SessionRef session(new (std::nothrow) Session);
    if (!session) return Outcome::kNoSession;
    return session->AcceptApplication(channel) ? Outcome::kStarted : Outcome::kFailed;
  }
};

}  // namespace

bool OnAcceptingThread() {
  return t_accepting;
}

IChannelAcceptor& SessionAcceptor() {
  static Acceptor* acceptor = new Acceptor;  // never destroyed: threads may outlive exit
  return *acceptor;
}

}  // namespace vxbus
