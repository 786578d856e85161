// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include <string>

#include "transport/pipe_name.h"

namespace vxbus {
namespace {

// Pipe names too long for the system, mapped the same way on both ends.
TEST(PipeNameTest, LongerNamesMapOntoTheLimitAlikeOnBothEnds) {
  const std::string shortName(107, 's');
  EXPECT_EQ(MapPipeName(shortName, 107), shortName);

  const std::string head(150, 'p');
  const std::string in = head + "_in", out = head + "_out";
  const std::string mapped = MapPipeName(in, 107);
  ASSERT_EQ(mapped.size(), 107u);
  EXPECT_EQ(mapped, MapPipeName(in, 107)) << "both ends must agree";
  // The head stays readable; the digest of the whole name ends it.
  EXPECT_EQ(mapped.substr(0, 74), head.substr(0, 74));
  EXPECT_EQ(mapped[74], '-');
  EXPECT_EQ(mapped.find_first_not_of("0123456789abcdef", 75), std::string::npos);
  // Names that differ only behind the kept head still differ.
  EXPECT_NE(MapPipeName(out, 107), mapped);
  EXPECT_EQ(MapPipeName(std::string(108, 'a'), 107),
            std::string(74, 'a') + "-" + "25814274e02aa7cc03d6314eb703e655");
}

}  // namespace
}  // namespace vxbus
