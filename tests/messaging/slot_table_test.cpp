#include <gtest/gtest.h>

#include <mutex>
#include <thread>

#include "messaging/slot_table.h"
#include "support/wait.h"

namespace vxbus {
namespace {

_tag_VX_ERROR SlotA(HVXPARAMLIST, HVXPARAMLIST, VXSlotContext*) {
  return VX_SUCCESS;
}
_tag_VX_ERROR SlotB(HVXPARAMLIST, HVXPARAMLIST, VXSlotContext*) {
  return VX_SUCCESS;
}

VXSlotTable& Table() {
  return VXSlotTable::Instance();
}

// Records apply in array order, and a repeated id replaces its entry.
TEST(SlotTable, ReRegistrationReplacesInPlace) {
  int first = 0, second = 0;
  const _tag_SLOT_DESCRIPTION slots[3] = {
      {201, SlotA, &first}, {202, SlotA, nullptr}, {201, SlotB, &second}};
  const std::size_t before = Table().Size();
  EXPECT_EQ(VXRegisterSlots(slots, 3), VX_SUCCESS);
  EXPECT_EQ(Table().Size(), before + 2);
  VXSlotTable::Entry entry;
  ASSERT_TRUE(Table().Find(201, &entry));
  EXPECT_EQ(entry.slotFunction, &SlotB);
  EXPECT_EQ(entry.userData, &second);
  VXUnregisterSlot(201);
  VXUnregisterSlot(202);
}

TEST(SlotTable, UnregisterUnknownKnownAgain) {
  EXPECT_EQ(VXUnregisterSlot(31), VX_ERROR_NO_SLOT);
  VXRegisterSlot(31, SlotA, nullptr);
  EXPECT_EQ(VXUnregisterSlot(31), VX_SUCCESS);
  EXPECT_EQ(VXUnregisterSlot(31), VX_ERROR_NO_SLOT);
}

_tag_VX_ERROR RegistersAnother(HVXPARAMLIST, HVXPARAMLIST, VXSlotContext*) {
  VXRegisterSlot(402, SlotB, nullptr);
  VXUnregisterSlot(401);
  return VX_SUCCESS;
}

// The dispatch thread holds the table's mutex across each slot function.
TEST(SlotTable, SlotFunctionMayChangeTheTableUnderTheHeldMutex) {
  VXRegisterSlot(401, RegistersAnother, nullptr);
  testing::Signal done;
  std::thread dispatcher([&] {
    std::lock_guard<std::recursive_mutex> hold(Table().Mutex());
    VXSlotTable::Entry entry;
    if (Table().Find(401, &entry)) entry.slotFunction({}, {}, nullptr);
    done.Raise();
  });
  if (!done.WaitFor()) {
    dispatcher.detach();  // deadlocked: fail rather than hang
    FAIL() << "a slot function that registers a slot deadlocked";
  }
  dispatcher.join();
  EXPECT_EQ(VXUnregisterSlot(402), VX_SUCCESS);
  EXPECT_EQ(VXUnregisterSlot(401), VX_ERROR_NO_SLOT);
}

}  // namespace
}  // namespace vxbus
