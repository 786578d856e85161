// SPDX-License-Identifier: MIT
// The Win32 twin. Anonymous pipes cannot be waited on with a bound, so a
// thread of the parent reads the child's output as it comes.
#include <windows.h>

#include <condition_variable>
#include <mutex>
#include <thread>

#include "support/peer.h"

namespace vxbus {
namespace testing {

struct Peer::Native {
  HANDLE process = nullptr;
  HANDLE toChild = nullptr;
  HANDLE fromChild = nullptr;
  std::thread reader;
  std::mutex mutex;
  std::condition_variable arrived;
  std::string received;  // output read but not yet taken by ReadMore
  bool ended = false;

  void Read() {
    char buffer[4096];
    DWORD count = 0;
    while (::ReadFile(fromChild, buffer, sizeof buffer, &count, nullptr) && count > 0) {
      std::lock_guard<std::mutex> lock(mutex);
      received.append(buffer, count);
      arrived.notify_all();
    }
    std::lock_guard<std::mutex> lock(mutex);
    ended = true;
    arrived.notify_all();
  }
};

namespace {

// Quotes one argument as the C runtime of the child splits a command line.
std::string Quote(const std::string& argument) {
  if (!argument.empty() && argument.find_first_of(" \t\"") == std::string::npos) return argument;
  std::string quoted = "\"";
  std::size_t backslashes = 0;
  for (char c : argument) {
    if (c == '\\') {
      ++backslashes;
      continue;
    }
    quoted.append(c == '"' ? backslashes * 2 + 1 : backslashes, '\\');
    backslashes = 0;
    quoted += c;
  }
  quoted.append(backslashes * 2, '\\');
  return quoted + "\"";
}

// Children are started one at a time, so that none inherits the pipes that
// were made for another.
std::mutex spawnMutex;

}  // namespace

void Peer::Start(const std::string& program, const std::vector<std::string>& arguments) {
  native_ = std::make_shared<Native>();
  std::string commandLine = Quote(program);
  for (const auto& argument : arguments)
    commandLine += " " + Quote(argument);
  std::lock_guard<std::mutex> lock(spawnMutex);
  SECURITY_ATTRIBUTES inheritable{sizeof inheritable, nullptr, TRUE};
  HANDLE childIn = nullptr, childOut = nullptr;
  if (!::CreatePipe(&childIn, &native_->toChild, &inheritable, 0)) return;
  if (!::CreatePipe(&native_->fromChild, &childOut, &inheritable, 0)) {
    ::CloseHandle(childIn);
    return;
  }
  // Only the child's ends go to the child.
  ::SetHandleInformation(native_->toChild, HANDLE_FLAG_INHERIT, 0);
  ::SetHandleInformation(native_->fromChild, HANDLE_FLAG_INHERIT, 0);
  STARTUPINFOA startup{};
  startup.cb = sizeof startup;
  startup.dwFlags = STARTF_USESTDHANDLES;
  startup.hStdInput = childIn;
  startup.hStdOutput = childOut;
  startup.hStdError = ::GetStdHandle(STD_ERROR_HANDLE);
  PROCESS_INFORMATION info{};
  if (::CreateProcessA(nullptr, &commandLine[0], nullptr, nullptr, TRUE, 0, nullptr, nullptr,
                       &startup, &info)) {
    native_->process = info.hProcess;
    ::CloseHandle(info.hThread);
  }
  ::CloseHandle(childIn);
  ::CloseHandle(childOut);  // so that the reader sees the end when the child ends
  native_->reader = std::thread([native = native_.get()] { native->Read(); });
}

Peer::~Peer() {
  Kill();
  if (native_->toChild != nullptr) ::CloseHandle(native_->toChild);
  if (native_->reader.joinable()) native_->reader.join();
  if (native_->fromChild != nullptr) ::CloseHandle(native_->fromChild);
}

bool Peer::Send(const std::string& command) {
  std::string text = command + "\n";
  DWORD written = 0;
  return ::WriteFile(native_->toChild, text.data(), static_cast<DWORD>(text.size()), &written,
                     nullptr) &&
         written == text.size();
}

bool Peer::ReadMore(std::chrono::steady_clock::time_point deadline) {
  std::unique_lock<std::mutex> lock(native_->mutex);
  native_->arrived.wait_until(lock, deadline,
                              [this] { return !native_->received.empty() || native_->ended; });
  if (native_->received.empty()) return false;
  pending_ += native_->received;
  native_->received.clear();
  return true;
}

void Peer::Kill() {
  if (native_->process != nullptr) ::TerminateProcess(native_->process, 1);
  int code;
  WaitForExit(std::chrono::hours(1), &code);
}

bool Peer::WaitForExit(std::chrono::milliseconds limit, int* exitCode) {
  if (native_->process == nullptr) return false;
  if (::WaitForSingleObject(native_->process, static_cast<DWORD>(limit.count())) != WAIT_OBJECT_0)
    return false;
  DWORD code = 0;
  ::GetExitCodeProcess(native_->process, &code);
  ::CloseHandle(native_->process);
  native_->process = nullptr;
  *exitCode = static_cast<int>(code);
  return true;
}

long CurrentProcessId() {
  return static_cast<long>(::GetCurrentProcessId());
}

// Children get this process's environment block, which this changes.
void SetInheritedVariable(const char* name, const char* value) {
  ::SetEnvironmentVariableA(name, value);
}

}  // namespace testing
}  // namespace vxbus
