// SPDX-License-Identifier: MIT
#include "support/channel_pair.h"

#include <atomic>
#include <thread>

#include "platform/socket.h"
#include "support/peer.h"
#include "support/wait.h"
#include "transport/pipe_channel.h"
#include "transport/socket_channel.h"

namespace vxbus {
namespace testing {

namespace {

// A socket bound to 127.0.0.1 on a port the system picked; `endpoint` gets both.
platform::SocketHandle BindLoopback(platform::Ipv4Endpoint* endpoint) {
  *endpoint = platform::Ipv4Endpoint();
  platform::ParseDottedAddress("127.0.0.1", &endpoint->address);
  platform::SocketHandle socket = platform::CreateStreamSocket();
  platform::Bind(socket, *endpoint);  // port 0: the system picks one
  platform::GetLocalEndpoint(socket, endpoint);
  return socket;
}

}  // namespace

int FreeTcpPort() {
  platform::Ipv4Endpoint endpoint;
  platform::CloseSocket(BindLoopback(&endpoint));
  return endpoint.port;
}

ChannelPair MakeSocketChannelPair(const ChannelLimits& limits) {
  platform::Ipv4Endpoint endpoint;
  platform::SocketHandle listener = BindLoopback(&endpoint);
  platform::Listen(listener, 1);
  ChannelPair pair;
  pair.first = ConnectSocketChannel("127.0.0.1", endpoint.port, limits);
  platform::SocketHandle accepted = platform::Accept(listener, nullptr);
  ApplyConnectedSocketOptions(accepted);
  pair.second = WrapAcceptedSocket(accepted, limits);
  platform::CloseSocket(listener);
  return pair;
}

std::string UniquePipeName(const std::string& stem) {
  static std::atomic<int> counter{0};
  return "vxbus_test_" + stem + "_" + std::to_string(CurrentProcessId()) + "_" +
         std::to_string(++counter);
}

ChannelPair MakePipeChannelPair(const ChannelLimits& limits) {
  std::string name = UniquePipeName("pair");
  SetPipeNames(name);
  ChannelPair pair;
  std::thread listener(
      [&pair, &limits] { pair.second = AcceptPipeChannel(limits, kPipeAcceptWaitMs, nullptr); });
  // The listener's pipes may not exist yet: a connect fails at once then.
  WaitUntil([&pair, &name, &limits] {
    pair.first = ConnectPipeChannel(name, limits);
    return static_cast<bool>(pair.first);
  });
  listener.join();
  return pair;
}

}  // namespace testing
}  // namespace vxbus
