// SPDX-License-Identifier: MIT
// The measuring half that every benchmark shares: the sizes, the loops, the
// statistics, the second process and the report lines. Each peer kind (vxbus,
// raw TCP, ZeroMQ) only says how one call, one notification, one connect and
// one disconnect are done; RunAll measures them all the same way.
#ifndef VXBUS_BENCH_HARNESS_H_
#define VXBUS_BENCH_HARNESS_H_

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

namespace bench {

// Payload bytes carried by a request; every reply carries kSmallBytes.
constexpr std::size_t kSmallBytes = 20;
constexpr std::size_t kMediumBytes = 64 * 1024;
constexpr std::size_t kMiB = 1024 * 1024;

using Clock = std::chrono::steady_clock;

inline double MicrosecondsSince(Clock::time_point start) {
  return std::chrono::duration<double, std::micro>(Clock::now() - start).count();
}

// The client side of one peer kind, connected to a server of the same kind
// that runs in a second process.
class Peer {
 public:
  virtual ~Peer() = default;
  // Opens the connection and does one small round trip over it; false if the
  // server is not there (yet).
  virtual bool Connect() = 0;
  virtual void Disconnect() = 0;
  // Builds the request that Call sends, with `bytes` of payload; not timed.
  virtual void PrepareCall(std::size_t bytes) = 0;
  // One request and its small reply; false if the connection failed.
  virtual bool Call() = 0;
  // One small one-way message.
  virtual bool Notify() = 0;
  // Waits until the server has taken every notification sent so far and
  // returns how many it counted since the last time.
  virtual std::uint64_t FinishNotifies() = 0;
  // Tells the server process to end.
  virtual void Quit() = 0;
  // Ends this side, with the connection still up; timed.
  virtual void Shutdown() = 0;
  // Whatever only this peer kind has to measure, after Shutdown.
  virtual void MeasureMore() {}
};

// Prints one result line, "name<TAB>value", which scripts/bench.sh collects.
void Report(const std::string& name, double value);

// What a run measures over, from the environment, which the server process
// inherits: BENCH_TRANSPORT ("tcp", the default; "local" for the machine's
// local channel: vxbus pipes, a unix socket, ZeroMQ ipc://) and BENCH_POLL=1
// for peers that busy-poll instead of blocking in a receive.
bool OverLocalChannel();
bool BusyPolling();
// A name for this run's local endpoint, unique per run through the port.
std::string LocalName(int port);

// Two free loopback TCP ports, for the server to listen on.
struct Ports {
  int first = 0;
  int second = 0;
};

// How long a server waits for its client before it ends by itself.
constexpr int kServerLifetimeSeconds = 300;

// The main of every benchmark program. Without arguments it picks two free
// ports, starts itself again as "serve <port> <port>", measures everything
// through the peer that `connect` makes, and reports; with the one argument
// "notify" it measures only the one-way loop (for a profiler). With the
// serve arguments it runs `serve` instead.
using ServeFunction = int (*)(Ports ports);
using PeerFactory = std::unique_ptr<Peer> (*)(Ports ports);
int BenchMain(int argc, char** argv, ServeFunction serve, PeerFactory connect);

}  // namespace bench

#endif  // VXBUS_BENCH_HARNESS_H_
