// SPDX-License-Identifier: MIT
// What the two applications of the demo agree on, and how each one talks to
// the person watching.
#ifndef VXBUS_EXAMPLES_DEMO_COMMON_H_
#define VXBUS_EXAMPLES_DEMO_COMMON_H_

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <string>

namespace demo {

// Slots of the server.
constexpr std::uint32_t kSlotPriceOrder = 1;
constexpr std::uint32_t kSlotTakeNote = 2;
constexpr std::uint32_t kSlotShipOrder = 3;
// The client's own slot, which the server's signal reaches.
constexpr std::uint32_t kSlotOrderShipped = 100;

constexpr const char* kSignalOrderShipped = "orderShipped";

// Both sides know the secret; the connecting side proves that it does.
constexpr unsigned char kSecret[] = {'o', 'p', 'e', 'n', ' ', 's', 'e', 's', 'a', 'm', 'e'};
constexpr int kSecretLength = static_cast<int>(sizeof kSecret);

// Where the server listens: a TCP port on this machine, or a pipe name.
struct Endpoint {
  int port = 0;
  std::string pipe;
  bool UsesPipes() const { return !pipe.empty(); }
};

// One line, "[role] text", written whole: the library calls back on its own
// threads, and two processes share the terminal.
void Say(const char* role, const std::string& text);

// Prints the library's warnings and errors (not its routine messages).
void ShowLibraryProblems(const char* role);

// A one-shot event for a callback to tell the main thread that it ran.
class Latch {
 public:
  void Set();
  bool WaitFor(std::chrono::seconds limit);

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  bool set_ = false;
};

int RunServer(const Endpoint& endpoint);
int RunClient(const Endpoint& endpoint);

}  // namespace demo

#endif  // VXBUS_EXAMPLES_DEMO_COMMON_H_
