// SPDX-License-Identifier: MIT
#include "runtime/process_state.h"

#include <cstring>

namespace vxbus {

const VXLimits kFactoryLimits = {
    sizeof(VXLimits),
    {
        10,          // MAX_CONNECTIONS
        64,          // RESERVED_A
        1073741824,  // MAX_READ_SIZE
        1073741824,  // RESERVED_B
        64,          // RESERVED_C
        67108864,    // RESERVED_D
        1048576,     // RESERVED_E
        60000,       // IO_TIMEOUT_MS
        {},          // authBlock
    },
};

VXLimits g_defaultLimits = kFactoryLimits;
VXLimits g_limits = kFactoryLimits;
std::atomic<bool> g_shuttingDown{false};
char g_hostName[1024];
// Never destroyed: handshakes read it on their own threads, also while the
// process exits.
std::string& g_ownAppId = *new std::string;

MTObjects::MTReferencedPtr<MTObjects::Latch> tcpListenerGate(new MTObjects::Latch);
MTObjects::MTReferencedPtr<MTObjects::Latch> pipeListenerGate(new MTObjects::Latch);

std::atomic<VXConnectListener> g_connectListener{nullptr};
std::atomic<VXDisconnectListener> g_disconnectListener{nullptr};
std::atomic<VXAuthFailedListener> g_authFailedListener{nullptr};
std::atomic<VXUnknownConnectListener> g_unknownConnectListener{nullptr};

std::mutex& SecretMutex() {
  static std::mutex& mutex = *new std::mutex;  // handshakes may run during exit
  return mutex;
}

void SnapshotSecret(unsigned char (&block)[sizeof(VXLimits::limits.authBlock)]) {
  std::lock_guard<std::mutex> lock(SecretMutex());
  std::memcpy(block, g_limits.limits.authBlock, sizeof block);
}

}  // namespace vxbus

using namespace vxbus;

_tag_VX_ERROR VXConnectionReady(void) {
  tcpListenerGate->Set();
  pipeListenerGate->Set();
  return VX_SUCCESS;
}

// Written into the defaults as well, so that it survives the copy that the
// first initialisation makes. A negative length, or bytes to copy from
// nowhere, is refused like an oversize one.
_tag_VX_ERROR VXSetAuthenticationInfo(const void* data, std::int32_t length) {
  if (length > 256 || length < 0 || (length != 0 && data == nullptr)) return VX_ERROR_FAILED;
  std::lock_guard<std::mutex> lock(SecretMutex());
  for (VXLimits* record : {&g_defaultLimits, &g_limits}) {
    std::memset(record->limits.authBlock, 0, sizeof record->limits.authBlock);
    if (length != 0) std::memcpy(record->limits.authBlock, data, static_cast<std::size_t>(length));
  }
  return VX_SUCCESS;
}

namespace {
// A listener takes effect at once; a null one switches it off.
template <class Listener>
_tag_VX_ERROR Install(std::atomic<Listener>& slot, Listener listener) {
  slot.store(listener, std::memory_order_release);
  return VX_SUCCESS;
}
}  // namespace

_tag_VX_ERROR VXSetConnectListener(VXConnectListener listener) {
  return Install(g_connectListener, listener);
}
_tag_VX_ERROR VXSetDisconnectListener(VXDisconnectListener listener) {
  return Install(g_disconnectListener, listener);
}
_tag_VX_ERROR VXSetAuthFailedListener(VXAuthFailedListener listener) {
  return Install(g_authFailedListener, listener);
}
_tag_VX_ERROR VXSetUnknownConnectListener(VXUnknownConnectListener listener) {
  return Install(g_unknownConnectListener, listener);
}
