#include "transport/pipe_channel.h"

#include <limits>
#include <new>

#include "runtime/object_counters.h"
#include "runtime/process_state.h"

namespace vxbus {

std::string listenerPipeInName;
std::string listenerPipeOutName;
std::atomic<std::uint32_t> g_pipeAcceptWaitMs{10000};

namespace {

constexpr const char* kInSuffix = "_in";
constexpr const char* kOutSuffix = "_out";

constexpr std::uint32_t kLargestCount =
    static_cast<std::uint32_t>(std::numeric_limits<std::int32_t>::max());

// Each single wait of a read gets the whole limit; a negative limit turns
// into a very long wait, and -1 into none at all.
std::uint32_t ReadWaitMs() {
  return static_cast<std::uint32_t>(g_limits.limits.IO_TIMEOUT_MS);
}

ChannelRef MakeChannel(const platform::PipeEnds& ends, const std::string& peerName,
                       const std::string& localName) {
  auto* channel = new (std::nothrow) PipeChannel(ends.read, ends.write, peerName, localName);
  if (channel == nullptr) {
    platform::ClosePipe(ends.read);
    platform::ClosePipe(ends.write);
    return ChannelRef();
  }
  return ChannelRef(channel);
}

}  // namespace

PipeChannel::PipeChannel(platform::PipeHandle readPipe, platform::PipeHandle writePipe,
                         const std::string& peerName, const std::string& localName)
    : readEvent(platform::CreatePipeReadEvent()),
      readHandle(readPipe),
      writeHandle(writePipe),
      peerAddress(peerName),
      localAddress(localName) {}

PipeChannel::~PipeChannel() {
  if (readHandle != platform::kInvalidPipe) platform::ClosePipe(readHandle);
  if (writeHandle != platform::kInvalidPipe) platform::ClosePipe(writeHandle);
  platform::ClosePipeReadEvent(readEvent);
}

std::int32_t PipeChannel::Read(void* buffer, std::uint32_t length) {
  return ReadStoppable(buffer, length, nullptr);
}

std::int32_t PipeChannel::ReadStoppable(void* buffer, std::uint32_t length,
                                        const std::atomic<bool>* stopFlag) {
  if (length > g_limits.limits.MAX_READ_SIZE || length > kLargestCount) return -1;
  if (length == 0) return 0;

  auto* position = static_cast<unsigned char*>(buffer);
  std::uint32_t remaining = length;
  for (;;) {
    g_transportReceiveCalls.fetch_add(1);
    int started = platform::BeginPipeRead(readHandle, readEvent, position, remaining);
    if (started < 0) return -1;
    if (started == 0) {
      const std::uint32_t waitMs = ReadWaitMs();
      int waited = platform::WaitPipeRead(readHandle, readEvent, waitMs);
      // A reader that may wait for its stop flag looks at it only when a
      // whole wait has passed without data.
      while (waited == 0 && stopFlag != nullptr && !stopFlag->load(std::memory_order_relaxed))
        waited = platform::WaitPipeRead(readHandle, readEvent, waitMs);
      if (waited != 1) {
        platform::CancelPipeRead(readHandle, readEvent);
        return -1;
      }
    }
    std::int64_t count = platform::FinishPipeRead(readHandle, readEvent, position, remaining);
    if (count < 0) return -1;
    if (count == remaining) return static_cast<std::int32_t>(length);
    position += count;
    remaining -= static_cast<std::uint32_t>(count);
  }
}

std::int32_t PipeChannel::Write(const void* bytes, std::uint32_t length) {
  if (length > kLargestCount) return -1;
  if (length == 0) return 0;

  const auto* position = static_cast<const unsigned char*>(bytes);
  std::uint32_t remaining = length;
  for (;;) {
    g_transportSendCalls.fetch_add(1);
    std::int64_t count = platform::WritePipe(writeHandle, position, remaining);
    if (count < 0) return -1;
    if (count == remaining) return static_cast<std::int32_t>(length);
    position += count;
    remaining -= static_cast<std::uint32_t>(count);
  }
}

std::string PipeChannel::GetPeerAddress() {
  return peerAddress;
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

void PipeChannel::Reserved() {}

void SetPipeNames(const std::string& baseName) {
  if (baseName.empty()) return;
  listenerPipeInName = baseName + kInSuffix;
  listenerPipeOutName = baseName + kOutSuffix;
}

ChannelRef AcceptPipeChannel() {
  if (listenerPipeInName.empty() || listenerPipeOutName.empty()) return ChannelRef();
  platform::PipeEnds ends;
  if (!platform::AcceptPipePair(listenerPipeInName, listenerPipeOutName, g_pipeAcceptWaitMs.load(),
                                &ends))
    return ChannelRef();
  // The listener reads "_in" and writes "_out".
  return MakeChannel(ends, listenerPipeOutName, listenerPipeInName);
}

ChannelRef ConnectPipeChannel(const std::string& baseName) {
  if (baseName.empty()) return ChannelRef();
  const std::string inName = baseName + kInSuffix;
  const std::string outName = baseName + kOutSuffix;
  platform::PipeEnds ends;
  if (!platform::ConnectPipePair(inName, outName, &ends)) return ChannelRef();
  // The connecting side writes "_in" and reads "_out".
  return MakeChannel(ends, inName, outName);
}

}  // namespace vxbus
