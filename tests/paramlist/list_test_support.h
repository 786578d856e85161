// Helpers shared by the holder and printer tests: reference counts of lists
// and a fixture that checks every test gives back all the lists it made.
#ifndef VXBUS_TESTS_PARAMLIST_LIST_TEST_SUPPORT_H_
#define VXBUS_TESTS_PARAMLIST_LIST_TEST_SUPPORT_H_

#include <gtest/gtest.h>

#include <cstdint>

#include "paramlist/fast_holder.h"
#include "runtime/referenced_ptr.h"
#include "vxbus.h"

namespace vxbus {
namespace testing {

inline std::int32_t RefCount(HVXPARAMLIST list) {
  return MTObjects::ReferenceAccess::Count(static_cast<FastHolderImpl*>(list.value));
}

inline std::uint32_t LiveLists() {
  return DEBUG_VXObjectCount().paramLists;
}

class LeakCheckedTest : public ::testing::Test {
 protected:
  void SetUp() override { liveAtStart_ = LiveLists(); }
  void TearDown() override { EXPECT_EQ(LiveLists(), liveAtStart_) << "a list was leaked"; }

 private:
  std::uint32_t liveAtStart_ = 0;
};

}  // namespace testing
}  // namespace vxbus

#endif  // VXBUS_TESTS_PARAMLIST_LIST_TEST_SUPPORT_H_
