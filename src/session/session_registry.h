// SPDX-License-Identifier: MIT
// The process-wide registry of established sessions, keyed by the peer's appID.
#ifndef VXBUS_SESSION_SESSION_REGISTRY_H_
#define VXBUS_SESSION_SESSION_REGISTRY_H_

#include <atomic>
#include <cstddef>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "runtime/name_key.h"
#include "session/session.h"

namespace vxbus {

class SessionRegistry {
 public:
  // Recursive; VXCall holds it across its look-up and its push.
  std::recursive_mutex& Mutex() { return mutex_; }

  // A new reference, or null. A null or unknown appID finds nothing. The key
  // borrows the text, so a look-up allocates nothing.
  SessionRef Find(const char* appId);
  // The same for a caller that holds the mutex.
  Session* FindLocked(const char* appId);

  // Makes the entry hold `session`, inserting an owning key or replacing the
  // reference of an existing one.
  // False, with nothing entered, when the heap refused the copy of a
  // long name for the key.
  bool Assign(const std::string& appId, Session* session);
  // Erases the entry only while it still holds `session`: a session that
  // ends after a newer one of the same name took its place leaves that one.
  void Erase(const std::string& appId, const Session* session);
  SessionRef First();
  // A new reference on every session registered at this moment.
  std::vector<SessionRef> Sessions();

  // Read without the mutex by the accept paths and the shutdown; the value
  // may be a moment old.
  std::size_t Size() const { return size_.load(std::memory_order_relaxed); }

 private:
  std::map<VXNameKey, SessionRef> map_;
  std::recursive_mutex mutex_;
  std::atomic<std::size_t> size_{0};
};

}  // namespace vxbus

#endif  // VXBUS_SESSION_SESSION_REGISTRY_H_
