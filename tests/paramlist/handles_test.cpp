// Handles: creation and closing, sharing, clone and copy.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "image_pattern.h"
#include "list_test_support.h"
#include "paramlist/handle.h"
#include "runtime/object_counters.h"

namespace vxbus {
namespace {

using testing::LiveLists;
using testing::RefCount;
using testing::ScopedList;

class Handles : public testing::LeakCheckedTest {};

std::vector<std::string> Names(HVXPARAMLIST list) {
  std::vector<std::string> names;
  for (auto* r = VXGetFirstParam(list); r != nullptr; r = VXGetNextParam(list, r)) {
    names.push_back(r->name);
  }
  return names;
}

TEST_F(Handles, CreateCountsALiveListAndCloseGivesItBack) {
  const std::uint32_t before = g_liveParamLists.load();
  HVXPARAMLIST l = VXCreateParamList();
  ASSERT_NE(l, VX_INVALID_PARAMLIST);
  EXPECT_EQ(RefCount(l), 1);
  EXPECT_EQ(g_liveParamLists.load(), before + 1);
  EXPECT_EQ(LiveLists(), before + 1);
  EXPECT_EQ(VXCloseHandle(l), 0);
  EXPECT_EQ(g_liveParamLists.load(), before);
}

TEST_F(Handles, NullHandlesAreAnsweredQuietly) {
  EXPECT_EQ(VX_INVALID_PARAMLIST.value, nullptr);
  EXPECT_EQ(VXCloseHandle(VX_INVALID_PARAMLIST), 0);
  EXPECT_EQ(VXReferenceHandle(VX_INVALID_PARAMLIST), VX_INVALID_PARAMLIST);
  EXPECT_EQ(VXCloneHandle(VX_INVALID_PARAMLIST), VX_INVALID_PARAMLIST);
  EXPECT_EQ(VXGetHandleById(VX_INVALID_PARAMLIST, 0), VX_INVALID_PARAMLIST);
  EXPECT_EQ(VXGetHandleSize(VX_INVALID_PARAMLIST), 0u);
  EXPECT_EQ(VXGetParamCount(VX_INVALID_PARAMLIST), 0u);
  EXPECT_EQ(VXCopyHandle(VX_INVALID_PARAMLIST, VX_INVALID_PARAMLIST), 0);
}

TEST_F(Handles, ReferenceAddsOneMoreOnTheSameList) {
  HVXPARAMLIST l = VXCreateParamList();
  EXPECT_EQ(VXReferenceHandle(l), l);
  EXPECT_EQ(RefCount(l), 2);
  VXCloseHandle(l);
  VXCloseHandle(l);
}

// Reference counts and the live-list counter are the only parts of a list
// that several threads may touch at once.
TEST_F(Handles, ReferencesComeAndGoFromSeveralThreads) {
  HVXPARAMLIST shared = VXCreateParamList();
  auto churn = [shared] {
    for (int i = 0; i < 2000; ++i) {
      VXCloseHandle(VXReferenceHandle(shared));
      VXCloseHandle(VXCreateParamList());
    }
  };
  std::thread a(churn);
  std::thread b(churn);
  a.join();
  b.join();
  EXPECT_EQ(RefCount(shared), 1);
  VXCloseHandle(shared);
}

TEST_F(Handles, NestedListOutlivesItsParent) {
  HVXPARAMLIST parent = VXCreateParamList();
  HVXPARAMLIST child = VXCreateParamList();
  VXSetInt32Value(child, "v", 5);
  VXSetHandleValue(parent, "c", child);
  VXCloseHandle(child);
  HVXPARAMLIST held = VXGetHandleValue(parent, "c");
  VXCloseHandle(parent);
  EXPECT_EQ(VXGetInt32Value(held, "v"), 5u);
  EXPECT_EQ(RefCount(held), 1);
  VXCloseHandle(held);
}

TEST_F(Handles, ReleasingARootEndsAWholeTree) {
  const std::uint32_t before = g_liveParamLists.load();
  HVXPARAMLIST root = VXCreateParamList();
  HVXPARAMLIST level = root;
  for (int i = 0; i < 5; ++i) {
    HVXPARAMLIST next = VXCreateParamList();
    VXSetHandleValue(level, "n", next);
    VXCloseHandle(next);
    level = next;
  }
  EXPECT_EQ(g_liveParamLists.load(), before + 6);
  VXCloseHandle(root);
  EXPECT_EQ(g_liveParamLists.load(), before);
}

TEST_F(Handles, GetHandleByIdIsBorrowedAndBounded) {
  ScopedList parent;
  ScopedList a;
  ScopedList b;
  VXSetHandleValue(parent, "a", a);
  VXSetHandleValue(parent, "b", b);
  EXPECT_EQ(VXGetHandleById(parent, 1), static_cast<HVXPARAMLIST>(b));
  EXPECT_EQ(RefCount(b), 2);  // nothing added
  EXPECT_EQ(VXGetHandleById(parent, 2), VX_INVALID_PARAMLIST);
  EXPECT_EQ(VXGetHandleById(parent, kNullIndex), VX_INVALID_PARAMLIST);
}

TEST_F(Handles, SizeAndCountOfTheImageAlone) {
  ScopedList parent;
  ScopedList child;
  VXSetStringValue(child, "long", "a text that does not count for the parent");
  VXSetInt32Value(parent, "id", 7);
  VXSetHandleValue(parent, "sub", child);
  EXPECT_EQ(VXGetHandleSize(parent), 24u);
  EXPECT_EQ(VXGetParamCount(parent), 2u);
}

TEST_F(Handles, CloneOfAnEmptyListAllocatesNoImage) {
  ScopedList source;
  ScopedList clone(VXCloneHandle(source));
  ASSERT_NE(static_cast<HVXPARAMLIST>(clone), VX_INVALID_PARAMLIST);
  EXPECT_NE(static_cast<HVXPARAMLIST>(clone), static_cast<HVXPARAMLIST>(source));
  EXPECT_EQ(clone->Data(), nullptr);
  EXPECT_EQ(clone->Count(), 0u);
  EXPECT_EQ(RefCount(clone), 1);
}

TEST_F(Handles, CloneCopiesTheImageAndSharesNestedLists) {
  ScopedList source;
  ScopedList nested;
  ScopedList other;
  VXSetInt32Value(source, "id", 7);
  VXSetHandleValue(source, "sub", nested);
  const HVXPARAMLIST arr[] = {other, nested};
  VXSetHandleArray(source, "arr", 2, arr);
  VXSetStringValue(source, "s", "text");

  ScopedList clone(VXCloneHandle(source));
  ASSERT_EQ(clone->Used(), source->Used());
  EXPECT_EQ(clone->capacity, source->Used());  // one growth, exactly the image
  EXPECT_EQ(std::memcmp(clone->Data(), source->Data(), source->Used()), 0);
  EXPECT_EQ(VXGetParamCount(clone), 4u);
  ASSERT_EQ(clone->ChildCount(), 3u);
  for (std::uint32_t id = 0; id < 3; ++id) {
    EXPECT_EQ(VXGetHandleById(clone, id), VXGetHandleById(source, id));
  }
  EXPECT_EQ(RefCount(nested), 5);  // caller, two in source, two in clone

  // New parameters stay apart; changes inside shared lists show through both.
  VXSetInt32Value(clone, "extra", 1);
  EXPECT_EQ(VXParamInfo(source, "extra"), nullptr);
  VXSetInt32Value(VXGetHandleById(clone, 0), "seen", 3);
  HVXPARAMLIST fromSource = VXGetHandleValue(source, "sub");
  EXPECT_EQ(VXGetInt32Value(fromSource, "seen"), 3u);
  VXCloseHandle(fromSource);
}

TEST_F(Handles, CopyMergesInTheSourceOrderAndReplacesEqualNames) {
  ScopedList source;
  ScopedList destination;
  VXSetInt32Value(source, "a", 10);
  VXSetInt32Value(destination, "a", 1);
  VXSetInt32Value(destination, "b", 2);
  EXPECT_EQ(VXCopyHandle(source, destination), 0);
  EXPECT_EQ(Names(destination), (std::vector<std::string>{"b", "a"}));
  EXPECT_EQ(VXGetInt32Value(destination, "a"), 10u);

  VXSetStringValue(source, "z", "last");
  VXSetStringValue(source, "m", "middle");
  VXCopyHandle(source, destination);
  EXPECT_EQ(Names(destination), (std::vector<std::string>{"b", "a", "z", "m"}));
}

TEST_F(Handles, CopyCarriesEveryTypeAndSharesNestedLists) {
  ScopedList source;
  ScopedList nested;
  const unsigned char bytes[] = {9, 8, 7};
  const char* texts[] = {"one", nullptr, "three"};
  const std::uint32_t dwords[] = {1, 2, 3};
  const std::uint64_t qwords[] = {0x100000001ull, 0x200000002ull};
  const _tag_BINARYITEM items[] = {{3, bytes}, {1, bytes + 2}};
  VXSetStringValue(source, "s", "text");
  VXSetInt32Value(source, "i", 32);
  VXSetInt64Value(source, "q", 0x123456789ull);
  VXSetBinaryValue(source, "b", bytes, 3);
  VXSetHandleValue(source, "h", nested);
  VXSetStringArray(source, "sa", 3, texts);
  VXSetInt32Array(source, "ia", 3, dwords);
  VXSetInt64Array(source, "qa", 2, qwords);
  VXSetBinaryItemArray(source, "ba", 2, items);

  ScopedList destination;
  VXCopyHandle(source, destination);
  // Same records in the same order, so the same image up to the filler.
  ASSERT_EQ(destination->Used(), source->Used());
  EXPECT_EQ(destination->Count(), 9u);
  EXPECT_EQ(Names(destination), Names(source));
  EXPECT_STREQ(VXGetStringValue(destination, "s"), "text");
  EXPECT_EQ(VXGetInt64Value(destination, "q"), 0x123456789ull);
  EXPECT_EQ(VXGetBinaryValue(destination, "b")->data[2], 7);
  const char* out[3];
  ASSERT_EQ(VXGetStringArray(destination, "sa", out, 3, 0), 3u);
  EXPECT_STREQ(out[2], "three");
  EXPECT_EQ(VXGetInt32Array(destination, "ia").data[2], 3u);
  const _tag_VXPARAMINFO* qa = VXParamInfo(destination, "qa");
  EXPECT_EQ(std::memcmp(qa->GetValue()->Bytes() + 5, qwords, sizeof qwords), 0);
  const _tag_BINARYVALUE* bins[2];
  ASSERT_EQ(VXGetBinaryArray(destination, "ba", bins, 2, 0), 2u);
  EXPECT_EQ(bins[1]->length, 1u);
  EXPECT_EQ(bins[1]->data[0], 7);
  // Nested list shared, with a reference of the destination's own.
  EXPECT_EQ(VXGetHandleById(destination, 0), static_cast<HVXPARAMLIST>(nested));
  EXPECT_EQ(RefCount(nested), 3);
}

// The handle array is filled from the first children by position, and each of
// those gets a reference that nobody owns: kept as applications know it.
TEST_F(Handles, CopyOfAHandleArrayTakesTheFirstChildrenAndKeepsAReference) {
  ScopedList source;
  ScopedList first;
  ScopedList second;
  VXSetHandleValue(source, "h", first);
  const HVXPARAMLIST arr[] = {second};
  VXSetHandleArray(source, "arr", 1, arr);

  ScopedList destination;
  VXCopyHandle(source, destination);
  _tag_VXDWORDARRAY ids = VXGetHandleArray(destination, "arr");
  ASSERT_EQ(std::uint32_t{ids.count}, 1u);
  EXPECT_EQ(VXGetHandleById(destination, ids.data[0]), static_cast<HVXPARAMLIST>(first));
  // caller, source, destination twice, and the one that was never released
  EXPECT_EQ(RefCount(first), 5);
  EXPECT_EQ(RefCount(second), 2);
  MTObjects::ReferenceAccess::Release(ListFromHandle(first));  // balance it for the leak check
}

TEST_F(Handles, CopyOfANullHandleStoresANullHandle) {
  ScopedList source;
  VXSetHandleValue(source, "h", VX_INVALID_PARAMLIST);
  ScopedList destination;
  VXCopyHandle(source, destination);
  EXPECT_EQ(VXGetHandleValue(destination, "h"), VX_INVALID_PARAMLIST);
  EXPECT_EQ(destination->ChildCount(), 0u);
}

TEST_F(Handles, CopyFromAnEmptySourceTouchesNothing) {
  ScopedList source;
  EXPECT_EQ(VXCopyHandle(source, VX_INVALID_PARAMLIST), 0);
  ScopedList destination;
  VXSetInt32Value(destination, "keep", 1);
  EXPECT_EQ(VXCopyHandle(source, destination), 0);
  EXPECT_EQ(VXGetParamCount(destination), 1u);
  // A list is not copied into itself.
  VXSetInt32Value(source, "a", 1);
  EXPECT_EQ(VXCopyHandle(source, source), 0);
  EXPECT_EQ(VXGetParamCount(source), 1u);
}

}  // namespace
}  // namespace vxbus
