// SPDX-License-Identifier: MIT
// The name under which a pipe is made on this system. A name too long for
// the system is mapped, the same way on every side, onto one of the longest
// length it takes, so that long names work wherever short ones do.
#ifndef VXBUS_TRANSPORT_PIPE_NAME_H_
#define VXBUS_TRANSPORT_PIPE_NAME_H_

#include <cstddef>
#include <string>

namespace vxbus {

// `name` itself when it has at most `limit` bytes; otherwise its first bytes
// followed by "-" and the 32 hex digits of the MD5 digest of the whole name,
// `limit` bytes in all. Deterministic, so that a listener and its clients
// meet under the same name. `limit` must exceed 33.
std::string MapPipeName(const std::string& name, std::size_t limit);

// MapPipeName with the limit of this system's local pipes.
std::string SystemPipeName(const std::string& name);

}  // namespace vxbus

#endif  // VXBUS_TRANSPORT_PIPE_NAME_H_
