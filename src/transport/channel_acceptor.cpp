// SPDX-License-Identifier: MIT
#include "transport/channel_acceptor.h"

#include "runtime/log.h"

namespace vxbus {

void AcceptAndLog(IChannelAcceptor& acceptor, const ChannelRef& channel, const char* linePrefix) {
  switch (acceptor.Accept(channel)) {
    case IChannelAcceptor::Outcome::kNoSession:
      VX_LOG(kLogError, linePrefix, "Cannot create application object");
      break;
    case IChannelAcceptor::Outcome::kFailed:
      VX_LOG(kLogError, linePrefix, "Application start failed");
      break;
    case IChannelAcceptor::Outcome::kStarted:
      break;
  }
}

}  // namespace vxbus
