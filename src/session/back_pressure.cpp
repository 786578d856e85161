// SPDX-License-Identifier: MIT
#include "session/back_pressure.h"

namespace vxbus {

namespace {

bool Stopping(const Session& session) {
  return session.Environment().processStop.StopRequested() || session.StopRequested();
}

std::uint64_t DispatchShareLimitBytes(const SessionEnvironment& environment) {
  return environment.dispatchQueueBytes / kDispatchSharesPerQueue;
}

}  // namespace

VX_ERROR AwaitSendRoom(Session& session, const MessageRef& message) {
  return AwaitSendRoom(session, VXMessageQueue::MessageBytes(message));
}

VX_ERROR AwaitSendRoom(Session& session, std::uint64_t bytes) {
  const SessionEnvironment& environment = session.Environment();
  const std::uint64_t limit = environment.sendQueueBytes;
  if (session.sendQueue_.HasRoom(bytes, limit)) return VX_SUCCESS;
  const std::int32_t limitMs = environment.ioTimeoutMs;
  if (limitMs <= 0) return VX_ERROR_QUEUE_FULL;
  VXMessageQueue::ConsumerAway away(*environment.dispatchQueue);
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
  const SessionEnvironment& environment = session.Environment();
  const RoomBounds bounds{environment.dispatchQueueBytes, &session.DispatchShare(),
                          DispatchShareLimitBytes(environment)};
  for (;;) {
    switch (environment.dispatchQueue->WaitForRoom(bytes, bounds, kPeerEndLookMs,
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
