// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include "session/session.h"
#include "session/session_registry.h"
#include "support/context.h"

namespace vxbus {
namespace {

// Guards the registry's erase by identity: a session that ends late must not
// erase the newer session that took its name.
TEST(SessionRegistry, AnEndingSessionNeverErasesANewerOneOfTheSameName) {
  SessionRef older(testing::NewSession()), newer(testing::NewSession());
  testing::Context().registry.Assign("peer:1/same", older.get());
  testing::Context().registry.Assign("peer:1/same", newer.get());
  testing::Context().registry.Erase("peer:1/same", older.get());
  EXPECT_EQ(testing::Context().registry.Find("peer:1/same").get(), newer.get());
  testing::Context().registry.Erase("peer:1/same", newer.get());
  EXPECT_EQ(testing::Context().registry.Size(), 0u);
}

}  // namespace
}  // namespace vxbus
