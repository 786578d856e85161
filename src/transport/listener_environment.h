// SPDX-License-Identifier: MIT
// What a listener thread needs of the process, handed to it as it starts.
#ifndef VXBUS_TRANSPORT_LISTENER_ENVIRONMENT_H_
#define VXBUS_TRANSPORT_LISTENER_ENVIRONMENT_H_

#include <cstdint>

#include "runtime/latch.h"
#include "runtime/stop_token.h"
#include "transport/channel_limits.h"
#include "transport/pipe_channel.h"

namespace vxbus {

class IChannelAcceptor;

struct ListenerEnvironment {
  // A new peer is refused while more sessions than this are registered.
  std::uint32_t maxConnections = 10;
  ChannelLimits channelLimits;  // given to every accepted channel
  // The pipe listener's wait for a client in one round; tests shorten it.
  std::uint32_t pipeAcceptWaitMs = kPipeAcceptWaitMs;
  StopToken stop;  // the process shuts down
  // Not owned; they outlive the thread.
  MTObjects::Latch* gate = nullptr;  // waited for before anything else
  IChannelAcceptor* acceptor = nullptr;
};

}  // namespace vxbus

#endif  // VXBUS_TRANSPORT_LISTENER_ENVIRONMENT_H_
