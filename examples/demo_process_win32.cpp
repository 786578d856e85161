// SPDX-License-Identifier: MIT
#include <winsock2.h>

#include <map>
#include <mutex>

#include "demo_process.h"

namespace demo {
namespace {

// Started processes by id; the handle keeps the id from being reused until
// WaitForProcess has seen the end.
std::mutex startedMutex;
std::map<long, HANDLE> started;

std::string Quote(const std::string& argument) {
  if (!argument.empty() && argument.find_first_of(" \t\"") == std::string::npos) return argument;
  std::string quoted = "\"";
  for (char c : argument) {
    if (c == '"') quoted += '\\';
    quoted += c;
  }
  return quoted + "\"";
}

}  // namespace

int FindFreeTcpPort() {
  WSADATA data;
  if (WSAStartup(MAKEWORD(2, 2), &data) != 0) return 0;
  SOCKET probe = socket(AF_INET, SOCK_STREAM, 0);
  int port = 0;
  if (probe != INVALID_SOCKET) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    int length = sizeof address;
    if (bind(probe, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0 &&
        getsockname(probe, reinterpret_cast<sockaddr*>(&address), &length) == 0)
      port = ntohs(address.sin_port);
    closesocket(probe);
  }
  WSACleanup();
  return port;
}

long StartProcess(const std::string& program, const std::vector<std::string>& arguments) {
  std::string commandLine = Quote(program);
  for (const std::string& argument : arguments)
    commandLine += " " + Quote(argument);
  STARTUPINFOA startup{};
  startup.cb = sizeof startup;
  PROCESS_INFORMATION info{};
  if (!CreateProcessA(nullptr, &commandLine[0], nullptr, nullptr, FALSE, 0, nullptr, nullptr,
                      &startup, &info))
    return -1;
  CloseHandle(info.hThread);
  std::lock_guard<std::mutex> lock(startedMutex);
  started[static_cast<long>(info.dwProcessId)] = info.hProcess;
  return static_cast<long>(info.dwProcessId);
}

int WaitForProcess(long process) {
  HANDLE handle = nullptr;
  {
    std::lock_guard<std::mutex> lock(startedMutex);
    auto found = started.find(process);
    if (found == started.end()) return -1;
    handle = found->second;
    started.erase(found);
  }
  DWORD status = 0;
  bool ended =
      WaitForSingleObject(handle, INFINITE) == WAIT_OBJECT_0 && GetExitCodeProcess(handle, &status);
  CloseHandle(handle);
  return ended ? static_cast<int>(status) : -1;
}

}  // namespace demo
