// SPDX-License-Identifier: MIT
// Serves the pipe listener: each round makes a fresh pair of pipes, waits for
// one client, runs its handshake here and goes round again. An idle round
// lasts the accept wait by itself, so no pause is needed between rounds.
#include "transport/pipe_connection_thread.h"

#include "runtime/log.h"
#include "runtime/process_state.h"
#include "transport/channel_acceptor.h"
#include "transport/pipe_channel.h"
#include "transport/pipe_listen_name.h"

namespace vxbus {
namespace {

// A round whose pipes cannot be made, typically because another process
// listens on the name, waits out the length of a round instead of coming
// straight back, and says so once per run of such rounds; the listener comes
// up by itself once the name is free.
void ServeOneRound(bool& createFailureLogged) {
  int createError = 0;
  ChannelRef channel = AcceptPipeChannel(&g_shuttingDown, &createError);
  if (createError != 0) {
    if (!createFailureLogged) {
      createFailureLogged = true;
      VX_LOG(kLogCritical, "ConnThread Pipe. create pipe '", listenerPipeInName,
             "' FAILED with code=", createError, ". Try to reinitialize listener");
    }
    PausePipeListener(&g_shuttingDown);
    return;
  }
  createFailureLogged = false;
  if (!channel.IsValid()) return;
  // At the limit the client's pipes just close; no line is logged here.
  if (ChannelAcceptor().SessionCount() > g_limits.limits.MAX_CONNECTIONS) return;
  AcceptAndLog(channel, "");
}

}  // namespace

void PipeConnectionThread() {
  pipeListenerGate->Wait();
  VX_LOG(kLogInfo, "ConnThread Pipe Startup");
  MTObjects::MTReferencedPtr<PipeListenName> info(g_connPipeThreadInfo);
  SetPipeNames(info->PipeName());
  if (listenerPipeInName.empty() || listenerPipeOutName.empty()) {
    VX_LOG(kLogInfo, "ConnThread Pipe stopped - pipes are not defined");
    return;
  }
  bool createFailureLogged = false;
  while (!g_shuttingDown.load(std::memory_order_relaxed))
    ServeOneRound(createFailureLogged);
  VX_LOG(kLogInfo, "ConnThread Shutdown");
}

}  // namespace vxbus
