// SPDX-License-Identifier: MIT
#include "idle_sessions.h"

#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <condition_variable>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "demo_process.h"
#include "harness.h"
#include "vxbus.h"

namespace bench {
namespace {

constexpr int kSessions = 100;
constexpr auto kIdleTime = std::chrono::seconds(10);
// How long the sessions may take to come up, and a peer may wait for its end.
constexpr auto kComingUpBound = std::chrono::seconds(180);
const unsigned char kSecret[] = {'i', 'd', 'l', 'e'};

std::mutex g_mutex;
std::condition_variable g_changed;
Clock::time_point g_peersStarted;
std::vector<double> g_upMs;  // when each session came up, from g_peersStarted
bool g_sessionGone = false;  // the peer's one session has ended

void OnConnect(const char*, const char*, const char*, const char*, std::int32_t, const char*) {
  std::lock_guard<std::mutex> lock(g_mutex);
  g_upMs.push_back(MicrosecondsSince(g_peersStarted) / 1000);
  g_changed.notify_all();
}

void OnDisconnect(const char*, const char*, std::int32_t, const char*) {
  std::lock_guard<std::mutex> lock(g_mutex);
  g_sessionGone = true;
  g_changed.notify_all();
}

double OwnCpuMicroseconds() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  return (usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) * 1e6 + usage.ru_utime.tv_usec +
         usage.ru_stime.tv_usec;
}

// Waits a bounded time for every peer to end after its session has, and
// ends those that overstay.
void ReapPeers(const std::vector<long>& peers) {
  const Clock::time_point giveUp = Clock::now() + std::chrono::seconds(30);
  for (long peer : peers) {
    const pid_t pid = static_cast<pid_t>(peer);
    int status = 0;
    while (waitpid(pid, &status, WNOHANG) != pid) {
      if (Clock::now() > giveUp) {
        kill(pid, SIGKILL);
        waitpid(pid, &status, 0);
        break;
      }
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
  }
}

}  // namespace

int RunIdleSessions(const char* program) {
  const bool pipes = OverLocalChannel();
  const std::string prefix = pipes ? "idle100_pipe" : "idle100";
  VXLimits limits;
  std::memset(&limits, 0, sizeof limits);
  limits.size = sizeof limits;
  limits.limits.MAX_CONNECTIONS = 2 * kSessions;  // the default of 10 would refuse the rest
  VXSetConnectListener(OnConnect);
  const int port = pipes ? 0 : demo::FindFreeTcpPort();
  const std::string pipe = "vxbus_bench_idle_" + std::to_string(getpid());
  const _tag_VX_ERROR started =
      pipes ? VXInitializeWithPipeChannel(pipe.c_str(), "127.0.0.1", "idle_holder", 0, &limits)
            : VXInitializeEx("127.0.0.1", "idle_holder", port, &limits);
  if (started != VX_SUCCESS) return 1;
  // After the start: the limits record carries a secret block of its own.
  VXSetAuthenticationInfo(kSecret, sizeof kSecret);
  VXConnectionReady();

  const std::string target = pipes ? pipe : std::to_string(port);
  std::vector<long> peers;
  {
    std::lock_guard<std::mutex> lock(g_mutex);
    g_peersStarted = Clock::now();
  }
  for (int i = 0; i < kSessions; ++i) {
    const long peer = demo::StartProcess(
        program, {"idle-peer", pipes ? "pipe" : "tcp", target, std::to_string(i)});
    if (peer >= 0) peers.push_back(peer);
  }
  std::vector<double> upMs;
  {
    std::unique_lock<std::mutex> lock(g_mutex);
    g_changed.wait_for(lock, kComingUpBound, [] { return g_upMs.size() >= kSessions; });
    upMs = g_upMs;
  }
  const bool allUp = upMs.size() >= kSessions;
  if (allUp) {
    std::sort(upMs.begin(), upMs.end());
    Report(prefix + "_up_median_ms", upMs[kSessions / 2]);
    Report(prefix + "_up_last_ms", upMs.back());
    // The peers' first moments (their own start-up) are over by then.
    std::this_thread::sleep_for(std::chrono::seconds(1));
    const double cpuBefore = OwnCpuMicroseconds();
    const Clock::time_point start = Clock::now();
    std::this_thread::sleep_for(kIdleTime);
    const double cpu = OwnCpuMicroseconds() - cpuBefore;
    Report(prefix + "_cpu_percent", 100 * cpu / MicrosecondsSince(start));
  } else {
    std::fprintf(stderr, "only %zu of %d sessions came up\n", upMs.size(), kSessions);
  }
  VXShutdown();  // ends every session, and so every peer
  ReapPeers(peers);
  return allUp ? 0 : 1;
}

int RunIdlePeer(int argc, char** argv) {
  if (argc != 5) return 2;
  const bool pipes = std::string(argv[2]) == "pipe";
  const std::string target = argv[3];
  const std::string name = "idle_peer_" + std::string(argv[4]);
  VXSetDisconnectListener(OnDisconnect);
  if (VXInitialize(name.c_str(), 0, nullptr) != VX_SUCCESS) return 1;
  // A busy pipe listener refuses a connect at once: try again, as a client does.
  const Clock::time_point giveUp = Clock::now() + kComingUpBound;
  _tag_VX_ERROR connected = VX_ERROR_FAILED;
  for (;;) {
    connected =
        pipes ? VXConnectEx(target.c_str(), nullptr, 0, nullptr, 0, kSecret, sizeof kSecret)
              : VXConnect("127.0.0.1", std::stoi(target), nullptr, 0, kSecret, sizeof kSecret);
    if (connected == VX_SUCCESS || Clock::now() > giveUp) break;
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  if (connected == VX_SUCCESS) {
    std::unique_lock<std::mutex> lock(g_mutex);
    g_changed.wait_for(lock, std::chrono::seconds(kServerLifetimeSeconds),
                       [] { return g_sessionGone; });
  }
  VXShutdown();
  return connected == VX_SUCCESS ? 0 : 1;
}

}  // namespace bench
