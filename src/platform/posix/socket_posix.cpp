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

#include "platform/posix/poll_posix.h"

namespace vxbus {
namespace platform {
namespace {

int Fd(SocketHandle socket) {
  return static_cast<int>(socket);
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

int SetIntOption(SocketHandle socket, int level, int option, int value) {
  return ::setsockopt(Fd(socket), level, option, &value, sizeof value) == 0 ? 0 : -1;
}

// poll reports readiness for everything that select puts in its set: data,
// an ended stream, or a pending error.
int WaitFor(SocketHandle socket, short events, std::int64_t timeoutMs) {
  if (socket < 0) {
    errno = EBADF;
    return -1;
  }
  short seen = 0;
  int result = posix::PollOne(Fd(socket), events, timeoutMs, &seen);
  return result > 0 ? 1 : result;
}

}  // namespace

SocketHandle CreateStreamSocket() {
  // Close-on-exec, so that a child process never inherits a connection.
  int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  return fd < 0 ? kInvalidSocket : static_cast<SocketHandle>(fd);
}

void CloseSocket(SocketHandle socket) {
  if (socket >= 0) ::close(Fd(socket));
}

int LastSocketError() {
  return errno;
}

// EINTR is counted here too: on a non-blocking socket it only means that the
// call should be made again, which the wait that follows leads to.
bool IsWouldBlock(int error) {
  return error == EAGAIN || error == EWOULDBLOCK || error == EINPROGRESS || error == EINTR;
}

int AllowAddressReuse(SocketHandle socket) {
  return SetIntOption(socket, SOL_SOCKET, SO_REUSEADDR, 1);
}

int SetNoDelay(SocketHandle socket, bool on) {
  return SetIntOption(socket, IPPROTO_TCP, TCP_NODELAY, on ? 1 : 0);
}

int SetNonBlocking(SocketHandle socket, bool on) {
  int flags = ::fcntl(Fd(socket), F_GETFL, 0);
  if (flags < 0) return -1;
  flags = on ? (flags | O_NONBLOCK) : (flags & ~O_NONBLOCK);
  return ::fcntl(Fd(socket), F_SETFL, flags) == 0 ? 0 : -1;
}

int SetReceiveBufferSize(SocketHandle socket, int bytes) {
  return SetIntOption(socket, SOL_SOCKET, SO_RCVBUF, bytes);
}

int SetSendBufferSize(SocketHandle socket, int bytes) {
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

int Connect(SocketHandle socket, const Ipv4Endpoint& endpoint) {
  sockaddr_in address = ToSockaddr(endpoint);
  return ::connect(Fd(socket), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0
             ? 0
             : -1;
}

// A refused or failed connect shows as an error or a hang-up on the socket;
// only plain writability means that the connection stands.
int WaitConnected(SocketHandle socket, std::int64_t timeoutMs) {
  if (socket < 0) {
    errno = EBADF;
    return -1;
  }
  short seen = 0;
  int result = posix::PollOne(Fd(socket), POLLOUT, timeoutMs, &seen);
  if (result <= 0) return result;
  return (seen & (POLLERR | POLLHUP)) != 0 ? -1 : 1;
}

int Bind(SocketHandle socket, const Ipv4Endpoint& endpoint) {
  sockaddr_in address = ToSockaddr(endpoint);
  return ::bind(Fd(socket), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 ? 0
                                                                                              : -1;
}

int Listen(SocketHandle socket, int backlog) {
  return ::listen(Fd(socket), backlog) == 0 ? 0 : -1;
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

int WaitReadable(SocketHandle socket, std::int64_t timeoutMs) {
  return WaitFor(socket, POLLIN, timeoutMs);
}

int WaitWritable(SocketHandle socket, std::int64_t timeoutMs) {
  return WaitFor(socket, POLLOUT, timeoutMs);
}

std::int64_t Receive(SocketHandle socket, void* buffer, std::size_t length) {
  return ::recv(Fd(socket), buffer, length, 0);
}

// MSG_NOSIGNAL: a peer that has gone makes the send fail with EPIPE instead
// of raising SIGPIPE, which would end the whole process.
std::int64_t Send(SocketHandle socket, const void* bytes, std::size_t length) {
  return ::send(Fd(socket), bytes, length, MSG_NOSIGNAL);
}

}  // namespace platform
}  // namespace vxbus
