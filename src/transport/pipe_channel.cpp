// SPDX-License-Identifier: MIT
#include "transport/pipe_channel.h"

#include <chrono>
#include <limits>
#include <new>

#include "runtime/brief_spin.h"
#include "runtime/object_counters.h"
#include "transport/pipe_name.h"

namespace vxbus {

std::string listenerPipeInName;
std::string listenerPipeOutName;

namespace {

constexpr const char* kInSuffix = "_in";
constexpr const char* kOutSuffix = "_out";

constexpr std::uint32_t kLargestCount =
    static_cast<std::uint32_t>(std::numeric_limits<std::int32_t>::max());

// Each single wait of a read gets the whole limit; -1 waits without one, and
// any other negative limit is read as unsigned, a very long wait.
std::int64_t ReadWaitMs(std::int32_t limit) {
  if (limit == -1) return platform::kWaitForever;
  return static_cast<std::int64_t>(static_cast<std::uint32_t>(limit));
}

ChannelRef MakeChannel(platform::LocalPipe* pipe, const std::string& peerName,
                       const std::string& localName, const ChannelLimits& limits) {
  if (pipe == nullptr) return ChannelRef();
  auto* channel = new (std::nothrow) PipeChannel(pipe, peerName, localName, limits);
  if (channel == nullptr) {
    platform::CloseLocalPipe(pipe);
    return ChannelRef();
  }
  return ChannelRef(channel);
}

}  // namespace

PipeChannel::PipeChannel(platform::LocalPipe* pipe, const std::string& peerName,
                         const std::string& localName, const ChannelLimits& limits)
    : pipe(pipe), peerAddress(peerName), localAddress(localName), limits_(limits) {}

PipeChannel::~PipeChannel() {
  platform::CloseLocalPipe(pipe);
}

std::int32_t PipeChannel::Read(void* buffer, std::uint32_t length) {
  return ReadStoppable(buffer, length, nullptr);
}

std::int32_t PipeChannel::ReadStoppable(void* buffer, std::uint32_t length,
                                        const std::atomic<bool>* stopFlag) {
  if (length > limits_.maxReadSize || length > kLargestCount) {
    failures_.Note(Status::BadInput("a read longer than MAX_READ_SIZE"));
    return -1;
  }
  if (length == 0) return 0;
  stopFlagOfRead_ = stopFlag;
  const bool filled = readBuffer_.Fill(static_cast<unsigned char*>(buffer), length, *this).ok();
  return filled ? static_cast<std::int32_t>(length) : -1;
}

// Bytes that are there cost one read and no clock. A reader that may wait
// for its stop flag looks at it only when a whole wait has passed without
// data.
platform::IoResult PipeChannel::ReceiveSome(void* buffer, std::uint32_t length) {
  ++Counters().transportReceiveCalls;
  platform::IoResult received = platform::ReadLocalPipeNow(pipe, buffer, length);
  if (received.status == platform::IoStatus::kWouldBlock) {
    const std::chrono::microseconds look = readerSpin_.Look();
    if (look.count() > 0 && SpinFor(look, [&] {
          received = platform::ReadLocalPipeNow(pipe, buffer, length);
          return received.status != platform::IoStatus::kWouldBlock;
        })) {
      readerSpin_.Found();
    } else {
      const auto sleepStart = std::chrono::steady_clock::now();
      received = platform::ReadLocalPipe(pipe, buffer, length, ReadWaitMs(limits_.ioTimeoutMs),
                                         stopFlagOfRead_);
      readerSpin_.Slept(std::chrono::steady_clock::now() - sleepStart);
    }
  }
  if (!received.ok()) {
    // An interrupted read ends as if the peer had closed, and a stop flag
    // that was set as a time-out; both are this side's own stop.
    const bool stopped = readsInterrupted_.load(std::memory_order_acquire) ||
                         (stopFlagOfRead_ != nullptr && stopFlagOfRead_->load());
    failures_.Note(stopped ? Status::Of(Cause::kLocalStop) : StatusOfIoResult(received));
  }
  return received;
}

std::int32_t PipeChannel::Write(const void* bytes, std::uint32_t length) {
  if (length > kLargestCount) return -1;
  return writeBatch_.Write(bytes, length, *this);
}

void PipeChannel::BeginWriteBatch() {
  writeBatch_.Begin();
}

std::int32_t PipeChannel::EndWriteBatch() {
  return writeBatch_.End(*this);
}

// Writes block without a time limit until the pipe has taken every byte.
bool PipeChannel::SendAll(const platform::BytePiece* pieces, std::size_t count) {
  platform::BytePiece left[2];
  if (count > 2) return false;  // a batch has at most its bytes and one piece behind them
  for (std::size_t i = 0; i < count; ++i)
    left[i] = pieces[i];
  while (count > 0) {
    ++Counters().transportSendCalls;
    platform::IoResult written =
        count == 1 ? platform::WriteLocalPipe(pipe, left[0].data,
                                              static_cast<std::uint32_t>(left[0].length))
                   : platform::WriteLocalPipeGathered(pipe, left, count);
    if (!written.ok()) {
      failures_.Note(StatusOfIoResult(written));
      return false;
    }
    count = SkipSentBytes(left, count, written.count);
  }
  return true;
}

std::string PipeChannel::GetPeerAddress() {
  return peerAddress;
}

std::string PipeChannel::SourceKey() {
  if (clientProcess_ == 0) return peerAddress;
  return peerAddress + " process " + std::to_string(clientProcess_);
}

std::string PipeChannel::GetLocalAddress() {
  return localAddress;
}

std::int32_t PipeChannel::WaitReadable(std::uint32_t) {
  return 1;
}

std::int32_t PipeChannel::WaitReadableForever() {
  return 1;
}

void PipeChannel::InterruptReads() {
  readsInterrupted_.store(true, std::memory_order_release);
  platform::InterruptLocalPipeRead(pipe);
}

Status PipeChannel::FirstFailure() const {
  return failures_.Get();
}

void SetPipeNames(const std::string& baseName) {
  if (baseName.empty()) return;
  listenerPipeInName = baseName + kInSuffix;
  listenerPipeOutName = baseName + kOutSuffix;
}

ChannelRef AcceptPipeChannel(const ChannelLimits& limits, std::uint32_t acceptWaitMs,
                             const std::atomic<bool>* stop, int* createError) {
  if (createError != nullptr) *createError = 0;
  if (listenerPipeInName.empty() || listenerPipeOutName.empty()) return ChannelRef();
  platform::LocalPipe* pipe = platform::AcceptLocalPipe(
      SystemPipeName(listenerPipeInName), SystemPipeName(listenerPipeOutName), acceptWaitMs,
      acceptWaitMs, stop, createError);
  // The listener reads "_in" and writes "_out".
  return MakeChannel(pipe, listenerPipeOutName, listenerPipeInName, limits);
}

void PausePipeListener(std::uint32_t roundMs, const std::atomic<bool>* stop) {
  platform::IdleLocalPipeRound(roundMs, stop);
}

void WakePipeListener() {
  platform::WakeLocalPipeAccept();
}

ChannelRef ConnectPipeChannel(const std::string& baseName, const ChannelLimits& limits) {
  if (baseName.empty()) return ChannelRef();
  const std::string inName = baseName + kInSuffix;
  const std::string outName = baseName + kOutSuffix;
  // The connecting side writes "_in" and reads "_out".
  return MakeChannel(platform::ConnectLocalPipe(SystemPipeName(inName), SystemPipeName(outName)),
                     inName, outName, limits);
}

}  // namespace vxbus
