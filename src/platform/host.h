// Facts about the machine, and the start and end of the socket library.
#ifndef VXBUS_PLATFORM_HOST_H_
#define VXBUS_PLATFORM_HOST_H_

#include <cstddef>

namespace vxbus {
namespace platform {

// Fills `buffer` (of `size` bytes) with the machine's host name, ended by a
// zero byte; false on failure, with the buffer's content unspecified.
bool GetHostName(char* buffer, std::size_t size);

// Some systems need their socket library started before the first socket
// call and stopped after the last one; elsewhere these do nothing. Calls are
// counted by the system, so each start wants one stop. Never fails in a way
// the caller could act on.
void StartSocketLibrary();
void StopSocketLibrary();

}  // namespace platform
}  // namespace vxbus

#endif  // VXBUS_PLATFORM_HOST_H_
