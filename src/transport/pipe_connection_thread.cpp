// SPDX-License-Identifier: MIT
// Serves the pipe listener. Where the designed listener made a fresh pair of
// pipes for each client and ran its handshake on this thread, so that
// clients coming together failed and had to try again one by one, this one
// keeps its pipes up from start to shutdown and runs each handshake on a
// thread of its own (HandshakeThreads), within the caps of the TCP listener:
// per client process, overall, and a deadline for the whole exchange.
#include "transport/pipe_connection_thread.h"

#include <algorithm>

#include "platform/host.h"
#include "runtime/log.h"
#include "transport/channel_acceptor.h"
#include "transport/handshake_threads.h"
#include "transport/pipe_channel.h"
#include "transport/pipe_channel_listener.h"
#include "transport/pipe_listen_name.h"

namespace vxbus {
namespace {

constexpr std::int64_t kAcceptPollMs = 1000;

// A silent pipe client is dropped after one read time limit, the whole
// IO_TIMEOUT_MS (a pipe read has no half period); that is also the most a
// trickling one gets now.
std::int64_t HandshakeDeadlineMs(std::int32_t ioTimeoutMs) {
  const std::int32_t limit = ioTimeoutMs;
  return limit < 0 ? std::int64_t{0x7FFFFFFF} : std::max<std::int64_t>(limit, 1);
}

class PipeListener {
 public:
  explicit PipeListener(const ListenerEnvironment& environment) : environment_(environment) {}
  void Run();

 private:
  bool Open();
  void TakeOneClient(std::int64_t waitMs);
  bool ShuttingDown() const { return environment_.stop.StopRequested(); }

  const ListenerEnvironment& environment_;
  PipeChannelListener pipes_;
  bool createFailureLogged_ = false;  // one line per run of failures
  HandshakeThreads handshakes_{HandshakeThreads::CapForHandleLimit(platform::OpenHandleLimit())};
};

// Pipes that cannot be made, typically because another process listens on
// the name, are tried again after the length of a round, and said so once per
// run of failures; the listener comes up by itself once the name is free.
bool PipeListener::Open() {
  int createError = 0;
  if (pipes_.Open(&createError)) {
    createFailureLogged_ = false;
    return true;
  }
  if (!createFailureLogged_) {
    createFailureLogged_ = true;
    VX_LOG(kLogCritical, "ConnThread Pipe. create pipe '", listenerPipeInName,
           "' FAILED with code=", createError, ". Try to reinitialize listener");
  }
  PausePipeListener(environment_.pipeAcceptWaitMs, environment_.stop.Flag());
  return false;
}

void PipeListener::TakeOneClient(std::int64_t waitMs) {
  std::uint32_t client = 0;
  ChannelRef channel = pipes_.Accept(environment_.channelLimits, environment_.pipeAcceptWaitMs,
                                     waitMs, environment_.stop.Flag(), &client);
  if (!channel.IsValid()) return;
  // At the limit the client's pipes just close; no line is logged here.
  if (environment_.acceptor->SessionCount() > environment_.maxConnections) return;
  // Without room the pipes close as well: the client sees its handshake fail.
  IChannelAcceptor& acceptor = *environment_.acceptor;
  handshakes_.Run(client, channel, HandshakeDeadlineMs(environment_.channelLimits.ioTimeoutMs),
                  [&acceptor, channel] { AcceptAndLog(acceptor, channel, ""); });
}

void PipeListener::Run() {
  while (!ShuttingDown()) {
    if (!pipes_.IsOpen() && !Open()) continue;
    // Woken in time for the next handshake deadline as well.
    const std::int64_t untilDeadline = handshakes_.CutOffOverdue();
    TakeOneClient(untilDeadline < 0 ? kAcceptPollMs : std::min(kAcceptPollMs, untilDeadline));
  }
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
  {
    PipeListener listener(environment);
    listener.Run();
  }
  VX_LOG(kLogInfo, "ConnThread Shutdown");
}

}  // namespace vxbus
