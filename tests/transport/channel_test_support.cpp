#include "channel_test_support.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <mutex>
#include <thread>

#include "platform/socket.h"
#include "runtime/log.h"
#include "runtime/object_counters.h"
#include "support/wait.h"
#include "transport/pipe_channel.h"
#include "transport/socket_channel.h"

namespace vxbus {
namespace testing {
namespace {

std::mutex g_captureMutex;
std::vector<LogLine> g_captured;

void KeepLine(std::uint32_t level, std::uint32_t, const char* text) {
  std::lock_guard<std::mutex> lock(g_captureMutex);
  g_captured.push_back({level, text});
}

}  // namespace

LogCapture::LogCapture() {
  {
    std::lock_guard<std::mutex> lock(g_captureMutex);
    g_captured.clear();
  }
  VXSetLogLevel(0xFFFFFFFFu, 0, KeepLine);
}

LogCapture::~LogCapture() {
  VXSetLogLevel(0, 0, nullptr);
}

std::vector<LogLine> LogCapture::Lines() const {
  std::lock_guard<std::mutex> lock(g_captureMutex);
  return g_captured;
}

ChannelPair MakeSocketPair(std::uint16_t* port) {
  ChannelPair pair;
  platform::SocketHandle listener = platform::CreateStreamSocket();
  EXPECT_NE(listener, platform::kInvalidSocket);
  platform::Ipv4Endpoint endpoint;
  EXPECT_TRUE(platform::ParseDottedAddress("127.0.0.1", &endpoint.address));
  EXPECT_EQ(platform::Bind(listener, endpoint), 0);
  EXPECT_EQ(platform::Listen(listener, 5), 0);
  EXPECT_TRUE(platform::GetLocalEndpoint(listener, &endpoint));
  if (port != nullptr) *port = endpoint.port;

  // The connect completes in the backlog, before anyone accepts.
  pair.client = ConnectSocketChannel("127.0.0.1", endpoint.port);
  EXPECT_TRUE(pair.client);
  platform::SocketHandle accepted = platform::Accept(listener, nullptr);
  EXPECT_NE(accepted, platform::kInvalidSocket);
  ApplyConnectedSocketOptions(accepted);
  pair.server = WrapAcceptedSocket(accepted);
  platform::CloseSocket(listener);
  return pair;
}

std::string UniquePipeName() {
  static std::atomic<unsigned> next{0};
  return "vxbus_transport_test_" + std::to_string(::getpid()) + "_" + std::to_string(next++);
}

ChannelPair MakePipePair(const std::string& baseName) {
  ChannelPair pair;
  SetPipeNames(baseName);
  std::thread acceptor([&pair] { pair.server = AcceptPipeChannel(); });
  // Until the listener has made its pipes a connect is refused at once.
  EXPECT_TRUE(WaitUntil([&] {
    pair.client = ConnectPipeChannel(baseName);
    return static_cast<bool>(pair.client);
  }));
  acceptor.join();
  EXPECT_TRUE(pair.server);
  return pair;
}

std::vector<unsigned char> Pattern(std::size_t size, unsigned seed) {
  std::vector<unsigned char> bytes(size);
  for (std::size_t i = 0; i < size; ++i)
    bytes[i] = static_cast<unsigned char>((i * 131 + seed * 7 + (i >> 8)) & 0xFF);
  return bytes;
}

std::uint32_t ReceiveCalls() {
  return g_transportReceiveCalls.load();
}

std::uint32_t SendCalls() {
  return g_transportSendCalls.load();
}

}  // namespace testing
}  // namespace vxbus
