// Listens on one TCP address and takes peers in one at a time. A listener
// that cannot bind retries every second for as long as the process lives.
#include <chrono>
#include <thread>

#include "runtime/log.h"
#include "runtime/process_state.h"
#include "transport/connection_threads.h"
#include "transport/handshake_threads.h"
#include "transport/socket_channel.h"

namespace vxbus {
namespace {

constexpr int kListenBacklog = 5;
constexpr std::int64_t kAcceptPollMs = 1100;

// Not cut short by a shutdown.
void PauseOneSecond() {
  std::this_thread::sleep_until(std::chrono::steady_clock::now() + std::chrono::seconds(1));
}

bool ShuttingDown() {
  return g_shuttingDown.load(std::memory_order_relaxed);
}

class TcpListener {
 public:
  explicit TcpListener(MTObjects::MTReferencedPtr<ConnThreadInfo> info) : info_(std::move(info)) {}
  ~TcpListener() {
    if (socket_ != platform::kInvalidSocket) platform::CloseSocket(socket_);
  }
  void Run();

 private:
  bool Open();
  void TakeOnePeer();

  MTObjects::MTReferencedPtr<ConnThreadInfo> info_;
  platform::SocketHandle socket_ = platform::kInvalidSocket;
  bool failureLogged_ = false;   // one line per run of failures, not one a second
  HandshakeThreads handshakes_;  // joined before the listener is gone
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

void TcpListener::TakeOnePeer() {
  VX_LOG(kLogInfo, "ConnectionThread. Accepting new connection");
  platform::Ipv4Endpoint peer;
  platform::SocketHandle accepted = platform::Accept(socket_, &peer);
  if (accepted == platform::kInvalidSocket) {
    VX_LOG(kLogError, "ConnectionThread. Failed to accept incoming connection.");
    return;
  }
  VX_LOG(kLogInfo, "ConnectionThread. Connection from: '",
         platform::FormatDottedAddress(peer.address), "' has been accepted");
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
  handshakes_.Run([channel] {
    AcceptAndLog(channel, "ConnectionThread. ");
    VX_LOG(kLogInfo, "ConnectionThread. Initialization of new connection is completed.");
  });
}

void TcpListener::Run() {
  while (!ShuttingDown()) {
    if (socket_ == platform::kInvalidSocket && !Open()) continue;
    platform::IoResult ready = platform::WaitReadable(socket_, kAcceptPollMs);
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
  MTObjects::MTReferencedPtr<ConnThreadInfo> info(g_connThreadInfo);
  if (info->Address().port == 0) return;  // no listener wanted; no further line
  {
    TcpListener listener(info);
    listener.Run();
  }
  VX_LOG(kLogInfo, "ConnectionThread. Shutdown");
}

}  // namespace vxbus
