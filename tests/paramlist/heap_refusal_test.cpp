// SPDX-License-Identifier: MIT
// Each place that takes a block from the private heap, made to see it
// refused: the operation fails the designed way or goes on without the
// block, and nothing uses memory it was not given.
#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

#include "list_test_support.h"
#include "runtime/private_heap.h"

namespace vxbus {
namespace {

using testing::ScopedList;

class HeapRefusal : public testing::LeakCheckedTest {
 protected:
  void TearDown() override {
    RefusePrivateBlocksFrom(0);
    testing::LeakCheckedTest::TearDown();
  }
};

std::vector<std::uint32_t> HandleIds(HVXPARAMLIST list) {
  std::vector<std::uint32_t> ids;
  for (auto* r = VXGetFirstParam(list); r != nullptr; r = VXGetNextParam(list, r))
    if (r->GetType() == PT_PARAMHANDLE)
      ids.push_back(vxbus_detail::LoadU32(r->GetValue()->Bytes() + 1));
  return ids;
}

// Guards the renumbering table of a removed handle array: more than 64
// children need it from the heap, and when the heap refuses it the other
// records still name the right children.
TEST_F(HeapRefusal, RemovingALargeHandleArrayStillRenumbersWithoutItsTable) {
  constexpr std::uint32_t kArrayLength = 100;
  std::vector<ScopedList> lists(kArrayLength + 2);
  std::vector<HVXPARAMLIST> array;
  for (std::uint32_t i = 0; i < kArrayLength; ++i)
    array.push_back(lists[i + 1]);
  ScopedList parent;
  VXSetHandleValue(parent, "first", lists[0]);
  VXSetHandleArray(parent, "arr", kArrayLength, array.data());
  VXSetHandleValue(parent, "last", lists[kArrayLength + 1]);

  RefusePrivateBlocksFrom(4 * (kArrayLength + 2));
  VXRemoveValue(parent, "arr");
  RefusePrivateBlocksFrom(0);

  EXPECT_EQ(HandleIds(parent), (std::vector<std::uint32_t>{0, 1}));
  ASSERT_EQ(ListFromHandle(parent)->ChildCount(), 2u);
  EXPECT_EQ(parent->Child(0), lists[0].operator->());
  EXPECT_EQ(parent->Child(1), lists[kArrayLength + 1].operator->());
}

// Guards the check of the clone's image: a clone the heap cannot complete
// is a null handle, not a list with records missing.
TEST_F(HeapRefusal, ACloneTheHeapRefusesIsANullHandle) {
  ScopedList source;
  const std::vector<unsigned char> bytes(4096, 0x5a);  // an image this large skips the pool
  ASSERT_EQ(VXSetBinaryValue(source, "b", bytes.data(), 4096), VX_SUCCESS);
  RefusePrivateBlocksFrom(2048);
  const HVXPARAMLIST clone = VXCloneHandle(source);
  RefusePrivateBlocksFrom(0);
  EXPECT_EQ(clone, VX_INVALID_PARAMLIST);
  VXCloseHandle(clone);
}

// Guards the holder's operator new: a refused block is a null holder, as
// VXAllocate gives null, rather than an exception out of the library.
TEST_F(HeapRefusal, AHolderTheHeapRefusesIsNull) {
  RefusePrivateBlocksFrom(1);
  VX::ParamListHolder* holder = new VX::ParamListHolder;
  RefusePrivateBlocksFrom(0);
  EXPECT_EQ(holder, nullptr);
  delete holder;
}

}  // namespace
}  // namespace vxbus
