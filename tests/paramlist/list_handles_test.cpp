// Nested lists: references, renumbering of child ids, clone and copy.
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "list_test_support.h"

namespace vxbus {
namespace {

using testing::Dump;
using testing::LiveLists;
using testing::RefCount;
using testing::ScopedList;

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

TEST_F(ListHandles, RemovalRenumbersHandlesAndHandleArrays) {
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

TEST_F(ListHandles, CloneCopiesTheImageAndSharesNestedLists) {
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

}  // namespace
}  // namespace vxbus
