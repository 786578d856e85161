// SPDX-License-Identifier: MIT
// The file that --secret-file names. Only a regular file is read: a FIFO
// with no writer would block for ever, and a device has no end.
#ifndef VXCTL_SECRET_FILE_H_
#define VXCTL_SECRET_FILE_H_

#include <string>

namespace vxctl {

// The longest secret the library takes; a file one byte longer may still end
// in the newline that is dropped.
constexpr std::size_t kMaxSecretSize = 256;

// Reads all of `path` into `secret`, refusing more than kMaxSecretSize + 1
// bytes. `othersMayRead` tells whether its group or other users have read
// permission. Never blocks on opening: what is not a regular file is refused.
// False with the reason in `error`.
bool ReadSecretFile(const std::string& path, std::string& secret, bool& othersMayRead,
                    std::string& error);

}  // namespace vxctl

#endif  // VXCTL_SECRET_FILE_H_
