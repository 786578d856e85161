#include <unistd.h>

#include "support/host_name.h"

namespace vxbus {
namespace testing {

std::string HostName() {
  char host[1024] = {};
  return gethostname(host, sizeof host) == 0 ? host : "";
}

}  // namespace testing
}  // namespace vxbus
