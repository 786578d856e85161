// SPDX-License-Identifier: MIT
// The byte image of every stored type, its growth, and the exported getters
// whose odd answers applications depend on.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "list_test_support.h"
#include "runtime/private_heap.h"

namespace vxbus {
namespace {

using testing::HexPattern;
using testing::ImageHex;
using testing::ScopedList;

class ListImageTest : public testing::LeakCheckedTest {};

const unsigned char kBytes[] = {0xaa, 0xbb, 1, 2, 3, 4, 5};
const char* const kTexts[] = {"ab", nullptr, "xyz1"};
const std::uint32_t kDwords[] = {1, 2};
const std::uint64_t kQwords[] = {0x0102030405060708ull};
const _tag_BINARYITEM kItems[] = {{2, kBytes}, {0, nullptr}, {5, kBytes + 2}};
const void* const kItemData[] = {kBytes, nullptr, kBytes + 2};
const std::uint32_t kItemLengths[] = {2, 0, 5};

TEST_F(ListImageTest, EveryTypeHasItsExactBytes) {
  using H = HVXPARAMLIST;
  const char* const binaryArray =
      "03 61 00 85 | 03 00 00 00 | 00 00 00 00 08 00 00 00 0c 00 00 00"
      "| 02 00 00 00 aa bb 00 00 | 00 00 00 00 | 05 00 00 00 01 02 03 04 05 00 00 00";
  const struct {
    void (*set)(H list, H child);
    const char* image;
  } cases[] = {
      {[](H l, H) { VXSetStringValue(l, "a", "hi"); }, "03 61 00 01 | 68 69 00 00"},
      {[](H l, H) { VXSetStringValue(l, "a", nullptr); }, "03 61 00 01 | 00 00 00 00"},
      {[](H l, H) { VXSetStringValue(l, "a", "xyz"); }, "03 61 00 01 | 78 79 7a 00"},
      {[](H l, H) { VXSetInt32Value(l, "a", 0x11223344u); }, "03 61 00 02 | 44 33 22 11"},
      {[](H l, H) { VXSetInt64Value(l, "a", 0x1122334455667788ull); },
       "03 61 00 03 | 88 77 66 55 44 33 22 11"},
      {[](H l, H) { VXSetBinaryValue(l, "a", kBytes + 2, 3); },
       "03 61 00 05 | 03 00 00 00 | 01 02 03 00"},
      {[](H l, H) { VXSetBinaryValue(l, "a", nullptr, 0); }, "03 61 00 05 | 00 00 00 00"},
      {[](H l, H c) {
         VXSetHandleValue(l, "a", c);
         VXSetHandleValue(l, "n", VX_INVALID_PARAMLIST);
       },
       "03 61 00 04 | 00 00 00 00 | 03 6e 00 04 | ff ff ff ff"},
      {[](H l, H) { VXSetStringArray(l, "a", 3, kTexts); },  // offsets count from the texts
       "03 61 00 81 | 03 00 00 00 | 00 00 00 00 04 00 00 00 08 00 00 00"
       "| 61 62 00 00 | 00 00 00 00 | 78 79 7a 31 00 00 00 00"},
      {[](H l, H) { VXSetInt32Array(l, "a", 2, kDwords); },
       "03 61 00 82 | 02 00 00 00 | 01 00 00 00 02 00 00 00"},
      {[](H l, H) { VXSetInt64Array(l, "a", 1, kQwords); },
       "03 61 00 83 | 01 00 00 00 | 08 07 06 05 04 03 02 01"},
      {[](H l, H c) {
         const H lists[] = {c, VX_INVALID_PARAMLIST, c};
         VXSetHandleArray(l, "a", 3, lists);
       },
       "03 61 00 84 | 03 00 00 00 | 00 00 00 00 ff ff ff ff 01 00 00 00"},
      {[](H l, H) { VXSetBinaryItemArray(l, "a", 3, kItems); }, binaryArray},
      {[](H l, H) { VXSetBinaryArray(l, "a", 3, kItemData, kItemLengths); }, binaryArray},
      {[](H l, H) {
         VXSetStringArray(l, "s", 0, nullptr);
         VXSetInt32Array(l, "i", 0, nullptr);
         VXSetInt64Array(l, "q", 0, nullptr);
         VXSetHandleArray(l, "h", 0, nullptr);
         VXSetBinaryItemArray(l, "b", 0, nullptr);
       },
       "03 73 00 81 00 00 00 00 | 03 69 00 82 00 00 00 00 | 03 71 00 83 00 00 00 00"
       "| 03 68 00 84 00 00 00 00 | 03 62 00 85 00 00 00 00"},
      {[](H l, H) {  // the header length follows the name length
         VXSetInt32Value(l, "", 1);
         VXSetInt32Value(l, "a", 2);
         VXSetInt32Value(l, "ab", 3);
       },
       "03 00 00 02 01 00 00 00 | 03 61 00 02 02 00 00 00 | 07 61 62 00 00 00 00 02 03 00 00 00"},
      {[](H l, H) {  // setting a name again moves it to the end
         VXSetInt32Value(l, "a", 1);
         VXSetInt32Value(l, "b", 2);
         VXSetStringValue(l, "a", "hi");
       },
       "03 62 00 02 02 00 00 00 | 03 61 00 01 68 69 00 00"},
  };
  for (const auto& c : cases) {
    ScopedList list, child;
    // The pads must come out zero over whatever the allocation held, so that
    // no process memory goes out with a list.
    const std::string dirt(256, '\xee');
    VXSetBinaryValue(list, "dirt", dirt.data(), static_cast<std::uint32_t>(dirt.size()));
    list->Clear();
    c.set(list, child);
    EXPECT_EQ(ImageHex(list), HexPattern(c.image));
  }
}

// Arguments that point into the list being set, a getter's result or a
// record's own name, are read as they were before the Set began.
TEST_F(ListImageTest, SettersReadArgumentsThatPointIntoTheSameList) {
  ScopedList list;
  VXSetStringValue(list, "a", "first text");
  VXSetBinaryValue(list, "b", kBytes, 7);
  VXSetInt32Array(list, "c", 2, kDwords);
  VXSetStringArray(list, "d", 3, kTexts);
  VXSetInt64Value(list, "zz", 9);

  EXPECT_EQ(VXSetStringValue(list, "a", VXGetStringValue(list, "a")), VX_SUCCESS);
  EXPECT_STREQ(VXGetStringValue(list, "a"), "first text");

  const _tag_BINARYVALUE* b = VXGetBinaryValue(list, "b");
  VXSetBinaryValue(list, "b", b->data, b->length);
  b = VXGetBinaryValue(list, "b");
  ASSERT_EQ(b->length, 7u);
  EXPECT_EQ(std::memcmp(b->data, kBytes, 7), 0);

  const _tag_VXDWORDARRAY c = VXGetInt32Array(list, "c");
  VXSetInt32Array(list, "c", c.count, c.data);
  const _tag_VXDWORDARRAY c2 = VXGetInt32Array(list, "c");
  ASSERT_EQ(c2.count, 2u);
  EXPECT_EQ(c2.data[1], 2u);

  const char* texts[3] = {};
  ASSERT_EQ(VXGetStringArray(list, "d", texts, 3, 0), 3u);
  VXSetStringArray(list, "d", 3, texts);
  ASSERT_EQ(VXGetStringArray(list, "d", texts, 3, 0), 3u);
  EXPECT_STREQ(texts[0], "ab");
  EXPECT_STREQ(texts[2], "xyz1");

  // The first record's own name, with records behind it that the removal moves.
  const _tag_VXPARAMINFO* first = VXGetFirstParam(list);
  ASSERT_STREQ(first->name, "zz");
  VXSetInt32Value(list, first->name, 5);
  EXPECT_EQ(VXGetInt32Value(list, "zz"), 5u);
  EXPECT_EQ(VXGetParamCount(list), 5u);
  EXPECT_STREQ(VXGetStringValue(list, "a"), "first text");
  EXPECT_EQ(VXGetInt32Value(list, "a"), 0u);  // another type answers as missing
}

// The image grows from a small block into large ones, one record at a time;
// each new record is first set from the one before, read out of the image
// that the set moves.
TEST_F(ListImageTest, GrowthKeepsEveryRecord) {
  ScopedList list;
  auto get = [&list](int i) { return VXGetStringValue(list, ("k" + std::to_string(i)).c_str()); };
  std::vector<std::string> values = {"seed"};
  VXSetStringValue(list, "k0", "seed");
  for (int i = 1; i < 60; ++i) {
    const std::string name = "k" + std::to_string(i);
    const std::uint32_t size = VXGetHandleSize(list);
    ASSERT_EQ(VXSetStringValue(list, name.c_str(), get(i - 1)), VX_SUCCESS);
    ASSERT_STREQ(get(i), values.back().c_str());
    values.push_back(values.back() + "-" + std::to_string(i));
    ASSERT_EQ(VXSetStringValue(list, name.c_str(), values.back().c_str()), VX_SUCCESS);
    EXPECT_GT(VXGetHandleSize(list), size);
    for (int j = 0; j <= i; ++j)
      ASSERT_STREQ(get(j), values[j].c_str()) << "after " << i << " records";
  }
}

// Guards the checked growth of the image: a setter that the heap refuses the
// room fails, and the list stays as it was, its old value of that name kept.
TEST_F(ListImageTest, ASetterRefusedTheRoomToGrowLeavesTheListAsItWas) {
  ScopedList list;
  const std::vector<unsigned char> bytes(2u << 20, 0x5a);  // images this large skip the pool
  ASSERT_EQ(VXSetBinaryValue(list, "big", bytes.data(), 1u << 20), VX_SUCCESS);
  ASSERT_EQ(VXSetInt32Value(list, "n", 7), VX_SUCCESS);
  const std::string before = ImageHex(list);
  RefusePrivateBlocksFrom(3u << 19);  // 1.5 MiB
  EXPECT_EQ(VXSetBinaryValue(list, "big", bytes.data(), 2u << 20), VX_ERROR_FAILED);
  EXPECT_EQ(VXSetBinaryValue(list, "more", bytes.data(), 1u << 20), VX_ERROR_FAILED);
  const bool unchanged = ImageHex(list) == before;
  EXPECT_EQ(VXSetInt32Value(list, "n", 8), VX_SUCCESS);  // room that is granted still serves
  RefusePrivateBlocksFrom(0);
  EXPECT_TRUE(unchanged);
  EXPECT_EQ(VXGetParamCount(list), 2u);
  EXPECT_EQ(VXGetInt32Value(list, "n"), 8u);
  EXPECT_EQ(VXGetBinaryValue(list, "big")->length, 1u << 20);
}

TEST_F(ListImageTest, TheLongestNameFillsTheHeader) {
  ScopedList longest;
  const std::string name(253, 'n');
  VXSetInt32Value(longest, name.c_str(), 9);
  ASSERT_EQ(longest->Used(), 256u + 4u);
  const unsigned char* d = longest->Data();
  EXPECT_EQ(d[0], 255);
  EXPECT_EQ(d[254], 0);  // the one zero byte that ends the name
  EXPECT_EQ(d[255], PT_INT32);
  EXPECT_EQ(VXGetInt32Value(longest, name.c_str()), 9u);
}

// Kept as applications know them: the 64-bit array getter answers for the
// 32-bit array only, and VXParamByIndex gives the second record whatever the
// index.
TEST_F(ListImageTest, TheGettersKeepTheirQuirks) {
  ScopedList l;
  const std::uint64_t qwords[] = {1, 2};
  const std::uint32_t dwords[] = {7, 8, 9};
  VXSetInt64Array(l, "q", 2, qwords);
  EXPECT_EQ(VXParamByIndex(l, 0), nullptr);  // a single record
  VXSetInt32Array(l, "d", 3, dwords);
  VXSetInt32Value(l, "third", 3);
  _tag_VXQWORDARRAY fromQwords = VXGetInt64Array(l, "q");
  _tag_VXQWORDARRAY fromDwords = VXGetInt64Array(l, "d");
  const void* dwordData = VXGetInt32Array(l, "d").data;
  const void* dwordsAsQwords = fromDwords.data;  // copied out of the packed struct
  EXPECT_EQ(std::uint32_t{fromQwords.count}, 0u);
  EXPECT_EQ(std::uint32_t{fromDwords.count}, 3u);
  EXPECT_EQ(dwordsAsQwords, dwordData);
  for (std::uint32_t index : {0u, 2u, 7u}) {
    ASSERT_NE(VXParamByIndex(l, index), nullptr);
    EXPECT_STREQ(VXParamByIndex(l, index)->name, "d") << index;
  }
}

// Nothing in the library throws: a type byte that an application damaged
// through a record pointer ends the walk there, its record can be neither
// removed nor set again, and a dump stops at it.
TEST_F(ListImageTest, ADamagedTypeByteEndsTheWalkWithoutAnException) {
  ScopedList list;
  VXSetInt32Value(list, "a", 1);
  VXSetInt32Value(list, "b", 2);
  VXSetInt32Value(list, "c", 3);
  const _tag_VXPARAMINFO* b = VXGetNextParam(list, VXGetFirstParam(list));
  ASSERT_STREQ(b->name, "b");
  const_cast<_tag_VXPARAMVALUE*>(b->GetValue())->type = 0x86;
  EXPECT_EQ(VXGetNextParam(list, b), nullptr);
  EXPECT_EQ(VXGetInt32Value(list, "c"), 0u);
  EXPECT_EQ(VXSetInt32Value(list, "b", 4), VX_ERROR_FAILED);
  VXRemoveValue(list, "b");
  EXPECT_EQ(VXGetParamCount(list), 3u);
  char text[256];
  PrintHandleInfoToBuffer(list, false, text, sizeof text);
  EXPECT_NE(std::string(text).find("a=1"), std::string::npos) << text;
}

}  // namespace
}  // namespace vxbus
