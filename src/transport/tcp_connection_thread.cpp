// SPDX-License-Identifier: MIT
// Listens on one TCP address and takes peers in as they come, each
// handshake on a thread of its own within the caps of HandshakeThreads. A
// listener that cannot bind retries every second for as long as the process
// lives.
#include "transport/tcp_connection_thread.h"

#include <algorithm>
#include <chrono>
#include <thread>

#include "platform/host.h"
#include "runtime/log.h"
#include "runtime/process_state.h"
#include "transport/channel_acceptor.h"
#include "transport/guess_backoff.h"
#include "transport/handshake_threads.h"
#include "transport/socket_channel.h"
#include "transport/tcp_listen_address.h"

namespace vxbus {
namespace {

// Room for a burst, where the designed listener had a backlog of 5 (its
// handshakes ran on this thread): the listener takes connections as fast as
// they come and decides at once, so a short backlog would only let a burst
// of hostile connects make the kernel drop an honest peer's handshake and
// have it retried seconds later.
constexpr int kListenBacklog = 128;
constexpr std::int64_t kAcceptPollMs = 1100;

// Not cut short by a shutdown.
void PauseOneSecond() {
  std::this_thread::sleep_until(std::chrono::steady_clock::now() + std::chrono::seconds(1));
}

bool ShuttingDown() {
  return g_shuttingDown.load(std::memory_order_relaxed);
}

// Connections closed at once, before any line of their own, summed up in one
// line at most every kSummaryPeriod, so that a flood of them cannot flood
// the log.
class RefusalTally {
 public:
  explicit RefusalTally(const char* why) : why_(why) {}
  void Count() {
    ++count_;
    const auto now = std::chrono::steady_clock::now();
    if (now < nextLine_) return;
    VX_LOG(kLogWarning, "ConnectionThread. ", why_, ": closed ", count_,
           " connection(s) at once since the last such line");
    count_ = 0;
    nextLine_ = now + kSummaryPeriod;
  }

 private:
  static constexpr std::chrono::seconds kSummaryPeriod{10};
  const char* why_;
  std::uint64_t count_ = 0;
  std::chrono::steady_clock::time_point nextLine_{};
};

// The whole handshake must be over within one quiet period of a plain read
// (about half the read time limit, 30 s by default): the time after which a
// silent peer is dropped anyway, now also the most that a trickling one gets.
std::int64_t HandshakeDeadlineMs() {
  const std::int64_t seconds = (std::int64_t{g_limits.limits.IO_TIMEOUT_MS} + 1999) / 2000;
  return std::max<std::int64_t>(seconds, 0) * 1000 + 1;
}

class TcpListener {
 public:
  explicit TcpListener(MTObjects::MTReferencedPtr<TcpListenAddress> info)
      : info_(std::move(info)) {}
  ~TcpListener() {
    if (socket_ != platform::kInvalidSocket) platform::CloseSocket(socket_);
  }
  void Run();

 private:
  bool Open();
  void TakeOnePeer();

  MTObjects::MTReferencedPtr<TcpListenAddress> info_;
  platform::SocketHandle socket_ = platform::kInvalidSocket;
  bool failureLogged_ = false;  // one line per run of failures, not one a second
  RefusalTally backedOff_{"Source in back-off after wrong secrets"};
  RefusalTally overCap_{"No room for another pending handshake"};
  HandshakeThreads handshakes_{HandshakeThreads::CapForHandleLimit(platform::OpenHandleLimit())};
};

// The address is read afresh at each attempt.
bool TcpListener::Open() {
  socket_ = platform::CreateStreamSocket();
  platform::AllowAddressReuse(socket_);
  platform::Ipv4Endpoint address = info_->Address();
  std::string dotted = platform::FormatDottedAddress(address.address);
  bool bound = platform::Bind(socket_, address);
  if (!bound || !platform::Listen(socket_, kListenBacklog)) {
    if (!failureLogged_) {
      failureLogged_ = true;
      if (!bound)
        VX_LOG(kLogCritical, "bind to:", dotted, ":", address.port,
               " FAILED. Try to reinitialize listener");
      else
        VX_LOG(kLogCritical, "listen to:", dotted, ":", address.port, "FAILED.");
    }
    platform::CloseSocket(socket_);
    socket_ = platform::kInvalidSocket;
    PauseOneSecond();
    return false;
  }
  failureLogged_ = false;
  VX_LOG(kLogInfo, "listen for incoming connection on :", dotted, ":", address.port);
  return true;
}

// A connection from a source in back-off, or one that the caps leave no
// room for, is closed before any line of its own is written; the lines of the others come in their
// usual order.
void TcpListener::TakeOnePeer() {
  platform::Ipv4Endpoint peer;
  platform::SocketHandle accepted = platform::Accept(socket_, &peer);
  const std::string dotted = platform::FormatDottedAddress(peer.address);
  if (accepted != platform::kInvalidSocket && SecretGuessBackoff().Refusing(dotted)) {
    platform::CloseSocket(accepted);
    backedOff_.Count();
    return;
  }
  if (accepted != platform::kInvalidSocket && !handshakes_.HasRoom(peer.address)) {
    platform::CloseSocket(accepted);
    overCap_.Count();
    return;
  }
  VX_LOG(kLogInfo, "ConnectionThread. Accepting new connection");
  if (accepted == platform::kInvalidSocket) {
    VX_LOG(kLogError, "ConnectionThread. Failed to accept incoming connection.");
    return;
  }
  VX_LOG(kLogInfo, "ConnectionThread. Connection from: '", dotted, "' has been accepted");
  // Strictly greater: one connection more than the limit is let in.
  std::size_t size = ChannelAcceptor().SessionCount();
  if (size > g_limits.limits.MAX_CONNECTIONS) {
    VX_LOG(kLogCritical,
           "ConnectionThread. Connection limit reached. Closing connection. "
           "g_applications.size()=",
           size, ". limits.MAX_CONNECTIONS = ", g_limits.limits.MAX_CONNECTIONS);
    platform::CloseSocket(accepted);
    return;
  }
  VX_LOG(kLogInfo, "ConnectionThread. Configuring new socket.");
  ApplyConnectedSocketOptions(accepted);
  VX_LOG(kLogInfo, "ConnectionThread. Starting new application");
  ChannelRef channel = WrapAcceptedSocket(accepted);
  const bool started = handshakes_.Run(peer.address, channel, HandshakeDeadlineMs(), [channel] {
    AcceptAndLog(channel, "ConnectionThread. ");
    VX_LOG(kLogInfo, "ConnectionThread. Initialization of new connection is completed.");
  });
  if (!started) overCap_.Count();  // the last reference goes here and closes it
}

void TcpListener::Run() {
  while (!ShuttingDown()) {
    if (socket_ == platform::kInvalidSocket && !Open()) continue;
    // Woken in time for the next handshake deadline as well.
    const std::int64_t untilDeadline = handshakes_.CutOffOverdue();
    const std::int64_t waitMs =
        untilDeadline < 0 ? kAcceptPollMs : std::min(kAcceptPollMs, untilDeadline);
    platform::IoResult ready = platform::WaitReadable(socket_, waitMs);
    if (ready.status == platform::IoStatus::kTimedOut) continue;
    if (!ready.ok()) {
      // The listener is kept; it is not reopened after a failed wait.
      VX_LOG(kLogError, "ConnectionThread. select failed with code=", ready.systemCode);
      PauseOneSecond();
      continue;
    }
    if (ShuttingDown()) break;
    TakeOnePeer();
  }
}

}  // namespace

void TcpConnectionThread() {
  tcpListenerGate->Wait();
  VX_LOG(kLogInfo, "ConnThread Startup");
  MTObjects::MTReferencedPtr<TcpListenAddress> info(g_connThreadInfo);
  if (info->Address().port == 0) return;  // no listener wanted; no further line
  {
    TcpListener listener(info);
    listener.Run();
  }
  VX_LOG(kLogInfo, "ConnectionThread. Shutdown");
}

}  // namespace vxbus
