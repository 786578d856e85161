// SPDX-License-Identifier: MIT
// Messages and sessions made by hand for the session layer's tests: sessions
// over a real channel, marked established without the exchange.
#ifndef VXBUS_TESTS_SESSION_SESSION_FIXTURES_H_
#define VXBUS_TESTS_SESSION_SESSION_FIXTURES_H_

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "runtime/little_endian.h"
#include "session/message.h"
#include "session/session.h"
#include "vxbus.h"

namespace vxbus {
namespace testing {

using Bytes = std::vector<unsigned char>;

// A one-way message that carries only its id, as if read off a channel.
inline Message* TaggedMessage(std::uint32_t id) {
  unsigned char header[16] = {};
  Store32(header, id);
  Store32(header + 4, kStateOneWay);
  return new Message(SessionRef(), header);
}

// A one-way message to `slot` whose list holds `payload` bytes of binary value.
inline MessageRef OneWay(std::uint32_t payload, const SessionRef& session = SessionRef(),
                         std::uint32_t slot = 7) {
  HVXPARAMLIST list = VXCreateParamList();
  const std::vector<char> bytes(payload, 'p');
  VXSetBinaryValue(list, "p", bytes.data(), payload);
  MessageRef message(new Message(Message::EventRef(), session, slot, list, nullptr, nullptr));
  VXCloseHandle(list);
  return message;
}

// What the handshake would do, minus the exchange. Without threads, frames
// are read and written by hand.
inline SessionRef EstablishedSession(const ChannelRef& channel, const std::string& peerAppId,
                                     bool threads = true) {
  SessionRef session(new Session);
  session->AttachChannel(channel);
  if (threads) session->StartThreads();
  session->MarkEstablished(peerAppId);
  if (threads) session->ReleaseThreads();
  return session;
}

inline Bytes ReadExactly(const ChannelRef& channel, std::uint32_t n) {
  Bytes bytes(n);
  EXPECT_EQ(channel->Read(bytes.data(), n), static_cast<std::int32_t>(n));
  return bytes;
}

}  // namespace testing
}  // namespace vxbus

#endif  // VXBUS_TESTS_SESSION_SESSION_FIXTURES_H_
