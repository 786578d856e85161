// SPDX-License-Identifier: MIT
// The limits of the limits record that a channel obeys, copied into each
// channel when it is made, so that no channel reads process-wide state.
#ifndef VXBUS_TRANSPORT_CHANNEL_LIMITS_H_
#define VXBUS_TRANSPORT_CHANNEL_LIMITS_H_

#include <cstdint>

#include "vxbus.h"

namespace vxbus {

struct ChannelLimits {
  // Largest length one read accepts; a read asked for more fails at once.
  std::uint32_t maxReadSize = 1073741824;
  // Time budget of one read or write; the record's signed value as it is.
  std::int32_t ioTimeoutMs = 60000;

  static ChannelLimits From(const VXLimits& record) {
    return ChannelLimits{record.limits.MAX_READ_SIZE, record.limits.IO_TIMEOUT_MS};
  }
};

}  // namespace vxbus

#endif  // VXBUS_TRANSPORT_CHANNEL_LIMITS_H_
