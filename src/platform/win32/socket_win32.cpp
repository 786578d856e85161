// SPDX-License-Identifier: MIT
// Winsock behind the socket seam. select() waits on one socket at a time,
// which Winsock allows for any handle value.
#include <winsock2.h>
#include <ws2tcpip.h>

#include <algorithm>
#include <climits>
#include <cstring>
#include <mutex>
#include <unordered_map>

#include "platform/socket.h"

namespace vxbus {
namespace platform {
namespace {

SOCKET Native(SocketHandle socket) {
  return static_cast<SOCKET>(static_cast<std::int64_t>(socket));
}

SocketHandle FromNative(SOCKET socket) {
  return static_cast<SocketHandle>(static_cast<std::int64_t>(socket));
}

IoResult Done(std::int64_t count) {
  IoResult result;
  result.status = IoStatus::kOk;
  result.count = count;
  return result;
}

// The would-block code is the only one the logic tells apart; every code
// goes to the log as WSAGetLastError gives it.
IoResult FromLastError() {
  IoResult result;
  result.systemCode = ::WSAGetLastError();
  result.status = result.systemCode == WSAEWOULDBLOCK ? IoStatus::kWouldBlock : IoStatus::kFailed;
  return result;
}

IoResult Status(IoStatus status) {
  IoResult result;
  result.status = status;
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

bool FromSockaddr(const sockaddr_in& address, int length, Ipv4Endpoint* endpoint) {
  if (address.sin_family != AF_INET || length < static_cast<int>(sizeof address)) return false;
  endpoint->address = address.sin_addr.s_addr;
  endpoint->port = ntohs(address.sin_port);
  return true;
}

bool SetIntOption(SocketHandle socket, int level, int option, int value) {
  return ::setsockopt(Native(socket), level, option, reinterpret_cast<const char*>(&value),
                      sizeof value) == 0;
}

// The child processes of the tests inherit handles; no socket may go with them.
void KeepFromChildren(SOCKET socket) {
  ::SetHandleInformation(reinterpret_cast<HANDLE>(socket), HANDLE_FLAG_INHERIT, 0);
}

// One select() on one socket. `writable` picks the write set over the read
// set; `failed`, when given, also watches the exception set, where a failed
// connect shows, and says whether it fired. `waker`, when valid, joins the
// read set: it being ready counts as the socket being ready.
IoResult SelectOne(SocketHandle socket, bool writable, std::int64_t timeoutMs, bool* failed,
                   SOCKET waker = INVALID_SOCKET) {
  fd_set watched;
  FD_ZERO(&watched);
  FD_SET(Native(socket), &watched);
  if (waker != INVALID_SOCKET) FD_SET(waker, &watched);
  fd_set errors;
  FD_ZERO(&errors);
  FD_SET(Native(socket), &errors);
  timeval limit;
  timeval* wait = nullptr;
  if (timeoutMs >= 0) {
    std::int64_t seconds = timeoutMs / 1000;
    limit.tv_sec = seconds > LONG_MAX ? LONG_MAX : static_cast<long>(seconds);
    limit.tv_usec = static_cast<long>(timeoutMs % 1000) * 1000;
    wait = &limit;
  }
  int result = ::select(0, writable ? nullptr : &watched, writable ? &watched : nullptr,
                        failed != nullptr ? &errors : nullptr, wait);
  if (result < 0) return FromLastError();
  if (result == 0) return Status(IoStatus::kTimedOut);
  if (failed != nullptr) *failed = FD_ISSET(Native(socket), &errors) != 0;
  return Done(0);
}

// A shutdown of the receiving half does not end a select under way on every
// Winsock (Wine's does not), so InterruptReceive also wakes the wait through
// a socket of its own: each socket waited on for reading gets a loopback
// datagram socket connected to itself, which joins every such wait, and an
// interrupt sends it one datagram that nobody reads. From then on every wait
// finds it ready. CloseSocket closes the waker with its socket.
std::mutex& WakersMutex() {
  static std::mutex* mutex = new std::mutex;  // never destroyed: used at exit
  return *mutex;
}

std::unordered_map<SOCKET, SOCKET>& Wakers() {
  static auto* wakers = new std::unordered_map<SOCKET, SOCKET>;
  return *wakers;
}

SOCKET NewWaker() {
  SOCKET waker =
      ::WSASocketW(AF_INET, SOCK_DGRAM, IPPROTO_UDP, nullptr, 0, WSA_FLAG_NO_HANDLE_INHERIT);
  if (waker == INVALID_SOCKET) return waker;
  sockaddr_in address = ToSockaddr(Ipv4Endpoint{htonl(INADDR_LOOPBACK), 0});
  int length = sizeof address;
  if (::bind(waker, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
      ::getsockname(waker, reinterpret_cast<sockaddr*>(&address), &length) != 0 ||
      ::connect(waker, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
    ::closesocket(waker);
    return INVALID_SOCKET;
  }
  KeepFromChildren(waker);
  return waker;
}

// The waker of `socket`, made on first use; INVALID_SOCKET when none can be
// made, and the wait then relies on the shutdown alone.
SOCKET WakerOf(SocketHandle socket) {
  std::lock_guard<std::mutex> lock(WakersMutex());
  auto found = Wakers().find(Native(socket));
  if (found != Wakers().end()) return found->second;
  SOCKET waker = NewWaker();
  if (waker != INVALID_SOCKET) Wakers().emplace(Native(socket), waker);
  return waker;
}

}  // namespace

SocketHandle CreateStreamSocket() {
  SOCKET socket = ::WSASocketW(AF_INET, SOCK_STREAM, IPPROTO_TCP, nullptr, 0,
                               WSA_FLAG_OVERLAPPED | WSA_FLAG_NO_HANDLE_INHERIT);
  if (socket == INVALID_SOCKET) return kInvalidSocket;
  KeepFromChildren(socket);
  return FromNative(socket);
}

void CloseSocket(SocketHandle socket) {
  if (socket == kInvalidSocket) return;
  {
    std::lock_guard<std::mutex> lock(WakersMutex());
    auto found = Wakers().find(Native(socket));
    if (found != Wakers().end()) {
      ::closesocket(found->second);
      Wakers().erase(found);
    }
  }
  ::closesocket(Native(socket));
}

// A plain Winsock bind already takes a port whose old connections linger;
// exclusive use keeps another socket from binding over a live listener.
bool AllowAddressReuse(SocketHandle socket) {
  return SetIntOption(socket, SOL_SOCKET, SO_EXCLUSIVEADDRUSE, 1);
}

bool SetNoDelay(SocketHandle socket, bool on) {
  return SetIntOption(socket, IPPROTO_TCP, TCP_NODELAY, on ? 1 : 0);
}

bool SetNonBlocking(SocketHandle socket, bool on) {
  u_long value = on ? 1 : 0;
  return ::ioctlsocket(Native(socket), FIONBIO, &value) == 0;
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
  const hostent* entry = ::gethostbyname(host);
  if (entry == nullptr || entry->h_addrtype != AF_INET || entry->h_length != 4 ||
      entry->h_addr_list == nullptr || entry->h_addr_list[0] == nullptr)
    return false;
  std::memcpy(address, entry->h_addr_list[0], 4);
  return true;
}

std::string FormatDottedAddress(std::uint32_t address) {
  in_addr value;
  value.s_addr = address;
  char text[INET_ADDRSTRLEN] = {};
  if (::inet_ntop(AF_INET, &value, text, sizeof text) == nullptr) return std::string();
  return std::string(text);
}

// Winsock reports a connect under way as would-block.
IoResult Connect(SocketHandle socket, const Ipv4Endpoint& endpoint) {
  sockaddr_in address = ToSockaddr(endpoint);
  if (::connect(Native(socket), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0)
    return Done(0);
  return FromLastError();
}

// Winsock never reports a refused connect as writable: it shows in the
// exception set, with its code in SO_ERROR.
IoResult WaitConnected(SocketHandle socket, std::int64_t timeoutMs) {
  bool failed = false;
  IoResult result = SelectOne(socket, true, timeoutMs, &failed);
  if (!result.ok() || !failed) return result;
  IoResult refused;
  int error = 0;
  int length = sizeof error;
  if (::getsockopt(Native(socket), SOL_SOCKET, SO_ERROR, reinterpret_cast<char*>(&error),
                   &length) == 0)
    refused.systemCode = error;
  return refused;
}

bool Bind(SocketHandle socket, const Ipv4Endpoint& endpoint) {
  sockaddr_in address = ToSockaddr(endpoint);
  return ::bind(Native(socket), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
}

bool Listen(SocketHandle socket, int backlog) {
  return ::listen(Native(socket), backlog) == 0;
}

SocketHandle Accept(SocketHandle listener, Ipv4Endpoint* peer) {
  sockaddr_in address;
  int length = sizeof address;
  SOCKET accepted = ::accept(Native(listener), reinterpret_cast<sockaddr*>(&address), &length);
  if (accepted == INVALID_SOCKET) return kInvalidSocket;
  KeepFromChildren(accepted);
  if (peer != nullptr && !FromSockaddr(address, length, peer)) *peer = Ipv4Endpoint();
  return FromNative(accepted);
}

bool GetPeerEndpoint(SocketHandle socket, Ipv4Endpoint* endpoint) {
  sockaddr_in address;
  int length = sizeof address;
  if (::getpeername(Native(socket), reinterpret_cast<sockaddr*>(&address), &length) != 0)
    return false;
  return FromSockaddr(address, length, endpoint);
}

bool GetLocalEndpoint(SocketHandle socket, Ipv4Endpoint* endpoint) {
  sockaddr_in address;
  int length = sizeof address;
  if (::getsockname(Native(socket), reinterpret_cast<sockaddr*>(&address), &length) != 0)
    return false;
  return FromSockaddr(address, length, endpoint);
}

IoResult WaitReadable(SocketHandle socket, std::int64_t timeoutMs) {
  return SelectOne(socket, false, timeoutMs, nullptr, WakerOf(socket));
}

IoResult WaitWritable(SocketHandle socket, std::int64_t timeoutMs) {
  return SelectOne(socket, true, timeoutMs, nullptr);
}

// recv and send take an int length; a longer request is served in parts, as
// callers loop until they have all their bytes.
IoResult Receive(SocketHandle socket, void* buffer, std::size_t length) {
  int part = length > INT_MAX ? INT_MAX : static_cast<int>(length);
  int count = ::recv(Native(socket), static_cast<char*>(buffer), part, 0);
  if (count > 0 || (count == 0 && length == 0)) return Done(count);
  if (count == 0) return Status(IoStatus::kClosed);
  IoResult failed = FromLastError();
  if (failed.systemCode == WSAESHUTDOWN) failed.status = IoStatus::kClosed;  // InterruptReceive
  return failed;
}

IoResult Send(SocketHandle socket, const void* bytes, std::size_t length) {
  int part = length > INT_MAX ? INT_MAX : static_cast<int>(length);
  int count = ::send(Native(socket), static_cast<const char*>(bytes), part, 0);
  return count >= 0 ? Done(count) : FromLastError();
}

// WSASend gathers without an overlapped structure: on a non-blocking socket
// it takes what fits now, as send does.
IoResult SendGathered(SocketHandle socket, const BytePiece* pieces, std::size_t count) {
  constexpr std::size_t kMaxPieces = 16;
  WSABUF buffers[kMaxPieces];
  if (count > kMaxPieces) count = kMaxPieces;
  for (std::size_t i = 0; i < count; ++i) {
    buffers[i].buf = static_cast<char*>(const_cast<void*>(pieces[i].data));
    buffers[i].len = static_cast<ULONG>(std::min<std::size_t>(pieces[i].length, INT_MAX));
  }
  DWORD sent = 0;
  if (::WSASend(Native(socket), buffers, static_cast<DWORD>(count), &sent, 0, nullptr, nullptr) !=
      0)
    return FromLastError();
  return Done(sent);
}

// A shutdown of the receiving half sends nothing to the peer and makes a
// later recv fail with WSAESHUTDOWN; the waker ends the waits for reading.
void InterruptReceive(SocketHandle socket) {
  ::shutdown(Native(socket), SD_RECEIVE);
  SOCKET waker = WakerOf(socket);
  const char wake = 1;
  if (waker != INVALID_SOCKET) ::send(waker, &wake, 1, 0);
}

// Winsock tells the end of a stream only to a read that reaches it.
bool PeerEndedStream(SocketHandle) {
  return false;
}

}  // namespace platform
}  // namespace vxbus
