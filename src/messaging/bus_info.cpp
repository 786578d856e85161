// SPDX-License-Identifier: MIT
// A look inside this process: its name, slots, signals with their
// subscribers, sessions with their traffic, and the object counters, as one
// list (vxbus.h names every field), and a slot that answers with it.
#include <chrono>
#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

#include "messaging/messaging_context.h"
#include "messaging/signal_table.h"
#include "messaging/slot_table.h"
#include "session/session_registry.h"
#include "vxbus.h"

using namespace vxbus;

namespace {

// Owns one reference to a list it makes, for building lists of lists.
class NewList {
 public:
  NewList() : handle_(VXCreateParamList()) {}
  ~NewList() { VXCloseHandle(handle_); }
  NewList(const NewList&) = delete;
  NewList& operator=(const NewList&) = delete;
  HVXPARAMLIST get() const { return handle_; }

 private:
  HVXPARAMLIST handle_;
};

// Sets `lists` as a handle array; the array takes its own references.
void SetListArray(HVXPARAMLIST list, const char* name, const std::vector<HVXPARAMLIST>& lists) {
  VXSetHandleArray(list, name, static_cast<std::uint32_t>(lists.size()), lists.data());
}

void SetStrings(HVXPARAMLIST list, const char* name, const std::vector<std::string>& texts) {
  std::vector<const char*> pointers;
  for (const std::string& text : texts)
    pointers.push_back(text.c_str());
  VXSetStringArray(list, name, static_cast<std::uint32_t>(pointers.size()), pointers.data());
}

void SetInt32s(HVXPARAMLIST list, const char* name, const std::vector<std::uint32_t>& values) {
  VXSetInt32Array(list, name, static_cast<std::uint32_t>(values.size()), values.data());
}

// Copied under the table's lock, built into lists after it.
struct SignalCopy {
  std::string name;
  std::vector<std::string> subscribers;
  std::vector<std::uint32_t> slots;
};

std::vector<SignalCopy> CopySignals() {
  std::vector<SignalCopy> copies;
  std::lock_guard<std::recursive_mutex> lock(Messaging().Signals().mutex);
  for (const auto& [name, subscribers] : Messaging().Signals().signals) {
    SignalCopy copy{name, {}, {}};
    for (const VXSubscriber& subscriber : subscribers) {
      const bool alive = subscriber.session.IsValid();
      copy.subscribers.push_back(alive ? subscriber.session->Name() : std::string());
      copy.slots.push_back(subscriber.slot);
    }
    copies.push_back(std::move(copy));
  }
  return copies;
}

void SetSignals(HVXPARAMLIST info) {
  const std::vector<SignalCopy> copies = CopySignals();
  std::vector<HVXPARAMLIST> handles;
  std::vector<NewList> owned(copies.size());
  for (std::size_t i = 0; i < copies.size(); ++i) {
    HVXPARAMLIST signal = owned[i].get();
    VXSetStringValue(signal, "name", copies[i].name.c_str());
    SetStrings(signal, "subscribers", copies[i].subscribers);
    SetInt32s(signal, "slots", copies[i].slots);
    handles.push_back(signal);
  }
  SetListArray(info, "signals", handles);
}

void SetSessions(HVXPARAMLIST info) {
  const std::vector<SessionRef> sessions = Messaging().Sessions().Sessions();
  const auto now = std::chrono::steady_clock::now();
  std::vector<NewList> owned(sessions.size());
  std::vector<HVXPARAMLIST> handles;
  for (std::size_t i = 0; i < sessions.size(); ++i) {
    Session& session = *sessions[i];
    HVXPARAMLIST entry = owned[i].get();
    const Session::Traffic traffic = session.GetTraffic();
    const auto connected =
        std::chrono::duration_cast<std::chrono::milliseconds>(now - session.EstablishedAt());
    VXSetStringValue(entry, "appId", session.Name().c_str());
    VXSetStringValue(entry, "channel", session.ChannelKind());
    VXSetStringValue(entry, "address", session.RemoteAddress().c_str());
    VXSetInt64Value(entry, "connectedMs", static_cast<std::uint64_t>(connected.count()));
    VXSetInt64Value(entry, "framesSent", traffic.framesSent);
    VXSetInt64Value(entry, "framesReceived", traffic.framesReceived);
    VXSetInt64Value(entry, "bytesSent", traffic.bytesSent);
    VXSetInt64Value(entry, "bytesReceived", traffic.bytesReceived);
    VXSetInt64Value(entry, "queuedBytes", session.SendQueueBytes());
    VXSetInt32Value(entry, "pendingCalls", static_cast<std::uint32_t>(session.PendingCallCount()));
    handles.push_back(entry);
  }
  SetListArray(info, "sessions", handles);
}

void SetCounters(HVXPARAMLIST info) {
  const VXObjectCounters counts = DEBUG_VXObjectCount();
  NewList counters;
  VXSetInt32Value(counters.get(), "applications", counts.applications);
  VXSetInt32Value(counters.get(), "messages", counts.messages);
  VXSetInt32Value(counters.get(), "pendingCalls", counts.pendingCalls);
  VXSetInt32Value(counters.get(), "paramLists", counts.paramLists);
  VXSetInt32Value(counters.get(), "sendCalls", counts.sendCalls);
  VXSetInt32Value(counters.get(), "receiveCalls", counts.receiveCalls);
  VXSetHandleValue(info, "counters", counters.get());
}

// Fills `info`, which holds nothing yet, with what VXGetBusInfo describes.
void FillBusInfo(HVXPARAMLIST info) {
  VXSetStringValue(info, "appId", Messaging().OwnAppId().c_str());
  VXSetStringValue(info, "version", VXGetVersion());
  SetInt32s(info, "slots", Messaging().Slots().Ids());
  SetSignals(info);
  SetSessions(info);
  SetCounters(info);
}

// Fills the reply itself: a copy of a list would carry its handle arrays by
// position into the other arrays, and keep a reference on each child.
_tag_VX_ERROR AnswerBusInfo(HVXPARAMLIST, HVXPARAMLIST output, VXSlotContext*) {
  if (output.value == nullptr) return VX_SUCCESS;  // a notification wants no answer
  FillBusInfo(output);
  return VX_SUCCESS;
}

}  // namespace

HVXPARAMLIST VXGetBusInfo(void) {
  HVXPARAMLIST info = VXCreateParamList();
  if (info.value == nullptr) return VX_INVALID_PARAMLIST;
  FillBusInfo(info);
  return info;
}

_tag_VX_ERROR VXServeBusInfo(std::uint32_t slotId) {
  return VXRegisterSlot(slotId, AnswerBusInfo, nullptr);
}
