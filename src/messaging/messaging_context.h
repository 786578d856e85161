// SPDX-License-Identifier: MIT
// The hook through which messaging/ reaches the process-wide state that the
// process's context owns (process/ sits above this layer): the session
// registry, the dispatch queue, the slot and signal tables, the stop flag and the own
// appID. process/ installs it at load, before any exported function can run.
#ifndef VXBUS_MESSAGING_MESSAGING_CONTEXT_H_
#define VXBUS_MESSAGING_MESSAGING_CONTEXT_H_

#include <string>

#include "messaging/dispatch_queue.h"
#include "messaging/signal_table.h"
#include "messaging/slot_table.h"
#include "session/session_registry.h"

namespace vxbus {

class MessagingContext {
 public:
  virtual SessionRegistry& Sessions() = 0;
  virtual DispatchQueue& Dispatch() = 0;
  virtual VXSlotTable& Slots() = 0;
  virtual VXSignalTable& Signals() = 0;
  // True from the last VXShutdown's start until the next initialise.
  virtual bool ShuttingDown() const = 0;
  // A copy of the own appID of the last first initialise; empty before.
  virtual std::string OwnAppId() const = 0;

 protected:
  ~MessagingContext() = default;
};

// Set once at load; not owned, and never destroyed.
void InstallMessagingContext(MessagingContext* context);
// The installed context; any thread.
MessagingContext& Messaging();

}  // namespace vxbus

#endif  // VXBUS_MESSAGING_MESSAGING_CONTEXT_H_
