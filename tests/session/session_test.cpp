// SPDX-License-Identifier: MIT
// Sessions with their threads over a real channel: each way one ends.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "session/session.h"
#include "session/session_registry.h"
#include "session/session_threads.h"
#include "session_fixtures.h"
#include "support/channel_pair.h"
#include "support/log_capture.h"
#include "support/wait.h"
#include "vxbus.h"

namespace vxbus {
namespace {

using testing::EstablishedSession;
using testing::WaitUntil;

// What the process-wide callbacks saw; they run on library threads.
struct Observed {
  std::mutex mutex;
  std::vector<std::string> events;
  std::thread::id connectThread, disconnectThread;
  std::atomic<bool> connected{false};

  // Called on a reader thread while the test reads; `thread` records who reported.
  void Add(const std::string& text, std::thread::id* thread) {
    std::lock_guard<std::mutex> lock(mutex);
    events.push_back(text);
    *thread = std::this_thread::get_id();
  }
};
Observed* g_observed = nullptr;

void OnConnect(const char* local, const char* remote, const char* appId, const char* host,
               std::int32_t port, const char* name) {
  g_observed->Add(std::string("connect ") + local + " " + remote + " " + appId + " " + host + " " +
                      std::to_string(port) + " " + name,
                  &g_observed->connectThread);
  g_observed->connected = true;
}

// The session a disconnect listener stops again, as VXDisconnect does once it
// finds the entry; held here so the second stop never misses it.
SessionRef* g_stopAgain = nullptr;

void OnDisconnect(const char* appId, const char* host, std::int32_t port, const char* name) {
  g_observed->Add(
      std::string("disconnect ") + appId + " " + host + " " + std::to_string(port) + " " + name,
      &g_observed->disconnectThread);
  if (g_stopAgain != nullptr) (*g_stopAgain)->Stop();
}

class SessionTest : public ::testing::Test {
 protected:
  void SetUp() override {
    g_observed = &observed_;
    VXSetConnectListener(OnConnect);
    VXSetDisconnectListener(OnDisconnect);
    livesBefore_ = DEBUG_VXObjectCount();
  }
  void TearDown() override {
    EXPECT_TRUE(WaitForSessionThreadsToEnd(std::chrono::seconds(10)));
    EXPECT_TRUE(WaitUntil([this] {
      VXObjectCounters now = DEBUG_VXObjectCount();
      return now.applications == livesBefore_.applications && now.messages == livesBefore_.messages;
    }));
    VXSetConnectListener(nullptr);
    VXSetDisconnectListener(nullptr);
  }

  Observed observed_;
  testing::LogCapture log_;
  VXObjectCounters livesBefore_;
};

// A local stop runs both listeners on the reader; a disconnect listener that
// stops its session again, within that stop, returns without joining itself.
TEST_F(SessionTest, ALocalStopRunsBothListenersOnTheReader) {
  testing::ChannelPair pair = testing::MakeSocketChannelPair();
  SessionRef a = EstablishedSession(pair.first, "hostX:4711/viewer");
  ASSERT_TRUE(WaitUntil([this] { return observed_.connected.load(); }));
  g_stopAgain = &a;
  testing::Signal disconnectReturned;
  std::thread stopper([&] {
    EXPECT_EQ(VXDisconnect("hostX:4711/viewer"), VX_SUCCESS);
    disconnectReturned.Raise();
  });
  ASSERT_TRUE(disconnectReturned.WaitFor());
  stopper.join();
  g_stopAgain = nullptr;
  // The reader was joined, so the disconnect listener has run already.
  EXPECT_TRUE(log_.Count("Local shutdown: \"hostX:4711/viewer\" stopped") > 0);
  EXPECT_FALSE(a->IsSessionValid());
  std::lock_guard<std::mutex> lock(observed_.mutex);
  EXPECT_EQ(observed_.events,
            (std::vector<std::string>{"connect " + pair.first->GetLocalAddress() + " " +
                                          pair.first->GetPeerAddress() +
                                          " hostX:4711/viewer hostX 4711 viewer",
                                      "disconnect hostX:4711/viewer hostX 4711 viewer"}));
  EXPECT_EQ(observed_.connectThread, observed_.disconnectThread);
  EXPECT_NE(observed_.connectThread, std::this_thread::get_id());
}

TEST_F(SessionTest, AnUnestablishedSessionEndsUnseen) {
  testing::ChannelPair pair = testing::MakeSocketChannelPair();
  SessionRef session(new Session);
  session->AttachChannel(pair.first);
  session->StartThreads();
  session->ReleaseThreads();
  EXPECT_TRUE(WaitUntil([this] { return log_.Count("Application '' is not initialized") > 0; }));
  session->JoinReaderThread();
  EXPECT_EQ(g_applications.Size(), 0u);
  std::lock_guard<std::mutex> lock(observed_.mutex);
  EXPECT_TRUE(observed_.events.empty());
}

// A push that meets the end of the session lets its frame go at once, so no
// frame is left holding the session; and the channel closes as the threads
// end, though references to the session live on.
TEST_F(SessionTest, NothingAnEndedSessionHeldOutlivesItsThreads) {
  testing::ChannelPair pair = testing::MakeSocketChannelPair();
  SessionRef session = EstablishedSession(pair.first, "peer:5/racing");
  // Producers stop by themselves: the writer's drain runs until it finds the
  // queue empty, which endless producers would never let happen.
  constexpr int kFramesPerProducer = 20000;
  std::atomic<bool> stop{false};
  std::vector<std::thread> producers;
  for (int i = 0; i < 3; ++i)
    producers.emplace_back([&stop, held = session] {
      for (int n = 0; n < kFramesPerProducer && !stop.load(); ++n)
        held->QueueFrame(MessageRef(
            new Message(Message::EventRef(), held, 1, VX_INVALID_PARAMLIST, nullptr, nullptr)));
    });
  pair.second.Reset();  // the peer goes while frames pour in
  const bool ended = WaitForSessionThreadsToEnd(std::chrono::seconds(10));
  stop = true;
  for (auto& producer : producers)
    producer.join();
  ASSERT_TRUE(ended);
  EXPECT_FALSE(session->Channel().IsValid());
  // Nothing waits for a thread any more: the counts are back at once.
  EXPECT_EQ(DEBUG_VXObjectCount().messages, livesBefore_.messages);
  session.Reset();
  EXPECT_EQ(DEBUG_VXObjectCount().applications, livesBefore_.applications);
}

}  // namespace
}  // namespace vxbus
