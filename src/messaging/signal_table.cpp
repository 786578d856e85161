// SPDX-License-Identifier: MIT
#include "messaging/signal_table.h"

#include <algorithm>

#include "session/session.h"

namespace vxbus {

// Never destroyed: a session that ends while the process exits still takes
// its subscriptions out of it.
VXSignalTable& g_signalTable = *new VXSignalTable;

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

using vxbus::g_signalTable;

// Registering a name that exists throws its subscribers out without a word.
_tag_VX_ERROR VXRegisterSignal(const char* signalName) {
  if (signalName == nullptr) return VX_SUCCESS;  // nothing to name an entry by; still 0
  std::lock_guard<std::recursive_mutex> lock(g_signalTable.mutex);
  g_signalTable.signals[signalName] = vxbus::VXSignalTable::SubscriberList();
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
  std::lock_guard<std::recursive_mutex> lock(g_signalTable.mutex);
  auto it = g_signalTable.signals.find(signalName);
  if (it == g_signalTable.signals.end()) return VX_ERROR_NO_SIGNAL;
  g_signalTable.signals.erase(it);
  return VX_SUCCESS;
}
