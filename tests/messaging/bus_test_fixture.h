// What the two-process tests of this layer share: this process runs as the
// application "tester" on no TCP port, and after each test, once it has shut
// down, no session, no message and no extra list may be left.
#ifndef VXBUS_TESTS_MESSAGING_BUS_TEST_FIXTURE_H_
#define VXBUS_TESTS_MESSAGING_BUS_TEST_FIXTURE_H_

#include <gtest/gtest.h>

#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "runtime/process_state.h"
#include "support/peer.h"
#include "support/wait.h"
#include "vxbus.h"

namespace vxbus {
namespace testing {

// Slot of this process that peers call to learn that every request they
// sent before it has been dispatched here.
constexpr std::uint32_t kBarrierSlot = 11;

inline _tag_VX_ERROR AnswerBarrier(HVXPARAMLIST, HVXPARAMLIST output, VXSlotContext*) {
  VXSetStringValue(output, "servedBy", "tester");
  return VX_SUCCESS;
}

// One run of a slot or callback of this process, as it was seen.
struct Delivery {
  std::uint32_t slot = 0;
  std::string sender;  // "(null)" for a null application name
  std::string signal;  // the "signal" text the peer's emission carries
  bool hasOutput = false;
  std::thread::id thread;
};

// Collects deliveries from any thread.
class DeliveryLog {
 public:
  void Add(const Delivery& delivery) {
    std::lock_guard<std::mutex> lock(mutex_);
    deliveries_.push_back(delivery);
  }
  std::vector<Delivery> Snapshot() {
    std::lock_guard<std::mutex> lock(mutex_);
    return deliveries_;
  }
  std::size_t Size() {
    std::lock_guard<std::mutex> lock(mutex_);
    return deliveries_.size();
  }
  std::vector<std::uint32_t> Slots() {
    std::lock_guard<std::mutex> lock(mutex_);
    std::vector<std::uint32_t> slots;
    for (const Delivery& d : deliveries_)
      slots.push_back(d.slot);
    return slots;
  }

 private:
  std::mutex mutex_;
  std::vector<Delivery> deliveries_;
};

// A slot function that logs into the DeliveryLog given as its user data.
inline _tag_VX_ERROR RecordSlot(std::uint32_t slot, HVXPARAMLIST input, HVXPARAMLIST output,
                                VXSlotContext* context) {
  const char* signal = VXGetStringValue(input, "signal");
  static_cast<DeliveryLog*>(context->userData)
      ->Add(Delivery{slot, context->senderName ? context->senderName : "(null)",
                     signal ? signal : "", output.value != nullptr, std::this_thread::get_id()});
  return VX_SUCCESS;
}

template <std::uint32_t kSlot>
_tag_VX_ERROR RecordAt(HVXPARAMLIST input, HVXPARAMLIST output, VXSlotContext* context) {
  return RecordSlot(kSlot, input, output, context);
}

class BusTest : public ::testing::Test {
 protected:
  void SetUp() override {
    listsBefore_ = DEBUG_VXObjectCount().paramLists;
    VXRegisterSlot(kBarrierSlot, AnswerBarrier, nullptr);
    ASSERT_EQ(VXInitialize("tester", 0, nullptr), VX_SUCCESS);
  }
  void TearDown() override {
    EXPECT_EQ(VXShutdown(), VX_SUCCESS);
    VXUnregisterSlot(kBarrierSlot);
    // Sessions of failed connects are let go by their own threads, which
    // nobody joins: give them a moment, within a bound.
    WaitUntil([this] {
      VXObjectCounters now = DEBUG_VXObjectCount();
      return now.applications == 0 && now.messages == 0 && now.paramLists == listsBefore_;
    });
    VXObjectCounters after = DEBUG_VXObjectCount();
    EXPECT_EQ(after.applications, 0u);
    EXPECT_EQ(after.messages, 0u);
    EXPECT_EQ(after.paramLists, listsBefore_);
  }

  static PeerOptions TcpPeer(const std::string& name) {
    PeerOptions options;
    options.name = name;
    options.port = FreeTcpPort();
    return options;
  }

  // Connects over loopback TCP; the peer's appID on success, else empty.
  // Returns once the peer has registered this process too, so that what
  // the peer sends here is not dropped for want of a session.
  static std::string ConnectTcp(Peer& peer) {
    char buffer[256] = {};
    if (VXConnect("127.0.0.1", peer.Port(), buffer, sizeof buffer, nullptr, 0) != VX_SUCCESS)
      return "";
    return PeerKnowsUs(peer) ? buffer : "";
  }

  // Waits for the peer's connect listener to report this process.
  static bool PeerKnowsUs(Peer& peer) { return !peer.Expect("connected " + g_ownAppId).empty(); }

  // Lets the peer call this process once: when its answer is back, every
  // request the peer sent here before has been run by the dispatch thread.
  static void AwaitDispatchOf(Peer& peer) {
    peer.Send("call " + g_ownAppId + " " + std::to_string(kBarrierSlot));
    EXPECT_EQ(peer.Expect("call-result "), "call-result list tester");
  }

  // A call to the peer: when it returns, every request this process sent
  // to the peer before it has been run there.
  static void AwaitDispatchAt(const std::string& appId) {
    VXCloseHandle(VXCall(appId.c_str(), 1, VX_INVALID_PARAMLIST));
  }

  std::uint32_t listsBefore_ = 0;
};

}  // namespace testing
}  // namespace vxbus

#endif  // VXBUS_TESTS_MESSAGING_BUS_TEST_FIXTURE_H_
