// A running vxbus_test_peer: a second application on this machine.
#ifndef VXBUS_TESTS_SUPPORT_PEER_H_
#define VXBUS_TESTS_SUPPORT_PEER_H_

#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "support/channel_pair.h"
#include "support/child_process.h"

namespace vxbus {
namespace testing {

struct PeerOptions {
  std::string name = "peer";
  int port = 0;
  std::string pipe;
  std::string secretHex;
  int maxConnections = 0;
  bool quiet = false;      // the peer keeps its log lines to itself
  int sendQueueBytes = 0;  // 0 keeps the default bound of each send queue
  // The peer program, and what runs it (empty: it runs by itself). A peer
  // built for another system runs through that system's emulator.
  std::string program = VXBUS_TEST_PEER_PATH;
  std::vector<std::string> launcher;
};

class Peer {
 public:
  explicit Peer(const PeerOptions& options);
  ~Peer();

  // True once the peer said it is ready; its appID and port are known then.
  bool Ready() const { return !appId_.empty(); }
  const std::string& AppId() const { return appId_; }
  int Port() const { return options_.port; }

  bool Send(const std::string& command) { return process_->WriteLine(command); }
  // Reads lines until one starts with `prefix`, and gives it; empty on time-out.
  std::string Expect(const std::string& prefix,
                     std::chrono::milliseconds limit = std::chrono::seconds(15));
  // The first line read so far that starts with `prefix`, else Expect's:
  // for lines the peer's threads may write before it says it is ready.
  std::string ExpectSeen(const std::string& prefix);
  // Every line read so far.
  const std::vector<std::string>& Lines() const { return lines_; }
  int CountLines(const std::string& prefix) const;

  void Kill() { process_->Kill(); }
  bool WaitForExit(std::chrono::milliseconds limit, int* exitCode) {
    return process_->WaitForExit(limit, exitCode);
  }

 private:
  PeerOptions options_;
  std::unique_ptr<ChildProcess> process_;
  std::string appId_;
  std::vector<std::string> lines_;
};

}  // namespace testing
}  // namespace vxbus

#endif  // VXBUS_TESTS_SUPPORT_PEER_H_
