// SPDX-License-Identifier: MIT
// A peer against a client that passes the handshake and then sends streams no
// library would write. Each may end its own session and nothing more: the peer
// keeps its other sessions, takes the next client at once, and leaks nothing.
#include <cstring>
#include <string>
#include <vector>

#include "bus_test_fixture.h"
#include "raw_client.h"
#include "runtime/status.h"
#include "support/connection_reset.h"
#include "transport/socket_channel.h"

namespace vxbus {
namespace testing {
namespace {

const std::string kSecret = "secret";
const std::string kSecretHex = "736563726574";

// A one-way request whose root holds one list, which holds one list, and so
// on, `depth` levels down; every image is empty, so each level is one pair.
Bytes NestedChain(std::uint32_t depth) {
  std::vector<std::uint32_t> words = {1, 3, 6, 0, 1};
  for (std::uint32_t level = 0; level < depth; ++level)
    words.insert(words.end(), {0, 1});
  return Words(words);
}

// An int32 record named "id" whose type byte is `type` (2 is int32).
Bytes Int32Record(unsigned char type) {
  return {7, 'i', 'd', 0, 0, 0, 0, type, 7, 0, 0, 0};
}

// A client that speaks the handshake as the library does and then writes
// exactly the bytes it is given.
class RawClient {
 public:
  // With `resetOnClose`, the client's end sends a reset instead of closing.
  RawClient(int port, const std::string& appId, bool resetOnClose = false)
      : channel_(resetOnClose ? ConnectResetting(port)
                              : ConnectSocketChannel("127.0.0.1", static_cast<std::uint16_t>(port),
                                                     ChannelLimits())) {
    established_ =
        channel_ && SpeakClientHandshake(*channel_, appId, kSecret) == Outcome::kEstablished;
  }

  bool Established() const { return established_; }
  // The peer may hang up before all of it is taken; that is no failure here.
  void Send(const Bytes& bytes) {
    channel_->Write(bytes.data(), static_cast<std::uint32_t>(bytes.size()));
  }
  void Close() { channel_.Reset(); }

  // A call of slot 1 with an empty list, and its reply, read byte by byte.
  std::string CallEcho(std::uint32_t id) {
    Send(Words({id, 1, 1, 0, 0}));
    std::uint32_t header[4] = {};
    if (channel_->Read(header, sizeof header) != 16) return "no reply";
    if (header[0] != id || header[1] != 2 || header[3] != 0) return "bad header";
    std::string body(header[2], '\0');
    if (channel_->Read(&body[0], header[2]) != static_cast<std::int32_t>(header[2]))
      return "short body";
    return body;
  }

 private:
  static ChannelRef ConnectResetting(int port) {
    platform::Ipv4Endpoint endpoint;
    endpoint.port = static_cast<std::uint16_t>(port);
    platform::ParseDottedAddress("127.0.0.1", &endpoint.address);
    const platform::SocketHandle socket = platform::CreateStreamSocket();
    if (!platform::Connect(socket, endpoint).ok() || !ResetOnClose(socket)) {
      platform::CloseSocket(socket);
      return ChannelRef();
    }
    ApplyConnectedSocketOptions(socket);
    return WrapAcceptedSocket(socket, ChannelLimits());
  }

  ChannelRef channel_;
  bool established_ = false;
};

struct HostileStream {
  const char* what;
  Bytes bytes;
  bool closeAfter;  // the client hangs up behind the bytes
};

using HostilePeerTest = BusTest;

TEST_F(HostilePeerTest, EachHostileStreamEndsOnlyItsOwnSession) {
  const Bytes unendedString = {3, 's', 0, 1, 'h', 'i'};  // string "s" = "hi" with no NUL
  const std::vector<HostileStream> streams = {
      {"lists nested four times deeper than allowed", NestedChain(VX_MAX_LIST_NESTING * 4), false},
      {"a call with a list above the read limit", Words({2, 1, 1, 0xFFFFFFF0u, 0}), false},
      {"a child count that the stream never backs, then the end",
       Words({3, 3, 6, 12, 0xFFFFFFFFu}, Int32Record(2)), true},
      {"an image cut off, then the end", Words({4, 3, 6, 24, 0}, Int32Record(2)), true},
      {"a header cut off, then the end", Words({5, 3}), true},
      {"a reply to a call never made", Words({777, 2, 0, 0}), false},
      {"a reply with a body where a call was expected", Words({1, 2, 12, 0}, Int32Record(2)),
       false},
      {"state 0", Words({6, 0, 1, 0, 0}), false},
      {"state 4", Words({7, 4, 1, 0, 0}), false},
      {"an unknown type byte", Words({8, 3, 6, 12, 0}, Int32Record(6)), false},
      {"a string that runs past its image", Words({9, 3, 6, 6, 0}, unendedString), false},
  };

  PeerOptions options = TcpPeer("server", kSecretHex);
  Peer server(options);
  ASSERT_EQ(Connect(server, kSecret), VX_SUCCESS);  // the session that must survive
  server.Send("counters");
  const std::string counters = server.Expect("counters ");
  ASSERT_EQ(counters.rfind("counters 1 0 ", 0), 0u) << counters;

  int round = 0;
  for (const HostileStream& stream : streams) {
    SCOPED_TRACE(stream.what);
    const std::string hostile = "127.0.0.1:1/hostile" + std::to_string(++round);
    RawClient client(server.Port(), hostile);
    ASSERT_TRUE(client.Established());
    ASSERT_FALSE(server.Expect("connected " + hostile).empty());
    client.Send(stream.bytes);
    if (stream.closeAfter) client.Close();
    EXPECT_FALSE(server.Expect("log 8 Remote disconnect: \"" + hostile + "\" stopped").empty());
    EXPECT_FALSE(server.Expect("disconnected " + hostile).empty());
    client.Close();

    // The next client is served at once, and the old session still is.
    const std::string polite = "127.0.0.1:1/polite" + std::to_string(round);
    RawClient next(server.Port(), polite);
    ASSERT_TRUE(next.Established());
    EXPECT_NE(next.CallEcho(42).find(server.AppId()), std::string::npos);
    next.Close();
    EXPECT_FALSE(server.Expect("disconnected " + polite).empty());
    HVXPARAMLIST reply = VXCall(server.AppId().c_str(), 1, VX_INVALID_PARAMLIST);
    EXPECT_STREQ(VXGetStringValue(reply, "servedBy"), server.AppId().c_str());
    VXCloseHandle(reply);
  }

  // Every session that ended has left the registry, with its messages and lists.
  EXPECT_TRUE(WaitUntil([&] {
    server.Send("counters");
    return server.Expect("counters ") == counters;
  }));
  for (const std::string& line : server.Lines())
    EXPECT_NE(line.rfind("log 1 ", 0), 0u) << line;
}

// Beside the fixed "Remote disconnect" line, the peer says at the debug
// level what really ended each session: an orderly close, a reset with the
// system's code and words, or the rule that a broken frame broke.
TEST_F(HostilePeerTest, TheSessionEndNamesItsRealCauseAtTheDebugLevel) {
  const std::string reset =
      StatusText(Status::Of(Cause::kSystemError, testing::ConnectionResetCode()));
  const struct {
    const char* what;
    bool resetOnClose;
    Bytes bytes;  // sent before the client's end
    std::string cause;
  } ends[] = {
      {"a peer that closes", false, {}, "peer closed the stream"},
      {"a peer that resets", true, {}, reset},
      {"a frame of state 4", false, Words({7, 4, 1, 0, 0}),
       "peer sent bytes that break the protocol: a frame state other than call, reply or one-way"},
      {"lists nested too deep", false, NestedChain(VX_MAX_LIST_NESTING + 1),
       "peer sent bytes that break the protocol: list nesting deeper than 256"},
  };
  Peer server(TcpPeer("server", kSecretHex));
  ASSERT_TRUE(server.Ready());
  int round = 0;
  for (const auto& end : ends) {
    SCOPED_TRACE(end.what);
    const std::string name = "127.0.0.1:1/ending" + std::to_string(++round);
    RawClient client(server.Port(), name, end.resetOnClose);
    ASSERT_TRUE(client.Established());
    ASSERT_FALSE(server.Expect("connected " + name).empty());
    if (!end.bytes.empty()) client.Send(end.bytes);
    if (end.bytes.empty()) client.Close();
    EXPECT_FALSE(server.Expect("log 8 Remote disconnect: \"" + name + "\" stopped").empty());
    const std::string prefix = "log 16 \"" + name + "\" ended: ";
    const std::string line = server.Expect(prefix);
    const bool resetAsClose = end.resetOnClose && testing::ResetMayEndAsClose() &&
                              line == prefix + "peer closed the stream";
    EXPECT_TRUE(line == prefix + end.cause || resetAsClose) << line;
    client.Close();
  }
}

}  // namespace
}  // namespace testing
}  // namespace vxbus
