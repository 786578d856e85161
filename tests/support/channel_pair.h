// SPDX-License-Identifier: MIT
// Two connected channel ends inside one process, for tests of what runs on
// top of a channel.
#ifndef VXBUS_TESTS_SUPPORT_CHANNEL_PAIR_H_
#define VXBUS_TESTS_SUPPORT_CHANNEL_PAIR_H_

#include <string>

#include "transport/channel_limits.h"
#include "transport/transport_channel.h"

namespace vxbus {
namespace testing {

struct ChannelPair {
  ChannelRef first;   // the connecting side
  ChannelRef second;  // the accepting side
};

// A TCP port on loopback that nothing listens on at this moment.
int FreeTcpPort();

// Over loopback TCP, both ends configured as the library configures them.
ChannelPair MakeSocketChannelPair(const ChannelLimits& limits = ChannelLimits());
// Over a pair of local pipes under a name unique to this process and call.
ChannelPair MakePipeChannelPair(const ChannelLimits& limits = ChannelLimits());

// A pipe base name that no other test process uses.
std::string UniquePipeName(const std::string& stem);

}  // namespace testing
}  // namespace vxbus

#endif  // VXBUS_TESTS_SUPPORT_CHANNEL_PAIR_H_
