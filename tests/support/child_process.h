// Starting a second application for tests that need two processes, and
// talking to it line by line over its standard input and output.
#ifndef VXBUS_TESTS_SUPPORT_CHILD_PROCESS_H_
#define VXBUS_TESTS_SUPPORT_CHILD_PROCESS_H_

#include <chrono>
#include <memory>
#include <string>
#include <vector>

namespace vxbus {
namespace testing {

class ChildProcess {
 public:
  // Starts `program` with `arguments`; `program` is looked up in PATH when
  // it names no folder. The child inherits nothing but its standard streams.
  ChildProcess(const std::string& program, const std::vector<std::string>& arguments);
  ~ChildProcess();  // kills the child if it still runs
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;

  bool WriteLine(const std::string& line);
  // The next line the child wrote, without its newline (and carriage
  // return); false on time-out or end.
  bool ReadLine(std::string& line, std::chrono::milliseconds limit);
  void Kill();
  // Waits up to `limit` for the child to end by itself; true with its exit
  // code (or 128 + the signal that ended it) in `exitCode`.
  bool WaitForExit(std::chrono::milliseconds limit, int* exitCode);

 private:
  struct Native;  // the system's handles; each platform's file defines it

  // Appends what the child wrote next to `pending_`, waiting until
  // `deadline` at most; false on time-out or end.
  bool ReadMore(std::chrono::steady_clock::time_point deadline);

  std::unique_ptr<Native> native_;
  std::string pending_;  // bytes read past the last line handed out
};

// The id of the calling process, for names that must differ between processes.
long CurrentProcessId();

// Sets `name` in this process's environment, which children started later
// inherit; a null `value` removes it.
void SetInheritedVariable(const char* name, const char* value);

}  // namespace testing
}  // namespace vxbus

#endif  // VXBUS_TESTS_SUPPORT_CHILD_PROCESS_H_
