// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include <string>

#include "runtime/private_heap.h"
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

// Guards the check of the owned key: a name too long for the key's inline
// bytes whose copy the heap refuses is not entered under an empty key.
TEST(SessionRegistry, ANameWhoseKeyTheHeapRefusesIsNotEntered) {
  SessionRef session(testing::NewSession());
  const std::string longName = "peer:1/" + std::string(400, 'l');
  RefusePrivateBlocksFrom(400);
  const bool entered = testing::Context().registry.Assign(longName, session.get());
  RefusePrivateBlocksFrom(0);
  EXPECT_FALSE(entered);
  EXPECT_EQ(testing::Context().registry.Size(), 0u);
  EXPECT_FALSE(testing::Context().registry.Find("").IsValid());
}

}  // namespace
}  // namespace vxbus
