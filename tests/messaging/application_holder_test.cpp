// VX::VXApplicationHolder against a peer over loopback TCP: the name it
// holds, what it forwards, and how destroying any copy ends the session.
#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <string>

#include "bus_test_fixture.h"
#include "session/application_registry.h"
#include "support/wait.h"

namespace vxbus {
namespace testing {
namespace {

std::atomic<int> g_callbacks{0};
_tag_VX_ERROR CountCompletion(const char*, std::uint32_t, HVXPARAMLIST, HVXPARAMLIST, void*) {
  ++g_callbacks;
  return VX_SUCCESS;
}

bool Registered(const std::string& appId) {
  return g_applications.Find(appId.c_str()).get() != nullptr;
}

class ApplicationHolderTest : public BusTest {
 protected:
  void SetUp() override {
    g_callbacks = 0;
    BusTest::SetUp();
  }
};

TEST_F(ApplicationHolderTest, NamesAreHeldCutAndCopiedWithoutAnyConnection) {
  VX::VXApplicationHolder empty;
  EXPECT_TRUE(!empty);
  EXPECT_STREQ(empty.getName(), "");
  EXPECT_EQ(empty.Call(1, VX_INVALID_PARAMLIST).value, nullptr);
  EXPECT_FALSE(empty.Notify(1, VX_INVALID_PARAMLIST, nullptr, nullptr));

  VX::VXApplicationHolder fromNull(nullptr);
  EXPECT_TRUE(!fromNull);

  const std::string longName(300, 'n');
  VX::VXApplicationHolder cut(longName.c_str());
  EXPECT_EQ(std::strlen(cut.getName()), 255u);
  EXPECT_EQ(std::string(cut.getName()), longName.substr(0, 255));
  EXPECT_FALSE(!cut) << "a name says nothing about a connection";

  VX::VXApplicationHolder copy(cut);
  EXPECT_STREQ(copy.getName(), cut.getName());
  VX::VXApplicationHolder assigned("other");
  assigned = cut;
  EXPECT_STREQ(assigned.getName(), cut.getName());
  assigned = assigned;
  EXPECT_STREQ(assigned.getName(), cut.getName());
}

TEST_F(ApplicationHolderTest, DestroyingAnEmptyOrUnknownHolderLeavesOtherSessionsAlone) {
  Peer peer(TcpPeer("bystander"));
  ASSERT_TRUE(peer.Ready());
  ASSERT_EQ(ConnectTcp(peer), peer.AppId());
  { VX::VXApplicationHolder empty; }
  { VX::VXApplicationHolder unknown("nobody:1/none"); }
  HVXPARAMLIST reply = VXCall(peer.AppId().c_str(), 1, VX_INVALID_PARAMLIST);
  EXPECT_NE(reply.value, nullptr);
  VXCloseHandle(reply);
  peer.Kill();
}

TEST_F(ApplicationHolderTest, ConnectNamesThePeerAndForwardsUntilDisconnect) {
  Peer peer(TcpPeer("held"));
  ASSERT_TRUE(peer.Ready());
  peer.Send("register-signal bell");
  peer.Expect("registered ");

  VX::VXApplicationHolder failed("kept");
  EXPECT_FALSE(failed.Connect("127.0.0.1", FreeTcpPort(), nullptr, 0));
  EXPECT_STREQ(failed.getName(), "kept") << "a failed connect leaves the name alone";

  VX::VXApplicationHolder holder;
  ASSERT_TRUE(holder.Connect("127.0.0.1", peer.Port(), nullptr, 0));
  EXPECT_EQ(std::string(holder.getName()), peer.AppId());
  EXPECT_FALSE(!holder);

  HVXPARAMLIST list = VXCreateParamList();
  VXSetInt32Value(list, "n", 3);
  HVXPARAMLIST reply = holder.Call(1, list);
  ASSERT_NE(reply.value, nullptr);
  EXPECT_EQ(VXGetInt32Value(reply, "n"), 3u);
  EXPECT_STREQ(VXGetStringValue(reply, "servedBy"), peer.AppId().c_str());
  VXCloseHandle(reply);

  EXPECT_TRUE(holder.Notify(6, list, nullptr, nullptr));
  EXPECT_EQ(peer.Expect("notified "), "notified from " + g_ownAppId + " output=null count=1");
  EXPECT_TRUE(holder.Notify(6, list, CountCompletion, nullptr));
  EXPECT_EQ(peer.Expect("notified "), "notified from " + g_ownAppId + " output=list count=1");
  EXPECT_TRUE(WaitUntil([] { return g_callbacks == 1; }));

  DeliveryLog delivered;
  VXRegisterSlot(21, RecordAt<21>, &delivered);
  EXPECT_TRUE(holder.ConnectSignal("bell", 21));
  AwaitDispatchAt(peer.AppId());
  peer.Send("emit bell");
  peer.Expect("emit-result ");
  AwaitDispatchOf(peer);
  EXPECT_EQ(delivered.Size(), 1u);
  EXPECT_TRUE(holder.DisconnectSignal("bell", 21));
  peer.Send("emit bell");
  peer.Expect("emit-result ");
  AwaitDispatchOf(peer);
  EXPECT_EQ(delivered.Size(), 1u);
  VXUnregisterSlot(21);

  EXPECT_TRUE(holder.Disconnect());
  EXPECT_TRUE(!holder);
  EXPECT_STREQ(holder.getName(), "");
  EXPECT_NE(peer.Expect("disconnected " + g_ownAppId), "");
  EXPECT_EQ(holder.Call(1, list).value, nullptr);
  EXPECT_EQ(VXCall(peer.AppId().c_str(), 1, list).value, nullptr);
  EXPECT_FALSE(holder.Notify(6, list, nullptr, nullptr));
  VXCloseHandle(list);
  peer.Kill();
}

TEST_F(ApplicationHolderTest, DestroyingACopyDisconnectsThePeerForTheOriginal) {
  Peer peer(TcpPeer("shared"));
  ASSERT_TRUE(peer.Ready());
  VX::VXApplicationHolder holder;
  ASSERT_TRUE(holder.Connect("127.0.0.1", peer.Port(), nullptr, 0));
  const std::string appId = holder.getName();
  // A temporary copy made only to call through: the call works, and the
  // copy's end at the semicolon disconnects the peer.
  HVXPARAMLIST reply = VX::VXApplicationHolder(holder).Call(1, VX_INVALID_PARAMLIST);
  EXPECT_NE(reply.value, nullptr);
  VXCloseHandle(reply);
  EXPECT_NE(peer.Expect("disconnected " + g_ownAppId), "");
  // The reader is gone once the destructor returns; the writer takes the
  // entry out of the registry within its poll.
  EXPECT_TRUE(WaitUntil([&appId] { return !Registered(appId); }));
  EXPECT_EQ(holder.Call(1, VX_INVALID_PARAMLIST).value, nullptr);
  EXPECT_FALSE(!holder) << "the original still holds the name";
  EXPECT_STREQ(holder.getName(), appId.c_str());
  peer.Kill();
}

TEST_F(ApplicationHolderTest, FlowVariantsMarkTheCallersListAndTheMarkArrives) {
  Peer peer(TcpPeer("flow"));
  ASSERT_TRUE(peer.Ready());
  VX::VXApplicationHolder holder;
  ASSERT_TRUE(holder.Connect("127.0.0.1", peer.Port(), nullptr, 0));

  HVXPARAMLIST list = VXCreateParamList();
  HVXPARAMLIST reply = holder.CallWithFlow(0x80000001u, 1, list);
  const _tag_VXPARAMINFO* mark = VXParamInfo(list, "...FlowID");
  ASSERT_NE(mark, nullptr) << "the caller's list keeps the mark";
  EXPECT_EQ(mark->GetType(), PT_INT32);
  EXPECT_EQ(VXGetInt32Value(list, "...FlowID"), 0x80000001u);
  ASSERT_NE(reply.value, nullptr);
  EXPECT_EQ(VXGetInt32Value(reply, "...FlowID"), 0x80000001u) << "the peer echoed what it got";
  VXCloseHandle(reply);

  // With no list the flow id has nowhere to go, and is lost without a word.
  reply = holder.CallWithFlow(5, 1, VX_INVALID_PARAMLIST);
  ASSERT_NE(reply.value, nullptr);
  EXPECT_EQ(VXParamInfo(reply, "...FlowID"), nullptr);
  VXCloseHandle(reply);

  HVXPARAMLIST note = VXCreateParamList();
  EXPECT_TRUE(holder.NotifyWithFlow(9, 6, note, nullptr, nullptr));
  EXPECT_EQ(VXGetInt32Value(note, "...FlowID"), 9u);
  EXPECT_EQ(peer.Expect("notified "), "notified from " + g_ownAppId + " output=null count=1");
  EXPECT_TRUE(holder.NotifyWithFlow(10, 6, VX_INVALID_PARAMLIST, CountCompletion, nullptr));
  EXPECT_EQ(peer.Expect("notified "), "notified from " + g_ownAppId + " output=list count=0");
  EXPECT_TRUE(WaitUntil([] { return g_callbacks == 1; }));
  VXCloseHandle(note);
  VXCloseHandle(list);
  peer.Kill();
}

}  // namespace
}  // namespace testing
}  // namespace vxbus
