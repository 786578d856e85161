// Shared pieces of the channel tests: real loopback connections and pipe
// pairs, a log sink that keeps what it gets, and a guard for the limits.
#ifndef VXBUS_TESTS_TRANSPORT_CHANNEL_TEST_SUPPORT_H_
#define VXBUS_TESTS_TRANSPORT_CHANNEL_TEST_SUPPORT_H_

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

#include "runtime/process_state.h"
#include "transport/transport_channel.h"

namespace vxbus {
namespace testing {

// Restores the limits record in force when it goes out of scope.
class LimitsGuard {
 public:
  LimitsGuard() : saved_(g_limits) {}
  ~LimitsGuard() { g_limits = saved_; }
  VXLimits& limits() { return g_limits; }

 private:
  VXLimits saved_;
};

struct LogLine {
  std::uint32_t level;
  std::string text;
};

// Routes every level to a sink that keeps the lines, from any thread.
class LogCapture {
 public:
  LogCapture();
  ~LogCapture();
  std::vector<LogLine> Lines() const;
};

struct ChannelPair {
  ChannelRef client;  // the side that connected
  ChannelRef server;  // the side that accepted
};

// A TCP connection over 127.0.0.1, made with the library's own factories;
// `port` receives the port that the server side listened on.
ChannelPair MakeSocketPair(std::uint16_t* port = nullptr);

// A name that no other test, in this process or another, uses.
std::string UniquePipeName();

// A pipe pair under `baseName`: the server side from AcceptPipeChannel, the
// client side from ConnectPipeChannel, retried until the listener is there.
ChannelPair MakePipePair(const std::string& baseName);

// Bytes that differ from position to position and between seeds.
std::vector<unsigned char> Pattern(std::size_t size, unsigned seed);

std::uint32_t ReceiveCalls();
std::uint32_t SendCalls();

inline std::int64_t MillisecondsSince(std::chrono::steady_clock::time_point start) {
  return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() -
                                                               start)
      .count();
}

}  // namespace testing
}  // namespace vxbus

#endif  // VXBUS_TESTS_TRANSPORT_CHANNEL_TEST_SUPPORT_H_
