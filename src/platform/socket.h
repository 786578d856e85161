// SPDX-License-Identifier: MIT
// IPv4 stream sockets: the operations that the socket channel and the TCP
// listener need, and nothing above them.
#ifndef VXBUS_PLATFORM_SOCKET_H_
#define VXBUS_PLATFORM_SOCKET_H_

#include <cstddef>
#include <cstdint>
#include <string>

#include "platform/io_result.h"

namespace vxbus {
namespace platform {

// An opaque socket: the system's own handle, widened so that every
// platform's fits. A type of its own, so that it cannot be mixed up with
// any other handle.
enum class SocketHandle : std::int64_t {};
constexpr SocketHandle kInvalidSocket = static_cast<SocketHandle>(-1);

struct Ipv4Endpoint {
  std::uint32_t address = 0;  // network byte order, as on the wire
  std::uint16_t port = 0;     // host byte order
};

// Nothing here blocks unless it says so. Time limits follow io_result.h.
// Failures that the logic does not act on are plain bools; the others are
// an IoResult whose systemCode is for log lines.

// A new IPv4 stream socket, blocking, not inherited by child processes;
// kInvalidSocket on failure. The caller owns it and closes it with
// CloseSocket.
SocketHandle CreateStreamSocket();
// Closes without a shutdown first. kInvalidSocket is allowed.
void CloseSocket(SocketHandle socket);

// Socket options; their results are for callers that care.
bool SetNoDelay(SocketHandle socket, bool on);
// Lets a listener bind to a port whose old connections still linger, as a
// plain bind does on platforms where that is the default. A port that a live
// listener holds stays taken.
bool AllowAddressReuse(SocketHandle socket);
bool SetNonBlocking(SocketHandle socket, bool on);
bool SetReceiveBufferSize(SocketHandle socket, int bytes);
bool SetSendBufferSize(SocketHandle socket, int bytes);

// Reads `text` as a dotted IPv4 address only, never through a resolver.
bool ParseDottedAddress(const char* text, std::uint32_t* address);
// Resolves a host name to the first IPv4 address it has; may block on the
// system's resolver.
bool ResolveHostAddress(const char* host, std::uint32_t* address);
// The dotted text of an address in network byte order.
std::string FormatDottedAddress(std::uint32_t address);

// Starts a connect. On a non-blocking socket: kOk when connected at once,
// kWouldBlock when it goes on in the background (then WaitConnected), or
// kFailed. On a blocking socket it blocks until it is done.
IoResult Connect(SocketHandle socket, const Ipv4Endpoint& endpoint);
// Waits for a background connect: kOk connected, kTimedOut, or kFailed
// (refused, unreachable).
IoResult WaitConnected(SocketHandle socket, std::int64_t timeoutMs);

bool Bind(SocketHandle socket, const Ipv4Endpoint& endpoint);
bool Listen(SocketHandle socket, int backlog);
// Blocks on a blocking listener. The accepted socket, blocking and owned by
// the caller, or kInvalidSocket; `peer` may be null.
SocketHandle Accept(SocketHandle listener, Ipv4Endpoint* peer);

bool GetPeerEndpoint(SocketHandle socket, Ipv4Endpoint* endpoint);
bool GetLocalEndpoint(SocketHandle socket, Ipv4Endpoint* endpoint);

// kOk ready, kTimedOut, or kFailed. A socket with an error or an ended
// stream counts as ready, so that the next call reports it; so does a
// listener with a connection waiting.
IoResult WaitReadable(SocketHandle socket, std::int64_t timeoutMs);
IoResult WaitWritable(SocketHandle socket, std::int64_t timeoutMs);

// One recv or send call, blocking only on a blocking socket. kOk with the
// count (at least 1 unless `length` was 0); kWouldBlock on a non-blocking
// socket that has nothing now (or was interrupted); kClosed from Receive
// when the peer ended the stream; kFailed otherwise. A send into a
// connection that the peer has dropped fails; it never raises a signal.
IoResult Receive(SocketHandle socket, void* buffer, std::size_t length);
IoResult Send(SocketHandle socket, const void* bytes, std::size_t length);
// One send of `count` pieces in their order, as Send does for one: kOk with
// the bytes moved, which may end inside any piece. At most 16 pieces.
IoResult SendGathered(SocketHandle socket, const BytePiece* pieces, std::size_t count);

// Ends every wait for reading on `socket` at once, the one under way and all
// later ones: WaitReadable reports ready, and Receive then reports kClosed.
// Sending goes on as before, and nothing goes on the wire. Safe while another
// thread waits on or reads the socket; for a local stop.
void InterruptReceive(SocketHandle socket);

// True when the peer has ended its stream or the connection has failed,
// also while bytes sent before that still wait to be read; false when not,
// and where the system can't tell without reading them (Windows). For a
// reader that is not reading, to learn that its peer has gone. Never blocks.
bool PeerEndedStream(SocketHandle socket);

}  // namespace platform
}  // namespace vxbus

#endif  // VXBUS_PLATFORM_SOCKET_H_
