// Two and three real applications: this test process and peers started as
// separate processes, talking over loopback TCP.
#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "runtime/process_state.h"
#include "support/peer.h"
#include "support/wait.h"
#include "vxbus.h"

namespace vxbus {
namespace {

using testing::Peer;
using testing::PeerOptions;

PeerOptions Options(const std::string& name, const std::string& secretHex = "") {
  PeerOptions options;
  options.name = name;
  options.port = testing::FreeTcpPort();
  options.secretHex = secretHex;
  return options;
}

std::atomic<int> g_callbacks{0};
std::atomic<int> g_nullOutputs{0};
_tag_VX_ERROR CountCompletion(const char*, std::uint32_t, HVXPARAMLIST, HVXPARAMLIST output,
                              void*) {
  if (output.value == nullptr) ++g_nullOutputs;
  ++g_callbacks;
  return VX_SUCCESS;
}

_tag_VX_ERROR EchoHere(HVXPARAMLIST input, HVXPARAMLIST output, VXSlotContext* context) {
  VXCopyHandle(input, output);
  VXSetStringValue(output, "servedBy", "tester");
  VXSetStringValue(output, "caller", context->senderName);
  return VX_SUCCESS;
}

class TwoProcessTest : public ::testing::Test {
 protected:
  void SetUp() override {
    g_callbacks = 0;
    g_nullOutputs = 0;
    listsBefore_ = DEBUG_VXObjectCount().paramLists;
    ASSERT_EQ(VXInitialize("tester", 0, nullptr), VX_SUCCESS);
  }
  void TearDown() override {
    EXPECT_EQ(VXShutdown(), VX_SUCCESS);
    VXObjectCounters after = DEBUG_VXObjectCount();
    EXPECT_EQ(after.applications, 0u);
    EXPECT_EQ(after.messages, 0u);
    EXPECT_EQ(after.paramLists, listsBefore_);
  }

  // Connects with `secret` and gives the result; `appId` gets the peer's name.
  static int Connect(const Peer& peer, const std::string& secret, std::string* appId = nullptr) {
    char buffer[256] = {};
    int result = VXConnect("127.0.0.1", peer.Port(), buffer, sizeof buffer,
                           reinterpret_cast<const unsigned char*>(secret.data()),
                           static_cast<int>(secret.size()));
    if (appId) *appId = buffer;
    return result;
  }

  std::uint32_t listsBefore_ = 0;
};

TEST_F(TwoProcessTest, ConnectsWithoutAnySecretAndNamesThePeer) {
  Peer peer(Options("plain"));
  ASSERT_TRUE(peer.Ready());
  std::string appId;
  EXPECT_EQ(Connect(peer, "", &appId), VX_SUCCESS);
  EXPECT_EQ(appId, peer.AppId());
  EXPECT_NE(peer.Expect("connected " + g_ownAppId), "");
  EXPECT_TRUE(peer.Quit());
}

TEST_F(TwoProcessTest, SecretsCompareAsTheirZeroPaddedBlocks) {
  Peer peer(Options("guarded", "616263"));
  ASSERT_TRUE(peer.Ready());
  EXPECT_EQ(Connect(peer, std::string("abc\0", 4)), VX_SUCCESS);  // trailing zero: same block
  VXDisconnect(peer.AppId().c_str());
  // Until the peer's writer has let go of the old session, the peer would
  // refuse the name as a duplicate.
  ASSERT_TRUE(testing::WaitUntil([&peer] {
    peer.Send("counters");
    return peer.Expect("counters ").rfind("counters 0 ", 0) == 0;
  }));
  EXPECT_EQ(Connect(peer, "abc"), VX_SUCCESS);
  EXPECT_TRUE(peer.Quit());
}

TEST_F(TwoProcessTest, WrongSecretIsRefusedAndReportedOnTheAcceptingSide) {
  Peer peer(Options("guarded", "616263"));
  ASSERT_TRUE(peer.Ready());
  EXPECT_EQ(Connect(peer, "abd"), VX_ERROR_NAME_IN_USE);
  EXPECT_NE(peer.Expect("log 4 Stage 2: credentials failed"), "");
  std::string report = peer.Expect("authfailed ");
  EXPECT_NE(report.find(g_ownAppId), std::string::npos) << report;
  EXPECT_EQ(VXCall(peer.AppId().c_str(), 1, VX_INVALID_PARAMLIST).value, nullptr);
  EXPECT_TRUE(peer.Quit());
}

TEST_F(TwoProcessTest, SecondConnectIsRefusedAndTheFirstSessionGoesOn) {
  Peer peer(Options("twice"));
  ASSERT_TRUE(peer.Ready());
  ASSERT_EQ(Connect(peer, ""), VX_SUCCESS);
  EXPECT_EQ(Connect(peer, ""), VX_ERROR_NAME_IN_USE);
  HVXPARAMLIST reply = VXCall(peer.AppId().c_str(), 1, VX_INVALID_PARAMLIST);
  ASSERT_NE(reply.value, nullptr);
  EXPECT_EQ(std::string(VXGetStringValue(reply, "servedBy")), peer.AppId());
  VXCloseHandle(reply);
  EXPECT_TRUE(peer.Quit());
}

TEST_F(TwoProcessTest, SecretLongerThanTheBlockFailsBeforeAnyExchange) {
  Peer peer(Options("long"));
  ASSERT_TRUE(peer.Ready());
  EXPECT_EQ(Connect(peer, std::string(257, 'k')), VX_ERROR_FAILED);
  EXPECT_EQ(Connect(peer, ""), VX_SUCCESS);
  EXPECT_TRUE(peer.Quit());
}

TEST_F(TwoProcessTest, CallsCarryNestedListsBothWays) {
  VXRegisterSlot(11, EchoHere, nullptr);
  Peer peer(Options("echo"));
  ASSERT_TRUE(peer.Ready());
  ASSERT_EQ(Connect(peer, ""), VX_SUCCESS);

  HVXPARAMLIST list = VXCreateParamList();
  HVXPARAMLIST inner = VXCreateParamList();
  VXSetStringValue(inner, "s", "hi");
  VXSetHandleValue(list, "sub", inner);
  VXSetInt32Value(list, "id", 7);
  VXCloseHandle(inner);
  HVXPARAMLIST reply = VXCall(peer.AppId().c_str(), 1, list);
  VXCloseHandle(list);
  ASSERT_NE(reply.value, nullptr);
  EXPECT_EQ(VXGetInt32Value(reply, "id"), 7u);
  HVXPARAMLIST replyInner = VXGetHandleValue(reply, "sub");
  EXPECT_STREQ(VXGetStringValue(replyInner, "s"), "hi");
  VXCloseHandle(replyInner);
  VXCloseHandle(reply);

  // The other way: the peer calls a slot of this process.
  peer.Send("call " + g_ownAppId + " 11");
  EXPECT_EQ(peer.Expect("call-result "), "call-result list tester");
  VXUnregisterSlot(11);
  EXPECT_TRUE(peer.Quit());
}

TEST_F(TwoProcessTest, UnknownSlotAnswersWithAnEmptyList) {
  Peer peer(Options("empty"));
  ASSERT_TRUE(peer.Ready());
  ASSERT_EQ(Connect(peer, ""), VX_SUCCESS);
  HVXPARAMLIST reply = VXCall(peer.AppId().c_str(), 99, VX_INVALID_PARAMLIST);
  ASSERT_NE(reply.value, nullptr);
  EXPECT_EQ(VXGetParamCount(reply), 0u);
  VXCloseHandle(reply);
  EXPECT_EQ(VXCall("nobody:1/none", 1, VX_INVALID_PARAMLIST).value, nullptr);
  EXPECT_EQ(VXNotify("nobody:1/none", 1, VX_INVALID_PARAMLIST, nullptr, nullptr),
            VX_ERROR_NO_APPLICATION);
  EXPECT_TRUE(peer.Quit());
}

TEST_F(TwoProcessTest, NotificationsReachTheSlotAndCallBackOnce) {
  Peer peer(Options("notified"));
  ASSERT_TRUE(peer.Ready());
  ASSERT_EQ(Connect(peer, ""), VX_SUCCESS);
  HVXPARAMLIST list = VXCreateParamList();
  VXSetInt32Value(list, "n", 1);
  EXPECT_EQ(VXNotify(peer.AppId().c_str(), 6, list, nullptr, nullptr), VX_SUCCESS);
  EXPECT_EQ(peer.Expect("notified "), "notified from " + g_ownAppId + " output=null count=1");
  EXPECT_EQ(VXNotify(peer.AppId().c_str(), 6, list, CountCompletion, nullptr), VX_SUCCESS);
  EXPECT_EQ(peer.Expect("notified "), "notified from " + g_ownAppId + " output=list count=1");
  EXPECT_TRUE(testing::WaitUntil([] { return g_callbacks == 1; }));
  VXCloseHandle(list);
  EXPECT_TRUE(peer.Quit());
  EXPECT_EQ(g_callbacks, 1);
  EXPECT_EQ(g_nullOutputs, 0);
}

TEST_F(TwoProcessTest, PeerKilledWithCallsOutstandingCompletesEachOnceWithNothing) {
  Peer peer(Options("doomed"));
  ASSERT_TRUE(peer.Ready());
  ASSERT_EQ(Connect(peer, ""), VX_SUCCESS);
  constexpr int kCalls = 3, kNotifications = 4;
  std::vector<std::thread> callers;
  std::atomic<int> nullResults{0};
  for (int i = 0; i < kCalls; ++i)
    callers.emplace_back([&peer, &nullResults] {
      HVXPARAMLIST reply = VXCall(peer.AppId().c_str(), 2, VX_INVALID_PARAMLIST);
      if (reply.value == nullptr) ++nullResults;
      VXCloseHandle(reply);
    });
  for (int i = 0; i < kNotifications; ++i)
    VXNotify(peer.AppId().c_str(), 2, VX_INVALID_PARAMLIST, CountCompletion, nullptr);
  ASSERT_NE(peer.Expect("blocking"), "");  // the first request sits in the peer's slot
  peer.Kill();
  for (auto& t : callers)
    t.join();
  EXPECT_EQ(nullResults, kCalls);
  EXPECT_TRUE(testing::WaitUntil([] { return g_callbacks == kNotifications; }));
  EXPECT_EQ(g_nullOutputs, kNotifications);
}

TEST_F(TwoProcessTest, SlotThatCallsAThirdProcessGetsItsReply) {
  Peer front(Options("front"));
  Peer back(Options("back"));
  ASSERT_TRUE(front.Ready() && back.Ready());
  front.Send("connect 127.0.0.1 " + std::to_string(back.Port()));
  ASSERT_EQ(front.Expect("connect-result "), "connect-result 0 " + back.AppId());
  ASSERT_EQ(Connect(front, ""), VX_SUCCESS);

  HVXPARAMLIST list = VXCreateParamList();
  VXSetStringValue(list, "target", back.AppId().c_str());
  HVXPARAMLIST reply = VXCall(front.AppId().c_str(), 3, list);
  VXCloseHandle(list);
  HVXPARAMLIST forwarded = VXGetHandleValue(reply, "reply");
  EXPECT_EQ(std::string(VXGetStringValue(forwarded, "servedBy") ?: ""), back.AppId());
  VXCloseHandle(forwarded);
  VXCloseHandle(reply);
  EXPECT_TRUE(front.Quit());
  EXPECT_TRUE(back.Quit());
}

}  // namespace
}  // namespace vxbus
