// SPDX-License-Identifier: MIT
#include "transport/app_id_block.h"

#include <cstring>
#include <limits>

#include "runtime/little_endian.h"
#include "runtime/memory_buffer.h"

namespace vxbus {

std::int32_t WriteAppId(ITransportChannel& channel, const std::string& appId) {
  const std::size_t textLength = appId.size();
  if (textLength > std::numeric_limits<std::uint32_t>::max() - 4) return -1;

  // The text and its end byte, rounded up to a multiple of 4.
  const std::uint32_t n = (static_cast<std::uint32_t>(textLength) + 4) & ~std::uint32_t{3};
  VXMemoryBufferTpl<4 + kMaxAppIdBlockLength> block;
  // A name longer than any a peer may send still goes out; its block comes
  // from the heap, which may refuse it.
  if (!block.Resize(std::uint64_t{4} + n)) return -1;
  Store32(block.data, n);
  std::memset(block.data + 4, 0, n);
  if (textLength != 0) std::memcpy(block.data + 4, appId.data(), textLength);
  return channel.Write(block.data, static_cast<std::uint32_t>(block.used));
}

std::string ReadAppId(ITransportChannel& channel) {
  std::uint32_t n = 0;
  if (channel.Read(&n, 4) != 4) return std::string();
  // The block's bytes stay in the stream: the caller drops the connection.
  if (n > kMaxAppIdBlockLength) return std::string();

  char text[kMaxAppIdBlockLength];
  if (channel.Read(text, n) != static_cast<std::int32_t>(n)) return std::string();
  // A block without an end byte ends at its own end, never beyond.
  const void* end = std::memchr(text, 0, n);
  const std::size_t length = end ? static_cast<const char*>(end) - text : n;
  return std::string(text, length);
}

}  // namespace vxbus
