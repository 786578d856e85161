// Host facts and the start and end of the socket library.
#ifndef VXBUS_PLATFORM_HOST_H_
#define VXBUS_PLATFORM_HOST_H_

#include <cstddef>

namespace vxbus {
namespace platform {

// Fills `buffer` with the machine's host name; 0 on success.
int GetHostName(char* buffer, std::size_t size);

// Needed before any socket call on some platforms; results are not looked at.
void StartSocketLibrary();
void StopSocketLibrary();

}  // namespace platform
}  // namespace vxbus

#endif  // VXBUS_PLATFORM_HOST_H_
