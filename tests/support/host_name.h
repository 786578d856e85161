// The machine's host name, as the library puts it into an appID. For the
// test peer, which links only the library's exported interface and so
// compiles the host name's platform seam into itself.
#ifndef VXBUS_TESTS_SUPPORT_HOST_NAME_H_
#define VXBUS_TESTS_SUPPORT_HOST_NAME_H_

#include <string>

namespace vxbus {
namespace testing {

// Empty on failure. On Windows the socket library must be started, which
// VXInitialize does.
std::string HostName();

}  // namespace testing
}  // namespace vxbus

#endif  // VXBUS_TESTS_SUPPORT_HOST_NAME_H_
