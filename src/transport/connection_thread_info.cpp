// SPDX-License-Identifier: MIT
#include "transport/connection_threads.h"

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

MTObjects::MTReferencedPtr<TcpListenAddress> g_connThreadInfo(new TcpListenAddress);
MTObjects::MTReferencedPtr<PipeListenName> g_connPipeThreadInfo(new PipeListenName);

void TcpListenAddress::Set(const char* bindAddress, std::uint16_t port) {
  platform::Ipv4Endpoint address;
  address.port = port;
  if (bindAddress == nullptr || !platform::ParseDottedAddress(bindAddress, &address.address))
    address.address = 0;
  std::lock_guard<std::mutex> lock(mutex_);
  enabled_ = 1;
  address_ = address;
}

platform::Ipv4Endpoint TcpListenAddress::Address() {
  std::lock_guard<std::mutex> lock(mutex_);
  return address_;
}

void PipeListenName::SetPipeName(const char* pipeName) {
  std::lock_guard<std::mutex> lock(mutex_);
  pipeName_ = pipeName ? pipeName : "";
}

std::string PipeListenName::PipeName() {
  std::lock_guard<std::mutex> lock(mutex_);
  return pipeName_;
}

}  // namespace vxbus
