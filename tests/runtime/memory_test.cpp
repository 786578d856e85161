#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "runtime/memory_buffer.h"
#include "runtime/name_key.h"
#include "vxbus.h"

namespace vxbus {
namespace {

TEST(PrivateHeap, NullPointersAreHandled) {
  VXFree(nullptr);
  void* p = VXRealloc(nullptr, 16);
  ASSERT_NE(p, nullptr);
  std::memset(p, 0xAB, 16);
  p = VXRealloc(p, 4096);
  ASSERT_NE(p, nullptr);
  EXPECT_EQ(static_cast<unsigned char*>(p)[15], 0xAB);
  VXFree(p);
}

TEST(MemoryBuffer, StaysInlineUpToItsSizeThenGrowsWithSlack) {
  VXMemoryBufferTpl<128> buffer;
  unsigned char bytes[129] = {};
  buffer.AppendPadded(bytes, 128);
  EXPECT_TRUE(buffer.IsInline());
  EXPECT_EQ(buffer.capacity, 128u);
  buffer.EnsureRoom(1);
  EXPECT_FALSE(buffer.IsInline());
  EXPECT_EQ(buffer.capacity, 129u + 128u);
}

TEST(MemoryBuffer, PaddedAppendZeroFillsAndCheckedAccessThrows) {
  VXMemoryBufferTpl<16> buffer;
  buffer.AppendPadded("abcde", 5);
  ASSERT_EQ(buffer.used, 8u);
  EXPECT_EQ(std::memcmp(buffer.data, "abcde\0\0\0", 8), 0);
  buffer.Append32(0x01020304);
  buffer.Append64(0x1122334455667788ull);
  EXPECT_EQ(buffer.used, 20u);
  EXPECT_EQ(buffer.Read32(8), 0x01020304u);
  EXPECT_THROW(buffer.At(20), NoDataExeption);
  EXPECT_THROW(buffer.Read32(17), NoDataExeption);
}

TEST(NameKey, ShortNamesStayInlineLongOnesSpill) {
  VXNameKey inlineKey(std::string(252, 'a'));  // 253 with NUL, 256 padded
  EXPECT_TRUE(inlineKey.owned.IsInline());
  EXPECT_EQ(inlineKey.name, nullptr);
  VXNameKey spilled(std::string(256, 'a'));  // 257 with NUL, 260 padded
  EXPECT_FALSE(spilled.owned.IsInline());
  EXPECT_EQ(spilled.owned.capacity, 516u);
  VXNameKey empty(std::string{});
  EXPECT_EQ(empty.owned.used, 4u);
  EXPECT_STREQ(empty.Text(), "");
}

TEST(NameKey, OrdersBytewiseAndCaseSensitively) {
  VXNameKey upper("Beta"), lower(std::string("beta"));
  EXPECT_TRUE(upper < lower);
  EXPECT_FALSE(lower < upper);
  VXNameKey borrowed("same"), owned(std::string("same"));
  EXPECT_FALSE(borrowed < owned);
  EXPECT_FALSE(owned < borrowed);
  VXNameKey shorter("ab"), longer("abc");
  EXPECT_TRUE(shorter < longer);
  VXNameKey high("\xff"), low("a");
  EXPECT_TRUE(low < high);  // unsigned bytes
}

}  // namespace
}  // namespace vxbus
