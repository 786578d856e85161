#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include "support/child_process.h"

extern char** environ;

namespace vxbus {
namespace testing {

ChildProcess::ChildProcess(const std::string& program, const std::vector<std::string>& arguments) {
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
  std::vector<char*> argv;
  argv.push_back(const_cast<char*>(program.c_str()));
  for (const auto& a : arguments)
    argv.push_back(const_cast<char*>(a.c_str()));
  argv.push_back(nullptr);
  pid_t pid;
  if (posix_spawn(&pid, program.c_str(), &actions, nullptr, argv.data(), environ) == 0) pid_ = pid;
  posix_spawn_file_actions_destroy(&actions);
  close(in[0]);
  close(out[1]);
  toChild_ = in[1];
  fromChild_ = out[0];
}

ChildProcess::~ChildProcess() {
  Kill();
  if (toChild_ >= 0) close(toChild_);
  if (fromChild_ >= 0) close(fromChild_);
}

bool ChildProcess::WriteLine(const std::string& line) {
  std::string text = line + "\n";
  signal(SIGPIPE, SIG_IGN);  // a child that is gone must not end the test
  return write(toChild_, text.data(), text.size()) == static_cast<ssize_t>(text.size());
}

bool ChildProcess::ReadLine(std::string& line, std::chrono::milliseconds limit) {
  auto deadline = std::chrono::steady_clock::now() + limit;
  for (;;) {
    auto newline = pending_.find('\n');
    if (newline != std::string::npos) {
      line = pending_.substr(0, newline);
      pending_.erase(0, newline + 1);
      return true;
    }
    auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
        deadline - std::chrono::steady_clock::now());
    if (left.count() <= 0) return false;
    pollfd fd{fromChild_, POLLIN, 0};
    if (poll(&fd, 1, static_cast<int>(left.count())) <= 0) return false;
    char buffer[4096];
    ssize_t n = read(fromChild_, buffer, sizeof buffer);
    if (n <= 0) return false;
    pending_.append(buffer, static_cast<std::size_t>(n));
  }
}

void ChildProcess::Kill() {
  if (pid_ <= 0) return;
  kill(static_cast<pid_t>(pid_), SIGKILL);
  int status;
  waitpid(static_cast<pid_t>(pid_), &status, 0);
  pid_ = -1;
}

bool ChildProcess::WaitForExit(std::chrono::milliseconds limit, int* exitCode) {
  if (pid_ <= 0) return false;
  auto deadline = std::chrono::steady_clock::now() + limit;
  int status = 0;
  while (waitpid(static_cast<pid_t>(pid_), &status, WNOHANG) == 0) {
    if (std::chrono::steady_clock::now() >= deadline) return false;
    poll(nullptr, 0, 10);  // a child's end has no descriptor to wait on
  }
  pid_ = -1;
  *exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  return true;
}

}  // namespace testing
}  // namespace vxbus
