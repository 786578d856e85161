// Starting a second application for tests that need two processes, and
// talking to it line by line over its standard input and output.
#ifndef VXBUS_TESTS_SUPPORT_CHILD_PROCESS_H_
#define VXBUS_TESTS_SUPPORT_CHILD_PROCESS_H_

#include <chrono>
#include <string>
#include <vector>

namespace vxbus {
namespace testing {

class ChildProcess {
 public:
  // Starts `program` with `arguments`.
  ChildProcess(const std::string& program, const std::vector<std::string>& arguments);
  ~ChildProcess();  // kills the child if it still runs
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;

  bool WriteLine(const std::string& line);
  // The next line the child wrote, without its newline; false on time-out or end.
  bool ReadLine(std::string& line, std::chrono::milliseconds limit);
  void Kill();
  // Waits up to `limit` for the child to end by itself; true with its exit
  // code (or 128 + the signal that ended it) in `exitCode`.
  bool WaitForExit(std::chrono::milliseconds limit, int* exitCode);

 private:
  long pid_ = -1;
  int toChild_ = -1;
  int fromChild_ = -1;
  std::string pending_;  // bytes read past the last line handed out
};

}  // namespace testing
}  // namespace vxbus

#endif  // VXBUS_TESTS_SUPPORT_CHILD_PROCESS_H_
