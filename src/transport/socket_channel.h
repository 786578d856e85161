// SPDX-License-Identifier: MIT
// The channel over one connected IPv4 TCP socket.
#ifndef VXBUS_TRANSPORT_SOCKET_CHANNEL_H_
#define VXBUS_TRANSPORT_SOCKET_CHANNEL_H_

#include <atomic>
#include <chrono>
#include <cstdint>
#include <string>

#include "platform/socket.h"
#include "transport/channel_limits.h"
#include "transport/first_failure.h"
#include "transport/reader_spin.h"
#include "transport/stream_buffers.h"
#include "transport/transport_channel.h"

namespace vxbus {

// The four settings that every connected socket gets, in this order: no
// delay, non-blocking, and 64 KiB receive and send buffers. Their results are
// not looked at.
void ApplyConnectedSocketOptions(platform::SocketHandle socket);

class SocketChannel : public ITransportChannel,
                      private ReadBuffer::Source,
                      private WriteBatch::Sink {
 public:
  // Takes ownership of a connected socket and learns both addresses; an
  // address that cannot be learned stays empty. Obeys `limits` for its life.
  SocketChannel(platform::SocketHandle socket, const ChannelLimits& limits);
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
  Status FirstFailure() const override;

 private:
  // One receive that waits for data within the read's limits, and one
  // gathered send that waits for room within the write's; each system call
  // counted once.
  platform::IoResult ReceiveSome(void* buffer, std::uint32_t length) override;
  bool SendAll(const platform::BytePiece* pieces, std::size_t count) override;
  // One wait for the socket to turn readable, after a brief look.
  platform::IoResult WaitForBytes(std::int64_t timeoutMs);

  platform::SocketHandle socketHandle;
  std::string peerAddress;
  std::string localAddress;
  const ChannelLimits limits_;
  // WaitReadable reports ready while the buffer holds bytes. Reader only.
  ReadBuffer readBuffer_;
  ReaderSpin readerSpin_;  // reader only
  // The stop flag and start of the read under way. Reader only.
  const std::atomic<bool>* stopFlagOfRead_ = nullptr;
  bool readStarted_ = false;
  std::chrono::steady_clock::time_point readStart_;
  WriteBatch writeBatch_;
  // Set by InterruptReads: a peer that goes on sending must not keep a
  // read going, as the socket may still deliver what arrives after it.
  std::atomic<bool> readsInterrupted_{false};
  FirstFailureRecord failures_;
};

// Connects outward to a dotted address or a host name; null on failure.
ChannelRef ConnectSocketChannel(const char* host, std::uint16_t port, const ChannelLimits& limits);

// Wraps a socket that a listener accepted and configured; never null.
ChannelRef WrapAcceptedSocket(platform::SocketHandle socket, const ChannelLimits& limits);

}  // namespace vxbus

#endif  // VXBUS_TRANSPORT_SOCKET_CHANNEL_H_
