// SPDX-License-Identifier: MIT
// The accepting side of the handshake, with the connecting peer's bytes from
// the fuzzer and the challenge from the real random source. The first input
// byte chooses whether the 16 bytes read as the answer are replaced with the
// right one, so that the steps after the challenge are reached as well.
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "byte_channel.h"
#include "process/process_context.h"
#include "session/session.h"
#include "transport/challenge.h"

using vxbus::ChannelRef;
using vxbus::Session;
using vxbus::SessionRef;

namespace {

// Knows the challenge it carried out and so the answer that matches it.
class AnsweringChannel : public vxbus::fuzz::ByteChannel {
 public:
  AnsweringChannel(const std::uint8_t* data, std::size_t size, bool answer)
      : ByteChannel(data, size), answer_(answer) {}

  std::int32_t Read(void* buffer, std::uint32_t length) override {
    const std::int32_t got = ByteChannel::Read(buffer, length);
    if (got == static_cast<std::int32_t>(vxbus::kAnswerBytes) && answerDue_) {
      std::memcpy(buffer, expected_, vxbus::kAnswerBytes);
      answerDue_ = false;
    }
    return got;
  }
  std::int32_t Write(const void* bytes, std::uint32_t length) override {
    if (answer_ && length == vxbus::kChallengeBytes) {
      vxbus::ComputeAnswer(vxbus::ProcessContext::Get().limits.limits.authBlock,
                           static_cast<const unsigned char*>(bytes), expected_);
      answerDue_ = true;
    }
    return ByteChannel::Write(bytes, length);
  }

 private:
  const bool answer_;
  bool answerDue_ = false;
  unsigned char expected_[vxbus::kAnswerBytes] = {};
};

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  vxbus::ProcessContext& context = vxbus::ProcessContext::Get();
  context.ownAppId = "fuzz:1/acceptor";
  context.RefreshSessionEnvironment();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < 1) return 0;
  SessionRef session(new Session(vxbus::ProcessContext::Get().SessionEnvironmentNow()));
  auto* channel = new AnsweringChannel(data + 1, size - 1, (data[0] & 1) != 0);
  session->AttachChannel(ChannelRef(channel));
  session->RunAcceptExchange();
  // Accepted only with a name that has a host and a port.
  if (session->IsSessionValid() && session->Name().find(':') == std::string::npos) __builtin_trap();
  return 0;
}
