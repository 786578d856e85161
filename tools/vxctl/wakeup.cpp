#include "wakeup.h"

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <unistd.h>

#include <chrono>

namespace vxctl {
namespace {

int g_pipe[2] = {-1, -1};

void OpenPipe() {
  if (g_pipe[0] != -1) return;
  if (pipe(g_pipe) != 0) return;
  for (int fd : g_pipe)
    fcntl(fd, F_SETFD, FD_CLOEXEC);
  fcntl(g_pipe[1], F_SETFL, O_NONBLOCK);
}

void OnStopSignal(int) {
  Wake(kWakeStop);
}

sigset_t StopSignals() {
  sigset_t set;
  sigemptyset(&set);
  sigaddset(&set, SIGINT);
  sigaddset(&set, SIGTERM);
  return set;
}

}  // namespace

void BlockStopSignals() {
  OpenPipe();
  signal(SIGPIPE, SIG_IGN);
  sigset_t set = StopSignals();
  pthread_sigmask(SIG_BLOCK, &set, nullptr);
}

void CatchStopSignals() {
  struct sigaction action = {};
  action.sa_handler = OnStopSignal;
  sigemptyset(&action.sa_mask);
  sigaction(SIGINT, &action, nullptr);
  sigaction(SIGTERM, &action, nullptr);
  sigset_t set = StopSignals();
  pthread_sigmask(SIG_UNBLOCK, &set, nullptr);
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
