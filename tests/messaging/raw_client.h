// SPDX-License-Identifier: MIT
// What the tests that play a peer by hand share: wire words, and the
// connecting side of the handshake spoken as the library speaks it.
#ifndef VXBUS_TESTS_MESSAGING_RAW_CLIENT_H_
#define VXBUS_TESTS_MESSAGING_RAW_CLIENT_H_

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "transport/app_id_block.h"
#include "transport/challenge.h"
#include "transport/transport_channel.h"

namespace vxbus {
namespace testing {

using Bytes = std::vector<unsigned char>;

// Little-endian words, then raw bytes, as they go on the wire.
inline Bytes Words(const std::vector<std::uint32_t>& words, const Bytes& tail = {}) {
  Bytes bytes;
  for (std::uint32_t word : words)
    for (int shift = 0; shift < 32; shift += 8)
      bytes.push_back(static_cast<unsigned char>(word >> shift));
  bytes.insert(bytes.end(), tail.begin(), tail.end());
  return bytes;
}

enum class Outcome { kNoChallenge, kRefused, kEstablished };

// The client's side of the handshake on `channel`: our appID, the peer's
// appID and challenge, the answer over `secret`, our appID again, and the
// peer's final appID (empty when it refused us).
inline Outcome SpeakClientHandshake(ITransportChannel& channel, const std::string& appId,
                                    const std::string& secret) {
  WriteAppId(channel, appId);
  unsigned char challenge[kChallengeBytes];
  if (ReadAppId(channel).empty() ||
      channel.Read(challenge, kChallengeBytes) != static_cast<std::int32_t>(kChallengeBytes))
    return Outcome::kNoChallenge;
  unsigned char block[kAuthBlockBytes] = {};
  std::memcpy(block, secret.data(), secret.size());
  unsigned char answer[kAnswerBytes];
  ComputeAnswer(block, challenge, answer);
  channel.Write(answer, kAnswerBytes);
  WriteAppId(channel, appId);
  return ReadAppId(channel).empty() ? Outcome::kRefused : Outcome::kEstablished;
}

}  // namespace testing
}  // namespace vxbus

#endif  // VXBUS_TESTS_MESSAGING_RAW_CLIENT_H_
