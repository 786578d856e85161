// SPDX-License-Identifier: MIT
// What a session needs of the process, handed to each session when it is
// made, as a listener hands its options to each connection it starts. The
// process's context fills it at the first initialise, before any listener
// runs, and owns everything it points to for the life of the process.
#ifndef VXBUS_SESSION_SESSION_ENVIRONMENT_H_
#define VXBUS_SESSION_SESSION_ENVIRONMENT_H_

#include <atomic>
#include <cstdint>
#include <string>

#include "runtime/stop_token.h"
#include "vxbus.h"

namespace vxbus {

class Session;
class SessionRegistry;
class VXMessageQueue;

// The application's four listeners. Set with release and read with acquire
// at each call, so that a listener takes effect at once and what the
// application set up before installing it is visible inside it.
struct SessionListeners {
  std::atomic<VXConnectListener> connect{nullptr};
  std::atomic<VXDisconnectListener> disconnect{nullptr};
  std::atomic<VXAuthFailedListener> authFailed{nullptr};
  std::atomic<VXUnknownConnectListener> unknownConnect{nullptr};
};

// The few calls a session makes into the layers above it.
class SessionServices {
 public:
  static constexpr std::size_t kSecretBytes = sizeof(VXLimits::limits.authBlock);
  // Copies the secret in force as one whole: never half of an old secret and
  // half of a new one. Any thread; blocks only for another copy or a change.
  virtual void SnapshotSecret(unsigned char (&block)[kSecretBytes]) = 0;
  // Runs on the reader as a session ends, before the disconnect listener,
  // so that the layers above can forget it.
  virtual void SessionEnded(Session* session) = 0;

 protected:
  ~SessionServices() = default;
};

struct SessionEnvironment {
  // From the limits record in force at the first initialise.
  std::int32_t ioTimeoutMs = 60000;             // a wait for room in a queue
  std::uint32_t maxReadSize = 1073741824;       // a list read off the channel
  std::uint64_t sendQueueBytes = 1048576;       // one session's send queue
  std::uint64_t dispatchQueueBytes = 67108864;  // the dispatch queue
  std::string ownAppId;                         // sent to every peer
  StopToken processStop;                        // the process shuts down
  // Not owned; they outlive every session.
  SessionRegistry* registry = nullptr;
  VXMessageQueue* dispatchQueue = nullptr;
  const SessionListeners* listeners = nullptr;
  SessionServices* services = nullptr;
};

}  // namespace vxbus

#endif  // VXBUS_SESSION_SESSION_ENVIRONMENT_H_
