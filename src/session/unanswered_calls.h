// SPDX-License-Identifier: MIT
// The calls of one session that wait for their replies, keyed by message id.
#ifndef VXBUS_SESSION_UNANSWERED_CALLS_H_
#define VXBUS_SESSION_UNANSWERED_CALLS_H_

#include <cstddef>
#include <cstdint>
#include <map>
#include <mutex>

#include "session/message.h"

namespace vxbus {

class VXPendingCalls {
 public:
  // Replaces an earlier entry of the same id.
  void Insert(const MessageRef& message);
  // True with the message when the id was there; the entry goes.
  bool Take(std::uint32_t id, MessageRef& out);

  std::size_t Size();

  // Lets go of every entry without completing it.
  void Clear();

  // Runs `visit` on every entry in order of id with the mutex held, so that a
  // completion callback can't touch this table from another thread meanwhile.
  // The entries stay.
  template <class Visit>
  void ForEach(Visit visit) {
    std::lock_guard<std::recursive_mutex> lock(mutex_);
    for (auto& entry : calls_)
      visit(entry.second);
  }

 private:
  void PublishSize();

  std::map<std::uint32_t, MessageRef> calls_;
  std::recursive_mutex mutex_;
};

}  // namespace vxbus

#endif  // VXBUS_SESSION_UNANSWERED_CALLS_H_
