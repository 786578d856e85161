// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include <set>
#include <string>

#include "vxbus.h"

namespace vxbus {
namespace {

// Each return code has a text of its own, and any other value the unknown one.
TEST(ErrorText, EveryCodeHasItsOwnText) {
  const std::string unknown = VXErrorText(-2);
  EXPECT_EQ(unknown, VXErrorText(-6));  // not assigned
  EXPECT_EQ(unknown, VXErrorText(12345));
  std::set<std::string> texts;
  for (int code : {VX_SUCCESS, VX_ERROR_FAILED, VX_ERROR_NO_SLOT, VX_ERROR_NO_SIGNAL,
                   VX_ERROR_NO_APPLICATION, VX_ERROR_NAME_IN_USE, VX_ERROR_QUEUE_FULL}) {
    ASSERT_NE(VXErrorText(code), nullptr);
    EXPECT_NE(VXErrorText(code), unknown) << code;
    texts.insert(VXErrorText(code));
  }
  EXPECT_EQ(texts.size(), 7u);
  // -7 arises on a connect (the peer refused or is connected) and on an initialise.
  const std::string nameInUse = VXErrorText(VX_ERROR_NAME_IN_USE);
  for (const char* place : {"connected already", "secret", "initialise"})
    EXPECT_NE(nameInUse.find(place), std::string::npos) << place;
}

}  // namespace
}  // namespace vxbus
