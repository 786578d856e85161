// SPDX-License-Identifier: MIT
// The "_in" half as the Win32 listener takes it: the client end of the named
// pipe, opened for writing.
#include <windows.h>

#include "support/half_open_pipe.h"

namespace vxbus {
namespace testing {

bool HalfOpenPipe::Open(const std::string& systemName) {
  Close();
  const std::string path = "\\\\.\\pipe\\" + systemName;
  HANDLE pipe = ::CreateFileA(path.c_str(), GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr);
  if (pipe == INVALID_HANDLE_VALUE) return false;
  handle_ = reinterpret_cast<std::intptr_t>(pipe);
  return true;
}

void HalfOpenPipe::Close() {
  if (handle_ != -1) ::CloseHandle(reinterpret_cast<HANDLE>(handle_));
  handle_ = -1;
}

}  // namespace testing
}  // namespace vxbus
