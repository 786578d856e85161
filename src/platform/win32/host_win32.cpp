// SPDX-License-Identifier: MIT
#include <winsock2.h>

#include "platform/host.h"

namespace vxbus {
namespace platform {

bool ReadEnvironmentVariable(const char* name, std::string* value) {
  char text[256];
  const DWORD length = ::GetEnvironmentVariableA(name, text, sizeof text);
  if (length == 0 || length >= sizeof text) return false;  // unset, or too long to be a setting
  value->assign(text, length);
  return true;
}

// gethostname is a Winsock call: it fails unless the socket library runs.
bool GetHostName(char* buffer, std::size_t size) {
  return ::gethostname(buffer, static_cast<int>(size)) == 0;
}

void StartSocketLibrary() {
  WSADATA data;
  ::WSAStartup(MAKEWORD(1, 1), &data);
}

void StopSocketLibrary() {
  ::WSACleanup();
}

// Windows sets no per-process limit on sockets that a program could reach
// here; the number only has to be large.
std::size_t OpenHandleLimit() {
  return 1u << 20;
}

}  // namespace platform
}  // namespace vxbus
