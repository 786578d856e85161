#include <unistd.h>

#include "platform/host.h"

namespace vxbus {
namespace platform {

bool GetHostName(char* buffer, std::size_t size) {
  return ::gethostname(buffer, size) == 0;
}

// POSIX sockets need no library start.
void StartSocketLibrary() {}
void StopSocketLibrary() {}

}  // namespace platform
}  // namespace vxbus
