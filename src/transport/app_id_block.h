// SPDX-License-Identifier: MIT
// The block in which each side of the handshake names itself: a 4-byte
// length N, then the appID text, its end byte and zero bytes up to N.
#ifndef VXBUS_TRANSPORT_APP_ID_BLOCK_H_
#define VXBUS_TRANSPORT_APP_ID_BLOCK_H_

#include <cstdint>
#include <string>

#include "transport/transport_channel.h"

namespace vxbus {

// The largest N a reader takes, so an appID holds at most 255 characters.
constexpr std::uint32_t kMaxAppIdBlockLength = 256;

// Sends `appId` as one block with one Write; returns what Write returned, or
// -1 for a text too long to have a 32-bit length.
std::int32_t WriteAppId(ITransportChannel& channel, const std::string& appId);

// Reads one block. Empty on a short read, on N above kMaxAppIdBlockLength
// (whose bytes are then left unread), and when the text itself is empty.
std::string ReadAppId(ITransportChannel& channel);

}  // namespace vxbus

#endif  // VXBUS_TRANSPORT_APP_ID_BLOCK_H_
