// SPDX-License-Identifier: MIT
// A name for one peer, forwarding to the exported functions. It holds no
// session: destroying any copy disconnects that peer for every copy.
#include <cstring>

#include "messaging/flow_id.h"
#include "vxbus.h"

namespace VX {

using vxbus::StoreFlowId;

VXApplicationHolder::VXApplicationHolder(const char* peer) {
  std::memset(name, 0, sizeof name);
  if (peer) std::strncpy(name, peer, sizeof name - 1);  // longer names are cut silently
}

VXApplicationHolder::VXApplicationHolder(const VXApplicationHolder& other) {
  std::memcpy(name, other.name, sizeof name);
}

VXApplicationHolder& VXApplicationHolder::operator=(const VXApplicationHolder& other) {
  std::memmove(name, other.name, sizeof name);
  return *this;
}

VXApplicationHolder::~VXApplicationHolder() {
  VXDisconnect(name);
  name[0] = '\0';
}

const char* VXApplicationHolder::getName() const {
  return name;
}

// Says nothing about a connection: only whether a name is held.
bool VXApplicationHolder::operator!() const {
  return name[0] == '\0';
}

bool VXApplicationHolder::Connect(const char* host, int port, const unsigned char* secret,
                                  int secretLength) {
  return VXConnect(host, port, name, sizeof name, secret, secretLength) == VX_SUCCESS;
}

bool VXApplicationHolder::Disconnect() {
  bool done = VXDisconnect(name) == VX_SUCCESS;
  name[0] = '\0';
  return done;
}

HVXPARAMLIST VXApplicationHolder::Call(unsigned slotId, HVXPARAMLIST list) {
  return VXCall(name, slotId, list);
}

bool VXApplicationHolder::Notify(unsigned slotId, HVXPARAMLIST list, VXNotifyCallback callback,
                                 void* userData) {
  return VXNotify(name, slotId, list, callback, userData) == VX_SUCCESS;
}

bool VXApplicationHolder::ConnectSignal(const char* signalName, unsigned slotId) {
  return VXConnectSignal(name, signalName, slotId) == VX_SUCCESS;
}

bool VXApplicationHolder::DisconnectSignal(const char* signalName, unsigned slotId) {
  return VXDisconnectSignal(name, signalName, slotId) == VX_SUCCESS;
}

HVXPARAMLIST VXApplicationHolder::CallWithFlow(unsigned flowId, unsigned slotId,
                                               HVXPARAMLIST list) {
  StoreFlowId(list, flowId);
  return Call(slotId, list);
}

bool VXApplicationHolder::NotifyWithFlow(unsigned flowId, unsigned slotId, HVXPARAMLIST list,
                                         VXNotifyCallback callback, void* userData) {
  StoreFlowId(list, flowId);
  return Notify(slotId, list, callback, userData);
}

}  // namespace VX
