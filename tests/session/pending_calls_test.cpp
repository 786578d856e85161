// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

#include "session/pending_calls.h"
#include "session_fixtures.h"
#include "vxbus.h"

namespace vxbus {
namespace {

using testing::TaggedMessage;

TEST(PendingCalls, EachCallIsTakenOnceById) {
  VXPendingCalls calls;
  for (std::uint32_t id : {30u, 10u, 20u})
    calls.Insert(TaggedMessage(id));
  std::vector<std::uint32_t> seen;
  calls.ForEach([&seen](MessageRef& m) { seen.push_back(m->GetId()); });
  EXPECT_EQ(seen, (std::vector<std::uint32_t>{10, 20, 30}));
  EXPECT_EQ(DEBUG_VXObjectCount().pendingCalls, 3u);
  MessageRef out;
  EXPECT_TRUE(calls.Take(10, out));
  EXPECT_EQ(out->GetId(), 10u);
  EXPECT_EQ(DEBUG_VXObjectCount().pendingCalls, 3u);
  EXPECT_FALSE(calls.Take(10, out));
  EXPECT_FALSE(out);
  EXPECT_EQ(DEBUG_VXObjectCount().pendingCalls, 2u);
}

}  // namespace
}  // namespace vxbus
