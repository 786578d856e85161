// This process and peers started as separate processes, over loopback TCP.
#include <string>

#include "bus_test_fixture.h"

namespace vxbus {
namespace testing {
namespace {

using TwoProcessTest = BusTest;

// The dispatch thread holds the slot table's lock across a slot function;
// this one registers another function under its own number while it runs.
constexpr std::uint32_t kSelfReplacingSlot = 25;
_tag_VX_ERROR ReplaceItself(HVXPARAMLIST, HVXPARAMLIST output, VXSlotContext*) {
  VXRegisterSlot(kSelfReplacingSlot, AnswerBarrier, nullptr);
  VXSetStringValue(output, "servedBy", "replaced");
  return VX_SUCCESS;
}

TEST_F(TwoProcessTest, HandshakeComparesSecretBlocksAndRefusesASecondSession) {
  Peer open(TcpPeer("open")), guarded(TcpPeer("guarded", "616263"));
  Peer padded(TcpPeer("padded", "61626300"));
  ASSERT_TRUE(open.Ready() && guarded.Ready() && padded.Ready());
  EXPECT_EQ(Connect(open, std::string(257, 'k')), VX_ERROR_FAILED);  // longer than the block
  std::string appId;
  EXPECT_EQ(Connect(open, "", &appId), VX_SUCCESS);
  EXPECT_EQ(appId, open.AppId());
  EXPECT_EQ(Connect(open), VX_ERROR_NAME_IN_USE);
  HVXPARAMLIST reply = VXCall(open.AppId().c_str(), 1, VX_INVALID_PARAMLIST);
  EXPECT_STREQ(VXGetStringValue(reply, "servedBy"), open.AppId().c_str());
  VXCloseHandle(reply);

  EXPECT_EQ(Connect(guarded, "abc"), VX_SUCCESS);
  EXPECT_EQ(Connect(padded, "abc"), VX_SUCCESS);  // blocks are compared zero-padded

  // A wrong secret between two peers: refused, and reported by the acceptor.
  padded.Send("connect 127.0.0.1 " + std::to_string(guarded.Port()) + " 616264");
  EXPECT_EQ(padded.Expect("connect-result ").rfind("connect-result -7", 0), 0u);
  EXPECT_NE(guarded.Expect("log 4 Stage 2: credentials failed"), "");
  EXPECT_NE(guarded.Expect("authfailed ").find(padded.AppId()), std::string::npos);
}

TEST_F(TwoProcessTest, CallsAndNotificationsRunBothWaysAndThroughAThirdProcess) {
  Peer front(TcpPeer("front")), back(TcpPeer("back"));
  ASSERT_TRUE(front.Ready() && back.Ready());
  ASSERT_EQ(Connect(front), VX_SUCCESS);
  const char* to = front.AppId().c_str();

  HVXPARAMLIST list = VXCreateParamList(), inner = VXCreateParamList();
  VXSetStringValue(inner, "s", "hi");
  VXSetHandleValue(list, "sub", inner);
  VXCloseHandle(inner);
  HVXPARAMLIST reply = VXCall(to, 1, list);  // slot 1 echoes
  inner = VXGetHandleValue(reply, "sub");
  EXPECT_STREQ(VXGetStringValue(inner, "s"), "hi");
  VXCloseHandle(inner);
  VXCloseHandle(reply);
  AwaitDispatchOf(front);  // and the peer calls this process
  VXRegisterSlot(kSelfReplacingSlot, ReplaceItself, nullptr);
  const std::string callSelfReplacing =
      "call " + g_ownAppId + " " + std::to_string(kSelfReplacingSlot);
  front.Send(callSelfReplacing);
  EXPECT_EQ(front.Expect("call-result "), "call-result list replaced");
  front.Send(callSelfReplacing);
  EXPECT_EQ(front.Expect("call-result "), "call-result list tester");
  EXPECT_EQ(VXUnregisterSlot(kSelfReplacingSlot), VX_SUCCESS);
  EXPECT_EQ(VXUnregisterSlot(kSelfReplacingSlot), VX_ERROR_NO_SLOT);

  reply = VXCall(to, 99, list);
  ASSERT_NE(reply.value, nullptr);
  EXPECT_EQ(VXGetParamCount(reply), 0u) << "an unknown slot answers with an empty list";
  VXCloseHandle(reply);

  EXPECT_EQ(VXNotify(to, 6, list, nullptr, nullptr), VX_SUCCESS);
  EXPECT_EQ(front.Expect("notified "), "notified from " + g_ownAppId + " output=null count=1");
  EXPECT_EQ(VXNotify(to, 6, list, CountCompletion, &done_), VX_SUCCESS);
  EXPECT_EQ(front.Expect("notified "), "notified from " + g_ownAppId + " output=list count=1");

  // Slot 3 of the front peer calls slot 1 of the back peer.
  front.Send("connect 127.0.0.1 " + std::to_string(back.Port()));
  ASSERT_EQ(front.Expect("connect-result "), "connect-result 0 " + back.AppId());
  VXCloseHandle(list);  // the notification may still be reading it
  list = VXCreateParamList();
  VXSetStringValue(list, "target", back.AppId().c_str());
  reply = VXCall(to, 3, list);
  HVXPARAMLIST forwarded = VXGetHandleValue(reply, "reply");
  EXPECT_STREQ(VXGetStringValue(forwarded, "servedBy"), back.AppId().c_str());
  VXCloseHandle(forwarded);
  VXCloseHandle(reply);
  VXCloseHandle(list);
  EXPECT_TRUE(WaitUntil([] { return DEBUG_VXObjectCount().messages == 0; }));
  EXPECT_EQ(done_.calls, 1);
  EXPECT_EQ(done_.nullOutputs, 0);
}

}  // namespace
}  // namespace testing
}  // namespace vxbus
