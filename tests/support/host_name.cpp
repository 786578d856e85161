#include "support/host_name.h"

#include "platform/host.h"

namespace vxbus {
namespace testing {

std::string HostName() {
  char host[1024] = {};
  return platform::GetHostName(host, sizeof host) ? host : "";
}

}  // namespace testing
}  // namespace vxbus
