// SPDX-License-Identifier: MIT
// The read buffer and the write batch that every channel puts between its
// callers and the system: many small reads served from one receive, many
// small writes passed on in one send, and a large piece gathered behind the
// collected ones without being copied. The channel supplies only the one
// receive and the one gathered send of its system.
#ifndef VXBUS_TRANSPORT_STREAM_BUFFERS_H_
#define VXBUS_TRANSPORT_STREAM_BUFFERS_H_

#include <cstdint>
#include <memory>

#include "platform/io_result.h"

namespace vxbus {

// Reads below this size take what the system holds into the read buffer;
// writes below it are collected in a write batch. Larger ones move in place.
constexpr std::uint32_t kDirectReadBytes = 16384;
constexpr std::uint32_t kDirectWriteBytes = 16384;
constexpr std::uint32_t kReadBufferBytes = 65536;
constexpr std::uint32_t kBatchBytes = 65536;

// Bytes taken off the system ahead of the reads that want them. Reader only.
class ReadBuffer {
 public:
  ReadBuffer();
  ReadBuffer(const ReadBuffer&) = delete;
  ReadBuffer& operator=(const ReadBuffer&) = delete;

  bool HasBytes() const { return end_ > start_; }

  // One receive of the system: at least one byte into (buffer, length), or
  // a result that is not ok, which ends the read.
  class Source {
   public:
    virtual platform::IoResult ReceiveSome(void* buffer, std::uint32_t length) = 0;

   protected:
    ~Source() = default;
  };

  // Fills (out, length) from the buffer first, then from `source`: a large
  // rest goes straight to its place, a small one takes whatever the source
  // holds into the buffer, so that the reads behind it need no receive.
  // kOk with `length`, or the first result that was not ok; what was taken
  // before it is lost, as the stream is out of step by then.
  platform::IoResult Fill(unsigned char* out, std::uint32_t length, Source& source);

 private:
  std::uint32_t Take(unsigned char* out, std::uint32_t length);

  std::unique_ptr<unsigned char[]> bytes_;
  std::uint32_t start_ = 0;
  std::uint32_t end_ = 0;
};

// Small writes collected between Begin and End, passed on in order. Writer
// only.
class WriteBatch {
 public:
  // One gathered send of the system, all of `count` pieces or failure.
  class Sink {
   public:
    virtual bool SendAll(const platform::BytePiece* pieces, std::size_t count) = 0;

   protected:
    ~Sink() = default;
  };

  WriteBatch();
  WriteBatch(const WriteBatch&) = delete;
  WriteBatch& operator=(const WriteBatch&) = delete;

  void Begin() { inBatch_ = true; }
  // `length` or -1. Outside a batch the bytes go out at once; inside one a
  // small piece is copied into the batch, and a large one leaves at once
  // in one gathered send behind the collected bytes.
  std::int32_t Write(const void* bytes, std::uint32_t length, Sink& sink);
  // Passes on what is left: 0, or -1 when it could not be sent.
  std::int32_t End(Sink& sink);

 private:
  bool SendCollectedAnd(const void* bytes, std::uint32_t length, Sink& sink);

  std::unique_ptr<unsigned char[]> bytes_;
  std::uint32_t used_ = 0;
  bool inBatch_ = false;
};

// Moves `pieces` on past `moved` bytes: whole pieces are skipped and the
// first one left is cut at its front. Returns how many pieces are left.
std::size_t SkipSentBytes(platform::BytePiece* pieces, std::size_t count, std::int64_t moved);

}  // namespace vxbus

#endif  // VXBUS_TRANSPORT_STREAM_BUFFERS_H_
