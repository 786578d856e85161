// SPDX-License-Identifier: MIT
// Names that a peer chose (appIDs from the handshake) as they go into a log
// line: a peer must not be able to end the line or forge one of its own.
#ifndef VXBUS_RUNTIME_PRINTABLE_NAME_H_
#define VXBUS_RUNTIME_PRINTABLE_NAME_H_

#include <string>

namespace vxbus {

// `name` with every control byte (0x00 to 0x1F and 0x7F) written as "\x"
// and two lower-case hex digits, for example a line feed as "\x0a". Every
// other byte, the backslash included, stays as it is, so a name without
// control bytes comes back unchanged. Never fails; allocates the copy.
std::string PrintableName(const std::string& name);

}  // namespace vxbus

#endif  // VXBUS_RUNTIME_PRINTABLE_NAME_H_
