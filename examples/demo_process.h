// SPDX-License-Identifier: MIT
// The little that the demo needs of the operating system beyond the library:
// a free port, and this same program started again as a second process.
#ifndef VXBUS_EXAMPLES_DEMO_PROCESS_H_
#define VXBUS_EXAMPLES_DEMO_PROCESS_H_

#include <string>
#include <vector>

namespace demo {

// A TCP port on the loopback address that nobody uses right now, or 0.
int FindFreeTcpPort();

// Starts `program` with `arguments`, sharing this terminal; -1 on failure.
long StartProcess(const std::string& program, const std::vector<std::string>& arguments);

// Waits for a started process to end: its exit status, or -1.
int WaitForProcess(long process);

}  // namespace demo

#endif  // VXBUS_EXAMPLES_DEMO_PROCESS_H_
