// The exported getters, setters, walkers and removers, with the behaviours
// that applications depend on as they stand.
#include <gtest/gtest.h>

#include <cstdint>
#include <string>

#include "image_pattern.h"
#include "list_test_support.h"
#include "paramlist/handle.h"

namespace vxbus {
namespace {

using testing::ImageMatches;
using testing::RefCount;
using testing::ScopedList;

class AccessFunctions : public testing::LeakCheckedTest {};

// The array results are packed: their fields are copied out before the
// assertion macros take them by reference.
std::uint32_t Word(std::uint32_t v) {
  return v;
}
const void* Pointer(const void* p) {
  return p;
}

TEST_F(AccessFunctions, NullListAnswersAsMissingOrFailed) {
  const HVXPARAMLIST none = VX_INVALID_PARAMLIST;
  const char* out[1];
  EXPECT_EQ(VXGetStringValue(none, "a"), nullptr);
  EXPECT_EQ(VXGetInt32Value(none, "a"), 0u);
  EXPECT_EQ(VXGetInt64Value(none, "a"), 0u);
  EXPECT_EQ(VXGetBinaryValue(none, "a"), nullptr);
  EXPECT_EQ(VXGetHandleValue(none, "a"), VX_INVALID_PARAMLIST);
  EXPECT_EQ(Pointer(VXGetInt32Array(none, "a").data), nullptr);
  EXPECT_EQ(VXGetStringArray(none, "a", out, 1, 0), 0u);
  EXPECT_EQ(VXSetInt32Value(none, "a", 1), VX_ERROR_FAILED);
  EXPECT_EQ(VXSetStringValue(none, "a", "x"), VX_ERROR_FAILED);
  EXPECT_EQ(VXSetHandleArray(none, "a", 0, nullptr), VX_ERROR_FAILED);
  EXPECT_EQ(VXRemoveValue(none, "a"), VX_ERROR_FAILED);
  EXPECT_EQ(VXRemoveAllValues(none), VX_ERROR_FAILED);
  EXPECT_EQ(VXGetFirstParam(none), nullptr);
  EXPECT_EQ(VXGetNextParam(none, nullptr), nullptr);
  EXPECT_EQ(VXParamInfo(none, "a"), nullptr);
  EXPECT_EQ(VXParamByIndex(none, 0), nullptr);
  EXPECT_EQ(VXRemoveParamByInfo(none, nullptr), nullptr);
}

TEST_F(AccessFunctions, GettersAnswerOnlyForTheirOwnType) {
  ScopedList l;
  VXSetInt32Value(l, "i", 5);
  VXSetInt64Value(l, "q", 6);
  VXSetStringValue(l, "s", "text");
  EXPECT_EQ(VXGetInt32Value(l, "i"), 5u);
  EXPECT_EQ(VXGetInt64Value(l, "i"), 0u);
  EXPECT_EQ(VXGetInt32Value(l, "q"), 0u);
  EXPECT_EQ(VXGetInt64Value(l, "q"), 6u);
  EXPECT_EQ(VXGetStringValue(l, "i"), nullptr);
  EXPECT_EQ(VXGetBinaryValue(l, "s"), nullptr);
  EXPECT_EQ(VXGetHandleValue(l, "i"), VX_INVALID_PARAMLIST);
  EXPECT_EQ(VXGetInt32Value(l, "missing"), 0u);
  _tag_VXDWORDARRAY none = VXGetInt32Array(l, "s");
  EXPECT_EQ(Word(none.count), 0u);
  EXPECT_EQ(Pointer(none.data), nullptr);
  EXPECT_EQ(Word(VXGetHandleArray(l, "i").count), 0u);
}

TEST_F(AccessFunctions, BinaryItemIsStoredAsABinaryValue) {
  ScopedList l;
  const unsigned char bytes[] = {1, 2, 3, 4, 5};
  const _tag_BINARYITEM item = {5, bytes};
  EXPECT_EQ(VXSetBinaryItem(l, "b", &item), VX_SUCCESS);
  const _tag_BINARYVALUE* v = VXGetBinaryValue(l, "b");
  ASSERT_NE(v, nullptr);
  EXPECT_EQ(v->length, 5u);
  EXPECT_EQ(v->data[4], 5);
}

TEST_F(AccessFunctions, Int64ArrayGetterAnswersForThe32BitArray) {
  ScopedList l;
  const std::uint64_t qwords[] = {1, 2};
  const std::uint32_t dwords[] = {7, 8, 9};
  VXSetInt64Array(l, "q", 2, qwords);
  VXSetInt32Array(l, "d", 3, dwords);

  _tag_VXQWORDARRAY fromQwords = VXGetInt64Array(l, "q");
  EXPECT_EQ(Word(fromQwords.count), 0u);
  EXPECT_EQ(Pointer(fromQwords.data), nullptr);

  _tag_VXQWORDARRAY fromDwords = VXGetInt64Array(l, "d");
  EXPECT_EQ(Word(fromDwords.count), 3u);
  EXPECT_EQ(Pointer(fromDwords.data), Pointer(VXGetInt32Array(l, "d").data));
}

TEST_F(AccessFunctions, ParamByIndexGivesTheSecondRecordWhateverTheIndex) {
  ScopedList l;
  VXSetInt32Value(l, "first", 1);
  EXPECT_EQ(VXParamByIndex(l, 0), nullptr);  // only one record
  EXPECT_EQ(VXParamByIndex(l, 1), nullptr);
  VXSetInt32Value(l, "second", 2);
  VXSetInt32Value(l, "third", 3);
  for (std::uint32_t index : {0u, 2u, 7u, 1000u}) {
    const _tag_VXPARAMINFO* r = VXParamByIndex(l, index);
    ASSERT_NE(r, nullptr) << index;
    EXPECT_STREQ(r->name, "second") << index;
  }
  ScopedList empty;
  EXPECT_EQ(VXParamByIndex(empty, 0), nullptr);
}

TEST_F(AccessFunctions, ArrayCopyOutFromAStartIndex) {
  ScopedList l;
  const char* texts[] = {"a", "b", "c"};
  VXSetStringArray(l, "s", 3, texts);
  const char* out[10] = {};
  EXPECT_EQ(VXGetStringArray(l, "s", out, 10, 1), 2u);
  EXPECT_STREQ(out[0], "b");
  EXPECT_STREQ(out[1], "c");
  EXPECT_EQ(out[2], nullptr);
  EXPECT_EQ(VXGetStringArray(l, "s", out, 1, 0), 1u);
  EXPECT_EQ(VXGetStringArray(l, "s", out, 0, 0), 0u);
  EXPECT_EQ(VXGetStringArray(l, "s", out, 10, 3), 0u);

  VXSetStringArray(l, "empty", 0, nullptr);
  const char* untouched[1] = {"sentinel"};
  EXPECT_EQ(VXGetStringArray(l, "empty", untouched, 1, 0), 0u);
  EXPECT_STREQ(untouched[0], "sentinel");

  const unsigned char b1[] = {1};
  const unsigned char b2[] = {2, 2};
  const _tag_BINARYITEM items[] = {{1, b1}, {2, b2}};
  VXSetBinaryItemArray(l, "b", 2, items);
  const _tag_BINARYVALUE* bins[4] = {};
  EXPECT_EQ(VXGetBinaryArray(l, "b", bins, 4, 1), 1u);
  EXPECT_EQ(bins[0]->length, 2u);
  EXPECT_EQ(VXGetBinaryArray(l, "s", bins, 4, 0), 0u);  // wrong type
}

TEST_F(AccessFunctions, HandleSettersLeaveTheCallersReferences) {
  ScopedList l;
  ScopedList a;
  ScopedList b;
  const HVXPARAMLIST lists[] = {a, b};
  EXPECT_EQ(VXSetHandleArray(l, "arr", 2, lists), VX_SUCCESS);
  EXPECT_EQ(RefCount(a), 2);
  EXPECT_EQ(RefCount(b), 2);
  EXPECT_EQ(Word(VXGetHandleArray(l, "arr").count), 2u);

  EXPECT_EQ(VXSetHandleArray(l, "none", 0, nullptr), VX_SUCCESS);
  EXPECT_TRUE(ImageMatches(l,
                           "07 61 72 72 00 00 00 84 02 00 00 00 00 00 00 00 01 00 00 00"
                           "| 07 6e 6f 6e 65 00 00 84 00 00 00 00"));

  VXSetHandleValue(l, "null", VX_INVALID_PARAMLIST);
  EXPECT_EQ(VXGetHandleValue(l, "null"), VX_INVALID_PARAMLIST);
  EXPECT_EQ(VXParamInfo(l, "null")->GetType(), PT_PARAMHANDLE);
  EXPECT_EQ(l->ChildCount(), 2u);
}

TEST_F(AccessFunctions, RemovingAMissingNameChangesNothing) {
  ScopedList l;
  VXSetInt32Value(l, "a", 1);
  EXPECT_EQ(VXRemoveValue(l, "b"), VX_SUCCESS);
  EXPECT_EQ(VXGetParamCount(l), 1u);
  EXPECT_EQ(VXGetHandleSize(l), 8u);
}

TEST_F(AccessFunctions, RemoveByInfoRefusesForeignRecords) {
  ScopedList l;
  ScopedList other;
  VXSetInt32Value(l, "a", 1);
  VXSetInt32Value(other, "a", 1);
  EXPECT_EQ(VXRemoveParamByInfo(l, VXGetFirstParam(other)), nullptr);
  EXPECT_EQ(VXGetParamCount(l), 1u);
  EXPECT_EQ(VXGetParamCount(other), 1u);
  // A pointer into the middle of one of our records is not a record either.
  const auto* inside = reinterpret_cast<const _tag_VXPARAMINFO*>(l->Data() + 4);
  EXPECT_EQ(VXRemoveParamByInfo(l, inside), nullptr);
  EXPECT_EQ(VXRemoveParamByInfo(l, nullptr), nullptr);
  EXPECT_EQ(VXRemoveParamByInfo(l, VXGetFirstParam(l)), nullptr);  // the last record
  EXPECT_EQ(VXGetParamCount(l), 0u);
}

TEST_F(AccessFunctions, RecordAccessorsReadWhatTheSettersStored) {
  ScopedList l;
  ScopedList child;
  const std::uint32_t dwords[] = {4, 5};
  const HVXPARAMLIST lists[] = {VX_INVALID_PARAMLIST, child};
  VXSetInt32Array(l, "d", 2, dwords);
  VXSetHandleArray(l, "h", 2, lists);
  const _tag_VXPARAMINFO* d = VXParamInfo(l, "d");
  EXPECT_EQ(d->GetType(), PT_ARRAY | PT_INT32);
  EXPECT_EQ(d->GetArrayType(), PT_INT32);
  EXPECT_EQ(d->GetArraySize(), 2u);
  EXPECT_EQ(d->GetInt32(1), 5u);
  EXPECT_EQ(d->GetSize(), 16u);  // offset byte to type byte, then 5 + 8
  const _tag_VXPARAMINFO* h = VXParamInfo(l, "h");
  EXPECT_EQ(h->GetHandle(l, 0), VX_INVALID_PARAMLIST);
  EXPECT_EQ(h->GetHandle(l, 1), static_cast<HVXPARAMLIST>(child));
}

}  // namespace
}  // namespace vxbus
