// SPDX-License-Identifier: MIT
#include "platform/socket.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "platform/posix/gather_posix.h"
#include "platform/posix/poll_posix.h"

namespace vxbus {
namespace platform {
namespace {

int Fd(SocketHandle socket) {
  return static_cast<int>(static_cast<std::int64_t>(socket));
}

// EINTR counts as "not now" too: on a non-blocking socket it only means that
// the call should be made again, which the wait that follows leads to.
bool IsWouldBlock(int error) {
  return error == EAGAIN || error == EWOULDBLOCK || error == EINPROGRESS || error == EINTR;
}

IoResult Done(std::int64_t count) {
  IoResult result;
  result.status = IoStatus::kOk;
  result.count = count;
  return result;
}

IoResult FromErrno() {
  IoResult result;
  result.status = IsWouldBlock(errno) ? IoStatus::kWouldBlock : IoStatus::kFailed;
  result.systemCode = errno;
  return result;
}

// poll's 1, 0 or -1 as a result.
IoResult FromPoll(int polled) {
  if (polled > 0) return Done(0);
  if (polled == 0) {
    IoResult result;
    result.status = IoStatus::kTimedOut;
    return result;
  }
  IoResult result;
  result.systemCode = errno;
  return result;
}

sockaddr_in ToSockaddr(const Ipv4Endpoint& endpoint) {
  sockaddr_in address;
  std::memset(&address, 0, sizeof address);
  address.sin_family = AF_INET;
  address.sin_port = htons(endpoint.port);
  address.sin_addr.s_addr = endpoint.address;
  return address;
}

bool FromSockaddr(const sockaddr_storage& storage, socklen_t length, Ipv4Endpoint* endpoint) {
  if (storage.ss_family != AF_INET || length < static_cast<socklen_t>(sizeof(sockaddr_in)))
    return false;
  sockaddr_in address;
  std::memcpy(&address, &storage, sizeof address);
  endpoint->address = address.sin_addr.s_addr;
  endpoint->port = ntohs(address.sin_port);
  return true;
}

bool SetIntOption(SocketHandle socket, int level, int option, int value) {
  return ::setsockopt(Fd(socket), level, option, &value, sizeof value) == 0;
}

// poll reports readiness for everything that select puts in its set: data,
// an ended stream, or a pending error.
IoResult WaitFor(SocketHandle socket, short events, std::int64_t timeoutMs) {
  if (socket == kInvalidSocket) {
    errno = EBADF;
    return FromPoll(-1);
  }
  return FromPoll(posix::PollOne(Fd(socket), events, timeoutMs, nullptr));
}

}  // namespace

SocketHandle CreateStreamSocket() {
  // Close-on-exec, so that a child process never inherits a connection.
  int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  return fd < 0 ? kInvalidSocket : static_cast<SocketHandle>(fd);
}

void CloseSocket(SocketHandle socket) {
  if (socket != kInvalidSocket) ::close(Fd(socket));
}

bool AllowAddressReuse(SocketHandle socket) {
  return SetIntOption(socket, SOL_SOCKET, SO_REUSEADDR, 1);
}

bool SetNoDelay(SocketHandle socket, bool on) {
  return SetIntOption(socket, IPPROTO_TCP, TCP_NODELAY, on ? 1 : 0);
}

bool SetNonBlocking(SocketHandle socket, bool on) {
  int flags = ::fcntl(Fd(socket), F_GETFL, 0);
  if (flags < 0) return false;
  flags = on ? (flags | O_NONBLOCK) : (flags & ~O_NONBLOCK);
  return ::fcntl(Fd(socket), F_SETFL, flags) == 0;
}

bool SetReceiveBufferSize(SocketHandle socket, int bytes) {
  return SetIntOption(socket, SOL_SOCKET, SO_RCVBUF, bytes);
}

bool SetSendBufferSize(SocketHandle socket, int bytes) {
  return SetIntOption(socket, SOL_SOCKET, SO_SNDBUF, bytes);
}

bool ParseDottedAddress(const char* text, std::uint32_t* address) {
  if (text == nullptr) return false;
  in_addr parsed;
  if (::inet_pton(AF_INET, text, &parsed) != 1) return false;
  *address = parsed.s_addr;
  return true;
}

bool ResolveHostAddress(const char* host, std::uint32_t* address) {
  if (host == nullptr || *host == '\0') return false;
  addrinfo hints;
  std::memset(&hints, 0, sizeof hints);
  hints.ai_family = AF_INET;
  hints.ai_socktype = SOCK_STREAM;
  addrinfo* results = nullptr;
  if (::getaddrinfo(host, nullptr, &hints, &results) != 0 || results == nullptr) return false;
  bool found = false;
  for (addrinfo* entry = results; entry != nullptr && !found; entry = entry->ai_next) {
    if (entry->ai_family != AF_INET || entry->ai_addrlen < sizeof(sockaddr_in)) continue;
    sockaddr_in first;
    std::memcpy(&first, entry->ai_addr, sizeof first);
    *address = first.sin_addr.s_addr;
    found = true;
  }
  ::freeaddrinfo(results);
  return found;
}

std::string FormatDottedAddress(std::uint32_t address) {
  in_addr value;
  value.s_addr = address;
  char text[INET_ADDRSTRLEN] = {};
  if (::inet_ntop(AF_INET, &value, text, sizeof text) == nullptr) return std::string();
  return std::string(text);
}

IoResult Connect(SocketHandle socket, const Ipv4Endpoint& endpoint) {
  sockaddr_in address = ToSockaddr(endpoint);
  if (::connect(Fd(socket), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0)
    return Done(0);
  return FromErrno();
}

// A refused or failed connect shows as an error or a hang-up on the socket;
// only plain writability means that the connection stands.
IoResult WaitConnected(SocketHandle socket, std::int64_t timeoutMs) {
  if (socket == kInvalidSocket) {
    errno = EBADF;
    return FromPoll(-1);
  }
  short seen = 0;
  int result = posix::PollOne(Fd(socket), POLLOUT, timeoutMs, &seen);
  if (result <= 0) return FromPoll(result);
  if ((seen & (POLLERR | POLLHUP)) == 0) return Done(0);
  IoResult failed;
  int error = 0;
  socklen_t length = sizeof error;
  if (::getsockopt(Fd(socket), SOL_SOCKET, SO_ERROR, &error, &length) == 0)
    failed.systemCode = error;
  return failed;
}

bool Bind(SocketHandle socket, const Ipv4Endpoint& endpoint) {
  sockaddr_in address = ToSockaddr(endpoint);
  return ::bind(Fd(socket), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
}

bool Listen(SocketHandle socket, int backlog) {
  return ::listen(Fd(socket), backlog) == 0;
}

SocketHandle Accept(SocketHandle listener, Ipv4Endpoint* peer) {
  sockaddr_storage storage;
  socklen_t length = sizeof storage;
  int fd = ::accept4(Fd(listener), reinterpret_cast<sockaddr*>(&storage), &length, SOCK_CLOEXEC);
  if (fd < 0) return kInvalidSocket;
  if (peer != nullptr && !FromSockaddr(storage, length, peer)) *peer = Ipv4Endpoint();
  return static_cast<SocketHandle>(fd);
}

bool GetPeerEndpoint(SocketHandle socket, Ipv4Endpoint* endpoint) {
  sockaddr_storage storage;
  socklen_t length = sizeof storage;
  if (::getpeername(Fd(socket), reinterpret_cast<sockaddr*>(&storage), &length) != 0) return false;
  return FromSockaddr(storage, length, endpoint);
}

bool GetLocalEndpoint(SocketHandle socket, Ipv4Endpoint* endpoint) {
  sockaddr_storage storage;
  socklen_t length = sizeof storage;
  if (::getsockname(Fd(socket), reinterpret_cast<sockaddr*>(&storage), &length) != 0) return false;
  return FromSockaddr(storage, length, endpoint);
}

IoResult WaitReadable(SocketHandle socket, std::int64_t timeoutMs) {
  return WaitFor(socket, POLLIN, timeoutMs);
}

IoResult WaitWritable(SocketHandle socket, std::int64_t timeoutMs) {
  return WaitFor(socket, POLLOUT, timeoutMs);
}

IoResult Receive(SocketHandle socket, void* buffer, std::size_t length) {
  ssize_t count = ::recv(Fd(socket), buffer, length, 0);
  if (count > 0 || (count == 0 && length == 0)) return Done(count);
  if (count == 0) {
    IoResult closed;
    closed.status = IoStatus::kClosed;
    return closed;
  }
  return FromErrno();
}

// MSG_NOSIGNAL: a peer that has gone makes the send fail with EPIPE instead
// of raising SIGPIPE, which would end the whole process.
IoResult Send(SocketHandle socket, const void* bytes, std::size_t length) {
  ssize_t count = ::send(Fd(socket), bytes, length, MSG_NOSIGNAL);
  return count >= 0 ? Done(count) : FromErrno();
}

IoResult SendGathered(SocketHandle socket, const BytePiece* pieces, std::size_t count) {
  ssize_t sent = posix::SendPieces(Fd(socket), pieces, count, 0);
  return sent >= 0 ? Done(sent) : FromErrno();
}

// A shutdown of the receiving half wakes every poll on the descriptor and
// sends nothing to the peer; the FIN waits for the close.
void InterruptReceive(SocketHandle socket) {
  ::shutdown(Fd(socket), SHUT_RD);
}

// The peer's end of stream shows as a read hang-up before the bytes ahead of
// it are read; a plain POLLIN could be either.
bool PeerEndedStream(SocketHandle socket) {
  short seen = 0;
  return posix::PollOne(Fd(socket), POLLRDHUP, 0, &seen) > 0 &&
         (seen & (POLLRDHUP | POLLHUP | POLLERR)) != 0;
}

}  // namespace platform
}  // namespace vxbus
