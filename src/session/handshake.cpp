// SPDX-License-Identifier: MIT
// The exchange that opens every connection, on both sides:
//   1 C->A appID   2 A->C appID   3 A->C challenge (1024 bytes)
//   4 C->A answer (MD5 of secret block and challenge)
//   5 C->A appID again   6 A->C appID again, only if A accepts.
// Both session threads exist, parked at their gates, for the whole exchange,
// and are released on failure as well.
#include <cstring>

#include "runtime/log.h"
#include "runtime/printable_name.h"
#include "session/app_id_tokens.h"
#include "session/session.h"
#include "session/session_registry.h"
#include "transport/app_id_block.h"
#include "transport/challenge.h"
#include "transport/guess_backoff.h"

namespace vxbus {

namespace {

constexpr auto kChallengeLength = static_cast<std::int32_t>(kChallengeBytes);
constexpr auto kAnswerLength = static_cast<std::int32_t>(kAnswerBytes);

bool IsConnected(SessionRegistry& registry, const std::string& appId) {
  SessionRef existing = registry.Find(appId.c_str());
  return existing.IsValid();
}

// Host, then the text between ":" and "/"; false when either is missing.
bool SplitHostAndPort(const std::string& appId, std::string& host, std::string& port) {
  AppIdTokenizer tokens(appId);
  return tokens.Next(':', host) && tokens.Next('/', port);
}

void CallUnknownConnectListener(const Session* session) {
  VXUnknownConnectListener listener =
      session->Environment().listeners->unknownConnect.load(std::memory_order_acquire);
  if (listener) listener(session->LocalAddress().c_str(), session->RemoteAddress().c_str());
}

void CallAuthFailedListener(const Session* session, const std::string& appId) {
  VXAuthFailedListener listener =
      session->Environment().listeners->authFailed.load(std::memory_order_acquire);
  if (listener)
    listener(session->LocalAddress().c_str(), session->RemoteAddress().c_str(), appId.c_str());
}

// Steps 3 to 5 of the exchange on the accepting side: the challenge goes
// out, the answer must match the digest over our secret block. A source in
// its back-off gets no challenge, and its answer is not compared.
bool ChallengeAnswered(ITransportChannel& link, const std::string& source,
                       SessionServices& services) {
  GuessBackoff& backoff = SecretGuessBackoff();
  if (backoff.Refusing(source)) return false;
  unsigned char challenge[kChallengeBytes];
  if (!FillChallenge(challenge)) return false;
  if (link.Write(challenge, kChallengeBytes) != kChallengeLength) return false;
  unsigned char expected[kAnswerBytes], answer[kAnswerBytes];
  unsigned char secret[SessionServices::kSecretBytes];
  static_assert(sizeof secret == kAuthBlockBytes, "the digest covers the whole secret block");
  services.SnapshotSecret(secret);
  ComputeAnswer(secret, challenge, expected);
  std::memset(secret, 0, sizeof secret);
  std::memset(challenge, 0, sizeof challenge);  // the one secret-related wipe
  if (link.Read(answer, kAnswerBytes) != kAnswerLength) return false;
  if (!backoff.BeginCheck(source)) return false;
  const bool matched = AnswerMatches(expected, answer);
  backoff.EndCheck(source, matched);
  return matched;
}

}  // namespace

bool Session::AcceptApplication(const ChannelRef& newChannel) {
  AttachChannel(newChannel);
  // Without a channel no thread is started, so there is nothing to release.
  if (!channel_.IsValid()) return false;
  StartThreads();
  RunAcceptExchange();
  ReleaseThreads();
  return established_;
}

void Session::RunAcceptExchange() {
  ITransportChannel& link = *channel_;
  std::string appId = ReadAppId(link);
  if (appId.empty()) {
    VX_LOG(kLogWarning, "Stage 1: no appID specified");
    CallUnknownConnectListener(this);
    return;
  }
  WriteAppId(link, environment_.ownAppId);
  if (!ChallengeAnswered(link, link.SourceKey(), *environment_.services)) {
    VX_LOG(kLogWarning, "Stage 2: credentials failed");
    CallAuthFailedListener(this, appId);  // the peer's first naming
    return;
  }
  appId = ReadAppId(link);  // the second naming is the one that counts
  if (appId.empty()) {
    VX_LOG(kLogWarning, "Stage 1: no appID specified");
    CallUnknownConnectListener(this);
    return;
  }
  if (IsConnected(*environment_.registry, appId)) {
    VX_LOG(kLogError, "Application already connected: '", PrintableName(appId), "'");
    return;
  }
  std::string host, port;
  if (!SplitHostAndPort(appId, host, port)) {
    VX_LOG(kLogWarning, "Stage 4: No host or name");
    CallUnknownConnectListener(this);
    return;
  }
  WriteAppId(link, environment_.ownAppId);
  MarkEstablished(appId);
}

std::int32_t Session::ConnectApplication(const ChannelRef& newChannel, char* appIdBuffer,
                                         std::uint32_t appIdBufferSize, const unsigned char* secret,
                                         std::int32_t secretLength) {
  std::int32_t result = VX_ERROR_FAILED;
  // Nothing is sent when the secret is too long.
  StartThreads();
  if (secretLength <= 256) {
    AttachChannel(newChannel);
    if (channel_.IsValid())
      result = RunConnectExchange(appIdBuffer, appIdBufferSize, secret, secretLength);
  }
  ReleaseThreads();
  return result;
}

std::int32_t Session::RunConnectExchange(char* appIdBuffer, std::uint32_t appIdBufferSize,
                                         const unsigned char* secret, std::int32_t secretLength) {
  ITransportChannel& link = *channel_;
  WriteAppId(link, environment_.ownAppId);
  std::string appId = ReadAppId(link);
  if (appId.empty()) return VX_ERROR_FAILED;
  if (IsConnected(*environment_.registry, appId)) return VX_ERROR_NAME_IN_USE;

  unsigned char challenge[kChallengeBytes];
  if (link.Read(challenge, kChallengeBytes) != kChallengeLength) return VX_ERROR_FAILED;
  unsigned char block[256] = {};
  if (secret && secretLength > 0)
    std::memcpy(block, secret, static_cast<std::size_t>(secretLength));
  unsigned char answer[kAnswerBytes];
  ComputeAnswer(block, challenge, answer);
  if (link.Write(answer, kAnswerBytes) != kAnswerLength) return VX_ERROR_FAILED;
  WriteAppId(link, environment_.ownAppId);

  // A refusal shows only as silence and a closed connection.
  appId = ReadAppId(link);
  if (appId.empty()) return VX_ERROR_NAME_IN_USE;
  std::string host, port;
  if (!SplitHostAndPort(appId, host, port)) {
    CallUnknownConnectListener(this);
    return VX_ERROR_FAILED;
  }
  MarkEstablished(appId);
  if (appIdBuffer && appIdBufferSize) {
    std::memset(appIdBuffer, 0, appIdBufferSize);
    if (appIdBufferSize >= appId.size() + 1)
      std::memcpy(appIdBuffer, appId.c_str(), appId.size() + 1);
  }
  return VX_SUCCESS;
}

}  // namespace vxbus
