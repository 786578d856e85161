// SPDX-License-Identifier: MIT
#include "messaging/signal_table.h"

#include <algorithm>

#include "messaging/messaging_context.h"
#include "session/session.h"

namespace vxbus {

void VXSignalTable::RemoveSession(const Session* session) {
  std::lock_guard<std::recursive_mutex> lock(mutex);
  for (auto& entry : signals) {
    auto& list = entry.second;
    list.erase(
        std::remove_if(list.begin(), list.end(),
                       [session](const VXSubscriber& s) { return s.session.get() == session; }),
        list.end());
  }
}

}  // namespace vxbus

using vxbus::Messaging;

// Registering a name that exists throws its subscribers out without a word.
_tag_VX_ERROR VXRegisterSignal(const char* signalName) {
  if (signalName == nullptr) return VX_SUCCESS;  // nothing to name an entry by; still 0
  std::lock_guard<std::recursive_mutex> lock(Messaging().Signals().mutex);
  Messaging().Signals().signals[signalName] = vxbus::VXSignalTable::SubscriberList();
  return VX_SUCCESS;
}

_tag_VX_ERROR VXRegisterSignals(const _tag_SIGNAL_DESCRIPTION* signals, int count) {
  if (signals == nullptr) return VX_SUCCESS;
  for (int i = 0; i < count; ++i)
    VXRegisterSignal(signals[i].signalName);
  return VX_SUCCESS;
}

_tag_VX_ERROR VXUnregisterSignal(const char* signalName) {
  if (signalName == nullptr) return VX_ERROR_NO_SIGNAL;
  std::lock_guard<std::recursive_mutex> lock(Messaging().Signals().mutex);
  auto it = Messaging().Signals().signals.find(signalName);
  if (it == Messaging().Signals().signals.end()) return VX_ERROR_NO_SIGNAL;
  Messaging().Signals().signals.erase(it);
  return VX_SUCCESS;
}
