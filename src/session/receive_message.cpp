// SPDX-License-Identifier: MIT
// Reading one frame off a session's channel.
#include <cstring>

#include "runtime/little_endian.h"
#include "session/session.h"
#include "session/slot_call_message.h"

namespace vxbus {

// `rest`: what the frame's Receive read behind the first 16 header bytes.
void Session::CountReceived(std::int32_t rest) {
  framesReceived_.Add(1);
  bytesReceived_.Add(16 + static_cast<std::uint32_t>(rest));
}

bool Session::ReceiveMessage(MessageRef& out, MTObjects::ReferenceBlock<Session>* refs) {
  out.Reset();
  unsigned char header[16] = {0xFF, 0xFF, 0xFF, 0xFF};
  // Only this first read may wait for as long as the peer stays silent; the
  // rest of the frame is bounded by the channel's time limit.
  if (channel_->ReadStoppable(header, sizeof header, &stopRequested_) < 0) return false;
  const std::uint32_t id = Load32(header);
  const std::uint32_t state = Load32(header + 4);

  if (state == kStateCall || state == kStateOneWay) {
    MessageRef message(new VXSlotCallMessage(refs ? refs->Take() : SessionRef(this), header));
    const std::int32_t received = message->Receive(nullptr);
    if (received < 0) return false;
    CountReceived(received);
    out = std::move(message);
    return true;
  }
  if (state == kStateReply) {
    // A reply to an id we don't wait for ends the session; its body is not read.
    MessageRef message;
    pendingCalls_->Take(id, message);
    if (!message.IsValid()) return false;
    message->SetReplyState();
    // Taken from the table already: if the body fails now, the call is
    // neither pending nor completed. That gap is kept on purpose.
    const std::int32_t received = message->Receive(header + 8);
    if (received < 0) return false;
    CountReceived(received);
    out = std::move(message);
    return true;
  }
  return false;  // state 0 or above 3: nothing more is consumed
}

}  // namespace vxbus
