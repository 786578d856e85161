// SPDX-License-Identifier: MIT
// This Linux process and a Windows process, run by Wine on the same machine,
// on one bus over loopback TCP: the wire is the same on both systems.
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "bus_test_fixture.h"

namespace vxbus {
namespace testing {
namespace {

class LinuxWindowsTest : public BusTest {
 protected:
  // The Windows peer behind its emulator, from "command|argument|...|peer".
  static PeerOptions WindowsPeer(const std::string& name) {
    PeerOptions options = TcpPeer(name);
    std::istringstream command(VXBUS_WINDOWS_PEER_COMMAND);
    for (std::string part; std::getline(command, part, '|');)
      options.launcher.push_back(part);
    options.program = options.launcher.back();
    options.launcher.pop_back();
    return options;
  }
};

TEST_F(LinuxWindowsTest, EveryKindOfRequestCrossesTheSystems) {
  const PeerOptions options = WindowsPeer("windows");
  if (!std::ifstream(options.program)) GTEST_SKIP() << "no Windows build at " << options.program;
  Peer peer(options);
  ASSERT_TRUE(peer.Ready()) << "the Windows peer did not start";
  std::string appId;
  ASSERT_EQ(Connect(peer, "", &appId), VX_SUCCESS);
  EXPECT_EQ(appId, peer.AppId());
  const char* to = peer.AppId().c_str();

  // Linux calls Windows with a nested list, which comes back as it went.
  HVXPARAMLIST list = VXCreateParamList(), inner = VXCreateParamList();
  VXSetStringValue(inner, "s", "across");
  VXSetInt64Value(inner, "big", 0x0123456789ABCDEFull);
  VXSetHandleValue(list, "sub", inner);
  VXCloseHandle(inner);
  HVXPARAMLIST reply = VXCall(to, 1, list);
  EXPECT_STREQ(VXGetStringValue(reply, "servedBy"), to);
  inner = VXGetHandleValue(reply, "sub");
  EXPECT_STREQ(VXGetStringValue(inner, "s"), "across");
  EXPECT_EQ(VXGetInt64Value(inner, "big"), 0x0123456789ABCDEFull);
  VXCloseHandle(inner);
  VXCloseHandle(reply);
  AwaitDispatchOf(peer);  // and Windows calls Linux

  EXPECT_EQ(VXNotify(to, 6, list, nullptr, nullptr), VX_SUCCESS);
  EXPECT_EQ(peer.Expect("notified "),
            "notified from " + testing::Context().ownAppId + " output=null count=1");
  VXCloseHandle(list);

  // A Windows signal delivered here.
  peer.Send("register-signal tick");
  ASSERT_NE(peer.Expect("registered "), "");
  ASSERT_EQ(VXConnectSignal(to, "tick", 21), VX_SUCCESS);
  AwaitDispatchAt(to);  // the subscription has been handled there
  EmitAt(peer, "tick");
  EXPECT_EQ(delivered_.Runs(), std::vector<std::string>{"21 " + peer.AppId() + " tick"});
}

}  // namespace
}  // namespace testing
}  // namespace vxbus
