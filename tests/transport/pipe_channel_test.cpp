// PipeChannel over real local pipe pairs.
#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include "channel_test_support.h"
#include "support/wait.h"
#include "transport/pipe_channel.h"

namespace vxbus {
namespace testing {
namespace {

using Clock = std::chrono::steady_clock;

// Restores the listener's accept wait.
class AcceptWaitGuard {
 public:
  explicit AcceptWaitGuard(std::uint32_t ms) : saved_(g_pipeAcceptWaitMs.exchange(ms)) {}
  ~AcceptWaitGuard() { g_pipeAcceptWaitMs = saved_; }

 private:
  std::uint32_t saved_;
};

TEST(PipeChannelTest, CarriesLargeTransfersBothWaysAtOnce) {
  ChannelPair pair = MakePipePair(UniquePipeName());
  const std::size_t size = 2 * 1024 * 1024 + 3;
  const auto toServer = Pattern(size, 11);
  const auto toClient = Pattern(size, 12);
  std::vector<unsigned char> atServer(size), atClient(size);
  std::int32_t results[4] = {};

  std::thread threads[] = {
      std::thread([&] { results[0] = pair.client->Write(toServer.data(), size); }),
      std::thread([&] { results[1] = pair.server->Write(toClient.data(), size); }),
      std::thread([&] { results[2] = pair.server->Read(atServer.data(), size); }),
      std::thread([&] { results[3] = pair.client->Read(atClient.data(), size); }),
  };
  for (auto& thread : threads)
    thread.join();

  for (std::int32_t result : results)
    EXPECT_EQ(result, static_cast<std::int32_t>(size));
  EXPECT_TRUE(atServer == toServer);
  EXPECT_TRUE(atClient == toClient);
}

// The pipes hold about 16 KiB, so 100000 bytes take several read rounds,
// each counted once.
TEST(PipeChannelTest, LargeReadTakesSeveralCountedRounds) {
  ChannelPair pair = MakePipePair(UniquePipeName());
  const auto bytes = Pattern(100000, 13);
  std::vector<unsigned char> got(bytes.size());
  std::int32_t written = 0;
  const std::uint32_t receivesBefore = ReceiveCalls();
  const std::uint32_t sendsBefore = SendCalls();
  std::thread writer([&] { written = pair.client->Write(bytes.data(), 100000); });
  EXPECT_EQ(pair.server->Read(got.data(), 100000), 100000);
  writer.join();
  EXPECT_EQ(written, 100000);
  EXPECT_TRUE(got == bytes);
  EXPECT_GE(ReceiveCalls() - receivesBefore, 2u);
  EXPECT_GE(SendCalls() - sendsBefore, 1u);
}

TEST(PipeChannelTest, CountsOneCallPerSmallReadAndWrite) {
  ChannelPair pair = MakePipePair(UniquePipeName());
  const auto bytes = Pattern(100, 14);
  std::uint32_t sendsBefore = SendCalls();
  ASSERT_EQ(pair.server->Write(bytes.data(), 100), 100);
  EXPECT_EQ(SendCalls() - sendsBefore, 1u);
  std::vector<unsigned char> got(100);
  std::uint32_t receivesBefore = ReceiveCalls();
  ASSERT_EQ(pair.client->Read(got.data(), 100), 100);
  EXPECT_EQ(ReceiveCalls() - receivesBefore, 1u);
  EXPECT_TRUE(got == bytes);
}

TEST(PipeChannelTest, ZeroLengthAndTheSizeLimit) {
  LimitsGuard guard;
  guard.limits().limits.MAX_READ_SIZE = 1000;
  ChannelPair pair = MakePipePair(UniquePipeName());
  const auto bytes = Pattern(1001, 15);
  std::vector<unsigned char> got(1001);

  std::uint32_t receivesBefore = ReceiveCalls();
  std::uint32_t sendsBefore = SendCalls();
  EXPECT_EQ(pair.server->Read(got.data(), 0), 0);
  EXPECT_EQ(pair.server->Write(got.data(), 0), 0);
  EXPECT_EQ(pair.server->Read(got.data(), 1001), -1);
  EXPECT_EQ(ReceiveCalls(), receivesBefore);
  EXPECT_EQ(SendCalls(), sendsBefore);

  EXPECT_EQ(pair.client->Write(bytes.data(), 1001), 1001);
  EXPECT_EQ(pair.server->Read(got.data(), 1000), 1000);
  EXPECT_EQ(pair.server->Read(got.data() + 1000, 1), 1);
  EXPECT_TRUE(got == bytes);
}

TEST(PipeChannelTest, ReadGivesUpAfterTheWholeLimitWithoutALogLine) {
  LimitsGuard guard;
  guard.limits().limits.IO_TIMEOUT_MS = 300;
  ChannelPair pair = MakePipePair(UniquePipeName());
  LogCapture log;
  unsigned char byte = 0;
  Clock::time_point start = Clock::now();
  EXPECT_EQ(pair.server->Read(&byte, 1), -1);
  std::int64_t elapsed = MillisecondsSince(start);
  EXPECT_GE(elapsed, 300);
  EXPECT_LT(elapsed, 10000);
  EXPECT_TRUE(log.Lines().empty());
}

TEST(PipeChannelTest, StoppableReadWaitsWhileItsFlagIsClearAndEndsOnceSet) {
  LimitsGuard guard;
  guard.limits().limits.IO_TIMEOUT_MS = 200;
  ChannelPair pair = MakePipePair(UniquePipeName());
  std::atomic<bool> stopRequested{false};

  // Data that comes after several whole limits is still taken, by one read.
  unsigned char got[3] = {};
  std::atomic<std::int32_t> result{-2};
  Signal done;
  std::uint32_t receivesBefore = ReceiveCalls();
  std::thread reader([&] {
    result = pair.server->ReadStoppable(got, 3, &stopRequested);
    done.Raise();
  });
  EXPECT_FALSE(done.WaitFor(std::chrono::milliseconds(1000)));
  const unsigned char sent[3] = {5, 6, 7};
  ASSERT_EQ(pair.client->Write(sent, 3), 3);
  EXPECT_TRUE(done.WaitFor());
  reader.join();
  EXPECT_EQ(result.load(), 3);
  EXPECT_EQ(got[2], 7);
  EXPECT_EQ(ReceiveCalls() - receivesBefore, 1u);

  // With the flag set, the next wait that times out ends the read.
  Signal stopped;
  result = -2;
  std::thread second([&] {
    result = pair.server->ReadStoppable(got, 1, &stopRequested);
    stopped.Raise();
  });
  EXPECT_FALSE(stopped.WaitFor(std::chrono::milliseconds(500)));
  stopRequested = true;
  EXPECT_TRUE(stopped.WaitFor());
  second.join();
  EXPECT_EQ(result.load(), -1);
}

TEST(PipeChannelTest, PeerClosingMidReadFailsTheRead) {
  ChannelPair pair = MakePipePair(UniquePipeName());
  LogCapture log;
  const auto bytes = Pattern(10, 16);
  ASSERT_EQ(pair.client->Write(bytes.data(), 10), 10);
  pair.client.Reset();
  std::vector<unsigned char> got(20);
  EXPECT_EQ(pair.server->Read(got.data(), 20), -1);
  EXPECT_TRUE(log.Lines().empty());
}

TEST(PipeChannelTest, WritingIntoAPipeWhoseReaderHasGoneFailsWithoutKillingTheProcess) {
  ChannelPair pair = MakePipePair(UniquePipeName());
  pair.server.Reset();
  const auto bytes = Pattern(1024 * 1024, 17);
  EXPECT_EQ(pair.client->Write(bytes.data(), static_cast<std::uint32_t>(bytes.size())), -1);
  EXPECT_EQ(pair.client->Write(bytes.data(), 1), -1);
}

TEST(PipeChannelTest, WaitReadableIsAlwaysReadyEvenWhenThePeerHasGone) {
  ChannelPair pair = MakePipePair(UniquePipeName());
  EXPECT_EQ(pair.server->WaitReadable(0), 1);
  EXPECT_EQ(pair.server->WaitReadable(5000), 1);
  EXPECT_EQ(pair.server->WaitReadableForever(), 1);
  pair.client.Reset();
  EXPECT_EQ(pair.server->WaitReadable(5000), 1);
  unsigned char byte = 0;
  EXPECT_EQ(pair.server->Read(&byte, 1), -1);
}

TEST(PipeChannelTest, AddressesNameThePipesSwappedBetweenTheSides) {
  const std::string base = UniquePipeName();
  ChannelPair pair = MakePipePair(base);
  EXPECT_EQ(listenerPipeInName, base + "_in");
  EXPECT_EQ(listenerPipeOutName, base + "_out");
  EXPECT_EQ(pair.server->GetPeerAddress(), base + "_out");
  EXPECT_EQ(pair.server->GetLocalAddress(), base + "_in");
  EXPECT_EQ(pair.client->GetPeerAddress(), base + "_in");
  EXPECT_EQ(pair.client->GetLocalAddress(), base + "_out");

  // An empty base name keeps the names of the earlier call.
  SetPipeNames("");
  EXPECT_EQ(listenerPipeInName, base + "_in");
}

TEST(PipeChannelTest, ConnectFailsAtOnceForAnEmptyOrUnheardName) {
  Clock::time_point start = Clock::now();
  EXPECT_FALSE(ConnectPipeChannel(""));
  EXPECT_FALSE(ConnectPipeChannel(UniquePipeName()));
  EXPECT_LT(MillisecondsSince(start), 5000);
}

TEST(PipeChannelTest, AcceptWithNobodyComingGivesUpAndLeavesNoListener) {
  AcceptWaitGuard wait(200);
  const std::string base = UniquePipeName();
  SetPipeNames(base);
  Clock::time_point start = Clock::now();
  EXPECT_FALSE(AcceptPipeChannel());
  EXPECT_GE(MillisecondsSince(start), 200);
  EXPECT_FALSE(ConnectPipeChannel(base));
}

TEST(PipeChannelTest, ListenerServesOneClientPerRound) {
  const std::string base = UniquePipeName();
  ChannelPair first = MakePipePair(base);
  // The round is over: nobody listens until the next one starts.
  EXPECT_FALSE(ConnectPipeChannel(base));
  ChannelPair second = MakePipePair(base);
  const unsigned char sent[2] = {1, 2};
  unsigned char got[2] = {};
  ASSERT_EQ(second.client->Write(sent, 2), 2);
  ASSERT_EQ(first.client->Write(sent + 1, 1), 1);
  EXPECT_EQ(second.server->Read(got, 2), 2);
  EXPECT_EQ(first.server->Read(got, 1), 1);
  EXPECT_EQ(got[0], 2);
}

}  // namespace
}  // namespace testing
}  // namespace vxbus
