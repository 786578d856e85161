// SPDX-License-Identifier: MIT
// The channel over a pair of local pipes, for two processes on one machine.
// The listener reads "<base>_in" and writes "<base>_out"; the connecting
// process writes "_in" and reads "_out".
#ifndef VXBUS_TRANSPORT_PIPE_CHANNEL_H_
#define VXBUS_TRANSPORT_PIPE_CHANNEL_H_

#include <atomic>
#include <cstdint>
#include <string>

#include "platform/local_pipe.h"
#include "transport/channel_limits.h"
#include "transport/first_failure.h"
#include "transport/reader_spin.h"
#include "transport/stream_buffers.h"
#include "transport/transport_channel.h"

namespace vxbus {

// Names of the pipes that this process listens on; empty until SetPipeNames.
extern std::string listenerPipeInName;
extern std::string listenerPipeOutName;

// How long AcceptPipeChannel waits for a client on "_in", and then again at
// most for that client on "_out", unless a test asks for less.
constexpr std::uint32_t kPipeAcceptWaitMs = 10000;

class PipeChannel : public ITransportChannel, private ReadBuffer::Source, private WriteBatch::Sink {
 public:
  // Takes ownership of the pipe pair. `peerName` names the pipe this side
  // writes, `localName` the one it reads. Obeys `limits` for its life.
  PipeChannel(platform::LocalPipe* pipe, const std::string& peerName, const std::string& localName,
              const ChannelLimits& limits);
  ~PipeChannel() override;

  PipeChannel(const PipeChannel&) = delete;
  PipeChannel& operator=(const PipeChannel&) = delete;

  std::int32_t ReadStoppable(void* buffer, std::uint32_t length,
                             const std::atomic<bool>* stopFlag) override;
  std::int32_t Read(void* buffer, std::uint32_t length) override;
  std::int32_t Write(const void* bytes, std::uint32_t length) override;
  std::string GetPeerAddress() override;
  std::string GetLocalAddress() override;
  // A pipe always reports ready: the read that follows does the waiting.
  std::int32_t WaitReadable(std::uint32_t timeoutMs) override;
  std::int32_t WaitReadableForever() override;
  void InterruptReads() override;
  void BeginWriteBatch() override;
  std::int32_t EndWriteBatch() override;
  Status FirstFailure() const override;
  // The pipe's name and the client's process, once the listener has told it.
  std::string SourceKey() override;
  // The listener's side: the process id of the client the pipes pair with.
  void SetClientProcess(std::uint32_t process) { clientProcess_ = process; }

 private:
  // One read of the pipe within the read's limits, after a brief look for
  // bytes that are on their way, and one gathered write until every byte is
  // taken; each counted once.
  platform::IoResult ReceiveSome(void* buffer, std::uint32_t length) override;
  bool SendAll(const platform::BytePiece* pieces, std::size_t count) override;

  platform::LocalPipe* pipe;
  std::string peerAddress;
  std::string localAddress;
  std::uint32_t clientProcess_ = 0;  // 0: not known (the connecting side)
  const ChannelLimits limits_;
  ReadBuffer readBuffer_;                              // reader only
  const std::atomic<bool>* stopFlagOfRead_ = nullptr;  // of the read under way
  ReaderSpin readerSpin_;                              // reader only
  WriteBatch writeBatch_;                              // writer only
  std::atomic<bool> readsInterrupted_{false};          // set by InterruptReads
  FirstFailureRecord failures_;
};

// Sets both listener names from a base name; an empty one changes nothing,
// so the names of an earlier start stay.
void SetPipeNames(const std::string& baseName);

// One round of the listener on the names of SetPipeNames; null when nobody
// came within `acceptWaitMs`, `*stop` was set (may be null), or the
// pipes could not be made. In that last case it returns at once, and
// `*createError` (may be null) gets the system's code; else 0. The channel
// obeys `limits`.
ChannelRef AcceptPipeChannel(const ChannelLimits& limits, std::uint32_t acceptWaitMs,
                             const std::atomic<bool>* stop, int* createError = nullptr);

// Passes the time of one round after a failed create, `roundMs`, cut short
// by `*stop` and by WakePipeListener as a round's wait is.
void PausePipeListener(std::uint32_t roundMs, const std::atomic<bool>* stop);

// Ends the wait of an AcceptPipeChannel under way at once, so that it looks
// at its stop flag now; set the flag first.
void WakePipeListener();

// Connects to the listener of `baseName`; null at once for an empty name or
// one that nobody listens on. Names of any length work: one too long for
// the system is mapped the same way as the listener maps it. The channel
// obeys `limits`.
ChannelRef ConnectPipeChannel(const std::string& baseName, const ChannelLimits& limits);

}  // namespace vxbus

#endif  // VXBUS_TRANSPORT_PIPE_CHANNEL_H_
