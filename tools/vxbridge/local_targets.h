// SPDX-License-Identifier: MIT
// The local applications that the bridge calls and listens to: one session
// to each, made with the local secret (which never leaves this process but
// for the handshake), remade when the target comes back after going away,
// with its signal subscriptions renewed.
#ifndef VXBRIDGE_LOCAL_TARGETS_H_
#define VXBRIDGE_LOCAL_TARGETS_H_

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "bridge_options.h"

namespace vxbridge {

class LocalTargets {
 public:
  enum class Reach { kConnected, kUnreachable, kRefused };

  explicit LocalTargets(std::string secret) : secret_(std::move(secret)) {}
  LocalTargets(const LocalTargets&) = delete;
  LocalTargets& operator=(const LocalTargets&) = delete;

  // Before the first ConnectAll: a target to keep a session to, and a signal
  // of it that our slot `slot` subscribes to after every connect.
  void Add(const Target& target);
  void AddSignal(const Target& target, const std::string& signal, std::uint32_t slot);

  // Connects each target that has no session, subscribing its signals, and
  // logs what changed. Kept short of a hostile target only by the library's
  // I/O time limit. The worst outcome over all targets: kRefused beats
  // kUnreachable beats kConnected.
  Reach ConnectAll();

  // The appID of the target's session, connecting first when there is none;
  // empty when it cannot be reached now.
  std::string AppIdOf(const std::string& targetText);

  // The session to `appId` has ended (the library's disconnect listener, or
  // a call that came back null). Unknown appIDs are ignored.
  void Lost(const std::string& appId);

 private:
  struct Entry {
    Target target;
    std::vector<std::pair<std::string, std::uint32_t>> signals;
    std::mutex connectMutex;  // one attempt at a time
    std::string appId;        // guarded by mutex_; empty while there is no session
    Reach lastLogged = Reach::kConnected;
  };

  Reach Connect(Entry& entry);

  const std::string secret_;
  std::mutex mutex_;
  std::map<std::string, std::unique_ptr<Entry>> entries_;
};

}  // namespace vxbridge

#endif  // VXBRIDGE_LOCAL_TARGETS_H_
