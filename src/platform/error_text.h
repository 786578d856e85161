// SPDX-License-Identifier: MIT
// The system's own words for one of its error codes, for log lines only.
#ifndef VXBUS_PLATFORM_ERROR_TEXT_H_
#define VXBUS_PLATFORM_ERROR_TEXT_H_

#include <string>

namespace vxbus {
namespace platform {

// The text the system gives for `code` (an errno value, or a Win32 or
// Winsock error), without a trailing full stop or line end; empty when the
// system has none. Safe from any thread; never blocks.
std::string SystemErrorText(int code);

}  // namespace platform
}  // namespace vxbus

#endif  // VXBUS_PLATFORM_ERROR_TEXT_H_
