// Local pipes: two one-way byte streams between two processes of one machine,
// under the names "<base>_in" and "<base>_out". The listener reads "_in" and
// writes "_out"; the connecting process does the opposite.
//
// Reads are split into begin, wait, cancel and finish, so that a read can be
// bounded in time and abandoned; writes block until the pipe has taken them.
#ifndef VXBUS_PLATFORM_LOCAL_PIPE_H_
#define VXBUS_PLATFORM_LOCAL_PIPE_H_

#include <cstdint>
#include <string>

namespace vxbus {
namespace platform {

using PipeHandle = std::int64_t;
constexpr PipeHandle kInvalidPipe = -1;

// Per-channel state of the one read that may be under way at a time.
struct PipeReadEvent;

struct PipeEnds {
  PipeHandle read = kInvalidPipe;
  PipeHandle write = kInvalidPipe;
};

// One round of the listener: makes both pipes, waits up to `inWaitMs` for a
// client on `inName`, then without a limit for the same client on `outName`.
// No listening end is left behind, whatever the outcome.
bool AcceptPipePair(const std::string& inName, const std::string& outName, std::uint32_t inWaitMs,
                    PipeEnds* ends);

// The client's side: opens `inName` for writing, then `outName` for reading.
// Fails at once when nobody listens on a name.
bool ConnectPipePair(const std::string& inName, const std::string& outName, PipeEnds* ends);

void ClosePipe(PipeHandle pipe);

// Null on failure; a read with a null event fails.
PipeReadEvent* CreatePipeReadEvent();
void ClosePipeReadEvent(PipeReadEvent* event);

// Starts one read of at most `length` bytes: 1 done already, 0 under way,
// -1 failed (a pipe whose writer has gone fails).
int BeginPipeRead(PipeHandle pipe, PipeReadEvent* event, void* buffer, std::uint32_t length);
// Waits for a read under way: 1 done, 0 time-out, -1 failure. 0xFFFFFFFF
// waits without a limit.
int WaitPipeRead(PipeHandle pipe, PipeReadEvent* event, std::uint32_t timeoutMs);
// Abandons a read under way; no bytes are taken from the pipe afterwards.
void CancelPipeRead(PipeHandle pipe, PipeReadEvent* event);
// The bytes that a finished read placed in `buffer` (same buffer and length
// as its begin), 0 if none, or -1 on failure.
std::int64_t FinishPipeRead(PipeHandle pipe, PipeReadEvent* event, void* buffer,
                            std::uint32_t length);

// One blocking write: the count taken, or -1. A reader that has gone makes it
// fail; it never raises a signal.
std::int64_t WritePipe(PipeHandle pipe, const void* bytes, std::uint32_t length);

}  // namespace platform
}  // namespace vxbus

#endif  // VXBUS_PLATFORM_LOCAL_PIPE_H_
