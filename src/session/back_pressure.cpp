// SPDX-License-Identifier: MIT
#include "session/back_pressure.h"

#include "runtime/process_state.h"

namespace vxbus {

namespace {

bool Stopping(const Session& session) {
  return g_shuttingDown.load(std::memory_order_relaxed) || session.StopRequested();
}

}  // namespace

std::uint64_t SendQueueLimitBytes() {
  return g_limits.limits.RESERVED_E;
}

std::uint64_t DispatchQueueLimitBytes() {
  return g_limits.limits.RESERVED_D;
}

std::uint64_t DispatchShareLimitBytes() {
  return DispatchQueueLimitBytes() / kDispatchSharesPerQueue;
}

_tag_VX_ERROR AwaitSendRoom(Session& session, const MessageRef& message) {
  return AwaitSendRoom(session, VXMessageQueue::MessageBytes(message));
}

_tag_VX_ERROR AwaitSendRoom(Session& session, std::uint64_t bytes) {
  const std::uint64_t limit = SendQueueLimitBytes();
  if (session.sendQueue_.HasRoom(bytes, limit)) return VX_SUCCESS;
  const std::int32_t limitMs = g_limits.limits.IO_TIMEOUT_MS;
  if (limitMs <= 0) return VX_ERROR_QUEUE_FULL;
  VXMessageQueue::ConsumerAway away(g_dispatchQueue);
  switch (session.sendQueue_.WaitForRoom(bytes, limit, limitMs,
                                         [&session] { return Stopping(session); })) {
    case VXMessageQueue::Room::kStopped:
      return VX_ERROR_NO_APPLICATION;
    case VXMessageQueue::Room::kTimedOut:
      return VX_ERROR_QUEUE_FULL;
    default:
      return VX_SUCCESS;
  }
}

bool AwaitDispatchRoom(Session& session, const MessageRef& message) {
  return AwaitDispatchRoom(session, VXMessageQueue::MessageBytes(message));
}

bool AwaitDispatchRoom(Session& session, std::uint64_t bytes) {
  const RoomBounds bounds{DispatchQueueLimitBytes(), &session.DispatchShare(),
                          DispatchShareLimitBytes()};
  for (;;) {
    switch (g_dispatchQueue.WaitForRoom(bytes, bounds, kPeerEndLookMs,
                                        [&session] { return Stopping(session); })) {
      case VXMessageQueue::Room::kStopped:
        return false;
      case VXMessageQueue::Room::kTimedOut:
        // Its requests are not read while it waits, so its end would not
        // be seen by reading: a peer killed mid-flood is let go here.
        if (session.PeerEnded()) return false;
        break;
      default:
        return true;
    }
  }
}

}  // namespace vxbus
