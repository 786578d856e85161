// SPDX-License-Identifier: MIT
// Reading a whole file, or standard input, that may be endless (/dev/zero, a
// pipe that never closes) or far larger than anything a peer would take.
#ifndef VXCTL_READ_ALL_H_
#define VXCTL_READ_ALL_H_

#include <cstddef>
#include <string>

namespace vxctl {

// The limits record's default for MAX_READ_SIZE: no peer with default limits
// reads a larger list image, so vxctl reads no larger input by default.
constexpr std::size_t kDefaultMaxReadSize = 1073741824;

// All of `path`, or of standard input for "-", into `out`. Refuses more than
// `limit` bytes: a regular file by its size before any of it is read, a
// stream once it passes the limit, so at most `limit` bytes are ever held.
// False with "cannot open 'PATH'" or "'PATH' is larger than N bytes" in
// `error`. Blocks for as long as the stream does.
bool ReadAll(const std::string& path, std::size_t limit, std::string& out, std::string& error);

}  // namespace vxctl

#endif  // VXCTL_READ_ALL_H_
