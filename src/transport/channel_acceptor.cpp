// SPDX-License-Identifier: MIT
#include "transport/channel_acceptor.h"

#include <atomic>

#include "runtime/log.h"

namespace vxbus {

namespace {
std::atomic<IChannelAcceptor*> g_channelAcceptor{nullptr};
}  // namespace

void SetChannelAcceptor(IChannelAcceptor* acceptor) {
  g_channelAcceptor.store(acceptor, std::memory_order_release);
}

IChannelAcceptor& ChannelAcceptor() {
  return *g_channelAcceptor.load(std::memory_order_acquire);
}

void AcceptAndLog(const ChannelRef& channel, const char* linePrefix) {
  switch (ChannelAcceptor().Accept(channel)) {
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
