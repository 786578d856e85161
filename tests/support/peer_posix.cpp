// SPDX-License-Identifier: MIT
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include "support/peer.h"

extern char** environ;

namespace vxbus {
namespace testing {

struct Peer::Native {
  pid_t pid = -1;
  int toChild = -1;
  int fromChild = -1;
};

void Peer::Start(const std::string& program, const std::vector<std::string>& arguments) {
  native_ = std::make_shared<Native>();
  int in[2], out[2];
  if (pipe2(in, O_CLOEXEC) != 0) return;
  if (pipe2(out, O_CLOEXEC) != 0) {
    close(in[0]);
    close(in[1]);
    return;
  }
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, in[0], 0);
  posix_spawn_file_actions_adddup2(&actions, out[1], 1);
  std::vector<char*> argv{const_cast<char*>(program.c_str())};
  for (const auto& a : arguments)
    argv.push_back(const_cast<char*>(a.c_str()));
  argv.push_back(nullptr);
  pid_t pid;
  if (posix_spawnp(&pid, program.c_str(), &actions, nullptr, argv.data(), environ) == 0)
    native_->pid = pid;
  posix_spawn_file_actions_destroy(&actions);
  close(in[0]);
  close(out[1]);
  native_->toChild = in[1];
  native_->fromChild = out[0];
}

Peer::~Peer() {
  Kill();
  if (native_->toChild >= 0) close(native_->toChild);
  if (native_->fromChild >= 0) close(native_->fromChild);
}

bool Peer::Send(const std::string& command) {
  std::string text = command + "\n";
  signal(SIGPIPE, SIG_IGN);  // a child that is gone must not end the test
  return write(native_->toChild, text.data(), text.size()) == static_cast<ssize_t>(text.size());
}

bool Peer::ReadMore(std::chrono::steady_clock::time_point deadline) {
  auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
      deadline - std::chrono::steady_clock::now());
  if (left.count() <= 0) return false;
  pollfd fd{native_->fromChild, POLLIN, 0};
  if (poll(&fd, 1, static_cast<int>(left.count())) <= 0) return false;
  char buffer[4096];
  ssize_t n = read(native_->fromChild, buffer, sizeof buffer);
  if (n <= 0) return false;
  pending_.append(buffer, static_cast<std::size_t>(n));
  return true;
}

void Peer::Kill() {
  if (native_->pid > 0) kill(native_->pid, SIGKILL);
  int code;
  WaitForExit(std::chrono::hours(1), &code);
}

long CurrentProcessId() {
  return static_cast<long>(getpid());
}

void SetInheritedVariable(const char* name, const char* value) {
  if (value == nullptr)
    unsetenv(name);
  else
    setenv(name, value, 1);
}

bool Peer::WaitForExit(std::chrono::milliseconds limit, int* exitCode) {
  if (native_->pid <= 0) return false;
  auto deadline = std::chrono::steady_clock::now() + limit;
  int status = 0;
  while (waitpid(native_->pid, &status, WNOHANG) == 0) {
    if (std::chrono::steady_clock::now() >= deadline) return false;
    poll(nullptr, 0, 10);  // a child's end has no descriptor to wait on
  }
  native_->pid = -1;
  *exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  return true;
}

}  // namespace testing
}  // namespace vxbus
