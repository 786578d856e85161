#include <gtest/gtest.h>

#include <cstring>

#include <string>
#include <vector>

#include "support/memory_channel.h"
#include "transport/app_id_block.h"

namespace vxbus {
namespace {

using testing::MemoryChannel;
using Bytes = MemoryChannel::Bytes;

Bytes Block(std::uint32_t n, const std::string& body) {
  Bytes out(4 + body.size());
  std::memcpy(out.data(), &n, 4);
  std::memcpy(out.data() + 4, body.data(), body.size());
  return out;
}

// The text, its end byte and zero bytes up to a multiple of 4; read back whole.
TEST(AppIdBlock, WritesExactBytesThatReadBack) {
  const std::string longest(255, 'x');
  const std::vector<std::pair<std::string, Bytes>> cases = {
      {"", Block(4, std::string(4, '\0'))},
      {"abc", Block(4, std::string("abc\0", 4))},
      {"abcd", Block(8, std::string("abcd\0\0\0\0", 8))},
      {longest, Block(256, longest + '\0')},
  };
  for (const auto& [name, expected] : cases) {
    MemoryChannel channel;
    EXPECT_EQ(WriteAppId(channel, name), static_cast<std::int32_t>(expected.size()));
    EXPECT_EQ(channel.Written(), expected) << name;
    EXPECT_EQ(ReadAppId(channel), name);
    EXPECT_EQ(channel.Queued(), 0u);
  }
}

// What a read leaves queued shows how far it went.
TEST(AppIdBlock, ReadsTheLargestBlockAndStopsEarlyOnTheOthers) {
  const struct {
    const char* what;
    Bytes fed;
    std::string name;
    std::size_t left;
  } cases[] = {
      {"the largest block", Block(256, std::string(256, 'n') + '\xEE'), std::string(256, 'n'), 1},
      {"a larger one: only its length is read", Block(257, std::string(257, 'y')), "", 257},
      {"N = 0: only the length is read", Block(0, "\xEE"), "", 1},
      {"a zero first byte: the whole block is read", Block(8, std::string("\0host\0\0\0", 8)), "",
       0},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    MemoryChannel channel;
    channel.Feed(c.fed);
    EXPECT_EQ(ReadAppId(channel), c.name);
    EXPECT_EQ(channel.Queued(), c.left);
  }
}

}  // namespace
}  // namespace vxbus
