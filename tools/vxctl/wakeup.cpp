// SPDX-License-Identifier: MIT
#include "wakeup.h"

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <unistd.h>

#include <chrono>
#include <mutex>
#include <thread>

namespace vxctl {
namespace {

int g_pipe[2] = {-1, -1};

// What the main thread is blocked in; empty: nothing. Never destroyed, since
// the signal thread may read it while the process exits.
std::mutex g_interruptMutex;
std::string& g_interruptible = *new std::string;
bool g_wakeOnStop = false;  // under g_interruptMutex

void OpenPipe() {
  if (g_pipe[0] != -1) return;
  if (pipe(g_pipe) != 0) return;
  for (int fd : g_pipe)
    fcntl(fd, F_SETFD, FD_CLOEXEC);
  fcntl(g_pipe[1], F_SETFL, O_NONBLOCK);
}

sigset_t StopSignals() {
  sigset_t set;
  sigemptyset(&set);
  sigaddset(&set, SIGINT);
  sigaddset(&set, SIGTERM);
  return set;
}

// Takes every SIGINT and SIGTERM, since all threads block them. A thread
// rather than a handler, so that it may lock and compose a line.
[[noreturn]] void TakeStopSignals() {
  const sigset_t set = StopSignals();
  for (;;) {
    int number = 0;
    if (sigwait(&set, &number) != 0) continue;
    std::lock_guard<std::mutex> lock(g_interruptMutex);
    if (g_interruptible.empty() && g_wakeOnStop) {
      Wake(kWakeStop);
      continue;
    }
    const std::string line =
        "vxctl: interrupted" + (g_interruptible.empty() ? "" : " while " + g_interruptible) + "\n";
    if (write(STDERR_FILENO, line.data(), line.size()) < 0) {
      // Nowhere left to say it; the exit status still tells.
    }
    _exit(128 + number);
  }
}

}  // namespace

void BlockStopSignals() {
  OpenPipe();
  signal(SIGPIPE, SIG_IGN);
  sigset_t set = StopSignals();
  pthread_sigmask(SIG_BLOCK, &set, nullptr);
  std::thread(TakeStopSignals).detach();
}

void CatchStopSignals() {
  std::lock_guard<std::mutex> lock(g_interruptMutex);
  g_wakeOnStop = true;
}

Interruptible::Interruptible(const std::string& what) {
  std::lock_guard<std::mutex> lock(g_interruptMutex);
  g_interruptible = what;
}

Interruptible::~Interruptible() {
  std::lock_guard<std::mutex> lock(g_interruptMutex);
  g_interruptible.clear();
}

void Wake(WakeReason reason) {
  int saved = errno;
  char c = reason;
  if (write(g_pipe[1], &c, 1) < 0) {
    // The pipe is full: the main thread has plenty to wake up for already.
  }
  errno = saved;
}

WakeReason WaitForWake(int timeoutMs, int inputFd) {
  using Clock = std::chrono::steady_clock;
  const auto deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
  for (;;) {
    int left = -1;
    if (timeoutMs >= 0) {
      auto ms = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
      if (ms.count() < 0) return kWakeTimeout;
      left = static_cast<int>(ms.count());
    }
    pollfd fds[2] = {{g_pipe[0], POLLIN, 0}, {inputFd, POLLIN, 0}};
    int n = poll(fds, inputFd == -1 ? 1 : 2, left);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return kWakeTimeout;
    if (fds[0].revents & POLLIN) {
      char c = 0;
      if (read(g_pipe[0], &c, 1) == 1) return static_cast<WakeReason>(c);
    }
    if (inputFd != -1 && fds[1].revents) return kWakeInput;
  }
}

}  // namespace vxctl
