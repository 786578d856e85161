// SPDX-License-Identifier: MIT
// Facts about the machine, and the start and end of the socket library.
#ifndef VXBUS_PLATFORM_HOST_H_
#define VXBUS_PLATFORM_HOST_H_

#include <cstddef>
#include <string>

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

// How many handles (descriptors, sockets) this process may hold open at
// once, as the system limits it now; a large number where the system sets
// no practical limit. For sizing what a peer may make the process hold.
std::size_t OpenHandleLimit();

// Copies the value of the environment variable `name` into `value`; false,
// with `value` untouched, when it is not set. For settings read at start.
bool ReadEnvironmentVariable(const char* name, std::string* value);

}  // namespace platform
}  // namespace vxbus

#endif  // VXBUS_PLATFORM_HOST_H_
