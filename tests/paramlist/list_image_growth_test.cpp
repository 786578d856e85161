// An image that grows from a small block into a large one and beyond, one
// record at a time, also when the value set is read out of the list itself.
#include <gtest/gtest.h>

#include <string>

#include "list_test_support.h"

namespace vxbus {
namespace {

class ListImageGrowth : public testing::LeakCheckedTest {};

std::string Text(int i) {
  return std::string(static_cast<std::size_t>(i % 23 + 1), static_cast<char>('a' + i % 26));
}

TEST_F(ListImageGrowth, EveryRecordSurvivesEachGrowthStep) {
  HVXPARAMLIST list = VXCreateParamList();
  std::uint32_t lastSize = 0;
  for (int i = 0; i < 60; ++i) {
    const std::string name = "k" + std::to_string(i);
    ASSERT_EQ(VXSetStringValue(list, name.c_str(), Text(i).c_str()), VX_SUCCESS);
    EXPECT_GT(VXGetHandleSize(list), lastSize);
    lastSize = VXGetHandleSize(list);
    for (int j = 0; j <= i; ++j)
      ASSERT_STREQ(VXGetStringValue(list, ("k" + std::to_string(j)).c_str()), Text(j).c_str())
          << "after " << i << " records";
  }
  EXPECT_EQ(VXGetParamCount(list), 60u);
  VXCloseHandle(list);
}

// Each set takes its value from the list's own image, which the set moves;
// the sizes pass through the small blocks into the large ones.
TEST_F(ListImageGrowth, ValueReadFromTheSameListWhileItGrows) {
  HVXPARAMLIST list = VXCreateParamList();
  VXSetStringValue(list, "v0", "seed");
  std::string expected = "seed";
  for (int i = 1; i < 40; ++i) {
    const std::string previous = "v" + std::to_string(i - 1);
    const std::string name = "v" + std::to_string(i);
    ASSERT_EQ(VXSetStringValue(list, name.c_str(), VXGetStringValue(list, previous.c_str())),
              VX_SUCCESS);
    ASSERT_STREQ(VXGetStringValue(list, name.c_str()), expected.c_str());
    // Widen the next source so that the image keeps growing.
    expected += "-" + std::to_string(i);
    ASSERT_EQ(VXSetStringValue(list, name.c_str(), expected.c_str()), VX_SUCCESS);
  }
  VXCloseHandle(list);
}

}  // namespace
}  // namespace vxbus
