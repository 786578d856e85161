#include <gtest/gtest.h>

#include <cstring>
#include <deque>
#include <optional>
#include <string>
#include <vector>

#include "transport/app_id_block.h"

namespace vxbus {
namespace {

using Bytes = std::vector<unsigned char>;

// A channel over two byte strings: reads take from `input` and fail with -1
// once it runs short, as a closed connection does; writes are recorded one by
// one, so the tests can see both the bytes and how many Write calls made them.
class MemoryChannel : public ITransportChannel {
 public:
  ~MemoryChannel() override = default;

  std::int32_t ReadStoppable(void* buffer, std::uint32_t length,
                             const std::atomic<bool>*) override {
    return Read(buffer, length);
  }
  std::int32_t Read(void* buffer, std::uint32_t length) override {
    ++reads;
    if (input.size() < length) {
      input.clear();
      return -1;
    }
    std::copy(input.begin(), input.begin() + length, static_cast<unsigned char*>(buffer));
    input.erase(input.begin(), input.begin() + length);
    return static_cast<std::int32_t>(length);
  }
  std::int32_t Write(const void* bytes, std::uint32_t length) override {
    const auto* p = static_cast<const unsigned char*>(bytes);
    writes.emplace_back(p, p + length);
    return writeResult.value_or(static_cast<std::int32_t>(length));
  }
  std::string GetPeerAddress() override { return "peer"; }
  std::string GetLocalAddress() override { return "local"; }
  std::int32_t WaitReadable(std::uint32_t) override { return input.empty() ? 0 : 1; }
  std::int32_t WaitReadableForever() override { return 1; }
  void Reserved() override {}

  void Feed(const Bytes& bytes) { input.insert(input.end(), bytes.begin(), bytes.end()); }

  std::deque<unsigned char> input;
  std::vector<Bytes> writes;
  std::optional<std::int32_t> writeResult;
  int reads = 0;
};

Bytes Header(std::uint32_t n) {
  return Bytes{static_cast<unsigned char>(n), static_cast<unsigned char>(n >> 8),
               static_cast<unsigned char>(n >> 16), static_cast<unsigned char>(n >> 24)};
}

Bytes Block(std::uint32_t n, const Bytes& body) {
  Bytes out = Header(n);
  out.insert(out.end(), body.begin(), body.end());
  return out;
}

Bytes Text(const std::string& s) {
  return Bytes(s.begin(), s.end());
}

// ---------------------------------------------------------------------------
// Writing
// ---------------------------------------------------------------------------

TEST(AppIdBlockWrite, ExactBytesForShortNames) {
  const std::vector<std::pair<std::string, Bytes>> cases = {
      {"", {4, 0, 0, 0, 0, 0, 0, 0}},
      {"a", {4, 0, 0, 0, 'a', 0, 0, 0}},
      {"ab", {4, 0, 0, 0, 'a', 'b', 0, 0}},
      {"abc", {4, 0, 0, 0, 'a', 'b', 'c', 0}},
      {"abcd", {8, 0, 0, 0, 'a', 'b', 'c', 'd', 0, 0, 0, 0}},
      {"abcde", {8, 0, 0, 0, 'a', 'b', 'c', 'd', 'e', 0, 0, 0}},
  };
  for (const auto& [name, expected] : cases) {
    MemoryChannel channel;
    EXPECT_EQ(WriteAppId(channel, name), static_cast<std::int32_t>(expected.size())) << name;
    ASSERT_EQ(channel.writes.size(), 1u) << "one Write per block: " << name;
    EXPECT_EQ(channel.writes[0], expected) << "'" << name << "'";
  }
}

// The longest name a reader takes fills N = 256 with exactly one end byte.
TEST(AppIdBlockWrite, LongestNameFillsTheLargestBlock) {
  const std::string name(255, 'x');
  MemoryChannel channel;
  EXPECT_EQ(WriteAppId(channel, name), 260);
  ASSERT_EQ(channel.writes.size(), 1u);
  Bytes expected = Block(256, Text(name));
  expected.push_back(0);
  EXPECT_EQ(channel.writes[0], expected);
}

TEST(AppIdBlockWrite, ReturnsWhatTheChannelReturns) {
  MemoryChannel channel;
  channel.writeResult = -1;
  EXPECT_EQ(WriteAppId(channel, "host:5000/app"), -1);
}

TEST(AppIdBlockWrite, RoundTripsThroughRead) {
  for (const std::string& name :
       std::vector<std::string>{"host:5000/app", "h:1/a", std::string(255, 'q')}) {
    MemoryChannel channel;
    WriteAppId(channel, name);
    channel.Feed(channel.writes[0]);
    EXPECT_EQ(ReadAppId(channel), name);
    EXPECT_TRUE(channel.input.empty());
  }
}

// ---------------------------------------------------------------------------
// Reading
// ---------------------------------------------------------------------------

TEST(AppIdBlockRead, TakesTheLargestBlockAndStopsAtItsEnd) {
  MemoryChannel channel;
  Bytes body = Text(std::string(255, 'n'));
  body.push_back(0);
  channel.Feed(Block(256, body));
  channel.Feed({0xEE});  // the next thing on the stream stays there
  EXPECT_EQ(ReadAppId(channel), std::string(255, 'n'));
  ASSERT_EQ(channel.input.size(), 1u);
  EXPECT_EQ(channel.input.front(), 0xEE);
}

TEST(AppIdBlockRead, BlockWithoutEndByteEndsAtTheBlock) {
  MemoryChannel channel;
  channel.Feed(Block(256, Text(std::string(256, 'z'))));
  channel.Feed(Text("tail"));
  EXPECT_EQ(ReadAppId(channel), std::string(256, 'z'));
  EXPECT_EQ(channel.input.size(), 4u);

  MemoryChannel odd;
  odd.Feed(Block(5, Text("abcde")));
  EXPECT_EQ(ReadAppId(odd), "abcde");
}

TEST(AppIdBlockRead, OversizedBlockIsRefusedAndLeftUnread) {
  MemoryChannel channel;
  Bytes body(257, 'y');
  channel.Feed(Block(257, body));
  EXPECT_EQ(ReadAppId(channel), "");
  EXPECT_EQ(channel.reads, 1) << "only the length is read";
  EXPECT_EQ(channel.input.size(), 257u);

  MemoryChannel huge;
  huge.Feed(Header(0xFFFFFFFFu));
  EXPECT_EQ(ReadAppId(huge), "");
  EXPECT_EQ(huge.reads, 1);
}

TEST(AppIdBlockRead, EmptyNamesReadAsEmpty) {
  MemoryChannel zeroLength;
  zeroLength.Feed(Header(0));
  zeroLength.Feed({0xEE});
  EXPECT_EQ(ReadAppId(zeroLength), "");
  EXPECT_EQ(zeroLength.input.size(), 1u) << "N = 0 consumes only the length";

  MemoryChannel zeroFirstByte;
  zeroFirstByte.Feed(Block(8, {0, 'h', 'o', 's', 't', 0, 0, 0}));
  EXPECT_EQ(ReadAppId(zeroFirstByte), "");
  EXPECT_TRUE(zeroFirstByte.input.empty()) << "the whole block is consumed";
}

TEST(AppIdBlockRead, TextEndsAtTheFirstZeroByte) {
  MemoryChannel channel;
  channel.Feed(Block(8, {'a', 'b', 0, 'c', 'd', 0, 0, 0}));
  EXPECT_EQ(ReadAppId(channel), "ab");
  EXPECT_TRUE(channel.input.empty());
}

TEST(AppIdBlockRead, ShortReadsGiveEmpty) {
  MemoryChannel noBytes;
  EXPECT_EQ(ReadAppId(noBytes), "");

  MemoryChannel shortLength;
  shortLength.Feed({8, 0, 0});
  EXPECT_EQ(ReadAppId(shortLength), "");

  MemoryChannel shortBody;
  shortBody.Feed(Block(8, Text("host:")));
  EXPECT_EQ(ReadAppId(shortBody), "");
}

// Two blocks in a row, as the peer's first and second naming arrive.
TEST(AppIdBlockRead, ConsecutiveBlocksAreReadOneByOne) {
  MemoryChannel channel;
  WriteAppId(channel, "first:1/a");
  WriteAppId(channel, "second:2/b");
  for (const Bytes& block : channel.writes)
    channel.Feed(block);
  EXPECT_EQ(ReadAppId(channel), "first:1/a");
  EXPECT_EQ(ReadAppId(channel), "second:2/b");
  EXPECT_EQ(ReadAppId(channel), "");
}

}  // namespace
}  // namespace vxbus
