// SPDX-License-Identifier: MIT
#include "session/session_registry.h"

#include <tuple>
#include <utility>

namespace vxbus {

Session* SessionRegistry::FindLocked(const char* appId) {
  if (appId == nullptr) return nullptr;
  auto it = map_.find(VXNameKey(appId));
  return it == map_.end() ? nullptr : it->second.get();
}

SessionRef SessionRegistry::Find(const char* appId) {
  std::lock_guard<std::recursive_mutex> lock(mutex_);
  return SessionRef(FindLocked(appId));
}

bool SessionRegistry::Assign(const std::string& appId, Session* session) {
  std::lock_guard<std::recursive_mutex> lock(mutex_);
  auto it = map_.find(VXNameKey(appId.c_str()));
  if (it != map_.end()) {
    it->second = session;
    return true;
  }
  // The key is built in its node: a move would copy the name once more.
  it = map_.emplace(std::piecewise_construct, std::forward_as_tuple(appId),
                    std::forward_as_tuple(session))
           .first;
  if (!it->first.Whole()) {
    map_.erase(it);
    return false;
  }
  size_.store(map_.size(), std::memory_order_relaxed);
  return true;
}

void SessionRegistry::Erase(const std::string& appId, const Session* session) {
  SessionRef dropped;  // released after the unlock
  std::lock_guard<std::recursive_mutex> lock(mutex_);
  auto it = map_.find(VXNameKey(appId.c_str()));
  if (it == map_.end() || it->second.get() != session) return;
  dropped = std::move(it->second);
  map_.erase(it);
  size_.store(map_.size(), std::memory_order_relaxed);
}

SessionRef SessionRegistry::First() {
  std::lock_guard<std::recursive_mutex> lock(mutex_);
  return map_.empty() ? SessionRef() : map_.begin()->second;
}

std::vector<SessionRef> SessionRegistry::Sessions() {
  std::lock_guard<std::recursive_mutex> lock(mutex_);
  std::vector<SessionRef> sessions;
  sessions.reserve(map_.size());
  for (auto& entry : map_)
    sessions.push_back(entry.second);
  return sessions;
}

}  // namespace vxbus
