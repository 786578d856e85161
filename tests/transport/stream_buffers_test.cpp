// SPDX-License-Identifier: MIT
// The read buffer and write batch that both channels share, against a
// scripted system: short receives, partial sends, failures in between.
#include <gtest/gtest.h>

#include <cstring>
#include <deque>
#include <vector>

#include "transport/stream_buffers.h"

namespace vxbus {
namespace testing {
namespace {

using Bytes = std::vector<unsigned char>;

Bytes Pattern(std::size_t size) {
  Bytes bytes(size);
  for (std::size_t i = 0; i < size; ++i)
    bytes[i] = static_cast<unsigned char>(i * 7 + (i >> 9));
  return bytes;
}

platform::IoResult Moved(std::int64_t count) {
  platform::IoResult result;
  result.status = platform::IoStatus::kOk;
  result.count = count;
  return result;
}

// Hands out `stream` in receives of at most the next size of `chunks` (the
// last one repeats); kClosed once the stream is used up.
class ScriptedSource : public ReadBuffer::Source {
 public:
  ScriptedSource(Bytes stream, std::vector<std::uint32_t> chunks)
      : stream_(std::move(stream)), chunks_(std::move(chunks)) {}
  platform::IoResult ReceiveSome(void* buffer, std::uint32_t length) override {
    lengths.push_back(length);
    if (at_ == stream_.size()) {
      platform::IoResult closed;
      closed.status = platform::IoStatus::kClosed;
      return closed;
    }
    std::size_t count = std::min<std::size_t>({length, stream_.size() - at_, chunks_[next_]});
    if (next_ + 1 < chunks_.size()) ++next_;
    std::memcpy(buffer, stream_.data() + at_, count);
    at_ += count;
    return Moved(static_cast<std::int64_t>(count));
  }
  std::vector<std::uint32_t> lengths;  // what each receive was offered

 private:
  Bytes stream_;
  std::vector<std::uint32_t> chunks_;
  std::size_t at_ = 0;
  std::size_t next_ = 0;
};

// Takes at most `takes` bytes per call (the next entry; the last repeats),
// records every call's pieces and the bytes in order, and fails on request.
class ScriptedSink : public WriteBatch::Sink {
 public:
  explicit ScriptedSink(std::deque<std::size_t> takes = {SIZE_MAX}) : takes_(std::move(takes)) {}
  bool SendAll(const platform::BytePiece* pieces, std::size_t count) override {
    calls.emplace_back(pieces, pieces + count);
    if (failNext) return false;
    platform::BytePiece left[2] = {pieces[0], count > 1 ? pieces[1] : platform::BytePiece{}};
    while (count > 0) {
      std::size_t take = takes_.front();
      if (takes_.size() > 1) takes_.pop_front();
      std::size_t moved = 0;
      for (std::size_t i = 0; i < count && take > 0; ++i) {
        const std::size_t part = std::min(take, left[i].length);
        const auto* from = static_cast<const unsigned char*>(left[i].data);
        received.insert(received.end(), from, from + part);
        take -= part;
        moved += part;
        if (part < left[i].length) break;
      }
      count = SkipSentBytes(left, count, static_cast<std::int64_t>(moved));
    }
    return true;
  }
  std::vector<std::vector<platform::BytePiece>> calls;
  Bytes received;
  bool failNext = false;

 private:
  std::deque<std::size_t> takes_;
};

// Reads of every size, some ending exactly on the buffer's end and some
// across it, get the stream whole and in order, whatever sizes the system
// hands out; a large rest goes straight to its place in one receive.
TEST(ReadBufferTest, ReadsCutAcrossShortReceivesAndBufferEndsKeepTheStream) {
  const Bytes stream = Pattern(5 * kReadBufferBytes + 123);
  ScriptedSource source(stream, {1, 3, 5000, kReadBufferBytes, 7, 100000});
  ReadBuffer buffer;
  Bytes got(stream.size());
  const std::uint32_t sizes[] = {
      4, 1, 4000, kReadBufferBytes - 4005, 12, kDirectReadBytes + 1, 8, 3 * kDirectReadBytes, 2};
  std::size_t at = 0;
  for (int i = 0; at < got.size(); ++i) {
    const std::uint32_t size = std::min<std::uint32_t>(sizes[i % 9], got.size() - at);
    ASSERT_TRUE(buffer.Fill(got.data() + at, size, source).ok()) << "at " << at;
    at += size;
  }
  EXPECT_TRUE(got == stream);
  EXPECT_FALSE(buffer.HasBytes());
  unsigned char byte = 0;
  EXPECT_EQ(buffer.Fill(&byte, 1, source).status, platform::IoStatus::kClosed);

  // Bytes taken ahead are served after the source has ended, then it fails.
  const Bytes ten = Pattern(10);
  ScriptedSource ending(ten, {10});
  ReadBuffer ahead;
  Bytes part(6);
  ASSERT_TRUE(ahead.Fill(part.data(), 4, ending).ok());
  EXPECT_TRUE(ahead.HasBytes());
  ASSERT_TRUE(ahead.Fill(part.data(), 6, ending).ok());
  EXPECT_EQ(ending.lengths.size(), 1u) << "the second read came from the buffer";
  EXPECT_EQ(part, Bytes(ten.begin() + 4, ten.end()));
  EXPECT_FALSE(ahead.Fill(part.data(), 1, ending).ok());

  // A read larger than the direct size is offered its own place, not the buffer.
  ScriptedSource large(Pattern(kDirectReadBytes * 2), {1u << 24});
  ReadBuffer direct;
  Bytes whole(kDirectReadBytes * 2);
  ASSERT_TRUE(direct.Fill(whole.data(), kDirectReadBytes * 2, large).ok());
  EXPECT_EQ(large.lengths, std::vector<std::uint32_t>{kDirectReadBytes * 2});
}

// Small writes of a batch leave in one send when it ends; a large one leaves
// at once from the caller's own bytes, gathered behind what was collected;
// a batch that would overflow passes on what it holds first. Whatever the
// system takes per call, the bytes arrive whole and in order.
TEST(WriteBatchTest, SmallWritesCollectAndALargeOneIsGatheredBehindThemWithoutACopy) {
  const Bytes bytes = Pattern(3 * kBatchBytes);
  ScriptedSink sink({1, 5, 7000, 3});
  WriteBatch batch;
  batch.Begin();
  EXPECT_EQ(batch.Write(bytes.data(), 10, sink), 10);
  EXPECT_EQ(batch.Write(bytes.data() + 10, 20, sink), 20);
  EXPECT_TRUE(sink.calls.empty()) << "small writes wait for the batch's end";
  EXPECT_EQ(batch.Write(bytes.data() + 30, kDirectWriteBytes, sink),
            static_cast<std::int32_t>(kDirectWriteBytes));
  ASSERT_EQ(sink.calls.size(), 1u);
  ASSERT_EQ(sink.calls[0].size(), 2u);
  EXPECT_EQ(sink.calls[0][0].length, 30u);
  EXPECT_EQ(sink.calls[0][1].data, bytes.data() + 30) << "the large piece is sent in place";
  std::size_t at = 30 + kDirectWriteBytes;
  // Pieces that together pass the batch's size: the full batch goes first.
  const std::uint32_t piece = kDirectWriteBytes - 1;
  for (int i = 0; i < 5; ++i, at += piece)
    ASSERT_EQ(batch.Write(bytes.data() + at, piece, sink), static_cast<std::int32_t>(piece));
  EXPECT_EQ(sink.calls.size(), 2u);
  EXPECT_EQ(sink.calls[1].size(), 1u);
  EXPECT_EQ(sink.calls[1][0].length, 4u * piece);
  EXPECT_EQ(batch.End(sink), 0);
  EXPECT_EQ(sink.calls.size(), 3u);
  EXPECT_EQ(batch.End(sink), 0) << "an empty batch sends nothing";
  EXPECT_EQ(sink.calls.size(), 3u);
  // Outside a batch every write goes at once.
  EXPECT_EQ(batch.Write(bytes.data() + at, 3, sink), 3);
  at += 3;
  EXPECT_EQ(sink.calls.size(), 4u);
  EXPECT_TRUE(sink.received == Bytes(bytes.begin(), bytes.begin() + at));

  // A send that fails fails the write that made it, or the batch's end.
  sink.failNext = true;
  batch.Begin();
  EXPECT_EQ(batch.Write(bytes.data(), 8, sink), 8);
  EXPECT_EQ(batch.Write(bytes.data(), kDirectWriteBytes, sink), -1);
  EXPECT_EQ(batch.Write(bytes.data(), 8, sink), 8);
  EXPECT_EQ(batch.End(sink), -1);
}

// What a partial send leaves: cuts inside a piece, on a boundary, and past
// every piece.
TEST(WriteBatchTest, SkippingSentBytesCutsThePiecesWhereTheSendEnded) {
  const unsigned char a[10] = {}, b[20] = {};
  platform::BytePiece pieces[2] = {{a, 10}, {b, 20}};
  EXPECT_EQ(SkipSentBytes(pieces, 2, 4), 2u);
  EXPECT_EQ(pieces[0].data, a + 4);
  EXPECT_EQ(pieces[0].length, 6u);
  EXPECT_EQ(SkipSentBytes(pieces, 2, 6), 1u);
  EXPECT_EQ(pieces[0].data, b);
  EXPECT_EQ(pieces[0].length, 20u);
  EXPECT_EQ(SkipSentBytes(pieces, 1, 19), 1u);
  EXPECT_EQ(pieces[0].data, b + 19);
  EXPECT_EQ(SkipSentBytes(pieces, 1, 1), 0u);
}

}  // namespace
}  // namespace testing
}  // namespace vxbus
