// SPDX-License-Identifier: MIT
// Many short sessions with one peer, over TCP and over pipes: once they have
// ended, neither process holds a descriptor, a thread or an object more
// than before.
#include <string>

#include "bus_test_fixture.h"
#include "support/channel_pair.h"
#include "support/process_resources.h"

namespace vxbus {
namespace testing {
namespace {

// Enough that one descriptor or thread left per cycle stands out, and that
// a stop which waits out a poll instead of ending it runs past the bound.
constexpr int kCyclesPerTransport = 200;

// Object counters, descriptors and threads of this process, in the form of
// the peer's lines.
std::string OwnFootprint() {
  VXObjectCounters c = DEBUG_VXObjectCount();
  return "counters " + std::to_string(c.applications) + " " + std::to_string(c.messages) + " " +
         std::to_string(c.paramLists) + " resources " + std::to_string(CountOpenDescriptors()) +
         " " + std::to_string(CountThreads());
}

// The peer's counters and resources lines, which it writes on request.
std::string PeerFootprint(Peer& peer) {
  peer.Send("counters");
  std::string counters = peer.Expect("counters ");
  peer.Send("resources");
  return counters + " " + peer.Expect("resources ");
}

// A footprint taken at rest may still count the last writer of a session on
// its way out (nothing joins a writer): the threads before, the last number,
// bound those after from above, as a leak only ever adds.
bool BackTo(const std::string& now, const std::string& before) {
  const std::size_t nowSplit = now.rfind(' '), beforeSplit = before.rfind(' ');
  return nowSplit != std::string::npos && beforeSplit != std::string::npos &&
         now.compare(0, nowSplit, before, 0, beforeSplit) == 0 &&
         std::stoi(now.substr(nowSplit + 1)) <= std::stoi(before.substr(beforeSplit + 1));
}

class ChurnTest : public BusTest {
 protected:
  // One session: connect, one call, disconnect. The peer may still hold the
  // last session under this name for a moment (-7), and its pipe listener
  // has no pipes out between two rounds (-1): both are tried again.
  void Cycle(const Peer& peer, bool overPipes) {
    int result = VX_ERROR_FAILED;
    ASSERT_TRUE(WaitUntil([&] {
      result = overPipes ? VXConnectEx(pipe_.c_str(), nullptr, 0, nullptr, 0, nullptr, 0)
                         : VXConnect("127.0.0.1", peer.Port(), nullptr, 0, nullptr, 0);
      return result == VX_SUCCESS;
    })) << "last result "
        << result << (overPipes ? " over pipes" : " over TCP");
    HVXPARAMLIST reply = VXCall(peer.AppId().c_str(), 1, VX_INVALID_PARAMLIST);
    EXPECT_STREQ(VXGetStringValue(reply, "servedBy"), peer.AppId().c_str());
    VXCloseHandle(reply);
    EXPECT_EQ(VXDisconnect(peer.AppId().c_str()), VX_SUCCESS);
  }

  std::string pipe_ = UniquePipeName("churn");
};

TEST_F(ChurnTest, ShortSessionsLeaveNothingBehind) {
  PeerOptions options = TcpPeer("server");
  options.pipe = pipe_;
  options.quiet = true;
  Peer server(options);
  ASSERT_TRUE(server.Ready());

  // A first round each way, so that what the first session makes once for
  // the process is there before the counts are taken.
  Cycle(server, false);
  Cycle(server, true);
  ASSERT_TRUE(WaitUntil([] { return DEBUG_VXObjectCount().applications == 0; }));
  const std::string own = OwnFootprint();
  // The peer's own sessions end after ours; it is asked until it is idle.
  std::string peerIdle;
  ASSERT_TRUE(WaitUntil([&] {
    peerIdle = PeerFootprint(server);
    return peerIdle.rfind("counters 0 0 ", 0) == 0;
  }));

  for (bool overPipes : {false, true}) {
    for (int i = 0; i < kCyclesPerTransport && !HasFatalFailure(); ++i) {
      Cycle(server, overPipes);
      // The peer reports every session; what it wrote is read now and
      // then, so that it never waits for room in its output.
      if (i % 16 == 0) PeerFootprint(server);
    }
  }

  std::string ownNow;
  EXPECT_TRUE(WaitUntil([&] { return BackTo(ownNow = OwnFootprint(), own); }))
      << ownNow << " after, " << own << " before";
  std::string peerNow;
  EXPECT_TRUE(WaitUntil([&] { return BackTo(peerNow = PeerFootprint(server), peerIdle); }))
      << peerNow << " after, " << peerIdle << " before";
}

}  // namespace
}  // namespace testing
}  // namespace vxbus
