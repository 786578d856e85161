// IPv4 stream sockets: the operations that the socket channel and the TCP
// listener need, and nothing above them.
#ifndef VXBUS_PLATFORM_SOCKET_H_
#define VXBUS_PLATFORM_SOCKET_H_

#include <cstddef>
#include <cstdint>
#include <string>

namespace vxbus {
namespace platform {

// 64 bits wide so that every platform's socket handle fits.
using SocketHandle = std::int64_t;
constexpr SocketHandle kInvalidSocket = -1;

// A waiting operation given this time-out waits without a limit.
constexpr std::int64_t kWaitForever = -1;

struct Ipv4Endpoint {
  std::uint32_t address = 0;  // network byte order, as inet_pton gives it
  std::uint16_t port = 0;     // host byte order
};

// A new IPv4 stream socket, blocking; kInvalidSocket on failure.
SocketHandle CreateStreamSocket();
// Closes without a shutdown first; the result is not reported.
void CloseSocket(SocketHandle socket);

// The error of the last failed socket operation on this thread, as the
// platform numbers it; for log lines and IsWouldBlock.
int LastSocketError();
// True for the codes that mean "not now, try again after a wait": a
// non-blocking call that would block, or a connect still under way.
bool IsWouldBlock(int error);

// Each returns 0 on success and -1 on failure.
int SetNoDelay(SocketHandle socket, bool on);
// Lets a listener bind to a port whose old connections still linger, as a
// plain bind does on platforms where that is the default. A port that a live
// listener holds stays taken.
int AllowAddressReuse(SocketHandle socket);
int SetNonBlocking(SocketHandle socket, bool on);
int SetReceiveBufferSize(SocketHandle socket, int bytes);
int SetSendBufferSize(SocketHandle socket, int bytes);

// Reads `text` as a dotted IPv4 address only, never through a resolver.
bool ParseDottedAddress(const char* text, std::uint32_t* address);
// Resolves a host name to the first IPv4 address it has.
bool ResolveHostAddress(const char* host, std::uint32_t* address);
// The dotted text of an address in network byte order.
std::string FormatDottedAddress(std::uint32_t address);

// 0 when connected at once, -1 otherwise; IsWouldBlock(LastSocketError())
// then tells a connect that goes on in the background.
int Connect(SocketHandle socket, const Ipv4Endpoint& endpoint);
// Waits for a background connect: 1 connected, 0 time-out, -1 failed.
int WaitConnected(SocketHandle socket, std::int64_t timeoutMs);

int Bind(SocketHandle socket, const Ipv4Endpoint& endpoint);
int Listen(SocketHandle socket, int backlog);
// The accepted socket, blocking, or kInvalidSocket; `peer` may be null.
SocketHandle Accept(SocketHandle listener, Ipv4Endpoint* peer);

bool GetPeerEndpoint(SocketHandle socket, Ipv4Endpoint* endpoint);
bool GetLocalEndpoint(SocketHandle socket, Ipv4Endpoint* endpoint);

// 1 ready, 0 time-out, -1 failure. A socket with an error or an ended
// stream counts as ready, so that the next call reports it.
int WaitReadable(SocketHandle socket, std::int64_t timeoutMs);
int WaitWritable(SocketHandle socket, std::int64_t timeoutMs);

// One recv or send call: the count, 0 for a stream ended by the peer (recv
// only), or -1 with LastSocketError set. A send into a connection that the
// peer has dropped fails; it never raises a signal.
std::int64_t Receive(SocketHandle socket, void* buffer, std::size_t length);
std::int64_t Send(SocketHandle socket, const void* bytes, std::size_t length);

}  // namespace platform
}  // namespace vxbus

#endif  // VXBUS_PLATFORM_SOCKET_H_
