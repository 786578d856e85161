// SPDX-License-Identifier: MIT
// Socket and pipe channels over real loopback connections and pipe pairs.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <future>
#include <string>
#include <thread>
#include <vector>

#include "runtime/object_counters.h"
#include "support/channel_pair.h"
#include "support/log_capture.h"
#include "support/wait.h"
#include "transport/pipe_channel.h"
#include "transport/socket_channel.h"
#include "vxbus.h"

namespace vxbus {
namespace testing {
namespace {

using Clock = std::chrono::steady_clock;
using Bytes = std::vector<unsigned char>;

Bytes Pattern(std::size_t size) {
  Bytes bytes(size);
  for (std::size_t i = 0; i < size; ++i)
    bytes[i] = static_cast<unsigned char>(i * 131 + (i >> 8));
  return bytes;
}

std::int64_t MillisecondsSince(Clock::time_point start) {
  return std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start).count();
}

// Every test may shorten the limits that the channels it makes get.
class ChannelTest : public ::testing::Test {
 protected:
  ChannelLimits& limits() { return limits_; }

 private:
  ChannelLimits limits_;
};

struct SocketKind {
  static ChannelPair Make(const ChannelLimits& limits) { return MakeSocketChannelPair(limits); }
  static std::vector<LogCapture::Line> ClosedLines() {
    return {{8, "Receive failed: socket closed"}};
  }
};
struct PipeKind {
  static ChannelPair Make(const ChannelLimits& limits) { return MakePipeChannelPair(limits); }
  static std::vector<LogCapture::Line> ClosedLines() { return {}; }  // pipes log nothing
};

template <class Kind>
class BothChannels : public ChannelTest {};
using Kinds = ::testing::Types<SocketKind, PipeKind>;
TYPED_TEST_SUITE(BothChannels, Kinds);

// Both directions at once, each far beyond what socket buffers or pipes hold
// (how many receives a read takes is the system's choice: Wine hands a whole
// pipe write to one read). A read above the size limit and a zero length touch
// nothing, even with the peer gone; every receive or send call counts once.
TYPED_TEST(BothChannels, CarriesLargeTransfersBothWaysAndCountsEachCallOnce) {
  ChannelPair pair = TypeParam::Make(this->limits());
  const std::uint32_t size = 2 * 1024 * 1024 + 17;
  const Bytes sent = Pattern(size);
  Bytes atFirst(size), atSecond(size);
  std::int32_t results[4] = {};
  std::uint32_t receives = Counters().transportReceiveCalls;
  std::thread threads[] = {
      std::thread([&] { results[0] = pair.first->Write(sent.data(), size); }),
      std::thread([&] { results[1] = pair.second->Write(sent.data(), size); }),
      std::thread([&] { results[2] = pair.first->Read(atFirst.data(), size); }),
      std::thread([&] { results[3] = pair.second->Read(atSecond.data(), size); }),
  };
  for (auto& thread : threads)
    thread.join();
  for (std::int32_t result : results)
    EXPECT_EQ(result, static_cast<std::int32_t>(size));
  EXPECT_TRUE(atFirst == sent && atSecond == sent);
  EXPECT_GE(Counters().transportReceiveCalls - receives, 2u);

  this->limits().maxReadSize = 1000;
  pair = TypeParam::Make(this->limits());
  const std::uint32_t sends = Counters().transportSendCalls;
  receives = Counters().transportReceiveCalls;
  EXPECT_EQ(pair.second->Read(atSecond.data(), 1001), -1);
  EXPECT_EQ(pair.first->Write(sent.data(), 1001), 1001);  // writes have no such bound
  ASSERT_EQ(pair.second->WaitReadable(5000), 1);
  EXPECT_EQ(pair.second->Read(atSecond.data(), 1000), 1000);
  EXPECT_EQ(pair.second->Read(atSecond.data() + 1000, 1), 1);
  EXPECT_TRUE(std::equal(sent.begin(), sent.begin() + 1001, atSecond.begin()));
  pair.first.Reset();
  EXPECT_EQ(pair.second->Read(atSecond.data(), 0), 0);
  EXPECT_EQ(pair.second->Write(atSecond.data(), 0), 0);
  // A small read takes all that is there; the next one is served from it.
  EXPECT_EQ(Counters().transportReceiveCalls - receives, 1u);
  EXPECT_EQ(Counters().transportSendCalls - sends, 1u);
}

// A read of one byte with a stop flag, on a thread of its own.
std::future<std::int32_t> ReadOneByte(ChannelRef channel, const std::atomic<bool>* stop) {
  return std::async(std::launch::async, [channel, stop] {
    unsigned char byte;
    return channel->ReadStoppable(&byte, 1, stop);
  });
}

// What the read gave once it ended; one that does not end within the bound
// fails the test and is ended by closing the peer, so that get can't hang.
std::int32_t ResultOf(std::future<std::int32_t>& read, ChannelRef& peer) {
  const bool ended = read.wait_for(std::chrono::seconds(10)) == std::future_status::ready;
  EXPECT_TRUE(ended) << "the read still waits";
  if (!ended) peer.Reset();
  return read.get();
}

// Well past the limit (a socket re-checks after 1 s, a pipe after each
// 300 ms) a stoppable read still waits; once its flag is set it gives up. A
// local stop wakes one that would wait for its flag without end, and every
// read after it fails without waiting; writing goes on.
TYPED_TEST(BothChannels, StoppableReadsWaitForTheirFlagOrALocalStop) {
  this->limits().ioTimeoutMs = 300;
  ChannelPair pair = TypeParam::Make(this->limits());
  std::atomic<bool> stop{false};
  std::future<std::int32_t> read = ReadOneByte(pair.second, &stop);
  EXPECT_EQ(read.wait_for(std::chrono::milliseconds(1500)), std::future_status::timeout);
  stop = true;
  EXPECT_EQ(ResultOf(read, pair.first), -1);
  EXPECT_EQ(pair.second->FirstFailure().cause, Cause::kLocalStop);

  const std::atomic<bool> never{false};
  read = ReadOneByte(pair.second, &never);
  pair.second->InterruptReads();
  EXPECT_EQ(ResultOf(read, pair.first), -1);
  unsigned char byte;
  EXPECT_EQ(pair.second->ReadStoppable(&byte, 1, &never), -1);
  ASSERT_TRUE(pair.first.IsValid());
  EXPECT_EQ(pair.second->Write("ok", 2), 2);
  Bytes got(2);
  EXPECT_EQ(pair.first->Read(got.data(), 2), 2);
}

// A peer gone mid-read fails the read, and writing to it must fail, not raise
// a signal that ends the process.
TYPED_TEST(BothChannels, PeerClosingFailsReadsAndWrites) {
  ChannelPair pair = TypeParam::Make(this->limits());
  LogCapture log;
  ASSERT_EQ(pair.first->Write(Pattern(10).data(), 10), 10);
  pair.first.Reset();
  EXPECT_EQ(pair.second->WaitReadable(5000), 1);  // the end of a stream is readable
  Bytes got(20);
  EXPECT_EQ(pair.second->Read(got.data(), 20), -1);
  EXPECT_EQ(log.Lines(), TypeParam::ClosedLines());
  const Bytes bytes(8 * 1024 * 1024, 'x');
  EXPECT_EQ(pair.second->Write(bytes.data(), static_cast<std::uint32_t>(bytes.size())), -1);
  EXPECT_EQ(pair.second->Write(bytes.data(), 1), -1);
  // The session's end is told the first cause, not the failed writes behind it.
  EXPECT_EQ(pair.second->FirstFailure().cause, Cause::kPeerClosed);
}

// Small writes of a batch leave in one send; a large one goes out in place
// after them, and pieces cross the read buffer's ends. Whatever the mix of read sizes, the bytes
// arrive whole and in the order written, also across the bytes that a small read took ahead.
TYPED_TEST(BothChannels, WriteBatchesAndBufferedReadsKeepTheByteOrder) {
  ChannelPair pair = TypeParam::Make(this->limits());
  const Bytes sent = Pattern(3 * 1024 * 1024 + 1000);
  const std::uint32_t pieces[] = {16, 100, 7, 3000, 200 * 1024, 5, 2 * 1024 * 1024, 24, 9};
  Bytes got(sent.size());
  std::int32_t readResult = 0;
  std::thread reader([&] {
    // Read sizes that cut across the written pieces.
    const std::uint32_t sizes[] = {3, 4000, 1, 300000, 17};
    std::uint32_t at = 0;
    for (int i = 0; at < got.size() && readResult >= 0; ++i) {
      std::uint32_t size = sizes[i % 5];
      if (size > got.size() - at) size = static_cast<std::uint32_t>(got.size() - at);
      readResult = pair.second->Read(got.data() + at, size);
      at += size;
    }
  });
  const std::uint32_t sends = Counters().transportSendCalls;
  pair.first->BeginWriteBatch();
  for (std::uint32_t i = 0; i < 4; ++i)
    ASSERT_EQ(pair.first->Write(sent.data() + i * 4, 4), 4);
  ASSERT_EQ(pair.first->EndWriteBatch(), 0);
  EXPECT_EQ(Counters().transportSendCalls - sends, 1u);

  std::uint32_t at = 16;
  pair.first->BeginWriteBatch();
  for (std::uint32_t piece : pieces) {
    ASSERT_EQ(pair.first->Write(sent.data() + at, piece), static_cast<std::int32_t>(piece));
    at += piece;
  }
  ASSERT_EQ(pair.first->Write(sent.data() + at, static_cast<std::uint32_t>(sent.size() - at)),
            static_cast<std::int32_t>(sent.size() - at));
  ASSERT_EQ(pair.first->EndWriteBatch(), 0);
  reader.join();
  EXPECT_GE(readResult, 0);
  EXPECT_TRUE(got == sent);
}

// A batch far larger than the system holds waits for the reader, and then
// arrives whole: a full pipe or socket holds the writer back, it loses
// nothing.
TYPED_TEST(BothChannels, AFullChannelHoldsTheBatchBackUntilTheReaderReads) {
  ChannelPair pair = TypeParam::Make(this->limits());
  const Bytes sent = Pattern(40000 * 100);  // whole pieces of 100
  Signal written;
  std::int32_t ended = 1;
  std::thread writer([&] {
    pair.first->BeginWriteBatch();
    for (std::size_t at = 0; at < sent.size(); at += 100)
      if (pair.first->Write(sent.data() + at, 100) != 100) break;
    ended = pair.first->EndWriteBatch();
    written.Raise();
  });
  EXPECT_FALSE(written.WaitFor(std::chrono::milliseconds(300))) << "nothing holds 4 MB";
  Bytes got(sent.size());
  EXPECT_EQ(pair.second->Read(got.data(), static_cast<std::uint32_t>(got.size())),
            static_cast<std::int32_t>(got.size()));
  EXPECT_TRUE(written.WaitFor());
  writer.join();
  EXPECT_EQ(ended, 0);
  EXPECT_TRUE(got == sent);
}

// A peer that goes away while a batch is under way fails the batch, in a
// write or at its end, and raises no signal.
TYPED_TEST(BothChannels, APeerThatClosesMidBatchFailsTheBatch) {
  ChannelPair pair = TypeParam::Make(this->limits());
  const Bytes sent = Pattern(8 * 1024 * 1024);
  pair.first->BeginWriteBatch();
  ASSERT_EQ(pair.first->Write(sent.data(), 50), 50);
  pair.second.Reset();
  bool failed = false;
  for (std::size_t at = 50; at + 1000 <= sent.size() && !failed; at += 1000)
    failed = pair.first->Write(sent.data() + at, 1000) < 0;
  const bool endFailed = pair.first->EndWriteBatch() < 0;
  EXPECT_TRUE(failed || endFailed);
  EXPECT_EQ(pair.first->Write(sent.data(), 1), -1) << "and every write after it";
}

// Bytes taken ahead of a read are still served after the writer has gone;
// only the read past them fails. A frame cut short by the writer's close
// fails its read.
TYPED_TEST(BothChannels, BytesTakenAheadOutliveTheWriterAndACutFrameFails) {
  ChannelPair pair = TypeParam::Make(this->limits());
  const Bytes sent = Pattern(100);
  ASSERT_EQ(pair.first->Write(sent.data(), 10), 10);
  Bytes got(100);
  ASSERT_EQ(pair.second->Read(got.data(), 4), 4);
  pair.first.Reset();
  LogCapture log;
  EXPECT_EQ(pair.second->WaitReadable(0), 1);
  EXPECT_EQ(pair.second->Read(got.data() + 4, 6), 6);
  EXPECT_TRUE(std::equal(sent.begin(), sent.begin() + 10, got.begin()));
  EXPECT_EQ(pair.second->Read(got.data(), 1), -1);
  EXPECT_EQ(log.Lines(), TypeParam::ClosedLines());

  pair = TypeParam::Make(this->limits());
  ASSERT_EQ(pair.first->Write(sent.data(), 60), 60);
  pair.first.Reset();
  EXPECT_EQ(pair.second->Read(got.data(), 100), -1);
}

using SocketChannelTest = ChannelTest;

// A wait for bytes lasts its time, whatever the reader looked first. A silent
// plain read gives up, unlogged, after a quiet period: half the limit rounded
// up to whole seconds, plus 1 ms. Data that trickles in does not
// reset its clock: it fails once the whole limit has passed.
TEST_F(SocketChannelTest, PlainReadGivesUpAfterHalfTheLimitOfSilenceOrTheWholeLimit) {
  limits().ioTimeoutMs = 2000;
  ChannelPair pair = MakeSocketChannelPair(limits());
  LogCapture log;
  Clock::time_point start = Clock::now();
  EXPECT_EQ(pair.second->WaitReadable(200), 0);
  EXPECT_GE(MillisecondsSince(start), 150) << "the reader's look does not cut the wait short";
  unsigned char byte;
  start = Clock::now();
  EXPECT_EQ(pair.second->Read(&byte, 1), -1);
  const std::int64_t elapsed = MillisecondsSince(start);
  EXPECT_GE(elapsed, 1000);
  EXPECT_LT(elapsed, 1900) << "a silent read ends after half the limit";
  EXPECT_TRUE(log.Lines().empty());
  EXPECT_EQ(pair.second->FirstFailure().cause, Cause::kTimedOut);

  limits().ioTimeoutMs = 600;
  pair = MakeSocketChannelPair(limits());
  Signal stop;
  std::thread trickler([&] {
    unsigned char byte = 7;
    while (!stop.WaitFor(std::chrono::milliseconds(40)) && pair.first->Write(&byte, 1) == 1) {
    }
  });
  Bytes got(100000);
  start = Clock::now();
  EXPECT_EQ(pair.second->Read(got.data(), 100000), -1);
  EXPECT_LT(MillisecondsSince(start), 10000);
  stop.Raise();
  trickler.join();
  const auto lines = log.Lines();
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_EQ(lines[0].second, "Receive failed with code 10035");
  EXPECT_EQ(pair.second->FirstFailure().cause, Cause::kTimedOut);
}

TEST_F(ChannelTest, ConnectAndAcceptWithoutAPartnerFail) {
  EXPECT_FALSE(
      ConnectSocketChannel("127.0.0.1", static_cast<std::uint16_t>(FreeTcpPort()), limits()));
  const std::string base = UniquePipeName("alone");
  Clock::time_point start = Clock::now();
  EXPECT_FALSE(ConnectPipeChannel("", limits()));
  EXPECT_FALSE(ConnectPipeChannel(base, limits()));
  EXPECT_LT(MillisecondsSince(start), 5000) << "no wait for a listener";

  SetPipeNames(base);
  start = Clock::now();
  EXPECT_FALSE(AcceptPipeChannel(limits(), 200, nullptr));
  EXPECT_GE(MillisecondsSince(start), 200);
  EXPECT_LT(MillisecondsSince(start), 5000);
  EXPECT_FALSE(ConnectPipeChannel(base, limits())) << "the listener is gone after its round";
}

}  // namespace
}  // namespace testing
}  // namespace vxbus
