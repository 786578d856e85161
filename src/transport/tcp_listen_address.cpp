// SPDX-License-Identifier: MIT
#include "transport/tcp_listen_address.h"

namespace vxbus {

MTObjects::MTReferencedPtr<TcpListenAddress> g_connThreadInfo(new TcpListenAddress);

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

}  // namespace vxbus
