// SPDX-License-Identifier: MIT
// Local pipes: two one-way byte streams between two processes of one machine,
// under two names, here called "in" and "out". The listener reads "in" and
// writes "out"; the connecting process does the opposite. The names are
// private to the machine and leave nothing behind when a process dies.
//
// A LocalPipe is one connected pair, opaque above this seam: each port
// defines it (two descriptors on POSIX; two pipe handles and the event of
// the overlapped read on Win32). One thread may read while another writes;
// two reads at once, or two writes at once, are not allowed.
#ifndef VXBUS_PLATFORM_LOCAL_PIPE_H_
#define VXBUS_PLATFORM_LOCAL_PIPE_H_

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string>

#include "platform/io_result.h"

namespace vxbus {
namespace platform {

class LocalPipe;

// One round of the listener: makes both names, waits up to `inWaitMs` for a
// client on `inName`, then up to `outWaitMs` for that same client on
// `outName`, so that a client that opens only the first name holds the
// listener no longer than that. `*stop` reading true ends either wait early
// (it is looked at when the round starts and at least once a second while
// waiting); `stop` may be null. A client that goes away during the second
// wait may end it. No listening end is left behind, whatever the outcome. Returns the
// connected pair, owned by the caller, or null: nobody came, the round was
// stopped, or the names could not be made. In the last case it returns at
// once and `*createError` (may be null) gets the system's code, for a log
// line; in every other case 0. A name that another process listens on
// cannot be made.
LocalPipe* AcceptLocalPipe(const std::string& inName, const std::string& outName,
                           std::int64_t inWaitMs, std::int64_t outWaitMs,
                           const std::atomic<bool>* stop, int* createError);

// Passes the time of a round that could not make its names: returns after
// `waitMs`, or as soon as `*stop` reads true (may be null), looked at and
// woken as the wait of AcceptLocalPipe is. A listener that goes round again
// after a failed create waits here, so that it does not spin.
void IdleLocalPipeRound(std::int64_t waitMs, const std::atomic<bool>* stop);

// The longest name, in bytes, that AcceptLocalPipe and ConnectLocalPipe take
// as it is; a longer one cannot be made. Callers map longer names onto this
// length.
std::size_t MaxLocalPipeNameLength();

// The client's side: opens `inName` for writing, then `outName` for reading.
// Fails at once when nobody listens on a name; waits up to 10 s while the
// listener is busy with another client. The clients of one process open
// their halves one at a time, so that a listener that pairs halves by
// process (local_pipe_listener.h) pairs them in order. Owned by the caller,
// or null.
LocalPipe* ConnectLocalPipe(const std::string& inName, const std::string& outName);

// Closes both streams without a flush; the peer's next read or write fails.
// Null is allowed. No read or write may be under way.
void CloseLocalPipe(LocalPipe* pipe);

// One read of at least 1 and at most `length` bytes from this side's read
// stream. It waits in rounds of `roundMs`; when a round ends without a byte,
// the read is cancelled and ends with kTimedOut unless `stop` is non-null and
// reads false, in which case it waits another round. Once the read has
// returned, whatever the result, nothing is in flight: no byte is taken from
// the pipe afterwards and `buffer` is no longer written.
// kOk with the count; kTimedOut; kClosed when the writer has gone; kFailed.
IoResult ReadLocalPipe(LocalPipe* pipe, void* buffer, std::uint32_t length, std::int64_t roundMs,
                       const std::atomic<bool>* stop);

// One read that never waits: kOk with at least 1 and at most `length`
// bytes that were there already; kWouldBlock when none were; kClosed once
// the writer has gone or reads were interrupted; kFailed. For a reader that
// looks for a moment before it waits in ReadLocalPipe; nothing is left in
// flight.
IoResult ReadLocalPipeNow(LocalPipe* pipe, void* buffer, std::uint32_t length);

// Ends a ReadLocalPipe under way, and every later one, at once with
// kClosed, whatever its stop flag says. This side's writing goes on as
// before; the peer's writes to this side may fail from then on, as after a
// close. Safe while another thread reads; for a local stop.
void InterruptLocalPipeRead(LocalPipe* pipe);

// Ends the wait for a client of an AcceptLocalPipe under way in this process
// at once, so that it looks at its stop flag now; a round that starts later
// looks at its flag when it starts. Safe from any thread.
void WakeLocalPipeAccept();

// One write that blocks, without a time limit, until the pipe has taken at
// least one byte: kOk with the count (maybe fewer than `length`); kClosed or
// kFailed when the reader has gone. It never raises a signal.
IoResult WriteLocalPipe(LocalPipe* pipe, const void* bytes, std::uint32_t length);

// WriteLocalPipe for `count` pieces in their order: kOk with the bytes moved,
// which may end inside any piece. Where the system gathers, one call takes
// from several pieces; elsewhere it writes from the first non-empty piece
// only, and the caller comes back for the rest. At most 16 pieces.
IoResult WriteLocalPipeGathered(LocalPipe* pipe, const BytePiece* pieces, std::size_t count);

}  // namespace platform
}  // namespace vxbus

#endif  // VXBUS_PLATFORM_LOCAL_PIPE_H_
