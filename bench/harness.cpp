// SPDX-License-Identifier: MIT
#include "harness.h"

#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <thread>
#include <vector>

#include "demo_process.h"

namespace bench {
namespace {

using Seconds = std::chrono::duration<double>;

// Each measured loop stops at whichever comes first: its count or its time.
struct Bound {
  int count;
  double seconds;
};

// The second process, whose CPU time the loops read as well.
long g_server = -1;

// CPU time, user and system, in microseconds: this process's, and the
// server's as the kernel counts it (in clock ticks, so coarse for short runs).
double OwnCpuMicroseconds() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  return (usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) * 1e6 + usage.ru_utime.tv_usec +
         usage.ru_stime.tv_usec;
}

double ServerCpuMicroseconds() {
  std::ifstream stat("/proc/" + std::to_string(g_server) + "/stat");
  std::string text((std::istreambuf_iterator<char>(stat)), std::istreambuf_iterator<char>());
  const std::size_t end = text.rfind(')');  // the command may hold spaces
  if (end == std::string::npos) return 0;
  std::istringstream fields(text.substr(end + 2));
  std::string field;
  double ticks = 0;
  // After the name: state is field 3; utime and stime are fields 14 and 15.
  for (int index = 3; index <= 15 && fields >> field; ++index)
    if (index >= 14) ticks += std::stod(field);
  return ticks * 1e6 / static_cast<double>(sysconf(_SC_CLK_TCK));
}

// CPU time spent on both sides between its start and Report.
class CpuMeter {
 public:
  CpuMeter() : own_(OwnCpuMicroseconds()), server_(ServerCpuMicroseconds()) {}
  void Report(const std::string& name, double messages) const {
    bench::Report(name + "_client_cpu_us", (OwnCpuMicroseconds() - own_) / messages);
    bench::Report(name + "_server_cpu_us", (ServerCpuMicroseconds() - server_) / messages);
  }

 private:
  double own_;
  double server_;
};

bool Failed(const std::string& what) {
  std::fprintf(stderr, "%s failed\n", what.c_str());
  return false;
}

double Percentile(std::vector<double> samples, double fraction) {
  if (samples.empty()) return 0;
  std::size_t index = static_cast<std::size_t>(fraction * (samples.size() - 1) + 0.5);
  std::nth_element(samples.begin(), samples.begin() + index, samples.end());
  return samples[index];
}

// Times Call() over and over; the samples in microseconds, empty on failure.
std::vector<double> TimeCalls(Peer& peer, std::size_t bytes, int warmUp, Bound bound) {
  peer.PrepareCall(bytes);
  for (int i = 0; i < warmUp; ++i)
    if (!peer.Call()) return {};
  std::vector<double> samples;
  const Clock::time_point end =
      Clock::now() + std::chrono::duration_cast<Clock::duration>(Seconds(bound.seconds));
  while (static_cast<int>(samples.size()) < bound.count && Clock::now() < end) {
    const Clock::time_point start = Clock::now();
    if (!peer.Call()) return {};
    samples.push_back(MicrosecondsSince(start));
  }
  return samples;
}

// Besides the spread of the times, the CPU time per call on each side and the
// wall time per call over the same loop, for the cost of spinning.
bool MeasureCalls(Peer& peer, const std::string& name, std::size_t bytes, Bound bound) {
  const CpuMeter cpu;
  const Clock::time_point start = Clock::now();
  const std::vector<double> samples = TimeCalls(peer, bytes, 200, bound);
  if (samples.empty()) return Failed(name);
  const double calls = static_cast<double>(samples.size() + 200);
  const double wall = MicrosecondsSince(start) / calls;
  Report(name + "_median_us", Percentile(samples, 0.5));
  Report(name + "_p99_us", Percentile(samples, 0.99));
  Report(name + "_p999_us", Percentile(samples, 0.999));
  Report(name + "_wall_us", wall);
  cpu.Report(name, calls);
  return true;
}

bool MeasureBulk(Peer& peer, std::size_t mebibytes, Bound bound) {
  const std::vector<double> samples = TimeCalls(peer, mebibytes * kMiB, 1, bound);
  if (samples.empty()) return Failed("bulk " + std::to_string(mebibytes) + " MiB");
  Report("bulk_" + std::to_string(mebibytes) + "MiB_ms", Percentile(samples, 0.5) / 1000);
  return true;
}

bool MeasureNotifies(Peer& peer, Bound bound) {
  for (int i = 0; i < 1000; ++i)
    if (!peer.Notify()) return Failed("notify");
  peer.FinishNotifies();
  const CpuMeter cpu;
  const Clock::time_point start = Clock::now();
  const Clock::time_point end =
      start + std::chrono::duration_cast<Clock::duration>(Seconds(bound.seconds));
  std::uint64_t sent = 0;
  while (sent < static_cast<std::uint64_t>(bound.count) && ((sent & 1023) || Clock::now() < end)) {
    if (!peer.Notify()) return Failed("notify");
    ++sent;
  }
  const std::uint64_t received = peer.FinishNotifies();
  const double elapsed = MicrosecondsSince(start);
  cpu.Report("notify", static_cast<double>(sent));
  if (received != sent) {
    return Failed("notify: sent " + std::to_string(sent) + ", the server counted " +
                  std::to_string(received) + ";");
  }
  Report("notify_us_per_msg", elapsed / sent);
  return true;
}

// The first connect waits for the server to come up. Each round after it
// times the disconnect of a session that has been idle for a moment, and the
// connect that follows: every other one at once (a reconnect), the others
// after a pause in which whatever the disconnect left to do in the
// background is done.
bool MeasureConnects(Peer& peer, int rounds) {
  const Clock::time_point giveUp = Clock::now() + std::chrono::seconds(20);
  while (!peer.Connect()) {
    if (Clock::now() > giveUp) return Failed("reaching the server");
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  std::vector<double> connects, reconnects, disconnects;
  const auto pause = std::chrono::milliseconds(500);
  for (int i = 0; i < rounds; ++i) {
    std::this_thread::sleep_for(pause);
    Clock::time_point start = Clock::now();
    peer.Disconnect();
    disconnects.push_back(MicrosecondsSince(start) / 1000);
    const bool reconnect = i % 2 == 0;
    if (!reconnect) std::this_thread::sleep_for(pause);
    start = Clock::now();
    if (!peer.Connect()) return Failed("connect");
    (reconnect ? reconnects : connects).push_back(MicrosecondsSince(start) / 1000);
  }
  Report("connect_ms", Percentile(connects, 0.5));
  Report("reconnect_ms", Percentile(reconnects, 0.5));
  Report("disconnect_ms", Percentile(disconnects, 0.5));
  Report("disconnect_max_ms", *std::max_element(disconnects.begin(), disconnects.end()));
  return true;
}

// Only the first connect and the one-way loop, for profiling that loop.
int RunNotifiesOnly(Peer& peer) {
  const Clock::time_point giveUp = Clock::now() + std::chrono::seconds(20);
  while (!peer.Connect()) {
    if (Clock::now() > giveUp) return Failed("reaching the server");
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  const bool ok = MeasureNotifies(peer, {1000000, 60});
  if (ok) peer.Quit();
  peer.Shutdown();
  return ok ? 0 : 1;
}

int RunAll(Peer& peer) {
  const bool ok = MeasureConnects(peer, 6) &&
                  MeasureCalls(peer, "call_small", kSmallBytes, {20000, 3}) &&
                  MeasureCalls(peer, "call_64KiB", kMediumBytes, {5000, 3}) &&
                  MeasureBulk(peer, 1, {50, 2}) && MeasureBulk(peer, 16, {10, 3}) &&
                  MeasureBulk(peer, 64, {5, 4}) && MeasureNotifies(peer, {500000, 3});
  if (!ok) {
    peer.Shutdown();
    return 1;
  }
  peer.Quit();
  const Clock::time_point start = Clock::now();
  peer.Shutdown();
  Report("shutdown_ms", MicrosecondsSince(start) / 1000);
  peer.MeasureMore();
  return 0;
}

// Waits for the server a bounded time, and ends it if it overstays.
int WaitForServer(long process, int seconds) {
  const pid_t pid = static_cast<pid_t>(process);
  int status = 0;
  for (int waited = 0; waited < seconds * 100; ++waited) {
    if (waitpid(pid, &status, WNOHANG) == pid)
      return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  kill(pid, SIGKILL);
  waitpid(pid, &status, 0);
  return -1;
}

}  // namespace

bool OverLocalChannel() {
  const char* transport = std::getenv("BENCH_TRANSPORT");
  return transport != nullptr && std::string(transport) == "local";
}

bool BusyPolling() {
  const char* poll = std::getenv("BENCH_POLL");
  return poll != nullptr && std::string(poll) == "1";
}

std::string LocalName(int port) {
  return "vxbus_bench_" + std::to_string(port);
}

void Report(const std::string& name, double value) {
  std::printf("%s\t%.3f\n", name.c_str(), value);
  std::fflush(stdout);
}

int BenchMain(int argc, char** argv, ServeFunction serve, PeerFactory connect) {
  if (argc == 4 && std::string(argv[1]) == "serve")
    return serve({std::atoi(argv[2]), std::atoi(argv[3])});
  const bool notifiesOnly = argc == 2 && std::string(argv[1]) == "notify";
  if (argc != 1 && !notifiesOnly) {
    std::fprintf(stderr, "usage: %s [notify]\n", argv[0]);
    return 2;
  }
  const Ports ports{demo::FindFreeTcpPort(), demo::FindFreeTcpPort()};
  if (ports.first == 0 || ports.second == 0 || ports.first == ports.second) {
    std::fprintf(stderr, "found no two free TCP ports\n");
    return 1;
  }
  const long server = demo::StartProcess(
      argv[0], {"serve", std::to_string(ports.first), std::to_string(ports.second)});
  if (server < 0) {
    std::fprintf(stderr, "could not start the server process\n");
    return 1;
  }
  g_server = server;
  int status = 1;
  {
    std::unique_ptr<Peer> peer = connect(ports);
    status = notifiesOnly ? RunNotifiesOnly(*peer) : RunAll(*peer);
  }
  const int serverStatus = WaitForServer(server, status == 0 ? 30 : 1);
  return status != 0 ? status : serverStatus;
}

}  // namespace bench
