// SPDX-License-Identifier: MIT
// A peer's TCP admission under attack from this process: connections that
// stay silent or trickle their bytes, wrong secrets, and names that would
// forge log lines. Loopback addresses other than 127.0.0.1 stand for other
// machines; the honest peer is this process itself.
#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstring>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "bus_test_fixture.h"
#include "platform/socket.h"
#include "raw_client.h"
#include "transport/app_id_block.h"
#include "transport/challenge.h"
#include "transport/pipe_channel.h"
#include "transport/socket_channel.h"

namespace vxbus {
namespace testing {
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

const std::string kSecret = "secret";
const std::string kSecretHex = "736563726574";

// A connection to the peer from the loopback address `source`.
platform::SocketHandle ConnectFrom(const std::string& source, int port) {
  platform::SocketHandle socket = platform::CreateStreamSocket();
  platform::Ipv4Endpoint from, to;
  to.port = static_cast<std::uint16_t>(port);
  if (!platform::ParseDottedAddress(source.c_str(), &from.address) ||
      !platform::ParseDottedAddress("127.0.0.1", &to.address) || !platform::Bind(socket, from) ||
      platform::Connect(socket, to).status != platform::IoStatus::kOk) {
    platform::CloseSocket(socket);
    return platform::kInvalidSocket;
  }
  return socket;
}

// Whether the peer ends the connection within `limit`; what it sends first
// is read and dropped.
bool ClosedWithin(platform::SocketHandle socket, milliseconds limit) {
  const auto deadline = Clock::now() + limit;
  for (;;) {
    const auto left = std::chrono::duration_cast<milliseconds>(deadline - Clock::now()).count();
    if (left < 0 || !platform::WaitReadable(socket, left).ok()) return false;
    char bytes[256];
    const platform::IoResult got = platform::Receive(socket, bytes, sizeof bytes);
    if (got.status == platform::IoStatus::kClosed || got.status == platform::IoStatus::kFailed)
      return true;
  }
}

// The client's side of the handshake from `source`, as the library speaks it.
Outcome Handshake(const std::string& source, int port, const std::string& appId,
                  const std::string& secret) {
  platform::SocketHandle socket = ConnectFrom(source, port);
  if (socket == platform::kInvalidSocket) return Outcome::kNoChallenge;
  ApplyConnectedSocketOptions(socket);
  ChannelRef channel = WrapAcceptedSocket(socket, ChannelLimits());
  return SpeakClientHandshake(*channel, appId, secret);
}

// Sends one byte to each connection every 250 ms until stopped: an appID
// block that announces 256 bytes and never gets there.
class Trickle {
 public:
  explicit Trickle(std::vector<platform::SocketHandle> sockets)
      : sockets_(std::move(sockets)), thread_([this] { Run(); }) {}
  ~Trickle() {
    {
      std::lock_guard<std::mutex> lock(mutex_);
      stopped_ = true;
    }
    wake_.notify_all();
    thread_.join();
  }

 private:
  void Run() {
    static const unsigned char kBlock[] = {0, 1, 0, 0, 'h', 'o', 's', 't'};
    std::unique_lock<std::mutex> lock(mutex_);
    for (std::size_t sent = 0; !stopped_; ++sent) {
      for (platform::SocketHandle socket : sockets_)
        platform::Send(socket, &kBlock[std::min(sent, sizeof kBlock - 1)], 1);
      wake_.wait_for(lock, milliseconds(250), [this] { return stopped_; });  // the pace
    }
  }

  std::vector<platform::SocketHandle> sockets_;
  std::mutex mutex_;
  std::condition_variable wake_;
  bool stopped_ = false;
  std::thread thread_;
};

using AdmissionTest = BusTest;

// 64 silent and 16 trickling connections from ten other machines, eight
// from each, the most that one source may have pending.
TEST_F(AdmissionTest, SilentAndTricklingConnectionsEndAtTheirDeadline) {
  PeerOptions options = TcpPeer("guarded");
  options.ioTimeoutMs = 10000;  // the whole handshake within 5 s
  constexpr auto kDeadline = milliseconds(5001);
  Peer peer(options);
  ASSERT_TRUE(peer.Ready());

  const auto opened = Clock::now();
  std::vector<platform::SocketHandle> silent, trickling;
  for (int i = 0; i < 80; ++i) {
    platform::SocketHandle socket =
        ConnectFrom("127.0.0.1" + std::to_string(i / 8), peer.Port());  // 127.0.0.10 to .19
    ASSERT_NE(socket, platform::kInvalidSocket);
    (i < 64 ? silent : trickling).push_back(socket);
  }
  Trickle trickle(trickling);
  int pending = 0;
  while (
      pending < 80 &&
      !peer.Expect("log 8 ConnectionThread. Starting new application", milliseconds(3000)).empty())
    ++pending;
  EXPECT_EQ(pending, 80) << "every connection has its handshake under way";

  // A ninth from one source is closed at once; the eight stay.
  platform::SocketHandle ninth = ConnectFrom("127.0.0.10", peer.Port());
  EXPECT_TRUE(ClosedWithin(ninth, milliseconds(2000)));
  EXPECT_FALSE(ClosedWithin(silent[0], milliseconds(0)));
  platform::CloseSocket(ninth);

  const auto start = Clock::now();
  EXPECT_EQ(Connect(peer), VX_SUCCESS) << "the honest peer gets in on its first try";
  EXPECT_LT(Clock::now() - start, milliseconds(2000)) << "goal: within 1 s";

  const auto latest = opened + kDeadline + milliseconds(4000);
  for (platform::SocketHandle socket : silent) {
    EXPECT_TRUE(
        ClosedWithin(socket, std::chrono::duration_cast<milliseconds>(latest - Clock::now())));
    platform::CloseSocket(socket);
  }
  for (platform::SocketHandle socket : trickling)
    EXPECT_TRUE(
        ClosedWithin(socket, std::chrono::duration_cast<milliseconds>(latest - Clock::now())))
        << "a trickling handshake ends at its deadline, not per read";
  EXPECT_GE(Clock::now() - opened, kDeadline - milliseconds(1000)) << "not before the deadline";
  for (platform::SocketHandle socket : trickling)
    platform::CloseSocket(socket);
}

TEST_F(AdmissionTest, WrongSecretsBackOffTheirSourceOnly) {
  Peer peer(TcpPeer("guarded", kSecretHex));
  ASSERT_TRUE(peer.Ready());
  const std::string guesser = "127.0.0.2", honest = "127.0.0.3";
  for (int attempt = 0; attempt < 4; ++attempt)
    EXPECT_EQ(Handshake(guesser, peer.Port(), "g:1/guesser", "wrong"), Outcome::kRefused)
        << "the first wrong answers are compared";
  EXPECT_EQ(Handshake(guesser, peer.Port(), "g:1/guesser", kSecret), Outcome::kNoChallenge)
      << "the fourth wrong answer in a row refuses the source, even with the right secret";

  const auto start = Clock::now();
  EXPECT_EQ(Handshake(honest, peer.Port(), "h:1/honest", kSecret), Outcome::kEstablished);
  EXPECT_LT(Clock::now() - start, milliseconds(2000)) << "another source is not slowed";

  for (int attempt = 0; attempt < 20; ++attempt)
    EXPECT_EQ(Handshake(guesser, peer.Port(), "g:1/guesser", "wrong"), Outcome::kNoChallenge);
  peer.Send("counters");  // every line written before the answer is read with it
  ASSERT_FALSE(peer.Expect("counters ").empty());
  EXPECT_EQ(peer.CountLines("log 4 Stage 2: credentials failed"), 4);
  EXPECT_EQ(peer.CountLines("log 4 Wrong secrets from '127.0.0.2': 4 in a row; refusing it for "
                            "2000 ms (0 connections refused since the last such line)"),
            1);
  EXPECT_EQ(peer.CountLines("log 4 ConnectionThread. Source in back-off after wrong secrets: "
                            "closed 1 connection(s) at once"),
            1)
      << "one line for the refused ones until its period ends";
}

// Guards the back-off's source over pipes: the listener tells pipe clients
// apart by their process, so one process's wrong secrets never refuse another's.
TEST_F(AdmissionTest, WrongSecretsOverPipesBackOffTheGuessingProcessOnly) {
  const std::string pipe = UniquePipeName("guarded");
  PeerOptions guardedOptions = PipePeer("guarded", pipe);
  guardedOptions.secretHex = kSecretHex;
  Peer guarded(guardedOptions), honest(PipePeer("honest", ""));
  ASSERT_TRUE(guarded.Ready() && honest.Ready());
  const auto guess = [&pipe](const std::string& secret) {
    ChannelRef channel;
    WaitUntil([&] { return (channel = ConnectPipeChannel(pipe, ChannelLimits())).IsValid(); });
    return channel ? SpeakClientHandshake(*channel, "g:1/guesser", secret) : Outcome::kNoChallenge;
  };
  for (int attempt = 0; attempt < 4; ++attempt)
    EXPECT_EQ(guess("wrong"), Outcome::kRefused);
  EXPECT_EQ(guess(kSecret), Outcome::kNoChallenge) << "this process is in its back-off";
  EXPECT_EQ(ConnectPipeRetryingFrom(honest, pipe, kSecretHex),
            "connect-result 0 " + guarded.AppId());
}

// A name with a line feed stays on its line, escaped; the rest of the name
// and the designed text around it are as before.
TEST_F(AdmissionTest, PeerNamesWithControlBytesAreEscapedInLogLines) {
  Peer peer(TcpPeer("plain"));
  ASSERT_TRUE(peer.Ready());
  ASSERT_EQ(Handshake("127.0.0.1", peer.Port(), "h:1/evil\nlog 1 forged\x7f", ""),
            Outcome::kEstablished);
  EXPECT_EQ(peer.Expect("log 8 Application connected:"),
            "log 8 Application connected:h:1/evil\\x0alog 1 forged\\x7f");
  EXPECT_EQ(peer.Expect("log 8 Remote disconnect: "),
            "log 8 Remote disconnect: \"h:1/evil\\x0alog 1 forged\\x7f\" stopped");
}

}  // namespace
}  // namespace testing
}  // namespace vxbus
