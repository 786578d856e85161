// SPDX-License-Identifier: MIT
// The ordered byte stream that lists write themselves to and read themselves
// from. The transport's channels implement it; nothing here knows what a
// socket, a pipe or a frame is.
#ifndef VXBUS_RUNTIME_BYTE_STREAM_H_
#define VXBUS_RUNTIME_BYTE_STREAM_H_

#include <atomic>
#include <cstdint>

#include "runtime/referenced_ptr.h"
#include "runtime/status.h"

namespace vxbus {

class IByteStream : public MTObjects::MTReferencedTypeBase {
 public:
  // Each returns exactly `length`, or -1; after -1 the stream is out of step
  // and the caller drops the connection. A length of 0 returns 0 at once.
  // They block until done or until the stream's time limit passes.
  // While *stopFlag reads false the read may wait without end for the next
  // byte; once it is set, or with a null pointer, the time limits apply.
  virtual std::int32_t ReadStoppable(void* buffer, std::uint32_t length,
                                     const std::atomic<bool>* stopFlag) = 0;
  virtual std::int32_t Read(void* buffer, std::uint32_t length) = 0;
  virtual std::int32_t Write(const void* bytes, std::uint32_t length) = 0;

  // Why the first read, write or wait that failed did so, with the system's
  // code; Cause::kOk while nothing has failed or when the stream can't tell.
  // For the line that logs a session's end. Any thread, after the failing
  // call has returned.
  virtual Status FirstFailure() const { return Status::Ok(); }
};

}  // namespace vxbus

#endif  // VXBUS_RUNTIME_BYTE_STREAM_H_
