// SPDX-License-Identifier: MIT
// The frame reader of a session, fed whole frames by the fuzzer through the
// channel interface: calls, one-way calls and replies, read one after the
// other until the reader ends the session. One call with id 1 waits for its
// reply, so that reply bodies are read too.
#include <cstddef>
#include <cstdint>

#include "byte_channel.h"
#include "process/process_context.h"
#include "session/message.h"
#include "session/session.h"

using vxbus::ChannelRef;
using vxbus::Message;
using vxbus::MessageRef;
using vxbus::Session;
using vxbus::SessionRef;
using vxbus::fuzz::ByteChannel;

namespace {

// One session for every input: a session counts as valid while it holds a
// reader thread, and starting one per input would cost most of the time.
// Each input brings its own channel and its own waiting call.
SessionRef* g_session = nullptr;

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  vxbus::SessionEnvironment environment = vxbus::ProcessContext::Get().SessionEnvironmentNow();
  environment.maxReadSize = 1 << 20;  // see list_stream_fuzzer.cpp
  g_session = new SessionRef(new Session(environment));
  Session& session = **g_session;
  session.MarkEstablished("fuzz:1/peer");
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const SessionRef& session = *g_session;
  session->AttachChannel(ChannelRef(new ByteChannel(data, size)));

  vxbus::LastMessageId() = 0;  // the waiting call gets id 1
  MessageRef waiting(new Message(vxbus::Message::EventRef(new MTObjects::Latch), session, 1,
                                 VX_INVALID_PARAMLIST, nullptr, nullptr));
  session->PendingCalls().Insert(waiting);

  MessageRef message;
  for (int frames = 0; frames < 64 && session->ReceiveMessage(message).ok(); ++frames) {
    if (!message.IsValid()) __builtin_trap();
  }
  message.Reset();
  session->PendingCalls().Clear();
  session->AttachChannel(ChannelRef());
  return 0;
}
