// SPDX-License-Identifier: MIT
// A client of a pipe listener that opens only the "_in" half of the pair, as
// a careless or hostile one may, and never the "_out" half. What the
// listener does meanwhile is under test; the system calls are in
// half_open_pipe_<system>.cpp.
#ifndef VXBUS_TESTS_SUPPORT_HALF_OPEN_PIPE_H_
#define VXBUS_TESTS_SUPPORT_HALF_OPEN_PIPE_H_

#include <cstdint>
#include <string>

namespace vxbus {
namespace testing {

class HalfOpenPipe {
 public:
  HalfOpenPipe() = default;
  ~HalfOpenPipe() { Close(); }
  HalfOpenPipe(const HalfOpenPipe&) = delete;
  HalfOpenPipe& operator=(const HalfOpenPipe&) = delete;

  // Opens the listener's first half under `systemName`, the name as the
  // system knows it (SystemPipeName of "<base>_in"); false when nobody
  // listens on it now. Does not wait for a busy listener.
  bool Open(const std::string& systemName);
  void Close();

 private:
  std::intptr_t handle_ = -1;
};

}  // namespace testing
}  // namespace vxbus

#endif  // VXBUS_TESTS_SUPPORT_HALF_OPEN_PIPE_H_
