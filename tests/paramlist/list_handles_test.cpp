// SPDX-License-Identifier: MIT
// Nested lists and their holders: references, renumbering of child ids, clone
// and copy, and the holder answers that applications depend on as they stand.
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "list_test_support.h"

namespace vxbus {
namespace {

using testing::Dump;
using testing::LiveLists;
using testing::RefCount;
using testing::ScopedList;
using VX::ParamListHolder;

class ListHandles : public testing::LeakCheckedTest {};

// Child ids of every handle and handle-array record, in record order.
std::vector<std::uint32_t> ChildIds(HVXPARAMLIST list) {
  std::vector<std::uint32_t> ids;
  for (auto* r = VXGetFirstParam(list); r != nullptr; r = VXGetNextParam(list, r)) {
    if (r->GetType() == PT_PARAMHANDLE)
      ids.push_back(vxbus_detail::LoadU32(r->GetValue()->Bytes() + 1));
    const _tag_VXDWORDARRAY array = VXGetHandleArray(list, r->name);
    ids.insert(ids.end(), array.data, array.data + array.count);
  }
  return ids;
}

std::vector<HVXPARAMLIST> Children(HVXPARAMLIST list) {
  std::vector<HVXPARAMLIST> children;
  for (std::uint32_t i = 0; i < ListFromHandle(list)->ChildCount(); ++i)
    children.push_back(VXGetHandleById(list, i));
  return children;
}

TEST_F(ListHandles, RemovalRenumbersEveryChildId) {
  constexpr std::uint32_t N = kNullIndex;
  const struct {
    const char* remove;
    std::vector<std::uint32_t> ids;
    std::vector<int> children;
  } cases[] = {
      {"", {0, 1, N, 2, 3}, {0, 1, 2, 3}},
      {"h1", {0, N, 1, 2}, {1, 2, 3}},
      {"arr", {0, 1}, {0, 3}},
      {"h4", {0, 1, N, 2}, {0, 1, 2}},
  };
  ScopedList lists[4];
  for (const auto& c : cases) {
    HVXPARAMLIST parent = VXCreateParamList();
    VXSetHandleValue(parent, "h1", lists[0]);
    const HVXPARAMLIST arr[] = {lists[1], VX_INVALID_PARAMLIST, lists[2]};
    VXSetHandleArray(parent, "arr", 3, arr);
    VXSetHandleValue(parent, "h4", lists[3]);
    VXRemoveValue(parent, c.remove);
    EXPECT_EQ(ChildIds(parent), c.ids) << "removed '" << c.remove << "'";
    std::vector<HVXPARAMLIST> expected;
    for (int i : c.children)
      expected.push_back(lists[i]);
    EXPECT_TRUE(Children(parent) == expected) << "removed '" << c.remove << "'";
    VXCloseHandle(parent);
    for (const ScopedList& l : lists)
      EXPECT_EQ(RefCount(l), 1);
  }
}

TEST_F(ListHandles, ParentKeepsItsChildrenAlive) {
  const std::uint32_t live = LiveLists();
  HVXPARAMLIST root = VXCreateParamList();
  HVXPARAMLIST level = root;
  for (int i = 0; i < 3; ++i) {
    HVXPARAMLIST next = VXCreateParamList();
    VXSetHandleValue(level, "n", next);
    VXCloseHandle(next);
    level = next;
  }
  EXPECT_EQ(LiveLists(), live + 4);
  HVXPARAMLIST child = VXGetHandleValue(root, "n");  // a reference of the caller's own
  VXCloseHandle(root);
  EXPECT_EQ(LiveLists(), live + 3);
  EXPECT_EQ(RefCount(child), 1);
  VXCloseHandle(child);
}

TEST_F(ListHandles, ACloneSharesOnlyItsNestedLists) {
  ScopedList empty;
  ScopedList emptyClone(VXCloneHandle(empty));
  EXPECT_EQ(emptyClone->Data(), nullptr);

  ScopedList source, nested, other;
  VXSetInt32Value(source, "id", 7);
  VXSetHandleValue(source, "sub", nested);
  const HVXPARAMLIST arr[] = {other, nested};
  VXSetHandleArray(source, "arr", 2, arr);
  ScopedList clone(VXCloneHandle(source));
  EXPECT_EQ(testing::ImageHex(clone), testing::ImageHex(source));
  EXPECT_EQ(VXGetParamCount(clone), 3u);
  EXPECT_TRUE(Children(clone) == Children(source));
  EXPECT_EQ(RefCount(nested), 5);  // caller, and twice in each list

  VXSetInt32Value(clone, "extra", 1);
  EXPECT_EQ(VXParamInfo(source, "extra"), nullptr);
  VXSetInt32Value(VXGetHandleById(clone, 0), "seen", 3);
  EXPECT_EQ(VXGetInt32Value(nested, "seen"), 3u);
}

TEST_F(ListHandles, CopyMergesInTheSourceOrder) {
  ScopedList source, destination, child;
  VXSetInt32Value(source, "a", 10);
  VXSetInt32Value(destination, "a", 1);
  VXSetInt32Value(destination, "b", 2);
  EXPECT_EQ(VXCopyHandle(source, destination), 0);
  EXPECT_EQ(Dump(destination), "b[PT_INT32]=2\na[PT_INT32]=10\n");

  ScopedList full, copy;
  testing::FillEveryType(full, child);
  VXCopyHandle(full, copy);
  EXPECT_EQ(Dump(copy), Dump(full));
  EXPECT_EQ(copy->Used(), full->Used());
  EXPECT_EQ(copy->Count(), full->Count());
  EXPECT_TRUE(Children(copy) == Children(full));
  EXPECT_EQ(RefCount(child), 3);

  EXPECT_EQ(VXCopyHandle(destination, destination), 0);  // never into itself
  EXPECT_EQ(Dump(destination), "b[PT_INT32]=2\na[PT_INT32]=10\n");
}

// Kept as applications know it: a copied handle array is filled from the
// first children by position, and each of those keeps a reference nobody owns.
TEST_F(ListHandles, CopyOfAHandleArrayTakesTheFirstChildren) {
  ScopedList source, first, second, destination;
  VXSetHandleValue(source, "h", first);
  const HVXPARAMLIST arr[] = {second};
  VXSetHandleArray(source, "arr", 1, arr);
  VXCopyHandle(source, destination);
  EXPECT_EQ(ChildIds(destination), (std::vector<std::uint32_t>{0, 1}));
  EXPECT_EQ(VXGetHandleById(destination, 1), static_cast<HVXPARAMLIST>(first));
  EXPECT_EQ(RefCount(first), 5);  // caller, source, destination twice, the kept one
  EXPECT_EQ(RefCount(second), 2);
  MTObjects::ReferenceAccess::Release(ListFromHandle(first));  // for the leak check
}

class Holder : public testing::LeakCheckedTest {};

ParamListHolder ListWith(const char* name, unsigned value) {
  ParamListHolder holder;
  EXPECT_TRUE(holder.NewList());
  holder.SetInt32(name, value);
  return holder;
}

std::string Names(const ParamListHolder& holder) {
  std::string names;
  for (auto it = holder.begin(); it != holder.end(); ++it)
    names += it->name;
  return names;
}

// FromHandle borrows, FromRefHandle adopts, and assignment swaps or shares.
TEST_F(Holder, EveryWayToMakeOrAssignAHolderKeepsTheCount) {
  HVXPARAMLIST h = VXCreateParamList();
  { ParamListHolder borrowed = ParamListHolder::FromHandle(h); }
  EXPECT_EQ(RefCount(h), 1);
  std::uint32_t live = LiveLists();
  { ParamListHolder adopted = ParamListHolder::FromRefHandle(h); }
  EXPECT_EQ(LiveLists(), live - 1);

  ParamListHolder a = ListWith("a", 1);
  ParamListHolder b = ListWith("b", 2);
  const HVXPARAMLIST ha = a.GetHandle(), hb = b.GetHandle();
  a = std::move(b);  // swaps
  EXPECT_EQ(a.GetHandle(), hb);
  EXPECT_EQ(b.GetHandle(), ha);

  ParamListHolder& alias = a;
  a = alias;
  a = std::move(alias);
  EXPECT_EQ(a.GetHandle(), hb);
  EXPECT_EQ(RefCount(hb), 1);

  live = LiveLists();
  a = b;  // the list a held had no other owner
  EXPECT_EQ(RefCount(ha), 2);
  EXPECT_EQ(LiveLists(), live - 1);
}

// Kept: CopyDataTo answers false even when it copied, CopyDataFrom true.
TEST_F(Holder, CopyDataCreatesTheMissingList) {
  ParamListHolder source = ListWith("a", 9);
  ParamListHolder to, from;
  EXPECT_FALSE(source.CopyDataTo(to));
  EXPECT_EQ(to.GetInt32("a"), 9u);
  EXPECT_TRUE(from.CopyDataFrom(source));
  EXPECT_EQ(from.GetInt32("a"), 9u);

  source.SetInt32("b", 2);
  ParamListHolder sameList(source);
  EXPECT_FALSE(source.CopyDataFrom(source));
  EXPECT_FALSE(sameList.CopyDataFrom(source));
  EXPECT_EQ(Names(source), "ab");  // a copy would have moved a to the end
}

TEST_F(Holder, HandlesOfAnArrayComeOutByPosition) {
  ParamListHolder x = ListWith("x", 1), y = ListWith("y", 2), parent = ListWith("n", 0);
  const HVXPARAMLIST items[] = {x.GetHandle(), VX_INVALID_PARAMLIST, y.GetHandle()};
  parent.SetHandleArray("arr", 3, items);
  EXPECT_TRUE(!parent.GetHandle(-1));
  EXPECT_TRUE(!parent.GetHandle("arr", 1u));  // the null index
  EXPECT_EQ(parent.GetHandle("arr", 2u).GetHandle(), y.GetHandle());

  ParamListHolder out[3] = {ListWith("o", 0), ListWith("o", 1), ListWith("o", 2)};
  const std::uint32_t live = LiveLists();
  EXPECT_EQ(parent.GetHandleArray("arr", out, 3, 0), 3u);
  EXPECT_EQ(LiveLists(), live - 3);  // the lists the slots owned are gone
  EXPECT_EQ(out[0].GetHandle(), x.GetHandle());
  EXPECT_TRUE(!out[1]);
  EXPECT_EQ(RefCount(y.GetHandle()), 3);
}

// Two holders of one list: erase takes the iterators of either, ClearList
// lets go of one reference only, and RemoveAll empties the list for both.
TEST_F(Holder, ASharedListStaysConsistentForBothHolders) {
  ParamListHolder list = ListWith("x", 1);
  list.SetInt32("y", 2);
  list.SetInt32("z", 3);
  ParamListHolder other(list);
  auto next = list.erase(other.find("y"));
  ASSERT_TRUE(next);
  EXPECT_EQ(next.holder, &list);
  EXPECT_STREQ(next->name, "z");

  ParamListHolder stranger = ListWith("z", 0);
  EXPECT_TRUE(list.erase(stranger.find("z")) == list.end());
  EXPECT_EQ(list.erase("missing"), 0u);
  EXPECT_EQ(Names(list), "xz");
  EXPECT_EQ(stranger.GetCount(), 1u);

  EXPECT_TRUE(other.ClearList());
  EXPECT_EQ(list.GetCount(), 2u);
  EXPECT_EQ(RefCount(list.GetHandle()), 1);
  other = list;
  EXPECT_EQ(other.RemoveAll(), VX_SUCCESS);
  EXPECT_EQ(list.GetCount(), 0u);
  EXPECT_TRUE(list.begin() == list.end());
}

// Kept: the indexed 64-bit getter reads 32-bit words of a 64-bit array.
TEST_F(Holder, IndexedInt64ReadsThirtyTwoBitWords) {
  ParamListHolder list = ListWith("d", 0);
  const std::uint64_t wide[] = {0x1111111122222222ull, 0x3333333344444444ull};
  list.SetInt64Array("q", 2, wide);
  EXPECT_EQ(list.GetInt64("q", 0), 0x22222222ull);
  EXPECT_EQ(list.GetInt64("q", 1), 0x11111111ull);
  EXPECT_EQ(list.GetInt64("q", 2), 0ull);  // bounded by the element count
}

}  // namespace
}  // namespace vxbus
