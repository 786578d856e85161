#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "list_test_support.h"
#include "vxbus.h"

namespace vxbus {
namespace {

using testing::LiveLists;
using testing::RefCount;
using VX::ParamListHolder;

// A fresh list with one int32, owned by the holder.
ParamListHolder ListWith(const char* name, unsigned value) {
  ParamListHolder holder;
  EXPECT_TRUE(holder.NewList());
  holder.SetInt32(name, value);
  return holder;
}

std::vector<std::string> Names(const ParamListHolder& holder) {
  std::vector<std::string> names;
  for (auto it = holder.begin(); it != holder.end(); ++it)
    names.push_back(it->name);
  return names;
}

// ---------------------------------------------------------------------------
// Ownership: every member's reference traffic
// ---------------------------------------------------------------------------

class HolderOwnership : public testing::LeakCheckedTest {};

TEST_F(HolderOwnership, FromHandleBorrowsFromRefHandleAdopts) {
  HVXPARAMLIST h = VXCreateParamList();
  ASSERT_EQ(RefCount(h), 1);
  {
    ParamListHolder borrowed = ParamListHolder::FromHandle(h);
    EXPECT_EQ(borrowed.GetHandle(), h);
    EXPECT_EQ(RefCount(h), 2);
  }
  EXPECT_EQ(RefCount(h), 1);

  const std::uint32_t live = LiveLists();
  {
    ParamListHolder adopted = ParamListHolder::FromRefHandle(h);
    EXPECT_EQ(RefCount(h), 1);
  }
  EXPECT_EQ(LiveLists(), live - 1) << "the holder closes the reference it took over";

  EXPECT_TRUE(!ParamListHolder::FromHandle(VX_INVALID_PARAMLIST));
  EXPECT_TRUE(!ParamListHolder::FromRefHandle(VX_INVALID_PARAMLIST));
}

TEST_F(HolderOwnership, CopyAddsAReferenceMoveTransfersIt) {
  ParamListHolder a = ListWith("x", 1);
  const HVXPARAMLIST h = a.GetHandle();

  ParamListHolder copy(a);
  EXPECT_EQ(copy.GetHandle(), h);
  EXPECT_EQ(RefCount(h), 2);

  ParamListHolder moved(std::move(a));
  EXPECT_EQ(moved.GetHandle(), h);
  EXPECT_TRUE(!a);  // the source is null by contract
  EXPECT_EQ(RefCount(h), 2);

  ParamListHolder fromNull(a);
  EXPECT_TRUE(!fromNull);
}

TEST_F(HolderOwnership, CopyAssignmentReleasesTheOldListAfterReferencingTheNew) {
  ParamListHolder a = ListWith("a", 1);
  ParamListHolder b = ListWith("b", 2);
  const HVXPARAMLIST hb = b.GetHandle();
  const std::uint32_t live = LiveLists();

  a = b;
  EXPECT_EQ(a.GetHandle(), hb);
  EXPECT_EQ(RefCount(hb), 2);
  EXPECT_EQ(LiveLists(), live - 1) << "a's former list had no other owner";

  // Assigning another holder of the same list keeps the count.
  a = b;
  EXPECT_EQ(RefCount(hb), 2);

  ParamListHolder null;
  a = null;
  EXPECT_TRUE(!a);
  EXPECT_EQ(RefCount(hb), 1);
}

TEST_F(HolderOwnership, SelfAssignmentOfTheSoleOwnerKeepsTheList) {
  ParamListHolder a = ListWith("a", 7);
  const HVXPARAMLIST h = a.GetHandle();
  ParamListHolder& alias = a;
  a = alias;
  EXPECT_EQ(a.GetHandle(), h);
  EXPECT_EQ(RefCount(h), 1);
  EXPECT_EQ(a.GetInt32("a"), 7u);

  a = std::move(alias);
  EXPECT_EQ(a.GetHandle(), h);
  EXPECT_EQ(RefCount(h), 1);
}

TEST_F(HolderOwnership, MoveAssignmentAndSwapExchange) {
  ParamListHolder a = ListWith("a", 1);
  ParamListHolder b = ListWith("b", 2);
  const HVXPARAMLIST ha = a.GetHandle();
  const HVXPARAMLIST hb = b.GetHandle();

  a = std::move(b);
  EXPECT_EQ(a.GetHandle(), hb);
  EXPECT_EQ(b.GetHandle(), ha) << "the source keeps what the target held";
  EXPECT_EQ(RefCount(ha), 1);
  EXPECT_EQ(RefCount(hb), 1);

  a.swap(b);
  EXPECT_EQ(a.GetHandle(), ha);
  ParamListHolder::swap(a, b);
  EXPECT_EQ(a.GetHandle(), hb);
  EXPECT_EQ(b.GetHandle(), ha);
  EXPECT_EQ(RefCount(ha), 1);
  EXPECT_EQ(RefCount(hb), 1);

  ParamListHolder null;
  null = std::move(a);
  EXPECT_EQ(null.GetHandle(), hb);
  EXPECT_TRUE(!a);
}

TEST_F(HolderOwnership, HeapAllocatedHolderOwnsItsList) {
  const std::uint32_t live = LiveLists();
  ParamListHolder* holder = new ParamListHolder(ListWith("x", 3));
  EXPECT_EQ(LiveLists(), live + 1);
  EXPECT_EQ(holder->GetInt32("x"), 3u);
  delete holder;
  EXPECT_EQ(LiveLists(), live);
  ParamListHolder* none = nullptr;
  delete none;
}

// ---------------------------------------------------------------------------
// The list as a whole
// ---------------------------------------------------------------------------

class HolderList : public testing::LeakCheckedTest {};

TEST_F(HolderList, ClearListLetsGoRemoveAllEmptiesForEveryOwner) {
  ParamListHolder a = ListWith("x", 1);
  ParamListHolder b(a);

  EXPECT_TRUE(b.ClearList());
  EXPECT_TRUE(!b);
  EXPECT_EQ(a.GetCount(), 1u) << "the other owner keeps the parameters";
  EXPECT_EQ(RefCount(a.GetHandle()), 1);
  EXPECT_TRUE(b.ClearList()) << "a null holder clears too";

  b = a;
  EXPECT_EQ(b.RemoveAll(), VX_SUCCESS);
  EXPECT_EQ(a.GetCount(), 0u);
  EXPECT_TRUE(a.empty());
  EXPECT_FALSE(!a);
}

TEST_F(HolderList, NewListReleasesTheHeldList) {
  ParamListHolder a = ListWith("x", 1);
  ParamListHolder keeper(a);
  const HVXPARAMLIST old = a.GetHandle();

  EXPECT_TRUE(a.NewList());
  EXPECT_NE(a.GetHandle(), old);
  EXPECT_EQ(a.GetCount(), 0u);
  EXPECT_EQ(RefCount(a.GetHandle()), 1);
  EXPECT_EQ(RefCount(old), 1);
  EXPECT_EQ(keeper.GetInt32("x"), 1u);

  const std::uint32_t live = LiveLists();
  EXPECT_TRUE(a.NewList());
  EXPECT_EQ(LiveLists(), live) << "one list went, one came";
}

TEST_F(HolderList, CloneAdoptsTheNewListAndSharesChildren) {
  ParamListHolder child = ListWith("c", 5);
  ParamListHolder a = ListWith("x", 1);
  a.SetHandle("sub", child);

  ParamListHolder clone = a.Clone();
  ASSERT_FALSE(!clone);
  EXPECT_NE(clone.GetHandle(), a.GetHandle());
  EXPECT_EQ(RefCount(clone.GetHandle()), 1);
  EXPECT_EQ(clone.GetCount(), a.GetCount());
  EXPECT_EQ(clone.GetSize(), a.GetSize());
  EXPECT_EQ(clone.GetHandle("sub").GetHandle(), child.GetHandle());

  EXPECT_TRUE(!ParamListHolder().Clone());
}

TEST_F(HolderList, CopyDataIntoANullHolderCreatesItsList) {
  ParamListHolder source = ListWith("a", 9);

  ParamListHolder to;
  EXPECT_FALSE(source.CopyDataTo(to)) << "kept: false even after a copy";
  ASSERT_FALSE(!to);
  EXPECT_EQ(to.GetInt32("a"), 9u);
  EXPECT_EQ(RefCount(to.GetHandle()), 1);

  ParamListHolder from;
  EXPECT_TRUE(from.CopyDataFrom(source));
  ASSERT_FALSE(!from);
  EXPECT_EQ(from.GetInt32("a"), 9u);
  EXPECT_EQ(RefCount(from.GetHandle()), 1);
}

TEST_F(HolderList, CopyDataMergesIntoAnExistingList) {
  ParamListHolder source = ListWith("a", 9);
  ParamListHolder destination = ListWith("a", 1);
  destination.SetInt32("b", 2);
  EXPECT_TRUE(destination.CopyDataFrom(source));
  EXPECT_EQ(Names(destination), (std::vector<std::string>{"b", "a"}));
  EXPECT_EQ(destination.GetInt32("a"), 9u);
}

TEST_F(HolderList, CopyDataGuardsRefuseAndChangeNothing) {
  ParamListHolder a = ListWith("x", 1);
  a.SetInt32("y", 2);
  ParamListHolder sameList(a);

  EXPECT_FALSE(a.CopyDataFrom(a));
  EXPECT_FALSE(a.CopyDataTo(sameList));
  EXPECT_FALSE(sameList.CopyDataFrom(a));
  EXPECT_EQ(Names(a), (std::vector<std::string>{"x", "y"})) << "a copy would have moved x";

  ParamListHolder nullSource;
  ParamListHolder nullDestination;
  EXPECT_FALSE(nullSource.CopyDataTo(a));
  EXPECT_FALSE(a.CopyDataFrom(nullSource));
  EXPECT_FALSE(nullDestination.CopyDataFrom(nullSource));
  EXPECT_TRUE(!nullDestination) << "no list is made when the source is null";
  EXPECT_EQ(a.GetCount(), 2u);
}

// ---------------------------------------------------------------------------
// Nested lists through the holder
// ---------------------------------------------------------------------------

class HolderHandles : public testing::LeakCheckedTest {
 protected:
  void SetUp() override {
    testing::LeakCheckedTest::SetUp();
    x_ = ListWith("x", 1);
    y_ = ListWith("y", 2);
    parent_ = ListWith("n", 0);
    const HVXPARAMLIST items[] = {x_.GetHandle(), VX_INVALID_PARAMLIST, y_.GetHandle()};
    parent_.SetHandleArray("arr", 3, items);  // ids 0, null, 1
  }
  void TearDown() override {
    x_.ClearList();
    y_.ClearList();
    parent_.ClearList();
    testing::LeakCheckedTest::TearDown();
  }

  ParamListHolder x_, y_, parent_;
};

TEST_F(HolderHandles, GetHandleByIdAddsAReference) {
  ASSERT_EQ(RefCount(x_.GetHandle()), 2);
  {
    ParamListHolder child = parent_.GetHandle(0);
    EXPECT_EQ(child.GetHandle(), x_.GetHandle());
    EXPECT_EQ(RefCount(x_.GetHandle()), 3);
  }
  EXPECT_EQ(RefCount(x_.GetHandle()), 2);
  EXPECT_EQ(parent_.GetHandle(1).GetHandle(), y_.GetHandle());
  EXPECT_TRUE(!parent_.GetHandle(-1));
  EXPECT_TRUE(!parent_.GetHandle(2));
  EXPECT_TRUE(!ParamListHolder().GetHandle(0));
}

TEST_F(HolderHandles, GetHandleByNameAdoptsTheGettersReference) {
  parent_.SetHandle("single", y_);
  ASSERT_EQ(RefCount(y_.GetHandle()), 3);
  {
    ParamListHolder child = parent_.GetHandle("single");
    EXPECT_EQ(child.GetHandle(), y_.GetHandle());
    EXPECT_EQ(RefCount(y_.GetHandle()), 4);
  }
  EXPECT_EQ(RefCount(y_.GetHandle()), 3);
  EXPECT_TRUE(!parent_.GetHandle("missing"));
  EXPECT_TRUE(!parent_.GetHandle("n")) << "an int32 is not a list";

  parent_.SetHandle("empty", ParamListHolder());
  EXPECT_EQ(parent_.GetType("empty"), PT_PARAMHANDLE);
  EXPECT_TRUE(!parent_.GetHandle("empty"));
}

TEST_F(HolderHandles, GetHandleOfAnArrayElement) {
  {
    ParamListHolder first = parent_.GetHandle("arr", 0u);
    EXPECT_EQ(first.GetHandle(), x_.GetHandle());
    EXPECT_EQ(RefCount(x_.GetHandle()), 3);
  }
  EXPECT_EQ(RefCount(x_.GetHandle()), 2);
  EXPECT_TRUE(!parent_.GetHandle("arr", 1u)) << "the element holds the null index";
  EXPECT_EQ(parent_.GetHandle("arr", 2u).GetHandle(), y_.GetHandle());
  EXPECT_TRUE(!parent_.GetHandle("arr", 3u));
  EXPECT_TRUE(!parent_.GetHandle("n", 0u));
  EXPECT_TRUE(!parent_.GetHandle("missing", 0u));
}

TEST_F(HolderHandles, GetHandleArrayIntoHoldersReleasesWhatTheyHeld) {
  ParamListHolder out[3] = {ListWith("o", 0), ListWith("o", 1), ListWith("o", 2)};
  const std::uint32_t live = LiveLists();

  EXPECT_EQ(parent_.GetHandleArray("arr", out, 3, 0), 3u);
  EXPECT_EQ(LiveLists(), live - 3) << "the lists the slots owned are gone";
  EXPECT_EQ(out[0].GetHandle(), x_.GetHandle());
  EXPECT_TRUE(!out[1]);
  EXPECT_EQ(out[2].GetHandle(), y_.GetHandle());
  EXPECT_EQ(RefCount(x_.GetHandle()), 3);
  EXPECT_EQ(RefCount(y_.GetHandle()), 3);

  // From an offset, bounded by maxItems; slots beyond the result stay as they were.
  EXPECT_EQ(parent_.GetHandleArray("arr", out, 1, 2), 1u);
  EXPECT_EQ(out[0].GetHandle(), y_.GetHandle());
  EXPECT_EQ(out[2].GetHandle(), y_.GetHandle());
  EXPECT_EQ(RefCount(x_.GetHandle()), 2);

  EXPECT_EQ(parent_.GetHandleArray("arr", out, 0, 0), 0u);
  EXPECT_EQ(parent_.GetHandleArray("arr", out, 3, 3), 0u);
  EXPECT_EQ(parent_.GetHandleArray("n", out, 3, 0), 0u);
  EXPECT_EQ(parent_.GetHandleArray("missing", out, 3, 0), 0u);
  EXPECT_EQ(ParamListHolder().GetHandleArray("arr", out, 3, 0), 0u);
  EXPECT_EQ(out[0].GetHandle(), y_.GetHandle());
}

TEST_F(HolderHandles, GetHandleArrayIntoRawHandlesLendsThem) {
  HVXPARAMLIST out[4] = {};
  EXPECT_EQ(parent_.GetHandleArray("arr", out, 4, 0), 3u);
  EXPECT_EQ(out[0], x_.GetHandle());
  EXPECT_EQ(out[1], VX_INVALID_PARAMLIST);
  EXPECT_EQ(out[2], y_.GetHandle());
  EXPECT_EQ(out[3], VX_INVALID_PARAMLIST);
  EXPECT_EQ(RefCount(x_.GetHandle()), 2) << "no reference was added";
  EXPECT_EQ(parent_.GetHandleArray("arr", out, 2, 1), 2u);
  EXPECT_EQ(out[0], VX_INVALID_PARAMLIST);
  EXPECT_EQ(out[1], y_.GetHandle());
}

TEST_F(HolderHandles, SetHandleArrayFromHoldersTakesTheListsOwnReferences) {
  ParamListHolder items[2] = {x_, ParamListHolder()};
  ASSERT_EQ(RefCount(x_.GetHandle()), 3);
  EXPECT_EQ(parent_.SetHandleArray("held", 2, items), VX_SUCCESS);
  EXPECT_EQ(RefCount(x_.GetHandle()), 4);
  EXPECT_EQ(parent_.GetArraySize("held"), 2u);
  EXPECT_EQ(parent_.GetHandle("held", 0u).GetHandle(), x_.GetHandle());
  EXPECT_TRUE(!parent_.GetHandle("held", 1u));
}

// ---------------------------------------------------------------------------
// Iteration and erasing
// ---------------------------------------------------------------------------

class HolderIteration : public testing::LeakCheckedTest {
 protected:
  void SetUp() override {
    testing::LeakCheckedTest::SetUp();
    list_ = ListWith("x", 1);
    list_.SetString("y", "0123456789abcdef");
    list_.SetInt32("z", 3);
  }
  void TearDown() override {
    list_.ClearList();
    testing::LeakCheckedTest::TearDown();
  }

  ParamListHolder list_;
};

TEST_F(HolderIteration, WalksRecordsInTheOrderOfTheirLastSet) {
  EXPECT_EQ(Names(list_), (std::vector<std::string>{"x", "y", "z"}));
  list_.SetInt32("x", 4);
  EXPECT_EQ(Names(list_), (std::vector<std::string>{"y", "z", "x"}));
  auto it = list_.find("z");
  ASSERT_TRUE(static_cast<bool>(it));
  EXPECT_EQ(*it, list_.GetInfo("z"));
  EXPECT_TRUE(list_.find("missing") == list_.end());
}

TEST_F(HolderIteration, EmptyAndNullHoldersBeginAtTheEnd) {
  ParamListHolder empty;
  EXPECT_TRUE(empty.begin() == empty.end());
  EXPECT_TRUE(empty.empty());
  ASSERT_TRUE(empty.NewList());
  EXPECT_TRUE(empty.begin() == empty.end());
  EXPECT_EQ(empty.begin().info, nullptr);
  EXPECT_TRUE(empty.empty());
}

TEST_F(HolderIteration, EraseThroughAnotherHolderOfTheSameList) {
  ParamListHolder other(list_);
  auto next = list_.erase(other.find("y"));
  ASSERT_TRUE(static_cast<bool>(next));
  EXPECT_EQ(next.holder, &list_);
  EXPECT_STREQ(next->name, "z");
  EXPECT_EQ(Names(other), (std::vector<std::string>{"x", "z"}));

  EXPECT_TRUE(list_.erase(list_.find("z")) == list_.end()) << "the last record has no successor";
  EXPECT_EQ(list_.GetCount(), 1u);
}

TEST_F(HolderIteration, EraseRefusesIteratorsOfOtherLists) {
  ParamListHolder stranger = ListWith("y", 0);
  auto result = list_.erase(stranger.find("y"));
  EXPECT_TRUE(result == list_.end());
  EXPECT_EQ(result.holder, &list_);
  EXPECT_EQ(list_.GetCount(), 3u);
  EXPECT_EQ(stranger.GetCount(), 1u);

  ParamListHolder null;
  EXPECT_TRUE(null.erase(list_.find("y")) == null.end());
  EXPECT_EQ(list_.GetCount(), 3u);
  EXPECT_TRUE(list_.erase(list_.end()) == list_.end());
}

TEST_F(HolderIteration, EraseRefusesStaleIterators) {
  // After x goes, y moves down and its old position lies inside its own
  // text, whose bytes name no record.
  auto onY = list_.find("y");
  list_.Remove("x");
  EXPECT_TRUE(list_.erase(onY) == list_.end());
  EXPECT_EQ(list_.GetCount(), 2u);

  // A record that went: the image keeps its bytes, but its name finds nothing.
  auto onLast = list_.find("z");
  list_.Remove("z");
  EXPECT_TRUE(list_.erase(onLast) == list_.end());
  EXPECT_EQ(Names(list_), (std::vector<std::string>{"y"}));
}

TEST_F(HolderIteration, EraseByName) {
  EXPECT_EQ(list_.erase("y"), 1u);
  EXPECT_EQ(list_.erase("y"), 0u);
  EXPECT_EQ(Names(list_), (std::vector<std::string>{"x", "z"}));
  EXPECT_EQ(ParamListHolder().erase("x"), 0u);
}

// ---------------------------------------------------------------------------
// Getters and setters
// ---------------------------------------------------------------------------

class HolderValues : public testing::LeakCheckedTest {};

TEST_F(HolderValues, IndexedInt64ReadsThirtyTwoBitWords) {
  ParamListHolder list;
  ASSERT_TRUE(list.NewList());
  const std::uint64_t wide[] = {0x1111111122222222ull, 0x3333333344444444ull,
                                0x5555555566666666ull};
  list.SetInt64Array("q", 3, wide);
  EXPECT_EQ(list.GetInt64("q", 0), 0x22222222ull);
  EXPECT_EQ(list.GetInt64("q", 1), 0x11111111ull) << "the high half of element 0";
  EXPECT_EQ(list.GetInt64("q", 2), 0x44444444ull) << "the low half of element 1";
  EXPECT_EQ(list.GetInt64("q", 3), 0ull) << "bounded by the element count";

  const unsigned narrow[] = {1, 2, 3};
  list.SetInt32Array("d", 3, narrow);
  EXPECT_EQ(list.GetInt64("d", 0), 0ull) << "requires a 64-bit array";
  EXPECT_EQ(list.GetInt32("d", 2), 3u);
  EXPECT_EQ(list.GetInt32("d", 3), 0u);
  EXPECT_EQ(list.GetInt32("q", 0), 0u);
}

TEST_F(HolderValues, Int64ArrayAnswersForThirtyTwoBitArrays) {
  ParamListHolder list;
  ASSERT_TRUE(list.NewList());
  const std::uint64_t wide[] = {1, 2};
  const unsigned narrow[] = {7, 8, 9};
  list.SetInt64Array("q", 2, wide);
  list.SetInt32Array("d", 3, narrow);

  // The records are packed: copy the pointers out before comparing them.
  _tag_VXQWORDARRAY fromWide = list.GetInt64Array("q");
  const void* wideData = fromWide.data;
  EXPECT_EQ(fromWide.count, 0u);
  EXPECT_EQ(wideData, nullptr);
  _tag_VXQWORDARRAY fromNarrow = list.GetInt64Array("d");
  const void* narrowAsWide = fromNarrow.data;
  const void* narrowData = list.GetInt32Array("d").data;
  EXPECT_EQ(fromNarrow.count, 3u);
  EXPECT_EQ(narrowAsWide, narrowData);
}

TEST_F(HolderValues, ScalarsAndArraysRoundTrip) {
  ParamListHolder list;
  ASSERT_TRUE(list.NewList());
  const char* texts[] = {"one", "two"};
  const unsigned char bytesA[] = {1, 2, 3};
  const unsigned char bytesB[] = {4};
  const _tag_BINARYITEM items[] = {{3, bytesA}, {1, bytesB}};
  const void* data[] = {bytesB, bytesA};
  unsigned lengths[] = {1, 3};

  EXPECT_EQ(list.SetString("s", "text"), VX_SUCCESS);
  EXPECT_EQ(list.SetInt32("i", 0xFFFFFFFFu), VX_SUCCESS);
  EXPECT_EQ(list.SetInt64("l", 1ull << 40), VX_SUCCESS);
  EXPECT_EQ(list.SetBinary("b", bytesA, 3), VX_SUCCESS);
  EXPECT_EQ(list.SetStringArray("sa", 2, texts), VX_SUCCESS);
  EXPECT_EQ(list.SetBinaryArray("items", 2, items), VX_SUCCESS);
  EXPECT_EQ(list.SetBinaryArray("pairs", 2, data, lengths), VX_SUCCESS);

  EXPECT_STREQ(list.GetString("s"), "text");
  EXPECT_EQ(list.GetInt32("i"), 0xFFFFFFFFu);
  EXPECT_EQ(list.GetInt64("l"), 1ull << 40);
  ASSERT_NE(list.GetBinary("b"), nullptr);
  EXPECT_EQ(list.GetBinary("b")->length, 3u);
  EXPECT_STREQ(list.GetString("sa", 1), "two");
  EXPECT_EQ(list.GetString("sa", 2), nullptr);
  EXPECT_EQ(list.GetString("s", 0), nullptr);
  EXPECT_EQ(list.GetBinary("items", 1)->length, 1u);
  EXPECT_EQ(list.GetBinary("items", 1)->data[0], 4);
  EXPECT_EQ(list.GetBinary("pairs", 1)->length, 3u);
  EXPECT_EQ(std::memcmp(list.GetBinary("pairs", 1)->data, bytesA, 3), 0);
  EXPECT_EQ(list.GetBinary("pairs", 2), nullptr);
  EXPECT_EQ(list.GetBinary("sa", 0), nullptr);

  const char* outTexts[4] = {};
  EXPECT_EQ(list.GetStringArray("sa", outTexts, 4, 1), 1u);
  EXPECT_STREQ(outTexts[0], "two");
  const _tag_BINARYVALUE* outBinaries[4] = {};
  EXPECT_EQ(list.GetBinaryArray("items", outBinaries, 4, 0), 2u);
  EXPECT_EQ(outBinaries[0]->length, 3u);

  EXPECT_EQ(list.GetType("sa"), PT_ARRAY | PT_STRING);
  EXPECT_EQ(list.GetArrayType("sa"), PT_STRING);
  EXPECT_EQ(list.GetArraySize("sa"), 2u);
  EXPECT_EQ(list.GetType("i"), PT_INT32);
  EXPECT_EQ(list.GetArrayType("i"), PT_UNKNOWN);
  EXPECT_EQ(list.GetArraySize("i"), 0u);
  EXPECT_EQ(list.GetType("missing"), PT_UNKNOWN);
  EXPECT_EQ(list.GetArraySize("missing"), 0u);
  EXPECT_TRUE(list.Exists("b"));
  EXPECT_FALSE(list.Exists("missing"));

  EXPECT_EQ(list.Remove("missing"), VX_SUCCESS);
  EXPECT_EQ(list.Remove("s"), VX_SUCCESS);
  EXPECT_FALSE(list.Exists("s"));
}

TEST_F(HolderValues, NullHolderGivesEmptyAnswersAndFailsSetters) {
  ParamListHolder null;
  const unsigned u = 1;
  const std::uint64_t q = 1;
  const char* text = "t";
  const void* bytes = &u;
  unsigned length = 1;
  const _tag_BINARYITEM item = {1, &u};
  const HVXPARAMLIST handle = VX_INVALID_PARAMLIST;

  EXPECT_EQ(null.SetString("a", "b"), VX_ERROR_FAILED);
  EXPECT_EQ(null.SetInt32("a", 1), VX_ERROR_FAILED);
  EXPECT_EQ(null.SetInt64("a", 1), VX_ERROR_FAILED);
  EXPECT_EQ(null.SetBinary("a", &u, 1), VX_ERROR_FAILED);
  EXPECT_EQ(null.SetHandle("a", null), VX_ERROR_FAILED);
  EXPECT_EQ(null.SetStringArray("a", 1, &text), VX_ERROR_FAILED);
  EXPECT_EQ(null.SetInt32Array("a", 1, &u), VX_ERROR_FAILED);
  EXPECT_EQ(null.SetInt64Array("a", 1, &q), VX_ERROR_FAILED);
  EXPECT_EQ(null.SetBinaryArray("a", 1, &item), VX_ERROR_FAILED);
  EXPECT_EQ(null.SetBinaryArray("a", 1, &bytes, &length), VX_ERROR_FAILED);
  EXPECT_EQ(null.SetHandleArray("a", 1, &null), VX_ERROR_FAILED);
  EXPECT_EQ(null.SetHandleArray("a", 1, &handle), VX_ERROR_FAILED);
  EXPECT_EQ(null.Remove("a"), VX_ERROR_FAILED);
  EXPECT_EQ(null.RemoveAll(), VX_ERROR_FAILED);

  EXPECT_EQ(null.GetCount(), 0u);
  EXPECT_EQ(null.GetSize(), 0u);
  EXPECT_EQ(null.GetFirst(), nullptr);
  EXPECT_EQ(null.GetType("a"), PT_UNKNOWN);
  EXPECT_EQ(null.GetString("a"), nullptr);
  EXPECT_EQ(null.GetString("a", 0), nullptr);
  EXPECT_EQ(null.GetInt32("a", 0), 0u);
  EXPECT_EQ(null.GetInt64("a", 0), 0u);
  EXPECT_EQ(null.GetBinary("a", 0), nullptr);
  EXPECT_EQ(null.GetInt32Array("a").count, 0u);
  EXPECT_EQ(null.GetInt64Array("a").count, 0u);
  const char* out[1] = {};
  EXPECT_EQ(null.GetStringArray("a", out, 1, 0), 0u);
}

}  // namespace
}  // namespace vxbus
