#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "runtime/log.h"

namespace vxbus {
namespace {

std::vector<std::string> g_entries;  // "<level> <second> <text>"
void Capture(std::uint32_t level, std::uint32_t second, const char* text) {
  g_entries.push_back(std::to_string(level) + " " + std::to_string(second) + " " + text);
}

TEST(Log, MaskSelectsLevelsAndTheSecondArgumentIsZero) {
  VXSetLogLevel(1 | 8, 12345, Capture);  // any non-negative threshold lets through
  for (std::uint32_t level : {1u, 2u, 4u, 8u})
    VX_LOG(level, "level ", level);
  VXSetLogLevel(0, 0, nullptr);
  EXPECT_EQ(g_entries, (std::vector<std::string>{"1 0 level 1", "8 0 level 8"}));
}

}  // namespace
}  // namespace vxbus
