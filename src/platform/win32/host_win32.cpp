#include <winsock2.h>

#include "platform/host.h"

namespace vxbus {
namespace platform {

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

}  // namespace platform
}  // namespace vxbus
