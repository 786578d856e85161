// SPDX-License-Identifier: MIT
// Opening and closing sessions to peers.
#include "process/process_context.h"
#include "session/session.h"
#include "transport/pipe_channel.h"
#include "transport/socket_channel.h"

namespace vxbus {
namespace {

// The caller's own reference ends here; on success the session lives on in
// its threads and its registry entry, on failure it goes with its threads.
_tag_VX_ERROR ConnectOver(const ChannelRef& channel, char* appIdBuffer,
                          std::uint32_t appIdBufferSize, const unsigned char* secret,
                          std::int32_t secretLength) {
  SessionRef session(new Session(ProcessContext::Get().SessionEnvironmentNow()));
  return static_cast<_tag_VX_ERROR>(
      session->ConnectApplication(channel, appIdBuffer, appIdBufferSize, secret, secretLength));
}

bool IsSet(const char* text) {
  return text != nullptr && *text != '\0';
}

ChannelLimits LimitsOfChannels() {
  return ChannelLimits::From(ProcessContext::Get().limits);
}

}  // namespace
}  // namespace vxbus

using namespace vxbus;

_tag_VX_ERROR VXConnect(const char* host, std::int32_t port, char* appIdBuffer,
                        std::uint32_t appIdBufferSize, const unsigned char* secret,
                        std::int32_t secretLength) {
  ChannelRef channel =
      ConnectSocketChannel(host, static_cast<std::uint16_t>(port), LimitsOfChannels());
  return ConnectOver(channel, appIdBuffer, appIdBufferSize, secret, secretLength);
}

// A pipe name wins over a host and a port; with neither usable, the pipe
// path fails on its empty name.
_tag_VX_ERROR VXConnectEx(const char* pipeName, const char* host, std::int32_t port,
                          char* appIdBuffer, std::uint32_t appIdBufferSize,
                          const unsigned char* secret, std::int32_t secretLength) {
  bool useTcp = IsSet(host) && port != 0 && !IsSet(pipeName);
  ChannelRef channel =
      useTcp ? ConnectSocketChannel(host, static_cast<std::uint16_t>(port), LimitsOfChannels())
             : ConnectPipeChannel(pipeName ? pipeName : "", LimitsOfChannels());
  return ConnectOver(channel, appIdBuffer, appIdBufferSize, secret, secretLength);
}

// Waits for the reader, and so for the disconnect listener, but not for the
// writer, which may keep the entry for one more poll period.
_tag_VX_ERROR VXDisconnect(const char* applicationName) {
  SessionRef session = ProcessContext::Get().registry.Find(applicationName);
  if (session.IsValid()) session->Stop();
  return VX_SUCCESS;
}
