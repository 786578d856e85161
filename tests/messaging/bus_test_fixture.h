// SPDX-License-Identifier: MIT
// What the two-process tests of this layer share: this process runs as the
// application "tester" on no TCP port, and once it has shut down after a
// test no session, no message and no extra list may be left.
#ifndef VXBUS_TESTS_MESSAGING_BUS_TEST_FIXTURE_H_
#define VXBUS_TESTS_MESSAGING_BUS_TEST_FIXTURE_H_

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "session/session_registry.h"
#include "support/context.h"
#include "support/peer.h"
#include "support/wait.h"
#include "vxbus.h"

namespace vxbus {
namespace testing {

// Runs of slots 21 to 24 of this process, as "slot sender signal".
struct DeliveryLog {
  std::vector<std::string> Runs() {
    std::lock_guard<std::mutex> lock(mutex);
    return runs;
  }
  std::mutex mutex;
  std::vector<std::string> runs;
};

template <std::uint32_t kSlot>
_tag_VX_ERROR RecordAt(HVXPARAMLIST input, HVXPARAMLIST, VXSlotContext* context) {
  const char* signal = VXGetStringValue(input, "signal");
  auto* log = static_cast<DeliveryLog*>(context->userData);
  std::lock_guard<std::mutex> lock(log->mutex);
  log->runs.push_back(std::to_string(kSlot) + " " +
                      (context->senderName ? context->senderName : "") + " " +
                      (signal ? signal : ""));
  return VX_SUCCESS;
}

// Completion callbacks of notifications and emissions.
struct Completions {
  std::atomic<int> calls{0}, nullApplications{0}, nullOutputs{0}, emptyOutputs{0};
  std::atomic<std::thread::id> thread{};
};

inline _tag_VX_ERROR CountCompletion(const char* application, std::uint32_t, HVXPARAMLIST,
                                     HVXPARAMLIST output, void* userData) {
  auto* done = static_cast<Completions*>(userData);
  if (!application) ++done->nullApplications;
  if (!output.value)
    ++done->nullOutputs;
  else if (VXGetParamCount(output) == 0)
    ++done->emptyOutputs;
  done->thread = std::this_thread::get_id();
  ++done->calls;
  return VX_SUCCESS;
}

// Peers call it to learn that what they sent here before has been dispatched.
constexpr std::uint32_t kBarrierSlot = 11;
inline _tag_VX_ERROR AnswerBarrier(HVXPARAMLIST, HVXPARAMLIST output, VXSlotContext*) {
  VXSetStringValue(output, "servedBy", "tester");
  return VX_SUCCESS;
}

class BusTest : public ::testing::Test {
 protected:
  void SetUp() override {
    listsBefore_ = DEBUG_VXObjectCount().paramLists;
    const _tag_SLOT_DESCRIPTION slots[] = {{kBarrierSlot, AnswerBarrier, nullptr},
                                           {21, RecordAt<21>, &delivered_},
                                           {22, RecordAt<22>, &delivered_},
                                           {23, RecordAt<23>, &delivered_},
                                           {24, RecordAt<24>, &delivered_}};
    VXRegisterSlots(slots, 5);
    ASSERT_EQ(VXInitialize("tester", 0, Limits()), VX_SUCCESS);
  }
  void TearDown() override {
    EXPECT_EQ(VXShutdown(), VX_SUCCESS);
    for (std::uint32_t slot : {kBarrierSlot, 21u, 22u, 23u, 24u})
      VXUnregisterSlot(slot);
    // Sessions of failed connects are let go by their own threads, unjoined.
    EXPECT_TRUE(WaitUntil([this] {
      VXObjectCounters now = DEBUG_VXObjectCount();
      return now.applications == 0 && now.messages == 0 && now.paramLists == listsBefore_;
    }));
  }

  // The limits record this process starts with; null keeps the defaults.
  virtual const VXLimits* Limits() { return nullptr; }

  static PeerOptions TcpPeer(const std::string& name, const std::string& secretHex = "") {
    PeerOptions options;
    options.name = name;
    options.port = FreeTcpPort();
    options.secretHex = secretHex;
    return options;
  }

  // A peer that listens on the pipe `pipe` and on no TCP port.
  static PeerOptions PipePeer(const std::string& name, const std::string& pipe,
                              int maxConnections = 0) {
    PeerOptions options;
    options.name = name;
    options.pipe = pipe;
    options.maxConnections = maxConnections;
    return options;
  }

  // VXConnectEx, tried again while it gives -1: a pipe listener has no pipes
  // out between two rounds or during a handshake.
  static int ConnectPipeRetrying(const std::string& pipe, const char* host = nullptr,
                                 int port = 0) {
    int result = VX_ERROR_FAILED;
    WaitUntil([&] {
      result = VXConnectEx(pipe.c_str(), host, port, nullptr, 0, nullptr, 0);
      return result != VX_ERROR_FAILED;
    });
    return result;
  }

  // The same from the peer `client`: its "connect-result" line.
  static std::string ConnectPipeRetryingFrom(Peer& client, const std::string& pipe,
                                             const std::string& secretHex = "") {
    std::string result;
    WaitUntil([&] {
      client.Send("connect-pipe " + pipe + " " + secretHex);
      result = client.Expect("connect-result ");
      return result.rfind("connect-result -1", 0) != 0;
    });
    return result;
  }

  // VXConnect over loopback; `appId` gets the buffer. On success it returns
  // once the peer has registered this process, so that nothing the peer
  // sends here is dropped for want of a session.
  static int Connect(Peer& peer, const std::string& secret = "", std::string* appId = nullptr) {
    char buffer[256] = {};
    int result = VXConnect("127.0.0.1", peer.Port(), buffer, sizeof buffer,
                           reinterpret_cast<const unsigned char*>(secret.data()),
                           static_cast<int>(secret.size()));
    if (appId) *appId = buffer;
    if (result == VX_SUCCESS && peer.Expect("connected " + testing::Context().ownAppId).empty())
      return VX_ERROR_FAILED;
    return result;
  }

  // The peer calls this process: on return every request it sent here
  // before has been run.
  static void AwaitDispatchOf(Peer& peer) {
    peer.Send("call " + testing::Context().ownAppId + " " + std::to_string(kBarrierSlot));
    EXPECT_EQ(peer.Expect("call-result "), "call-result list tester");
  }

  // A call to the peer: on return every request sent there before has run.
  static void AwaitDispatchAt(const std::string& appId) {
    VXCloseHandle(VXCall(appId.c_str(), 1, VX_INVALID_PARAMLIST));
  }

  // The session is out of the registry once both its threads are past their
  // loops: the writer erases it after the reader's end.
  static bool WaitForSessionEnd(const std::string& appId,
                                std::chrono::milliseconds limit = std::chrono::seconds(10)) {
    return WaitUntil([&] { return !testing::Context().registry.Find(appId.c_str()).IsValid(); },
                     limit);
  }

  // The peer emits `signal`; on return this process has run every delivery.
  static void EmitAt(Peer& peer, const std::string& signal) {
    peer.Send("emit " + signal);
    EXPECT_EQ(peer.Expect("emit-result "), "emit-result 0");
    AwaitDispatchOf(peer);
  }

  std::uint32_t listsBefore_ = 0;
  DeliveryLog delivered_;
  Completions done_;
};

}  // namespace testing
}  // namespace vxbus

#endif  // VXBUS_TESTS_MESSAGING_BUS_TEST_FIXTURE_H_
