// SPDX-License-Identifier: MIT
// What the TCP listener binds to, set by the application, read by the thread.
#ifndef VXBUS_TRANSPORT_TCP_LISTEN_ADDRESS_H_
#define VXBUS_TRANSPORT_TCP_LISTEN_ADDRESS_H_

#include <cstdint>
#include <mutex>

#include "platform/socket.h"
#include "runtime/referenced_ptr.h"

namespace vxbus {

// Where the TCP listener binds. Port 0 means no TCP listener is wanted.
class TcpListenAddress : public MTObjects::MTReferencedTypeBase {
 public:
  // An address text that is not a dotted IPv4 address means all local addresses.
  void Set(const char* bindAddress, std::uint16_t port);
  platform::Ipv4Endpoint Address();

 protected:
  bool IsObjectValid() const override { return true; }

 private:
  std::mutex mutex_;  // the address is written by the application, read by the thread
  std::uint32_t enabled_ = 0;
  platform::Ipv4Endpoint address_;
};

extern MTObjects::MTReferencedPtr<TcpListenAddress> g_connThreadInfo;

}  // namespace vxbus

#endif  // VXBUS_TRANSPORT_TCP_LISTEN_ADDRESS_H_
