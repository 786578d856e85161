// The channel over one connected IPv4 TCP socket.
#ifndef VXBUS_TRANSPORT_SOCKET_CHANNEL_H_
#define VXBUS_TRANSPORT_SOCKET_CHANNEL_H_

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>

#include "platform/socket.h"
#include "transport/transport_channel.h"

namespace vxbus {

// The four settings that every connected socket gets, in this order: no
// delay, non-blocking, and 64 KiB receive and send buffers. Their results are
// not looked at.
void ApplyConnectedSocketOptions(platform::SocketHandle socket);

class SocketChannel : public ITransportChannel {
 public:
  // Takes ownership of a connected socket and learns both addresses; an
  // address that cannot be learned stays empty.
  explicit SocketChannel(platform::SocketHandle socket);
  ~SocketChannel() override;

  SocketChannel(const SocketChannel&) = delete;
  SocketChannel& operator=(const SocketChannel&) = delete;

  std::int32_t ReadStoppable(void* buffer, std::uint32_t length,
                             const std::atomic<bool>* stopFlag) override;
  std::int32_t Read(void* buffer, std::uint32_t length) override;
  std::int32_t Write(const void* bytes, std::uint32_t length) override;
  std::string GetPeerAddress() override;
  std::string GetLocalAddress() override;
  std::int32_t WaitReadable(std::uint32_t timeoutMs) override;
  std::int32_t WaitReadableForever() override;
  void InterruptReads() override;
  bool PeerEnded() override;
  void BeginWriteBatch() override;
  std::int32_t EndWriteBatch() override;

 private:
  // Every send and receive call, counted once each.
  platform::IoResult ReceiveOnce(void* buffer, std::size_t length);
  std::int32_t WriteThrough(const void* bytes, std::uint32_t length);
  std::uint32_t TakeBuffered(unsigned char* out, std::uint32_t length);

  platform::SocketHandle socketHandle;
  std::string peerAddress;
  std::string localAddress;
  // Small reads take what the socket holds into this buffer and are served
  // from it; WaitReadable reports ready while it holds bytes. Reader only.
  std::unique_ptr<unsigned char[]> readBuffer_;
  std::uint32_t readStart_ = 0;
  std::uint32_t readEnd_ = 0;
  // The bytes collected in a write batch. Writer only.
  std::unique_ptr<unsigned char[]> batch_;
  std::uint32_t batched_ = 0;
  bool batching_ = false;
  // Set by InterruptReads: a peer that goes on sending must not keep a
  // read going, as the socket may still deliver what arrives after it.
  std::atomic<bool> readsInterrupted_{false};
};

// Connects outward to a dotted address or a host name; null on failure.
ChannelRef ConnectSocketChannel(const char* host, std::uint16_t port);

// Wraps a socket that a listener accepted and configured; never null.
ChannelRef WrapAcceptedSocket(platform::SocketHandle socket);

}  // namespace vxbus

#endif  // VXBUS_TRANSPORT_SOCKET_CHANNEL_H_
