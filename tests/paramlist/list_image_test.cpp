// The byte image of every stored type, header lengths, and how the image's
// allocation grows.
#include <gtest/gtest.h>

#include <cstdint>
#include <string>

#include "image_pattern.h"
#include "list_test_support.h"
#include "paramlist/handle.h"

namespace vxbus {
namespace {

using testing::ImageMatches;
using testing::ScopedList;

class ListImage : public testing::LeakCheckedTest {};

TEST_F(ListImage, WorkedExampleHoldsByteForByte) {
  ScopedList root;
  ScopedList sub;
  VXSetInt32Value(root, "id", 7);
  VXSetStringValue(sub, "s", "hi");
  VXSetHandleValue(root, "sub", sub);
  EXPECT_TRUE(ImageMatches(root,
                           "07 69 64 00 00 00 00 02 07 00 00 00"
                           "07 73 75 62 00 00 00 04 00 00 00 00"));
  EXPECT_TRUE(ImageMatches(sub, "03 73 00 01 68 69 00 xx"));
  EXPECT_EQ(root->Count(), 2u);
  ASSERT_EQ(root->ChildCount(), 1u);
  EXPECT_EQ(root->Child(0), sub.operator->());
}

TEST_F(ListImage, ScalarTypes) {
  {
    ScopedList l;
    VXSetStringValue(l, "a", "hi");
    EXPECT_TRUE(ImageMatches(l, "03 61 00 01 | 68 69 00 xx"));
  }
  {
    ScopedList l;  // a null text is an empty string: one defined byte of four
    VXSetStringValue(l, "a", nullptr);
    EXPECT_TRUE(ImageMatches(l, "03 61 00 01 | 00 xx xx xx"));
    EXPECT_STREQ(VXGetStringValue(l, "a"), "");
  }
  {
    ScopedList l;  // text of exactly four bytes with its NUL: no pad
    VXSetStringValue(l, "a", "xyz");
    EXPECT_TRUE(ImageMatches(l, "03 61 00 01 | 78 79 7a 00"));
  }
  {
    ScopedList l;
    VXSetInt32Value(l, "a", 0x11223344u);
    EXPECT_TRUE(ImageMatches(l, "03 61 00 02 | 44 33 22 11"));
  }
  {
    ScopedList l;  // 64-bit values are 4-aligned only
    VXSetInt64Value(l, "a", 0x1122334455667788ull);
    EXPECT_TRUE(ImageMatches(l, "03 61 00 03 | 88 77 66 55 44 33 22 11"));
  }
  {
    ScopedList l;
    const unsigned char bytes[] = {1, 2, 3};
    VXSetBinaryValue(l, "a", bytes, 3);
    EXPECT_TRUE(ImageMatches(l, "03 61 00 05 | 03 00 00 00 | 01 02 03 xx"));
  }
  {
    ScopedList l;  // length 0: five bytes from the type byte, no data
    VXSetBinaryValue(l, "a", nullptr, 0);
    EXPECT_TRUE(ImageMatches(l, "03 61 00 05 | 00 00 00 00"));
    const _tag_BINARYVALUE* v = VXGetBinaryValue(l, "a");
    ASSERT_NE(v, nullptr);
    EXPECT_EQ(v->length, 0u);
  }
  {
    ScopedList l;
    ScopedList child;
    VXSetHandleValue(l, "a", child);
    VXSetHandleValue(l, "n", VX_INVALID_PARAMLIST);
    EXPECT_TRUE(ImageMatches(l, "03 61 00 04 | 00 00 00 00 | 03 6e 00 04 | ff ff ff ff"));
    EXPECT_EQ(l->ChildCount(), 1u);
  }
}

TEST_F(ListImage, ArrayTypes) {
  {
    ScopedList l;  // offsets count from behind the offset table
    const char* texts[] = {"ab", nullptr, "xyz1"};
    VXSetStringArray(l, "a", 3, texts);
    EXPECT_TRUE(ImageMatches(l,
                             "03 61 00 81 | 03 00 00 00 | 00 00 00 00 04 00 00 00 08 00 00 00"
                             "| 61 62 00 xx | 00 xx xx xx | 78 79 7a 31 00 xx xx xx"));
    const char* out[3] = {};
    ASSERT_EQ(VXGetStringArray(l, "a", out, 3, 0), 3u);
    EXPECT_STREQ(out[0], "ab");
    EXPECT_STREQ(out[1], "");
    EXPECT_STREQ(out[2], "xyz1");
  }
  {
    ScopedList l;
    const std::uint32_t values[] = {1, 2};
    VXSetInt32Array(l, "a", 2, values);
    EXPECT_TRUE(ImageMatches(l, "03 61 00 82 | 02 00 00 00 | 01 00 00 00 02 00 00 00"));
  }
  {
    ScopedList l;
    const std::uint64_t values[] = {0x0102030405060708ull};
    VXSetInt64Array(l, "a", 1, values);
    EXPECT_TRUE(ImageMatches(l, "03 61 00 83 | 01 00 00 00 | 08 07 06 05 04 03 02 01"));
  }
  {
    ScopedList l;
    ScopedList x;
    ScopedList y;
    const HVXPARAMLIST lists[] = {x, VX_INVALID_PARAMLIST, y};
    VXSetHandleArray(l, "a", 3, lists);
    EXPECT_TRUE(ImageMatches(l, "03 61 00 84 | 03 00 00 00 | 00 00 00 00 ff ff ff ff 01 00 00 00"));
    EXPECT_EQ(l->ChildCount(), 2u);
  }
  {
    ScopedList l;
    const unsigned char a[] = {0xaa, 0xbb};
    const unsigned char c[] = {1, 2, 3, 4, 5};
    const _tag_BINARYITEM items[] = {{2, a}, {0, nullptr}, {5, c}};
    VXSetBinaryItemArray(l, "a", 3, items);
    const char* expected =
        "03 61 00 85 | 03 00 00 00 | 00 00 00 00 08 00 00 00 0c 00 00 00"
        "| 02 00 00 00 aa bb xx xx | 00 00 00 00 | 05 00 00 00 01 02 03 04 05 xx xx xx";
    EXPECT_TRUE(ImageMatches(l, expected));

    ScopedList twin;  // the form with two parallel arrays stores the same
    const void* data[] = {a, nullptr, c};
    const std::uint32_t lengths[] = {2, 0, 5};
    VXSetBinaryArray(twin, "a", 3, data, lengths);
    EXPECT_TRUE(ImageMatches(twin, expected));
  }
  {
    ScopedList l;  // every array type with no elements is just its count
    VXSetStringArray(l, "s", 0, nullptr);
    VXSetInt32Array(l, "i", 0, nullptr);
    VXSetInt64Array(l, "q", 0, nullptr);
    VXSetHandleArray(l, "h", 0, nullptr);
    VXSetBinaryItemArray(l, "b", 0, nullptr);
    EXPECT_TRUE(ImageMatches(l,
                             "03 73 00 81 00 00 00 00 | 03 69 00 82 00 00 00 00"
                             "| 03 71 00 83 00 00 00 00 | 03 68 00 84 00 00 00 00"
                             "| 03 62 00 85 00 00 00 00"));
    EXPECT_EQ(l->Count(), 5u);
    EXPECT_EQ(l->ChildCount(), 0u);
  }
}

TEST_F(ListImage, HeaderLengthFollowsTheNameLength) {
  ScopedList l;
  VXSetInt32Value(l, "", 1);
  VXSetInt32Value(l, "a", 2);
  VXSetInt32Value(l, "ab", 3);
  EXPECT_TRUE(ImageMatches(l,
                           "03 00 00 02 01 00 00 00 | 03 61 00 02 02 00 00 00"
                           "| 07 61 62 00 00 00 00 02 03 00 00 00"));
  EXPECT_EQ(VXGetInt32Value(l, ""), 1u);

  ScopedList longest;
  std::string name(253, 'n');
  VXSetInt32Value(longest, name.c_str(), 9);
  ASSERT_EQ(longest->Used(), 256u + 4u);
  const unsigned char* d = longest->Data();
  EXPECT_EQ(d[0], 255);
  EXPECT_EQ(std::string(reinterpret_cast<const char*>(d + 1), 253), name);
  EXPECT_EQ(d[254], 0);  // the one pad byte that ends the name
  EXPECT_EQ(d[255], PT_INT32);
  EXPECT_EQ(VXGetInt32Value(longest, name.c_str()), 9u);
}

TEST_F(ListImage, GrowsToExactlyTheNeedAndNeverShrinks) {
  ScopedList l;
  EXPECT_EQ(l->Data(), nullptr);  // no image memory before the first Set
  EXPECT_EQ(l->capacity, 0u);

  VXSetInt32Value(l, "a", 1);
  EXPECT_EQ(l->capacity, 8u);
  const char* texts[] = {"one", "three", nullptr};
  VXSetStringArray(l, "b", 3, texts);
  EXPECT_EQ(l->capacity, l->Used());
  EXPECT_EQ(l->Used(), 8u + 4u + 4u + 12u + 4u + 8u + 4u);

  VXRemoveValue(l, "b");
  EXPECT_EQ(l->Used(), 8u);
  EXPECT_EQ(l->capacity, 44u);

  // Clear keeps the allocation, and a later Set reuses it.
  const unsigned char* before = l->Data();
  VXRemoveAllValues(l);
  EXPECT_EQ(l->Used(), 0u);
  EXPECT_EQ(l->Count(), 0u);
  EXPECT_EQ(l->Data(), before);
  VXSetInt64Value(l, "q", 5);
  EXPECT_EQ(l->Data(), before);
  EXPECT_EQ(l->capacity, 44u);
}

TEST_F(ListImage, SettingANameAgainReplacesItAtTheEnd) {
  ScopedList l;
  VXSetInt32Value(l, "a", 1);
  VXSetInt32Value(l, "b", 2);
  VXSetStringValue(l, "a", "now text");
  EXPECT_EQ(l->Count(), 2u);
  const _tag_VXPARAMINFO* first = VXGetFirstParam(l);
  EXPECT_STREQ(first->name, "b");
  const _tag_VXPARAMINFO* second = VXGetNextParam(l, first);
  EXPECT_STREQ(second->name, "a");
  EXPECT_EQ(VXGetNextParam(l, second), nullptr);
  // The old type now answers as a missing parameter.
  EXPECT_EQ(VXGetInt32Value(l, "a"), 0u);
  EXPECT_STREQ(VXGetStringValue(l, "a"), "now text");
}

TEST_F(ListImage, NamesAreCaseSensitive) {
  ScopedList l;
  VXSetInt32Value(l, "Name", 1);
  VXSetInt32Value(l, "name", 2);
  EXPECT_EQ(l->Count(), 2u);
  EXPECT_EQ(VXGetInt32Value(l, "Name"), 1u);
  EXPECT_EQ(VXGetInt32Value(l, "name"), 2u);
  EXPECT_EQ(VXParamInfo(l, "nam"), nullptr);
  EXPECT_EQ(VXParamInfo(l, "names"), nullptr);
}

TEST_F(ListImage, EmptyListHasNothingToWalk) {
  ScopedList l;
  EXPECT_EQ(l->First(), nullptr);
  EXPECT_EQ(l->Find("a"), nullptr);
  EXPECT_EQ(l->Remove(nullptr), nullptr);
  l->Clear();
  EXPECT_EQ(l->Count(), 0u);
  EXPECT_EQ(l->Data(), nullptr);
}

TEST_F(ListImage, NextThrowsOnARecordThatOverrunsTheImage) {
  ScopedList l;
  VXSetInt32Value(l, "a", 1);
  l->used = 7;  // the record now ends one byte beyond the image
  EXPECT_THROW(l->Next(l->First()), NoDataExeption);
  l->used = 8;
}

TEST_F(ListImage, RecountAddsTheRecordsOfAnImageFilledByOtherMeans) {
  ScopedList source;
  VXSetInt32Value(source, "a", 1);
  VXSetStringValue(source, "b", "text");
  const char* texts[] = {"x", "yy"};
  VXSetStringArray(source, "c", 2, texts);

  ScopedList copy;
  copy->AppendExact(source->Data(), source->Used());
  EXPECT_EQ(copy->Count(), 0u);
  copy->Recount();
  EXPECT_EQ(copy->Count(), 3u);
  copy->Recount();  // adds, by design: it is meant for a count of 0
  EXPECT_EQ(copy->Count(), 6u);
  copy->Clear();
}

TEST_F(ListImage, RecountRejectsUnknownTypesAndOverruns) {
  struct Case {
    const char* what;
    std::vector<unsigned char> image;
  };
  const std::vector<Case> cases = {
      {"type 0", {3, 'a', 0, 0, 1, 0, 0, 0}},
      {"type 6", {3, 'a', 0, 6, 1, 0, 0, 0}},
      {"bare array flag", {3, 'a', 0, 0x80, 0, 0, 0, 0}},
      {"array of type 6", {3, 'a', 0, 0x86, 0, 0, 0, 0}},
      {"int32 one byte short", {3, 'a', 0, 2, 1, 0, 0}},
      {"binary one byte short", {3, 'a', 0, 5, 4, 0, 0, 0, 1, 2, 3}},
      {"string without its NUL", {3, 'a', 0, 1, 'h', 'i', 'j', 'k'}},
      {"type byte beyond the image", {7, 'a', 'b', 0}},
      {"count beyond the image", {3, 'a', 0, 0x82, 0xff, 0xff, 0xff, 0x3f}},
      {"string item offset beyond the image", {3, 'a', 0, 0x81, 1, 0, 0, 0, 8, 0, 0, 0, 'x', 0}},
      {"binary item longer than the image",
       {3, 'a', 0, 0x85, 1, 0, 0, 0, 0, 0, 0, 0, 0xff, 0xff, 0xff, 0xff}},
  };
  for (const Case& c : cases) {
    ScopedList l;
    l->AppendExact(c.image.data(), static_cast<std::uint32_t>(c.image.size()));
    bool threw = false;
    try {
      l->Recount();
    } catch (const NoDataExeption&) {
      threw = true;
    } catch (const _tag_VXPARAMVALUE::DataDamaged&) {
      threw = true;
    }
    EXPECT_TRUE(threw) << c.what;
    l->Clear();
  }
}

}  // namespace
}  // namespace vxbus
