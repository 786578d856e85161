// SPDX-License-Identifier: MIT
#include "transport/socket_channel.h"

#include <algorithm>
#include <chrono>
#include <cstring>
#include <limits>
#include <new>

#include "runtime/brief_spin.h"
#include "runtime/log.h"
#include "runtime/object_counters.h"

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

std::int64_t MillisecondsSince(Clock::time_point start) {
  return std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start).count();
}

// About half the limit, rounded up to whole seconds, plus 1 ms: a plain read
// gives up after one such quiet period.
std::int64_t QuietPeriodMs(std::int64_t timeLimitMs) {
  std::int64_t seconds = (timeLimitMs + 1999) / 2000;
  if (seconds < 0) seconds = 0;
  return seconds * 1000 + 1;
}

bool StopWaitAllowed(const std::atomic<bool>* stopFlag) {
  return stopFlag != nullptr && !stopFlag->load(std::memory_order_relaxed);
}

// Why a read that saw no data gave up: its stop flag, once set, or else
// its time limit.
Status QuietReadEnd(const std::atomic<bool>* stopFlag) {
  const bool stopped = stopFlag != nullptr && stopFlag->load(std::memory_order_relaxed);
  return Status::Of(stopped ? Cause::kLocalStop : Cause::kTimedOut);
}

std::string EndpointText(const platform::Ipv4Endpoint& endpoint) {
  return platform::FormatDottedAddress(endpoint.address) + ":" + std::to_string(endpoint.port);
}

// The channel's 1, 0 or -1 for a wait; a failure is noted as the first one.
std::int32_t WaitResult(const platform::IoResult& waited, FirstFailureRecord& failures) {
  if (waited.ok()) return 1;
  if (waited.status == platform::IoStatus::kTimedOut) return 0;
  failures.Note(StatusOfIoResult(waited));
  return -1;
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

SocketChannel::SocketChannel(platform::SocketHandle socket, const ChannelLimits& limits)
    : socketHandle(socket), limits_(limits) {
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

std::int32_t SocketChannel::ReadStoppable(void* buffer, std::uint32_t length,
                                          const std::atomic<bool>* stopFlag) {
  if (length > limits_.maxReadSize || length > kLargestCount) {
    failures_.Note(Status::BadInput("a read longer than MAX_READ_SIZE"));
    return -1;
  }
  if (length == 0) return 0;
  // The time limit runs from the first look at the socket; a read served
  // from the buffer alone, the common case in a stream of small frames,
  // costs no clock read.
  stopFlagOfRead_ = stopFlag;
  readStarted_ = false;
  const bool filled = readBuffer_.Fill(static_cast<unsigned char*>(buffer), length, *this).ok();
  return filled ? static_cast<std::int32_t>(length) : -1;
}

platform::IoResult SocketChannel::ReceiveSome(void* buffer, std::uint32_t length) {
  if (!readStarted_) {
    readStart_ = Clock::now();
    readStarted_ = true;
  }
  platform::IoResult failed;
  for (;;) {
    if (readsInterrupted_.load(std::memory_order_acquire)) {
      failures_.Note(Status::Of(Cause::kLocalStop));
      return failed;
    }
    ++Counters().transportReceiveCalls;
    platform::IoResult received = platform::Receive(socketHandle, buffer, length);
    if (received.ok()) return received;
    if (received.status == platform::IoStatus::kClosed) {
      VX_LOG(kLogInfo, "Receive failed: socket closed");
      failures_.Note(StatusOfIoResult(received));
      return received;
    }
    if (received.status != platform::IoStatus::kWouldBlock) {
      VX_LOG(kLogInfo, "Receive failed with code ", received.systemCode);
      failures_.Note(StatusOfIoResult(received));
      return received;
    }
    // A reader that may wait for its stop flag has no overall deadline.
    if (!StopWaitAllowed(stopFlagOfRead_) && MillisecondsSince(readStart_) >= limits_.ioTimeoutMs) {
      VX_LOG(kLogInfo, "Receive failed with code ", kTimeLimitErrorCode);
      failures_.Note(QuietReadEnd(stopFlagOfRead_));
      return failed;
    }
    const platform::IoResult waited =
        platform::WaitReadable(socketHandle, QuietPeriodMs(limits_.ioTimeoutMs));
    if (waited.ok()) continue;
    if (!StopWaitAllowed(stopFlagOfRead_)) {
      // A plain read gives up after one quiet period; a stoppable one when
      // its flag is set.
      failures_.Note(waited.status == platform::IoStatus::kFailed ? StatusOfIoResult(waited)
                                                                  : QuietReadEnd(stopFlagOfRead_));
      return failed;
    }
  }
}

std::int32_t SocketChannel::Write(const void* bytes, std::uint32_t length) {
  if (length > kLargestCount) return -1;
  return writeBatch_.Write(bytes, length, *this);
}

void SocketChannel::BeginWriteBatch() {
  writeBatch_.Begin();
}

std::int32_t SocketChannel::EndWriteBatch() {
  return writeBatch_.End(*this);
}

// The time limit of a write runs from its first send.
bool SocketChannel::SendAll(const platform::BytePiece* pieces, std::size_t count) {
  const Clock::time_point start = Clock::now();
  platform::BytePiece left[2];
  if (count > 2) return false;  // a batch has at most its bytes and one piece behind them
  for (std::size_t i = 0; i < count; ++i)
    left[i] = pieces[i];
  while (count > 0) {
    ++Counters().transportSendCalls;
    platform::IoResult sent = count == 1
                                  ? platform::Send(socketHandle, left[0].data, left[0].length)
                                  : platform::SendGathered(socketHandle, left, count);
    if (sent.ok()) {
      count = SkipSentBytes(left, count, sent.count);
      continue;
    }
    if (sent.status != platform::IoStatus::kWouldBlock) {
      failures_.Note(StatusOfIoResult(sent));
      return false;
    }
    if (MillisecondsSince(start) >= limits_.ioTimeoutMs) {
      failures_.Note(Status::Of(Cause::kTimedOut));
      return false;
    }
    const platform::IoResult waited = platform::WaitWritable(socketHandle, kWriteWaitMs);
    if (!waited.ok()) {
      failures_.Note(StatusOfIoResult(waited));
      return false;
    }
  }
  return true;
}

std::string SocketChannel::GetPeerAddress() {
  return peerAddress;
}

std::string SocketChannel::GetLocalAddress() {
  return localAddress;
}

// Bytes already taken off the socket count as ready.
std::int32_t SocketChannel::WaitReadable(std::uint32_t timeoutMs) {
  if (readBuffer_.HasBytes()) return 1;
  return WaitResult(WaitForBytes(timeoutMs), failures_);
}

std::int32_t SocketChannel::WaitReadableForever() {
  if (readBuffer_.HasBytes()) return 1;
  return WaitResult(WaitForBytes(platform::kWaitForever), failures_);
}

// A wait that may sleep looks without waiting first, for as long as the
// reader's spin allows, and tells the spin how long the sleep took.
platform::IoResult SocketChannel::WaitForBytes(std::int64_t timeoutMs) {
  if (timeoutMs == 0) return platform::WaitReadable(socketHandle, 0);
  platform::IoResult waited;
  std::chrono::microseconds look = readerSpin_.Look();
  if (timeoutMs > 0)
    look = std::min<std::chrono::microseconds>(look, std::chrono::milliseconds(timeoutMs));
  if (look.count() > 0 && SpinFor(look, [&] {
        waited = platform::WaitReadable(socketHandle, 0);
        return waited.status != platform::IoStatus::kTimedOut;
      })) {
    readerSpin_.Found();
    return waited;
  }
  const Clock::time_point sleepStart = Clock::now();
  waited = platform::WaitReadable(socketHandle, timeoutMs);
  readerSpin_.Slept(Clock::now() - sleepStart);
  return waited;
}

void SocketChannel::InterruptReads() {
  readsInterrupted_.store(true, std::memory_order_release);
  platform::InterruptReceive(socketHandle);
}

Status SocketChannel::FirstFailure() const {
  return failures_.Get();
}

bool SocketChannel::PeerEnded() {
  return platform::PeerEndedStream(socketHandle);
}

ChannelRef ConnectSocketChannel(const char* host, std::uint16_t port, const ChannelLimits& limits) {
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

  auto* channel = new (std::nothrow) SocketChannel(socket, limits);
  if (channel == nullptr) {
    platform::CloseSocket(socket);
    return ChannelRef();
  }
  return ChannelRef(channel);
}

ChannelRef WrapAcceptedSocket(platform::SocketHandle socket, const ChannelLimits& limits) {
  return ChannelRef(new SocketChannel(socket, limits));
}

}  // namespace vxbus
