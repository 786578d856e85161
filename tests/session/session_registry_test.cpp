// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include "session/session.h"
#include "session/session_registry.h"

namespace vxbus {
namespace {

// Guards the registry's erase by identity: a session that ends late must not
// erase the newer session that took its name.
TEST(SessionRegistry, AnEndingSessionNeverErasesANewerOneOfTheSameName) {
  SessionRef older(new Session), newer(new Session);
  g_applications.Assign("peer:1/same", older.get());
  g_applications.Assign("peer:1/same", newer.get());
  g_applications.Erase("peer:1/same", older.get());
  EXPECT_EQ(g_applications.Find("peer:1/same").get(), newer.get());
  g_applications.Erase("peer:1/same", newer.get());
  EXPECT_EQ(g_applications.Size(), 0u);
}

}  // namespace
}  // namespace vxbus
