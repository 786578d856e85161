// SPDX-License-Identifier: MIT
// A running vxbus_test_peer: a second application on this machine.
#ifndef VXBUS_TESTS_SUPPORT_PEER_H_
#define VXBUS_TESTS_SUPPORT_PEER_H_

#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "support/channel_pair.h"

namespace vxbus {
namespace testing {

struct PeerOptions {
  std::string name = "peer";
  int port = 0;
  std::string pipe;
  std::string secretHex;
  int maxConnections = 0;
  bool quiet = false;          // the peer keeps its log lines to itself
  int sendQueueBytes = 0;      // 0 keeps the default bound of each send queue
  int dispatchQueueBytes = 0;  // 0 keeps the default bound of the dispatch queue
  int ioTimeoutMs = 0;         // 0 keeps the default read time limit
  // The peer program, and what runs it (empty: it runs by itself). A peer
  // built for another system runs through that system's emulator.
  std::string program = VXBUS_TEST_PEER_PATH;
  std::vector<std::string> launcher;
};

// Talked to line by line over its standard streams; peer_<system>.cpp starts it.
class Peer {
 public:
  explicit Peer(const PeerOptions& options);
  ~Peer();  // kills the peer if it still runs
  Peer(const Peer&) = delete;
  Peer& operator=(const Peer&) = delete;

  // True once the peer said it is ready; its appID and port are known then.
  bool Ready() const { return !appId_.empty(); }
  const std::string& AppId() const { return appId_; }
  int Port() const { return options_.port; }

  bool Send(const std::string& command);
  // Reads lines until one starts with `prefix`, and gives it. When the peer's
  // output ends or `limit` passes first, the test fails with every line seen
  // so far and the result is empty; each later Expect of this peer then
  // fails at once, so that a changed text costs one bound, not one per line.
  std::string Expect(const std::string& prefix,
                     std::chrono::milliseconds limit = std::chrono::seconds(15));
  // The first line read so far that starts with `prefix`, else Expect's:
  // for lines the peer's threads may write before it says it is ready.
  std::string ExpectSeen(const std::string& prefix);
  // Every line read so far.
  const std::vector<std::string>& Lines() const { return lines_; }
  int CountLines(const std::string& prefix) const;

  void Kill();
  // Waits up to `limit` for the peer to end by itself; true with its exit
  // code (or 128 + the signal that ended it) in `exitCode`.
  bool WaitForExit(std::chrono::milliseconds limit, int* exitCode);

 private:
  struct Native;  // the system's handles
  // Starts `program`, looked up in PATH when it names no folder; the child
  // inherits nothing but its standard streams.
  void Start(const std::string& program, const std::vector<std::string>& arguments);
  // Appends the peer's next output to `pending_`; false on time-out or end.
  bool ReadMore(std::chrono::steady_clock::time_point deadline);
  // Fails the running test with the lines read so far.
  void ReportMiss(const std::string& prefix, bool outputEnded);

  PeerOptions options_;
  std::shared_ptr<Native> native_;  // shared: it goes where its type is complete
  std::string appId_;
  std::string pending_;  // output read past the last whole line
  std::vector<std::string> lines_;
  bool missed_ = false;  // an Expect has failed; the rest fail at once
};

// The id of the calling process, for names that must differ between processes.
long CurrentProcessId();

// Sets `name` in this process's environment, which children started later
// inherit; a null `value` removes it.
void SetInheritedVariable(const char* name, const char* value);

}  // namespace testing
}  // namespace vxbus

#endif  // VXBUS_TESTS_SUPPORT_PEER_H_
