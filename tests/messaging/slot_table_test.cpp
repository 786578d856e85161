#include <gtest/gtest.h>

#include <atomic>
#include <limits>
#include <mutex>
#include <thread>
#include <vector>

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

bool IsRegistered(std::uint32_t id) {
  VXSlotTable::Entry entry;
  return Table().Find(id, &entry);
}

// The table is process-wide; each test removes the ids it used.
class SlotTableTest : public ::testing::Test {
 protected:
  void TearDown() override {
    for (std::uint32_t id : used_)
      VXUnregisterSlot(id);
  }
  void Use(std::initializer_list<std::uint32_t> ids) { used_.insert(used_.end(), ids); }

 private:
  std::vector<std::uint32_t> used_;
};

TEST_F(SlotTableTest, RegisterSlotsReadsNothingForCountZeroOrBelow) {
  Use({101, 102});
  const std::size_t before = Table().Size();
  const _tag_SLOT_DESCRIPTION slots[2] = {{101, SlotA, nullptr}, {102, SlotB, nullptr}};
  EXPECT_EQ(VXRegisterSlots(slots, 0), VX_SUCCESS);
  EXPECT_EQ(VXRegisterSlots(slots, -1), VX_SUCCESS);
  EXPECT_EQ(VXRegisterSlots(slots, std::numeric_limits<int>::min()), VX_SUCCESS);
  EXPECT_EQ(VXRegisterSlots(nullptr, 5), VX_SUCCESS);
  EXPECT_EQ(Table().Size(), before);
  EXPECT_FALSE(IsRegistered(101));
}

// Records are packed 20 bytes apart and applied in array order, so a later
// record of the same id wins.
TEST_F(SlotTableTest, RegisterSlotsAppliesEveryRecordInOrder) {
  Use({201, 202});
  int first = 0, second = 0, third = 0;
  const _tag_SLOT_DESCRIPTION slots[3] = {
      {201, SlotA, &first}, {202, SlotB, &second}, {201, SlotB, &third}};
  EXPECT_EQ(VXRegisterSlots(slots, 3), VX_SUCCESS);

  VXSlotTable::Entry entry;
  ASSERT_TRUE(Table().Find(201, &entry));
  EXPECT_EQ(entry.slotId, 201u);
  EXPECT_EQ(entry.slotFunction, &SlotB);
  EXPECT_EQ(entry.userData, &third);
  ASSERT_TRUE(Table().Find(202, &entry));
  EXPECT_EQ(entry.slotFunction, &SlotB);
  EXPECT_EQ(entry.userData, &second);
}

TEST_F(SlotTableTest, SecondRegistrationReplacesInPlace) {
  Use({7});
  int one = 0, two = 0;
  const std::size_t before = Table().Size();
  EXPECT_EQ(VXRegisterSlot(7, SlotA, &one), VX_SUCCESS);
  EXPECT_EQ(VXRegisterSlot(7, SlotB, &two), VX_SUCCESS);
  EXPECT_EQ(Table().Size(), before + 1);

  VXSlotTable::Entry entry;
  ASSERT_TRUE(Table().Find(7, &entry));
  EXPECT_EQ(entry.slotFunction, &SlotB);
  EXPECT_EQ(entry.userData, &two);
}

TEST_F(SlotTableTest, UnregisterUnknownThenKnownThenAgain) {
  Use({31});
  EXPECT_EQ(VXUnregisterSlot(31), VX_ERROR_NO_SLOT);
  VXRegisterSlot(31, SlotA, nullptr);
  EXPECT_EQ(VXUnregisterSlot(31), VX_SUCCESS);
  EXPECT_EQ(VXUnregisterSlot(31), VX_ERROR_NO_SLOT);
  EXPECT_FALSE(IsRegistered(31));
}

// No id is special to the table: 0 and the two built-in ids register,
// replace and unregister like any other, and a null function is kept.
TEST_F(SlotTableTest, ZeroAndBuiltInIdsAreOrdinaryKeys) {
  Use({0, VX_SLOT_CONNECT_SIGNAL, VX_SLOT_DISCONNECT_SIGNAL});
  int data = 0;
  for (std::uint32_t id : {0u, 0xFFFFFFFFu, 0xFFFFFFFEu}) {
    EXPECT_EQ(VXRegisterSlot(id, SlotA, &data), VX_SUCCESS);
    VXSlotTable::Entry entry;
    ASSERT_TRUE(Table().Find(id, &entry)) << id;
    EXPECT_EQ(entry.slotId, id);
    EXPECT_EQ(VXRegisterSlot(id, nullptr, nullptr), VX_SUCCESS);
    ASSERT_TRUE(Table().Find(id, &entry));
    EXPECT_EQ(entry.slotFunction, nullptr);
    EXPECT_EQ(VXUnregisterSlot(id), VX_SUCCESS);
    EXPECT_EQ(VXUnregisterSlot(id), VX_ERROR_NO_SLOT);
  }
  EXPECT_EQ(VXUnregisterSlot(static_cast<std::uint32_t>(-1)), VX_ERROR_NO_SLOT);
}

// What the dispatch thread does: hold the table's mutex across the look-up
// and the call. Returns false when the id is not registered.
bool DispatchOnce(std::uint32_t id, HVXPARAMLIST input, HVXPARAMLIST output) {
  std::lock_guard<std::recursive_mutex> hold(Table().Mutex());
  VXSlotTable::Entry entry;
  if (!Table().Find(id, &entry)) return false;
  VXSlotContext context{"", entry.userData};
  entry.slotFunction(input, output, &context);
  return true;
}

_tag_VX_ERROR RegistersAnotherAndRemovesItself(HVXPARAMLIST, HVXPARAMLIST, VXSlotContext* ctx) {
  auto* calls = static_cast<int*>(ctx->userData);
  ++*calls;
  VXRegisterSlot(402, SlotB, nullptr);
  VXRegisterSlot(401, RegistersAnotherAndRemovesItself, ctx->userData);  // replaces itself
  VXUnregisterSlot(401);
  return VX_SUCCESS;
}

TEST_F(SlotTableTest, SlotFunctionMayChangeTheTableWhileDispatchHoldsIt) {
  Use({401, 402});
  int calls = 0;
  VXRegisterSlot(401, RegistersAnotherAndRemovesItself, &calls);

  testing::Signal done;
  std::thread dispatcher([&] {
    DispatchOnce(401, HVXPARAMLIST{nullptr}, HVXPARAMLIST{nullptr});
    done.Raise();
  });
  const bool finished = done.WaitFor();
  if (!finished) {
    dispatcher.detach();  // deadlocked: the test fails rather than hangs
    FAIL() << "a slot function that registers a slot deadlocked";
  }
  dispatcher.join();
  EXPECT_EQ(calls, 1);
  EXPECT_TRUE(IsRegistered(402));
  EXPECT_FALSE(IsRegistered(401));
  EXPECT_FALSE(DispatchOnce(401, HVXPARAMLIST{nullptr}, HVXPARAMLIST{nullptr}));
}

struct BlockingSlot {
  testing::Signal entered;
  testing::Signal release;
};

_tag_VX_ERROR WaitsForRelease(HVXPARAMLIST, HVXPARAMLIST, VXSlotContext* ctx) {
  auto* state = static_cast<BlockingSlot*>(ctx->userData);
  state->entered.Raise();
  state->release.WaitFor();
  return VX_SUCCESS;
}

// Another thread's registration waits for the running slot function, so an
// entry can't be removed while its function runs.
TEST_F(SlotTableTest, OtherThreadsWaitForTheRunningSlotFunction) {
  Use({501, 502});
  BlockingSlot state;
  VXRegisterSlot(501, WaitsForRelease, &state);

  std::thread dispatcher([] { DispatchOnce(501, HVXPARAMLIST{nullptr}, HVXPARAMLIST{nullptr}); });
  ASSERT_TRUE(state.entered.WaitFor());

  std::atomic<bool> unregistered{false};
  std::thread other([&] {
    VXUnregisterSlot(501);
    unregistered = true;
  });
  // The other thread can only get the mutex once the slot function is done.
  const bool mutexWasFree = Table().Mutex().try_lock();
  if (mutexWasFree) Table().Mutex().unlock();
  EXPECT_FALSE(mutexWasFree);
  EXPECT_FALSE(unregistered.load());
  state.release.Raise();
  dispatcher.join();
  other.join();
  EXPECT_TRUE(unregistered.load());
  EXPECT_FALSE(IsRegistered(501));
}

// Registrations from many threads while a dispatcher keeps looking up.
TEST_F(SlotTableTest, ConcurrentRegistrationAndDispatch) {
  constexpr std::uint32_t kBase = 10000;
  constexpr std::uint32_t kPerThread = 200;
  std::atomic<bool> stop{false};
  std::thread dispatcher([&] {
    while (!stop.load())
      DispatchOnce(kBase, HVXPARAMLIST{nullptr}, HVXPARAMLIST{nullptr});
  });
  std::vector<std::thread> writers;
  for (std::uint32_t t = 0; t < 3; ++t) {
    writers.emplace_back([t] {
      for (std::uint32_t i = 0; i < kPerThread; ++i) {
        const std::uint32_t id = kBase + t * kPerThread + i;
        VXRegisterSlot(id, SlotA, nullptr);
        if (i % 2) VXUnregisterSlot(id);
      }
    });
  }
  for (auto& w : writers)
    w.join();
  stop = true;
  dispatcher.join();

  std::size_t left = 0;
  for (std::uint32_t id = kBase; id < kBase + 3 * kPerThread; ++id) {
    if (IsRegistered(id)) ++left;
    VXUnregisterSlot(id);
  }
  EXPECT_EQ(left, 3 * kPerThread / 2);
}

}  // namespace
}  // namespace vxbus
