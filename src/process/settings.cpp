// SPDX-License-Identifier: MIT
// The settings an application may change at any time, also before the first
// initialise: the gates of the listener threads, the secret and the four
// listeners. None of them takes the initialise lock, and VXShutdown resets
// none of them.
#include "process/process_context.h"

using vxbus::ProcessContext;

_tag_VX_ERROR VXConnectionReady(void) {
  ProcessContext& context = ProcessContext::Get();
  context.tcpGate->Set();
  context.pipeGate->Set();
  return VX_SUCCESS;
}

// Written into the defaults as well, so that it survives the copy that the
// first initialisation makes. A negative length, or bytes to copy from
// nowhere, is refused like an oversize one.
_tag_VX_ERROR VXSetAuthenticationInfo(const void* data, std::int32_t length) {
  return ProcessContext::Get().SetSecret(data, length) ? VX_SUCCESS : VX_ERROR_FAILED;
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
  return Install(ProcessContext::Get().listeners.connect, listener);
}
_tag_VX_ERROR VXSetDisconnectListener(VXDisconnectListener listener) {
  return Install(ProcessContext::Get().listeners.disconnect, listener);
}
_tag_VX_ERROR VXSetAuthFailedListener(VXAuthFailedListener listener) {
  return Install(ProcessContext::Get().listeners.authFailed, listener);
}
_tag_VX_ERROR VXSetUnknownConnectListener(VXUnknownConnectListener listener) {
  return Install(ProcessContext::Get().listeners.unknownConnect, listener);
}
