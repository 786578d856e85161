// SPDX-License-Identifier: MIT
// The process's signals and, for each, its subscribers in order of subscription.
#ifndef VXBUS_MESSAGING_SIGNAL_TABLE_H_
#define VXBUS_MESSAGING_SIGNAL_TABLE_H_

#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "session/message.h"

namespace vxbus {

struct VXSubscriber {
  SessionRef session;  // keeps the session object, and so its name, readable
  std::uint32_t slot;
};

struct VXSignalTable {
  using SubscriberList = std::vector<VXSubscriber>;
  std::map<std::string, SubscriberList> signals;  // bytewise, then by length
  std::recursive_mutex mutex;

  // Drops every subscription of `session`, compared as an object, not by name.
  void RemoveSession(const Session* session);
};

}  // namespace vxbus

#endif  // VXBUS_MESSAGING_SIGNAL_TABLE_H_
