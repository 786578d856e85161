// The Win32 twin: CreateProcess with the child's standard streams on two
// anonymous pipes. Anonymous pipes cannot be waited on with a bound, so a
// thread of the parent reads the child's output as it comes, and ReadMore
// waits for that thread.
#include <windows.h>

#include <condition_variable>
#include <mutex>
#include <thread>

#include "support/child_process.h"

namespace vxbus {
namespace testing {

struct ChildProcess::Native {
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

// Makes a copy of `handle` that a child may inherit.
HANDLE Inheritable(HANDLE handle) {
  HANDLE copy = nullptr;
  ::DuplicateHandle(::GetCurrentProcess(), handle, ::GetCurrentProcess(), &copy, 0, TRUE,
                    DUPLICATE_SAME_ACCESS);
  return copy;
}

// Children are started one at a time, so that none inherits the pipes that
// were made for another.
std::mutex spawnMutex;

}  // namespace

ChildProcess::ChildProcess(const std::string& program, const std::vector<std::string>& arguments)
    : native_(std::make_unique<Native>()) {
  HANDLE childIn = nullptr, childOut = nullptr;
  if (!::CreatePipe(&childIn, &native_->toChild, nullptr, 0)) return;
  if (!::CreatePipe(&native_->fromChild, &childOut, nullptr, 0)) {
    ::CloseHandle(childIn);
    return;
  }
  std::string commandLine = Quote(program);
  for (const auto& argument : arguments)
    commandLine += " " + Quote(argument);
  {
    std::lock_guard<std::mutex> lock(spawnMutex);
    STARTUPINFOA startup{};
    startup.cb = sizeof startup;
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdInput = Inheritable(childIn);
    startup.hStdOutput = Inheritable(childOut);
    startup.hStdError = ::GetStdHandle(STD_ERROR_HANDLE);
    PROCESS_INFORMATION info{};
    if (::CreateProcessA(nullptr, &commandLine[0], nullptr, nullptr, TRUE, 0, nullptr, nullptr,
                         &startup, &info)) {
      native_->process = info.hProcess;
      ::CloseHandle(info.hThread);
    }
    ::CloseHandle(startup.hStdInput);
    ::CloseHandle(startup.hStdOutput);
  }
  ::CloseHandle(childIn);
  ::CloseHandle(childOut);  // so that the reader sees the end when the child ends
  native_->reader = std::thread([native = native_.get()] { native->Read(); });
}

ChildProcess::~ChildProcess() {
  Kill();
  if (native_->toChild != nullptr) ::CloseHandle(native_->toChild);
  if (native_->reader.joinable()) native_->reader.join();
  if (native_->fromChild != nullptr) ::CloseHandle(native_->fromChild);
}

bool ChildProcess::WriteLine(const std::string& line) {
  std::string text = line + "\n";
  DWORD written = 0;
  return ::WriteFile(native_->toChild, text.data(), static_cast<DWORD>(text.size()), &written,
                     nullptr) &&
         written == text.size();
}

bool ChildProcess::ReadMore(std::chrono::steady_clock::time_point deadline) {
  std::unique_lock<std::mutex> lock(native_->mutex);
  native_->arrived.wait_until(lock, deadline,
                              [this] { return !native_->received.empty() || native_->ended; });
  if (native_->received.empty()) return false;
  pending_ += native_->received;
  native_->received.clear();
  return true;
}

void ChildProcess::Kill() {
  if (native_->process == nullptr) return;
  ::TerminateProcess(native_->process, 1);
  ::WaitForSingleObject(native_->process, INFINITE);
  ::CloseHandle(native_->process);
  native_->process = nullptr;
}

bool ChildProcess::WaitForExit(std::chrono::milliseconds limit, int* exitCode) {
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

// CreateProcess hands children this block, which SetEnvironmentVariableA
// changes.
void SetInheritedVariable(const char* name, const char* value) {
  ::SetEnvironmentVariableA(name, value);
}

}  // namespace testing
}  // namespace vxbus
