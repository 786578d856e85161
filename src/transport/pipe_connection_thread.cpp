// SPDX-License-Identifier: MIT
// Serves the pipe listener: each round makes a fresh pair of pipes, waits for
// one client, runs its handshake here and goes round again. An idle round
// lasts the accept wait by itself, so no pause is needed between rounds.
#include "transport/pipe_connection_thread.h"

#include "runtime/log.h"
#include "transport/channel_acceptor.h"
#include "transport/pipe_channel.h"
#include "transport/pipe_listen_name.h"

namespace vxbus {
namespace {

// A round whose pipes cannot be made, typically because another process
// listens on the name, waits out the length of a round instead of coming
// straight back, and says so once per run of such rounds; the listener comes
// up by itself once the name is free.
void ServeOneRound(const ListenerEnvironment& environment, bool& createFailureLogged) {
  int createError = 0;
  ChannelRef channel = AcceptPipeChannel(environment.channelLimits, environment.pipeAcceptWaitMs,
                                         environment.stop.Flag(), &createError);
  if (createError != 0) {
    if (!createFailureLogged) {
      createFailureLogged = true;
      VX_LOG(kLogCritical, "ConnThread Pipe. create pipe '", listenerPipeInName,
             "' FAILED with code=", createError, ". Try to reinitialize listener");
    }
    PausePipeListener(environment.pipeAcceptWaitMs, environment.stop.Flag());
    return;
  }
  createFailureLogged = false;
  if (!channel.IsValid()) return;
  // At the limit the client's pipes just close; no line is logged here.
  if (environment.acceptor->SessionCount() > environment.maxConnections) return;
  AcceptAndLog(*environment.acceptor, channel, "");
}

}  // namespace

void PipeConnectionThread(ListenerEnvironment environment,
                          MTObjects::MTReferencedPtr<PipeListenName> name) {
  environment.gate->Wait();
  VX_LOG(kLogInfo, "ConnThread Pipe Startup");
  SetPipeNames(name->PipeName());
  if (listenerPipeInName.empty() || listenerPipeOutName.empty()) {
    VX_LOG(kLogInfo, "ConnThread Pipe stopped - pipes are not defined");
    return;
  }
  bool createFailureLogged = false;
  while (!environment.stop.StopRequested())
    ServeOneRound(environment, createFailureLogged);
  VX_LOG(kLogInfo, "ConnThread Shutdown");
}

}  // namespace vxbus
