// SPDX-License-Identifier: MIT
#include "secret_file.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>

namespace vxctl {

bool ReadSecretFile(const std::string& path, std::string& secret, bool& othersMayRead,
                    std::string& error) {
  secret.clear();
  // Without O_NONBLOCK, opening a FIFO waits for a writer that may never come.
  const int fd = open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
  if (fd < 0) {
    error = "cannot open the secret file '" + path + "': " + std::strerror(errno);
    return false;
  }
  struct stat status = {};
  bool ok = fstat(fd, &status) == 0;
  if (!ok || !S_ISREG(status.st_mode)) {
    error = "the secret file '" + path + "' is not a regular file";
    close(fd);
    return false;
  }
  othersMayRead = (status.st_mode & (S_IRGRP | S_IROTH)) != 0;
  char buffer[kMaxSecretSize + 2];
  std::size_t got = 0;
  while (ok && got < sizeof buffer) {
    const ssize_t n = read(fd, buffer + got, sizeof buffer - got);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) {
      ok = n == 0;
      break;
    }
    got += static_cast<std::size_t>(n);
  }
  close(fd);
  if (!ok) {
    error = "cannot read the secret file '" + path + "'";
    return false;
  }
  if (got > kMaxSecretSize + 1) {
    error = "the secret is longer than 256 bytes";
    return false;
  }
  secret.assign(buffer, got);
  return true;
}

}  // namespace vxctl
