// Serves the pipe listener: each round makes a fresh pair of pipes, waits for
// one client, runs its handshake here and goes round again. An idle round
// lasts the accept wait by itself, so no pause is needed between rounds.
#include "runtime/log.h"
#include "runtime/process_state.h"
#include "session/application.h"
#include "session/application_registry.h"
#include "transport/connection_threads.h"
#include "transport/pipe_channel.h"

namespace vxbus {
namespace {

void ServeOneRound() {
  ChannelRef channel = AcceptPipeChannel(&g_shuttingDown);
  if (!channel.IsValid()) return;
  // At the limit the client's pipes just close; no line is logged here.
  if (g_applications.Size() > g_limits.limits.MAX_CONNECTIONS) return;
  SessionRef session(new (std::nothrow) VXAPPImpl);
  if (!session) {
    VX_LOG(kLogError, "Cannot create application object");
    return;
  }
  if (!session->AcceptApplication(channel)) VX_LOG(kLogError, "Application start failed");
}

}  // namespace

void PipeConnectionThread() {
  pipeListenerGate->Wait();
  VX_LOG(kLogInfo, "ConnThread Pipe Startup");
  MTObjects::MTReferencedPtr<ConnPipeThreadInfo> info(g_connPipeThreadInfo);
  SetPipeNames(info->PipeName());
  // The equality test can't hold for names made by SetPipeNames; kept as a guard.
  const std::string& inName = listenerPipeInName;
  const std::string& outName = listenerPipeOutName;
  if (inName.empty() || outName.empty() || inName == outName) {
    VX_LOG(kLogInfo, "ConnThread Pipe stopped - pipes are not defined");
    return;
  }
  while (!g_shuttingDown.load(std::memory_order_relaxed))
    ServeOneRound();
  VX_LOG(kLogInfo, "ConnThread Shutdown");
}

}  // namespace vxbus
