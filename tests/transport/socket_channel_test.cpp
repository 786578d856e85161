// SocketChannel over real loopback connections.
#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include "channel_test_support.h"
#include "platform/socket.h"
#include "support/wait.h"
#include "transport/socket_channel.h"

namespace vxbus {
namespace testing {
namespace {

using Clock = std::chrono::steady_clock;

// Both directions at once, one reader and one writer per side, with more
// bytes than the 64 KiB socket buffers hold, so every call takes many rounds.
TEST(SocketChannelTest, CarriesLargeTransfersBothWaysAtOnce) {
  ChannelPair pair = MakeSocketPair();
  const std::size_t size = 3 * 1024 * 1024 + 17;
  const auto toServer = Pattern(size, 1);
  const auto toClient = Pattern(size, 2);
  std::vector<unsigned char> atServer(size), atClient(size);
  std::int32_t results[4] = {};
  const std::uint32_t receivesBefore = ReceiveCalls();
  const std::uint32_t sendsBefore = SendCalls();

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
  EXPECT_GT(ReceiveCalls() - receivesBefore, 2u);
  EXPECT_GT(SendCalls() - sendsBefore, 2u);
}

TEST(SocketChannelTest, CountsOneCallPerReceiveAndSend) {
  ChannelPair pair = MakeSocketPair();
  const auto bytes = Pattern(100, 3);
  std::uint32_t sendsBefore = SendCalls();
  ASSERT_EQ(pair.client->Write(bytes.data(), 100), 100);
  EXPECT_EQ(SendCalls() - sendsBefore, 1u);

  ASSERT_EQ(pair.server->WaitReadable(5000), 1);
  std::vector<unsigned char> got(100);
  std::uint32_t receivesBefore = ReceiveCalls();
  ASSERT_EQ(pair.server->Read(got.data(), 100), 100);
  EXPECT_EQ(ReceiveCalls() - receivesBefore, 1u);
  EXPECT_TRUE(got == bytes);
}

TEST(SocketChannelTest, ZeroLengthTouchesNothingEvenWhenThePeerHasGone) {
  ChannelPair pair = MakeSocketPair();
  pair.client.Reset();
  unsigned char byte = 0;
  std::uint32_t receivesBefore = ReceiveCalls();
  std::uint32_t sendsBefore = SendCalls();
  EXPECT_EQ(pair.server->Read(&byte, 0), 0);
  EXPECT_EQ(pair.server->Write(&byte, 0), 0);
  EXPECT_EQ(ReceiveCalls(), receivesBefore);
  EXPECT_EQ(SendCalls(), sendsBefore);
}

TEST(SocketChannelTest, ReadAboveTheSizeLimitFailsWithoutReceivingWhileWritesAreNotBounded) {
  LimitsGuard guard;
  guard.limits().limits.MAX_READ_SIZE = 1000;
  ChannelPair pair = MakeSocketPair();
  const auto bytes = Pattern(1001, 4);
  std::vector<unsigned char> got(1001);

  std::uint32_t receivesBefore = ReceiveCalls();
  EXPECT_EQ(pair.server->Read(got.data(), 1001), -1);
  EXPECT_EQ(ReceiveCalls(), receivesBefore);

  std::uint32_t sendsBefore = SendCalls();
  EXPECT_EQ(pair.client->Write(bytes.data(), 1001), 1001);
  EXPECT_GE(SendCalls() - sendsBefore, 1u);
  // The stream is still in step: exactly the limit, then the last byte.
  EXPECT_EQ(pair.server->Read(got.data(), 1000), 1000);
  EXPECT_EQ(pair.server->Read(got.data() + 1000, 1), 1);
  EXPECT_TRUE(got == bytes);
}

TEST(SocketChannelTest, PlainReadGivesUpAfterHalfTheLimitOfSilenceWithoutALogLine) {
  LimitsGuard guard;
  guard.limits().limits.IO_TIMEOUT_MS = 2000;  // a quiet period of 1 s and 1 ms
  ChannelPair pair = MakeSocketPair();
  LogCapture log;
  unsigned char byte = 0;
  Clock::time_point start = Clock::now();
  EXPECT_EQ(pair.server->Read(&byte, 1), -1);
  std::int64_t elapsed = MillisecondsSince(start);
  EXPECT_GE(elapsed, 1000);
  EXPECT_LT(elapsed, 1900) << "a quiet read ends after half the limit, not the whole";
  EXPECT_TRUE(log.Lines().empty());
}

// Data that keeps trickling in does not reset the clock: the read fails at
// the first would-block after the whole limit, with the fixed code.
TEST(SocketChannelTest, TricklingReadFailsOnceTheWholeLimitHasPassed) {
  LimitsGuard guard;
  guard.limits().limits.IO_TIMEOUT_MS = 600;
  ChannelPair pair = MakeSocketPair();
  LogCapture log;
  Signal stop;
  std::thread trickler([&] {
    unsigned char byte = 7;
    // One byte now and then, until the reader has given up.
    while (!stop.WaitFor(std::chrono::milliseconds(40)))
      if (pair.client->Write(&byte, 1) != 1) break;
  });
  std::vector<unsigned char> got(100000);
  Clock::time_point start = Clock::now();
  std::int32_t result = pair.server->Read(got.data(), 100000);
  std::int64_t elapsed = MillisecondsSince(start);
  stop.Raise();
  trickler.join();

  EXPECT_EQ(result, -1);
  EXPECT_GE(elapsed, 600);
  EXPECT_LT(elapsed, 10000);
  auto lines = log.Lines();
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_EQ(lines[0].level, 8u);
  EXPECT_EQ(lines[0].text, "Receive failed with code 10035");
}

TEST(SocketChannelTest, StoppableReadOutlivesTheLimitWhileItsFlagIsClear) {
  LimitsGuard guard;
  guard.limits().limits.IO_TIMEOUT_MS = 2000;  // quiet periods of 1 s and 1 ms
  ChannelPair pair = MakeSocketPair();
  std::atomic<bool> stopRequested{false};
  unsigned char got[4] = {};
  std::atomic<std::int32_t> result{-2};
  Signal done;
  std::uint32_t receivesBefore = ReceiveCalls();
  std::thread reader([&] {
    result = pair.server->ReadStoppable(got, 4, &stopRequested);
    done.Raise();
  });
  // A new receive after each quiet period: four of them span three periods,
  // longer than the whole limit.
  EXPECT_TRUE(WaitUntil([&] { return ReceiveCalls() - receivesBefore >= 4; }));
  EXPECT_FALSE(done.IsRaised());
  const unsigned char sent[4] = {1, 2, 3, 4};
  ASSERT_EQ(pair.client->Write(sent, 4), 4);
  EXPECT_TRUE(done.WaitFor());
  reader.join();
  EXPECT_EQ(result.load(), 4);
  EXPECT_EQ(got[3], 4);
}

TEST(SocketChannelTest, StoppableReadEndsAfterItsFlagIsSetWithoutALogLine) {
  LimitsGuard guard;
  guard.limits().limits.IO_TIMEOUT_MS = 2000;
  ChannelPair pair = MakeSocketPair();
  LogCapture log;
  std::atomic<bool> stopRequested{false};
  unsigned char byte = 0;
  std::atomic<std::int32_t> result{-2};
  Signal done;
  std::uint32_t receivesBefore = ReceiveCalls();
  std::thread reader([&] {
    result = pair.server->ReadStoppable(&byte, 1, &stopRequested);
    done.Raise();
  });
  // Past one quiet period, so the flag is what ends it, not the first wait.
  EXPECT_TRUE(WaitUntil([&] { return ReceiveCalls() - receivesBefore >= 2; }));
  stopRequested = true;
  EXPECT_TRUE(done.WaitFor());
  reader.join();
  EXPECT_EQ(result.load(), -1);
  EXPECT_TRUE(log.Lines().empty());
}

TEST(SocketChannelTest, PeerClosingMidReadFailsTheReadWithTheClosedLine) {
  ChannelPair pair = MakeSocketPair();
  LogCapture log;
  const auto bytes = Pattern(10, 5);
  ASSERT_EQ(pair.client->Write(bytes.data(), 10), 10);
  pair.client.Reset();  // the last reference closes the socket
  std::vector<unsigned char> got(20);
  EXPECT_EQ(pair.server->Read(got.data(), 20), -1);
  auto lines = log.Lines();
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_EQ(lines[0].level, 8u);
  EXPECT_EQ(lines[0].text, "Receive failed: socket closed");
  // An ended stream counts as readable: the next read is what reports it.
  EXPECT_EQ(pair.server->WaitReadable(5000), 1);
}

TEST(SocketChannelTest, WritingIntoAConnectionThatThePeerClosedFailsWithoutKillingTheProcess) {
  ChannelPair pair = MakeSocketPair();
  pair.server.Reset();
  const auto bytes = Pattern(8 * 1024 * 1024, 6);
  EXPECT_EQ(pair.client->Write(bytes.data(), static_cast<std::uint32_t>(bytes.size())), -1);
  EXPECT_EQ(pair.client->Write(bytes.data(), 1), -1);
}

TEST(SocketChannelTest, WaitReadableReportsTimeOutAndData) {
  ChannelPair pair = MakeSocketPair();
  EXPECT_EQ(pair.server->WaitReadable(20), 0);
  unsigned char byte = 9;
  ASSERT_EQ(pair.client->Write(&byte, 1), 1);
  EXPECT_EQ(pair.server->WaitReadable(5000), 1);
  EXPECT_EQ(pair.server->WaitReadableForever(), 1);
  pair.server->Reserved();  // does nothing
  EXPECT_EQ(pair.server->Read(&byte, 1), 1);
}

TEST(SocketChannelTest, AddressesAreDottedTextAndPortOfEachEnd) {
  std::uint16_t port = 0;
  ChannelPair pair = MakeSocketPair(&port);
  const std::string listening = "127.0.0.1:" + std::to_string(port);
  EXPECT_EQ(pair.client->GetPeerAddress(), listening);
  EXPECT_EQ(pair.server->GetLocalAddress(), listening);
  EXPECT_EQ(pair.client->GetLocalAddress(), pair.server->GetPeerAddress());
  EXPECT_EQ(pair.client->GetLocalAddress().rfind("127.0.0.1:", 0), 0u);
  EXPECT_NE(pair.client->GetLocalAddress(), listening);
}

TEST(SocketChannelTest, ConnectResolvesHostNamesAndFailsOnAClosedPort) {
  platform::SocketHandle listener = platform::CreateStreamSocket();
  platform::Ipv4Endpoint endpoint;
  ASSERT_TRUE(platform::ParseDottedAddress("127.0.0.1", &endpoint.address));
  ASSERT_EQ(platform::Bind(listener, endpoint), 0);
  ASSERT_EQ(platform::Listen(listener, 5), 0);
  ASSERT_TRUE(platform::GetLocalEndpoint(listener, &endpoint));

  ChannelRef byName = ConnectSocketChannel("localhost", endpoint.port);
  ASSERT_TRUE(byName);
  EXPECT_EQ(byName->GetPeerAddress(), "127.0.0.1:" + std::to_string(endpoint.port));
  byName.Reset();

  platform::CloseSocket(listener);  // nobody listens on the port any more
  EXPECT_FALSE(ConnectSocketChannel("127.0.0.1", endpoint.port));
  EXPECT_FALSE(ConnectSocketChannel("", endpoint.port));
}

}  // namespace
}  // namespace testing
}  // namespace vxbus
