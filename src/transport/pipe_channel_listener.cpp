// SPDX-License-Identifier: MIT
#include "transport/pipe_channel_listener.h"

#include <new>

#include "transport/pipe_channel.h"
#include "transport/pipe_name.h"

namespace vxbus {

PipeChannelListener::~PipeChannelListener() {
  platform::CloseLocalPipeListener(listener_);
}

bool PipeChannelListener::Open(int* createError) {
  if (listener_ != nullptr) return true;
  listener_ = platform::OpenLocalPipeListener(SystemPipeName(listenerPipeInName),
                                              SystemPipeName(listenerPipeOutName), createError);
  return listener_ != nullptr;
}

ChannelRef PipeChannelListener::Accept(const ChannelLimits& limits, std::uint32_t pairWaitMs,
                                       std::int64_t waitMs, const std::atomic<bool>* stop,
                                       std::uint32_t* client) {
  platform::LocalPipe* pipe =
      platform::AcceptFromLocalPipeListener(listener_, waitMs, pairWaitMs, stop, client);
  if (pipe == nullptr) return ChannelRef();
  // The listener reads "_in" and writes "_out".
  auto* channel =
      new (std::nothrow) PipeChannel(pipe, listenerPipeOutName, listenerPipeInName, limits);
  if (channel == nullptr) {
    platform::CloseLocalPipe(pipe);
    return ChannelRef();
  }
  channel->SetClientProcess(*client);
  return ChannelRef(channel);
}

}  // namespace vxbus
