// SPDX-License-Identifier: MIT
// The pipe listener that stays up between clients, on the names of
// SetPipeNames: the channels of AcceptPipeChannel, but without a gap between
// rounds, so that clients that come together queue up instead of failing.
#ifndef VXBUS_TRANSPORT_PIPE_CHANNEL_LISTENER_H_
#define VXBUS_TRANSPORT_PIPE_CHANNEL_LISTENER_H_

#include <atomic>
#include <cstdint>

#include "platform/local_pipe_listener.h"
#include "transport/channel_limits.h"
#include "transport/transport_channel.h"

namespace vxbus {

// Used by one thread; closes its names when it goes.
class PipeChannelListener {
 public:
  PipeChannelListener() = default;
  ~PipeChannelListener();
  PipeChannelListener(const PipeChannelListener&) = delete;
  PipeChannelListener& operator=(const PipeChannelListener&) = delete;

  // Makes both names; false, with the system's code in `*createError`, when
  // they cannot be made (another process listens on them). Does not block.
  bool Open(int* createError);
  bool IsOpen() const { return listener_ != nullptr; }

  // The next client whose both pipes are open, within `waitMs`, with its
  // process in `*client`, as a channel under `limits`; null when the time
  // passed, `*stop` was set or WakePipeListener woke the wait. A client's
  // "_in" waits for its "_out" at most `pairWaitMs`, as in a round of
  // AcceptPipeChannel.
  ChannelRef Accept(const ChannelLimits& limits, std::uint32_t pairWaitMs, std::int64_t waitMs,
                    const std::atomic<bool>* stop, std::uint32_t* client);

 private:
  platform::LocalPipeListener* listener_ = nullptr;
};

}  // namespace vxbus

#endif  // VXBUS_TRANSPORT_PIPE_CHANNEL_LISTENER_H_
