#include "transport/socket_channel.h"

#include <chrono>
#include <cstring>
#include <limits>
#include <new>

#include "runtime/log.h"
#include "runtime/object_counters.h"
#include "runtime/process_state.h"

namespace vxbus {
namespace {

using Clock = std::chrono::steady_clock;

constexpr int kSocketBufferBytes = 65536;
// The time-limit line always shows this code, whatever the platform calls
// its would-block error, so that monitoring can match one text everywhere.
constexpr int kTimeLimitErrorCode = 10035;
// An outward connect waits at most two rounds of 2 s and 1 ms.
constexpr int kConnectRounds = 2;
constexpr std::int64_t kConnectRoundMs = 2001;
// A full send buffer is waited for 10 s and 1 ms, whatever the limit is.
constexpr std::int64_t kWriteWaitMs = 10001;
// Reads below this size take what the socket holds into the read buffer;
// writes below it are collected in a write batch. Larger ones move in place.
constexpr std::uint32_t kDirectReadBytes = 16384;
constexpr std::uint32_t kDirectWriteBytes = 16384;
constexpr std::uint32_t kReadBufferBytes = 65536;
constexpr std::uint32_t kBatchBytes = 65536;

std::int64_t MillisecondsSince(Clock::time_point start) {
  return std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start).count();
}

std::int64_t TimeLimitMs() {
  return g_limits.limits.IO_TIMEOUT_MS;
}

// About half the limit, rounded up to whole seconds, plus 1 ms: a plain read
// gives up after one such quiet period.
std::int64_t QuietPeriodMs() {
  std::int64_t seconds = (TimeLimitMs() + 1999) / 2000;
  if (seconds < 0) seconds = 0;
  return seconds * 1000 + 1;
}

bool StopWaitAllowed(const std::atomic<bool>* stopFlag) {
  return stopFlag != nullptr && !stopFlag->load(std::memory_order_relaxed);
}

std::string EndpointText(const platform::Ipv4Endpoint& endpoint) {
  return platform::FormatDottedAddress(endpoint.address) + ":" + std::to_string(endpoint.port);
}

// The channel's 1, 0 or -1 for a wait.
std::int32_t WaitResult(const platform::IoResult& waited) {
  if (waited.ok()) return 1;
  return waited.status == platform::IoStatus::kTimedOut ? 0 : -1;
}

// Results above the largest count that the contract can return are refused
// before anything touches the socket.
constexpr std::uint32_t kLargestCount =
    static_cast<std::uint32_t>(std::numeric_limits<std::int32_t>::max());

}  // namespace

void ApplyConnectedSocketOptions(platform::SocketHandle socket) {
  platform::SetNoDelay(socket, true);
  platform::SetNonBlocking(socket, true);
  platform::SetReceiveBufferSize(socket, kSocketBufferBytes);
  platform::SetSendBufferSize(socket, kSocketBufferBytes);
}

SocketChannel::SocketChannel(platform::SocketHandle socket)
    : socketHandle(socket),
      readBuffer_(new unsigned char[kReadBufferBytes]),
      batch_(new unsigned char[kBatchBytes]) {
  platform::Ipv4Endpoint endpoint;
  if (platform::GetPeerEndpoint(socketHandle, &endpoint)) peerAddress = EndpointText(endpoint);
  if (platform::GetLocalEndpoint(socketHandle, &endpoint)) localAddress = EndpointText(endpoint);
}

SocketChannel::~SocketChannel() {
  platform::CloseSocket(socketHandle);
}

std::int32_t SocketChannel::Read(void* buffer, std::uint32_t length) {
  return ReadStoppable(buffer, length, nullptr);
}

platform::IoResult SocketChannel::ReceiveOnce(void* buffer, std::size_t length) {
  ++g_transportReceiveCalls;
  return platform::Receive(socketHandle, buffer, length);
}

std::uint32_t SocketChannel::TakeBuffered(unsigned char* out, std::uint32_t length) {
  std::uint32_t count = readEnd_ - readStart_;
  if (count > length) count = length;
  if (count == 0) return 0;
  std::memcpy(out, readBuffer_.get() + readStart_, count);
  readStart_ += count;
  return count;
}

std::int32_t SocketChannel::ReadStoppable(void* buffer, std::uint32_t length,
                                          const std::atomic<bool>* stopFlag) {
  if (length > g_limits.limits.MAX_READ_SIZE || length > kLargestCount) return -1;
  if (length == 0) return 0;

  auto* position = static_cast<unsigned char*>(buffer);
  std::uint32_t remaining = length;
  std::uint32_t taken = TakeBuffered(position, remaining);
  if (taken == remaining) return static_cast<std::int32_t>(length);
  position += taken;
  remaining -= taken;
  // The time limit runs from the first look at the socket; a read served
  // from the buffer alone, the common case in a stream of small frames,
  // costs no clock read.
  const Clock::time_point start = Clock::now();
  while (remaining > 0) {
    if (readsInterrupted_.load(std::memory_order_acquire)) return -1;
    // A large rest goes straight to its place; a small one takes whatever
    // the socket holds, so that the frames behind it need no receive.
    const bool direct = remaining >= kDirectReadBytes;
    platform::IoResult received = direct ? ReceiveOnce(position, remaining)
                                         : ReceiveOnce(readBuffer_.get(), kReadBufferBytes);
    if (received.ok()) {
      if (direct) {
        position += received.count;
        remaining -= static_cast<std::uint32_t>(received.count);
      } else {
        readStart_ = 0;
        readEnd_ = static_cast<std::uint32_t>(received.count);
        taken = TakeBuffered(position, remaining);
        position += taken;
        remaining -= taken;
      }
      continue;
    }
    if (received.status == platform::IoStatus::kClosed) {
      VX_LOG(kLogInfo, "Receive failed: socket closed");
      return -1;
    }
    if (received.status != platform::IoStatus::kWouldBlock) {
      VX_LOG(kLogInfo, "Receive failed with code ", received.systemCode);
      return -1;
    }
    // A reader that may wait for its stop flag has no overall deadline.
    if (!StopWaitAllowed(stopFlag) && MillisecondsSince(start) >= TimeLimitMs()) {
      VX_LOG(kLogInfo, "Receive failed with code ", kTimeLimitErrorCode);
      return -1;
    }
    if (platform::WaitReadable(socketHandle, QuietPeriodMs()).ok()) continue;
    if (!StopWaitAllowed(stopFlag)) return -1;
  }
  return static_cast<std::int32_t>(length);
}

std::int32_t SocketChannel::Write(const void* bytes, std::uint32_t length) {
  if (length > kLargestCount) return -1;
  if (!batching_ || length == 0) return WriteThrough(bytes, length);
  // A large piece goes out from where it lies, after what was collected.
  if (length >= kDirectWriteBytes || batched_ + length > kBatchBytes) {
    const std::uint32_t collected = batched_;
    batched_ = 0;
    if (WriteThrough(batch_.get(), collected) < 0) return -1;
    if (length >= kDirectWriteBytes) return WriteThrough(bytes, length);
  }
  std::memcpy(batch_.get() + batched_, bytes, length);
  batched_ += length;
  return static_cast<std::int32_t>(length);
}

void SocketChannel::BeginWriteBatch() {
  batching_ = true;
}

std::int32_t SocketChannel::EndWriteBatch() {
  batching_ = false;
  const std::uint32_t collected = batched_;
  batched_ = 0;
  return WriteThrough(batch_.get(), collected) < 0 ? -1 : 0;
}

std::int32_t SocketChannel::WriteThrough(const void* bytes, std::uint32_t length) {
  const Clock::time_point start = Clock::now();
  if (length == 0) return 0;

  const auto* position = static_cast<const unsigned char*>(bytes);
  std::uint32_t remaining = length;
  for (;;) {
    ++g_transportSendCalls;
    platform::IoResult sent = platform::Send(socketHandle, position, remaining);
    if (sent.ok()) {
      position += sent.count;
      remaining -= static_cast<std::uint32_t>(sent.count);
      if (remaining == 0) return static_cast<std::int32_t>(length);
      continue;
    }
    if (sent.status != platform::IoStatus::kWouldBlock) return -1;
    if (MillisecondsSince(start) >= TimeLimitMs()) return -1;
    if (!platform::WaitWritable(socketHandle, kWriteWaitMs).ok()) return -1;
  }
}

std::string SocketChannel::GetPeerAddress() {
  return peerAddress;
}

std::string SocketChannel::GetLocalAddress() {
  return localAddress;
}

// Bytes already taken off the socket count as ready.
std::int32_t SocketChannel::WaitReadable(std::uint32_t timeoutMs) {
  if (readEnd_ > readStart_) return 1;
  return WaitResult(platform::WaitReadable(socketHandle, timeoutMs));
}

std::int32_t SocketChannel::WaitReadableForever() {
  if (readEnd_ > readStart_) return 1;
  return WaitResult(platform::WaitReadable(socketHandle, platform::kWaitForever));
}

void SocketChannel::InterruptReads() {
  readsInterrupted_.store(true, std::memory_order_release);
  platform::InterruptReceive(socketHandle);
}

bool SocketChannel::PeerEnded() {
  return platform::PeerEndedStream(socketHandle);
}

ChannelRef ConnectSocketChannel(const char* host, std::uint16_t port) {
  platform::SocketHandle socket = platform::CreateStreamSocket();
  if (socket == platform::kInvalidSocket) return ChannelRef();

  // A dotted address is taken as it stands and never sent to a resolver.
  platform::Ipv4Endpoint endpoint;
  endpoint.port = port;
  if (!platform::ParseDottedAddress(host, &endpoint.address) &&
      !platform::ResolveHostAddress(host, &endpoint.address)) {
    platform::CloseSocket(socket);
    return ChannelRef();
  }

  ApplyConnectedSocketOptions(socket);
  platform::IoStatus connected = platform::Connect(socket, endpoint).status;
  if (connected != platform::IoStatus::kOk) {
    if (connected != platform::IoStatus::kWouldBlock) {
      platform::CloseSocket(socket);
      return ChannelRef();
    }
    platform::IoStatus waited = platform::IoStatus::kTimedOut;
    for (int round = 0; round < kConnectRounds && waited == platform::IoStatus::kTimedOut; ++round)
      waited = platform::WaitConnected(socket, kConnectRoundMs).status;
    if (waited != platform::IoStatus::kOk) {
      platform::CloseSocket(socket);
      return ChannelRef();
    }
  }

  auto* channel = new (std::nothrow) SocketChannel(socket);
  if (channel == nullptr) {
    platform::CloseSocket(socket);
    return ChannelRef();
  }
  return ChannelRef(channel);
}

ChannelRef WrapAcceptedSocket(platform::SocketHandle socket) {
  return ChannelRef(new SocketChannel(socket));
}

}  // namespace vxbus
