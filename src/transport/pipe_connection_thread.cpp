// Serves the pipe listener: each round makes a fresh pair of pipes, waits for
// one client, runs its handshake here and goes round again. An idle round
// lasts the accept wait by itself, so no pause is needed between rounds.
#include "runtime/log.h"
#include "runtime/process_state.h"
#include "transport/connection_threads.h"
#include "transport/pipe_channel.h"

namespace vxbus {
namespace {

void ServeOneRound() {
  ChannelRef channel = AcceptPipeChannel(&g_shuttingDown);
  if (!channel.IsValid()) return;
  // At the limit the client's pipes just close; no line is logged here.
  if (ChannelAcceptor().SessionCount() > g_limits.limits.MAX_CONNECTIONS) return;
  AcceptAndLog(channel, "");
}

}  // namespace

void PipeConnectionThread() {
  pipeListenerGate->Wait();
  VX_LOG(kLogInfo, "ConnThread Pipe Startup");
  MTObjects::MTReferencedPtr<ConnPipeThreadInfo> info(g_connPipeThreadInfo);
  SetPipeNames(info->PipeName());
  if (listenerPipeInName.empty() || listenerPipeOutName.empty()) {
    VX_LOG(kLogInfo, "ConnThread Pipe stopped - pipes are not defined");
    return;
  }
  while (!g_shuttingDown.load(std::memory_order_relaxed))
    ServeOneRound();
  VX_LOG(kLogInfo, "ConnThread Shutdown");
}

}  // namespace vxbus
