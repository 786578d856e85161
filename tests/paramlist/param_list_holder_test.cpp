// ParamListHolder: the reference each member takes or gives back, and the
// answers applications depend on as they stand.
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <utility>

#include "list_test_support.h"

namespace vxbus {
namespace {

using testing::LiveLists;
using testing::RefCount;
using VX::ParamListHolder;

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

TEST_F(Holder, FromHandleBorrowsFromRefHandleAdopts) {
  HVXPARAMLIST h = VXCreateParamList();
  { ParamListHolder borrowed = ParamListHolder::FromHandle(h); }
  EXPECT_EQ(RefCount(h), 1);
  const std::uint32_t live = LiveLists();
  { ParamListHolder adopted = ParamListHolder::FromRefHandle(h); }
  EXPECT_EQ(LiveLists(), live - 1);
}

TEST_F(Holder, AssignmentKeepsTheCountsRight) {
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

  const std::uint32_t live = LiveLists();
  a = b;  // the list a held had no other owner
  EXPECT_EQ(RefCount(ha), 2);
  EXPECT_EQ(LiveLists(), live - 1);
}

TEST_F(Holder, ClearListLetsGoRemoveAllEmptiesForEveryOwner) {
  ParamListHolder a = ListWith("x", 1);
  ParamListHolder b(a);
  EXPECT_TRUE(b.ClearList());
  EXPECT_EQ(a.GetCount(), 1u);
  EXPECT_EQ(RefCount(a.GetHandle()), 1);
  b = a;
  EXPECT_EQ(b.RemoveAll(), VX_SUCCESS);
  EXPECT_EQ(a.GetCount(), 0u);
  EXPECT_TRUE(a.begin() == a.end());
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

TEST_F(Holder, HandlesOfAnArray) {
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

TEST_F(Holder, EraseTakesIteratorsOfTheSameListOnly) {
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
