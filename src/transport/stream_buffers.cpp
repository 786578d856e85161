// SPDX-License-Identifier: MIT
#include "transport/stream_buffers.h"

#include <cstring>

namespace vxbus {

ReadBuffer::ReadBuffer() : bytes_(new unsigned char[kReadBufferBytes]) {}

std::uint32_t ReadBuffer::Take(unsigned char* out, std::uint32_t length) {
  std::uint32_t count = end_ - start_;
  if (count > length) count = length;
  if (count == 0) return 0;
  std::memcpy(out, bytes_.get() + start_, count);
  start_ += count;
  return count;
}

platform::IoResult ReadBuffer::Fill(unsigned char* out, std::uint32_t length, Source& source) {
  std::uint32_t remaining = length - Take(out, length);
  unsigned char* position = out + (length - remaining);
  while (remaining > 0) {
    const bool direct = remaining >= kDirectReadBytes;
    platform::IoResult received = direct ? source.ReceiveSome(position, remaining)
                                         : source.ReceiveSome(bytes_.get(), kReadBufferBytes);
    if (!received.ok()) return received;
    const auto count = static_cast<std::uint32_t>(received.count);
    if (direct) {
      position += count;
      remaining -= count;
    } else {
      start_ = 0;
      end_ = count;
      const std::uint32_t taken = Take(position, remaining);
      position += taken;
      remaining -= taken;
    }
  }
  platform::IoResult done;
  done.status = platform::IoStatus::kOk;
  done.count = length;
  return done;
}

WriteBatch::WriteBatch() : bytes_(new unsigned char[kBatchBytes]) {}

std::int32_t WriteBatch::Write(const void* bytes, std::uint32_t length, Sink& sink) {
  const auto result = static_cast<std::int32_t>(length);
  if (!inBatch_ || length == 0) {
    const platform::BytePiece piece{bytes, length};
    return length == 0 || sink.SendAll(&piece, 1) ? result : -1;
  }
  // A large piece leaves from where it lies, in one send with what was
  // collected before it.
  if (length >= kDirectWriteBytes) return SendCollectedAnd(bytes, length, sink) ? result : -1;
  if (used_ + length > kBatchBytes && !SendCollectedAnd(nullptr, 0, sink)) return -1;
  std::memcpy(bytes_.get() + used_, bytes, length);
  used_ += length;
  return result;
}

std::int32_t WriteBatch::End(Sink& sink) {
  inBatch_ = false;
  return SendCollectedAnd(nullptr, 0, sink) ? 0 : -1;
}

bool WriteBatch::SendCollectedAnd(const void* bytes, std::uint32_t length, Sink& sink) {
  const platform::BytePiece pieces[2] = {{bytes_.get(), used_}, {bytes, length}};
  const std::uint32_t collected = used_;
  used_ = 0;
  const std::size_t first = collected == 0 ? 1 : 0;
  const std::size_t count = length == 0 ? 1 - first : 2 - first;
  if (count == 0) return true;
  return sink.SendAll(pieces + first, count);
}

std::size_t SkipSentBytes(platform::BytePiece* pieces, std::size_t count, std::int64_t moved) {
  std::size_t skipped = 0;
  while (skipped < count && moved >= static_cast<std::int64_t>(pieces[skipped].length)) {
    moved -= static_cast<std::int64_t>(pieces[skipped].length);
    ++skipped;
  }
  const std::size_t left = count - skipped;
  for (std::size_t i = 0; i < left; ++i)
    pieces[i] = pieces[skipped + i];
  if (left > 0 && moved > 0) {
    pieces[0].data = static_cast<const unsigned char*>(pieces[0].data) + moved;
    pieces[0].length -= static_cast<std::size_t>(moved);
  }
  return left;
}

}  // namespace vxbus
