#include "session/session_acceptor.h"

#include <new>

#include "session/application.h"
#include "session/application_registry.h"

namespace vxbus {
namespace {

class Acceptor final : public IChannelAcceptor {
 public:
  std::size_t SessionCount() override { return g_applications.Size(); }

  // The set-up reference goes when this returns: after a success the session
  // lives on in its own threads, after a failure they end it.
  Outcome Accept(const ChannelRef& channel) override {
    SessionRef session(new (std::nothrow) VXAPPImpl);
    if (!session) return Outcome::kNoSession;
    return session->AcceptApplication(channel) ? Outcome::kStarted : Outcome::kFailed;
  }
};

}  // namespace

IChannelAcceptor& SessionAcceptor() {
  static Acceptor* acceptor = new Acceptor;  // never destroyed: threads may outlive exit
  return *acceptor;
}

}  // namespace vxbus
