// VX::VXApplicationHolder against a peer over loopback TCP.
#include <string>

#include "bus_test_fixture.h"
#include "session/application_registry.h"

namespace vxbus {
namespace testing {
namespace {

using ApplicationHolderTest = BusTest;

TEST_F(ApplicationHolderTest, HoldsACutNameMarksFlowsAndEndsWithAnyCopy) {
  const std::string longName(300, 'n');
  EXPECT_EQ(VX::VXApplicationHolder(longName.c_str()).getName(), longName.substr(0, 255));

  Peer peer(TcpPeer("held"));
  ASSERT_TRUE(peer.Ready());
  VX::VXApplicationHolder holder;
  ASSERT_TRUE(holder.Connect("127.0.0.1", peer.Port(), nullptr, 0));
  EXPECT_EQ(holder.getName(), peer.AppId());

  HVXPARAMLIST list = VXCreateParamList();
  HVXPARAMLIST reply = holder.CallWithFlow(0x80000001u, 1, list);
  EXPECT_EQ(VXParamInfo(list, "...FlowID")->GetType(), PT_INT32);
  EXPECT_EQ(VXGetInt32Value(list, "...FlowID"), 0x80000001u) << "the caller's list keeps it";
  EXPECT_EQ(VXGetInt32Value(reply, "...FlowID"), 0x80000001u) << "the peer echoed what it got";
  VXCloseHandle(reply);
  VXCloseHandle(list);

  // A temporary copy: the call through it works, and its end disconnects.
  reply = VX::VXApplicationHolder(holder).Call(1, VX_INVALID_PARAMLIST);
  EXPECT_NE(reply.value, nullptr);
  VXCloseHandle(reply);
  EXPECT_NE(peer.Expect("disconnected " + g_ownAppId), "");
  EXPECT_TRUE(WaitUntil([&peer] { return !g_applications.Find(peer.AppId().c_str()).IsValid(); }));
  EXPECT_EQ(holder.Call(1, VX_INVALID_PARAMLIST).value, nullptr);
  EXPECT_EQ(holder.getName(), peer.AppId()) << "the original still holds the name";
}

}  // namespace
}  // namespace testing
}  // namespace vxbus
