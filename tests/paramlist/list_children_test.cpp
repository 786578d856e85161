// Nested lists: references held by a parent, the growth of the children
// array, and the renumbering of child ids when a record goes.
#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

#include "image_pattern.h"
#include "list_test_support.h"
#include "paramlist/handle.h"

namespace vxbus {
namespace {

using testing::RefCount;
using testing::ScopedList;

class ListChildren : public testing::LeakCheckedTest {};

std::uint32_t HandleId(HVXPARAMLIST list, const char* name) {
  const _tag_VXPARAMINFO* r = VXParamInfo(list, name);
  EXPECT_NE(r, nullptr) << name;
  return r == nullptr ? 0 : vxbus_detail::LoadU32(r->GetValue()->Bytes() + 1);
}

std::vector<std::uint32_t> ArrayIds(HVXPARAMLIST list, const char* name) {
  _tag_VXDWORDARRAY ids = VXGetHandleArray(list, name);
  return std::vector<std::uint32_t>(ids.data, ids.data + ids.count);
}

TEST_F(ListChildren, ParentHoldsAReferenceOfItsOwn) {
  ScopedList parent;
  HVXPARAMLIST child = VXCreateParamList();
  VXSetHandleValue(parent, "c", child);
  EXPECT_EQ(RefCount(child), 2);
  VXCloseHandle(child);  // the parent keeps it alive
  EXPECT_EQ(RefCount(child), 1);
  HVXPARAMLIST again = VXGetHandleValue(parent, "c");
  EXPECT_EQ(again, child);
  EXPECT_EQ(RefCount(child), 2);
  VXCloseHandle(again);
}

TEST_F(ListChildren, SameListTwiceHasTwoEntries) {
  ScopedList parent;
  ScopedList child;
  VXSetHandleValue(parent, "a", child);
  VXSetHandleValue(parent, "b", child);
  EXPECT_EQ(parent->ChildCount(), 2u);
  EXPECT_EQ(RefCount(child), 3);
  VXRemoveValue(parent, "a");
  EXPECT_EQ(HandleId(parent, "b"), 0u);
  EXPECT_EQ(RefCount(child), 2);
}

TEST_F(ListChildren, ArrayGrowsByHalfItsCapacityAtLeastToTheNeed) {
  ScopedList parent;
  ScopedList child;
  const std::uint32_t expected[] = {1, 2, 3, 4, 6, 6, 9, 9, 9, 13};
  char name[2] = "a";
  for (std::uint32_t capacity : expected) {
    VXSetHandleValue(parent, name, child);
    ++name[0];
    EXPECT_EQ(parent->ChildCapacity(), capacity) << "after " << parent->ChildCount();
  }
  EXPECT_EQ(RefCount(child), 11);
  // Clear releases every entry and keeps the allocation.
  VXRemoveAllValues(parent);
  EXPECT_EQ(RefCount(child), 1);
  EXPECT_EQ(parent->ChildCount(), 0u);
  EXPECT_EQ(parent->ChildCapacity(), 13u);
}

TEST_F(ListChildren, RemovingAHandleRenumbersTheOnesBehindIt) {
  ScopedList parent;
  ScopedList a;
  ScopedList b;
  VXSetHandleValue(parent, "a", a);
  VXSetHandleValue(parent, "b", b);
  VXRemoveValue(parent, "a");
  EXPECT_EQ(HandleId(parent, "b"), 0u);
  ASSERT_EQ(parent->ChildCount(), 1u);
  EXPECT_EQ(parent->Child(0), b.operator->());
  EXPECT_EQ(RefCount(a), 1);
}

TEST_F(ListChildren, RemovingTheLastChildRenumbersNothing) {
  ScopedList parent;
  ScopedList a;
  ScopedList b;
  VXSetHandleValue(parent, "a", a);
  VXSetHandleValue(parent, "b", b);
  VXRemoveValue(parent, "b");
  EXPECT_EQ(HandleId(parent, "a"), 0u);
  EXPECT_EQ(parent->ChildCount(), 1u);
}

TEST_F(ListChildren, HandleArrayWithANullEntry) {
  ScopedList parent;
  ScopedList x;
  ScopedList y;
  const HVXPARAMLIST lists[] = {x, VX_INVALID_PARAMLIST, y};
  VXSetHandleArray(parent, "arr", 3, lists);
  EXPECT_EQ(ArrayIds(parent, "arr"), (std::vector<std::uint32_t>{0, kNullIndex, 1}));
  EXPECT_EQ(RefCount(x), 2);
  EXPECT_EQ(VXGetHandleById(parent, 1), static_cast<HVXPARAMLIST>(y));
  EXPECT_EQ(VXGetHandleById(parent, kNullIndex), VX_INVALID_PARAMLIST);
  VXRemoveValue(parent, "arr");
  EXPECT_EQ(parent->ChildCount(), 0u);
  EXPECT_EQ(RefCount(x), 1);
  EXPECT_EQ(RefCount(y), 1);
}

// h1 -> L1, arr -> [L2, null, L3], h4 -> L4: ids 0, [1, null, 2], 3.
class MixedChildren : public ListChildren {
 protected:
  void SetUp() override {
    ListChildren::SetUp();
    parent_ = VXCreateParamList();
    for (auto& l : lists_)
      l = VXCreateParamList();
    VXSetHandleValue(parent_, "h1", lists_[0]);
    const HVXPARAMLIST arr[] = {lists_[1], VX_INVALID_PARAMLIST, lists_[2]};
    VXSetHandleArray(parent_, "arr", 3, arr);
    VXSetHandleValue(parent_, "h4", lists_[3]);
  }
  void TearDown() override {
    VXCloseHandle(parent_);
    for (auto& l : lists_) {
      EXPECT_EQ(RefCount(l), 1);
      VXCloseHandle(l);
    }
    ListChildren::TearDown();
  }
  HVXPARAMLIST Child(std::uint32_t id) { return VXGetHandleById(parent_, id); }

  HVXPARAMLIST parent_{};
  HVXPARAMLIST lists_[4]{};
};

TEST_F(MixedChildren, StartsNumberedInOrderOfSetting) {
  EXPECT_EQ(HandleId(parent_, "h1"), 0u);
  EXPECT_EQ(ArrayIds(parent_, "arr"), (std::vector<std::uint32_t>{1, kNullIndex, 2}));
  EXPECT_EQ(HandleId(parent_, "h4"), 3u);
}

TEST_F(MixedChildren, RemovingAHandleRenumbersHandlesAndArrays) {
  VXRemoveValue(parent_, "h1");
  EXPECT_EQ(ArrayIds(parent_, "arr"), (std::vector<std::uint32_t>{0, kNullIndex, 1}));
  EXPECT_EQ(HandleId(parent_, "h4"), 2u);
  EXPECT_EQ(Child(0), lists_[1]);
  EXPECT_EQ(Child(1), lists_[2]);
  EXPECT_EQ(Child(2), lists_[3]);
}

TEST_F(MixedChildren, RemovingAnArrayClosesItsGapsInOrder) {
  VXRemoveValue(parent_, "arr");
  EXPECT_EQ(HandleId(parent_, "h1"), 0u);
  EXPECT_EQ(HandleId(parent_, "h4"), 1u);
  EXPECT_EQ(ListFromHandle(parent_)->ChildCount(), 2u);
  EXPECT_EQ(Child(0), lists_[0]);
  EXPECT_EQ(Child(1), lists_[3]);
}

TEST_F(MixedChildren, ReplacingAHandleMovesItToTheEndOfChildren) {
  VXSetHandleValue(parent_, "h1", lists_[0]);
  EXPECT_EQ(ArrayIds(parent_, "arr"), (std::vector<std::uint32_t>{0, kNullIndex, 1}));
  EXPECT_EQ(HandleId(parent_, "h4"), 2u);
  EXPECT_EQ(HandleId(parent_, "h1"), 3u);
  EXPECT_EQ(Child(3), lists_[0]);
}

TEST_F(MixedChildren, RemovingByInfoWhileWalking) {
  const _tag_VXPARAMINFO* r = VXGetFirstParam(parent_);
  std::vector<std::uint32_t> seen;
  while (r != nullptr) {
    seen.push_back(ListFromHandle(parent_)->ChildCount());
    r = VXRemoveParamByInfo(parent_, r);  // gives the record now in its place
  }
  EXPECT_EQ(seen, (std::vector<std::uint32_t>{4, 3, 1}));
  EXPECT_EQ(VXGetParamCount(parent_), 0u);
  EXPECT_EQ(VXGetHandleSize(parent_), 0u);
}

TEST_F(ListChildren, RemoveGivesTheRecordNowInPlace) {
  ScopedList l;
  VXSetInt32Value(l, "a", 1);
  VXSetInt32Value(l, "b", 2);
  VXSetInt32Value(l, "c", 3);
  const _tag_VXPARAMINFO* next = l->RemoveByName("b");
  ASSERT_NE(next, nullptr);
  EXPECT_STREQ(next->name, "c");
  EXPECT_EQ(l->RemoveByName("c"), nullptr);  // it was the last one
  EXPECT_EQ(l->Count(), 1u);
  EXPECT_EQ(l->RemoveByName("missing"), nullptr);
  EXPECT_EQ(l->Count(), 1u);
}

TEST_F(ListChildren, ListInsideItselfStaysAliveUntilTheCycleIsBroken) {
  HVXPARAMLIST l = VXCreateParamList();
  VXSetHandleValue(l, "self", l);
  EXPECT_EQ(RefCount(l), 2);
  VXRemoveValue(l, "self");
  EXPECT_EQ(RefCount(l), 1);
  VXCloseHandle(l);
}

}  // namespace
}  // namespace vxbus
