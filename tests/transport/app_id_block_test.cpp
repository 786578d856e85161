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

TEST(AppIdBlock, ReadsTheLargestBlockAndRefusesALargerOneUnread) {
  MemoryChannel largest;
  largest.Feed(Block(256, std::string(256, 'n')));
  largest.Feed({0xEE});
  EXPECT_EQ(ReadAppId(largest), std::string(256, 'n'));
  EXPECT_EQ(largest.Queued(), 1u);

  MemoryChannel tooLarge;
  tooLarge.Feed(Block(257, std::string(257, 'y')));
  EXPECT_EQ(ReadAppId(tooLarge), "");
  EXPECT_EQ(tooLarge.Reads(), 1) << "only the length is read";
  EXPECT_EQ(tooLarge.Queued(), 257u);
}

TEST(AppIdBlock, EmptyLengthOrZeroFirstByteReadsEmpty) {
  MemoryChannel zeroLength;
  zeroLength.Feed(Block(0, "\xEE"));
  EXPECT_EQ(ReadAppId(zeroLength), "");
  EXPECT_EQ(zeroLength.Queued(), 1u) << "N = 0 consumes only the length";

  MemoryChannel zeroFirstByte;
  zeroFirstByte.Feed(Block(8, std::string("\0host\0\0\0", 8)));
  EXPECT_EQ(ReadAppId(zeroFirstByte), "");
  EXPECT_EQ(zeroFirstByte.Queued(), 0u) << "the whole block is consumed";
}

}  // namespace
}  // namespace vxbus
