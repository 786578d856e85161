// SPDX-License-Identifier: MIT
// Subscribing to a peer's signals over its two built-in slots, and emitting.
#include "messaging/signals.h"

#include <cstring>

#include "messaging/messaging_context.h"
#include "messaging/signal_table.h"
#include "session/session.h"
#include "session/session_registry.h"

namespace vxbus {
namespace {

constexpr char kSignalNameKey[] = "signalName";
constexpr char kSlotNameKey[] = "slotName";  // holds the slot number, despite its name

HVXPARAMLIST BuildSubscription(const char* signalName, std::uint32_t slotId) {
  HVXPARAMLIST list = VXCreateParamList();
  VXSetStringValue(list, kSignalNameKey, signalName);
  VXSetInt32Value(list, kSlotNameKey, slotId);
  return list;
}

std::string SignalNameOf(HVXPARAMLIST input) {
  const char* name = VXGetStringValue(input, kSignalNameKey);
  return name ? name : "";
}

const char* NameOf(const SessionRef& session) {
  return session.IsValid() ? session->Name().c_str() : "";
}

}  // namespace

_tag_VX_ERROR SubscribeSlot(HVXPARAMLIST input, HVXPARAMLIST /*output*/, VXSlotContext* context) {
  std::string signal = SignalNameOf(input);
  std::uint32_t slot = VXGetInt32Value(input, kSlotNameKey);
  std::lock_guard<std::recursive_mutex> lock(Messaging().Signals().mutex);
  SessionRef session = Messaging().Sessions().Find(context->senderName);
  if (!session.IsValid()) return VX_SUCCESS;
  auto it = Messaging().Signals().signals.find(signal);
  if (it == Messaging().Signals().signals.end()) return VX_SUCCESS;
  // No test for a duplicate: connecting twice means running twice.
  it->second.push_back(VXSubscriber{session, slot});
  return VX_SUCCESS;
}

_tag_VX_ERROR UnsubscribeSlot(HVXPARAMLIST input, HVXPARAMLIST /*output*/, VXSlotContext* context) {
  std::string signal = SignalNameOf(input);
  std::uint32_t slot = VXGetInt32Value(input, kSlotNameKey);
  std::lock_guard<std::recursive_mutex> lock(Messaging().Signals().mutex);
  auto it = Messaging().Signals().signals.find(signal);
  if (it == Messaging().Signals().signals.end()) return VX_SUCCESS;
  auto& list = it->second;
  for (auto entry = list.begin(); entry != list.end(); ++entry) {
    if (entry->slot == slot && std::strcmp(NameOf(entry->session), context->senderName) == 0) {
      list.erase(entry);  // only the first; later duplicates stay
      break;
    }
  }
  return VX_SUCCESS;
}

}  // namespace vxbus

using namespace vxbus;

// Fire-and-forget, while the disconnect below waits for the owner: kept so.
_tag_VX_ERROR VXConnectSignal(const char* applicationName, const char* signalName,
                              std::uint32_t slotId) {
  HVXPARAMLIST list = BuildSubscription(signalName, slotId);
  VXNotify(applicationName, VX_SLOT_CONNECT_SIGNAL, list, nullptr, nullptr);
  VXCloseHandle(list);
  return VX_SUCCESS;
}

_tag_VX_ERROR VXDisconnectSignal(const char* applicationName, const char* signalName,
                                 std::uint32_t slotId) {
  HVXPARAMLIST list = BuildSubscription(signalName, slotId);
  VXCloseHandle(VXCall(applicationName, VX_SLOT_DISCONNECT_SIGNAL, list));
  VXCloseHandle(list);
  return VX_SUCCESS;
}

_tag_VX_ERROR VXEmit(const char* signalName, HVXPARAMLIST list, VXNotifyCallback callback,
                     void* userData) {
  if (signalName == nullptr) return VX_ERROR_NO_SIGNAL;  // no name is never registered
  std::unique_lock<std::recursive_mutex> lock(Messaging().Signals().mutex);
  auto it = Messaging().Signals().signals.find(signalName);
  if (it == Messaging().Signals().signals.end()) return VX_ERROR_NO_SIGNAL;
  if (it->second.empty()) {
    lock.unlock();
    if (callback) callback(nullptr, 0, list, VX_INVALID_PARAMLIST, userData);
    return VX_SUCCESS;
  }
  // Each subscriber is found again by name; the entry's reference only keeps
  // the name readable. A gone subscriber gets nothing and stays listed; a
  // full one is skipped, and said so once all had their turn.
  _tag_VX_ERROR result = VX_SUCCESS;
  for (const VXSubscriber& subscriber : it->second)
    if (VXNotify(NameOf(subscriber.session), subscriber.slot, list, callback, userData) ==
        VX_ERROR_QUEUE_FULL)
      result = VX_ERROR_QUEUE_FULL;
  return result;
}
