// SPDX-License-Identifier: MIT
// The one concrete message: calls, notifications, signal traffic and the
// replies to all of them. A received request is turned into its own reply.
#ifndef VXBUS_SESSION_SLOT_CALL_MESSAGE_H_
#define VXBUS_SESSION_SLOT_CALL_MESSAGE_H_

#include <cstddef>
#include <cstdint>

#include "session/message.h"
#include "transport/transport_channel.h"

namespace vxbus {

// Slot id and the two lists, and the frame work on them.
class VXSlotCallBody {
 public:
  VXSlotCallBody(std::uint32_t slotId, ListRef input, ListRef output);
  VXSlotCallBody(ListRef input, ListRef output);  // slot id -1

  // Header and list body of one frame: the bytes written, negative on failure.
  std::int32_t Write(ITransportChannel& channel, bool isRequest, std::uint32_t messageId,
                     std::uint32_t state);
  // The rest of a frame behind its first 8 header bytes, `tail` the next 8:
  // the bytes read past those 16, negative on failure with `failure` set.
  std::int32_t Read(ITransportChannel& channel, bool isRequest, const unsigned char* tail,
                    Status* failure);

  std::uint32_t slotId;
  ListRef input;
  ListRef output;  // declared last so that it is released first
};

class VXSlotCallMessage : public IVXMessage {
 public:
  // For sending. The state is a call when there is a valid event or a
  // callback, one-way otherwise. The message shares the caller's list.
  VXSlotCallMessage(EventRef event, SessionRef session, std::uint32_t slotId, HVXPARAMLIST input,
                    VXNotifyCallback callback, void* userData);
  // For receiving: from the 16 header bytes read off the channel.
  VXSlotCallMessage(SessionRef session, const unsigned char* header);

  // From the block pool; null when the heap refuses, and then nothing is
  // constructed.
  static void* operator new(std::size_t size) noexcept;
  static void operator delete(void* pointer, std::size_t size);

  std::int32_t Send() override;
  std::int32_t Receive(const unsigned char* headerTail, Status* failure) override;
  void Complete(bool discardOutput) override;
  // Completes as a call that got no answer, without touching the output
  // list, which a late reply may be filling on the reader at this moment:
  // the callback sees a null output. For a deadline that ran out.
  void CompleteUnanswered();
  std::uint32_t GetSlotId() const override { return body_.slotId; }
  ListRef& GetInputList() override { return body_.input; }
  ListRef& GetOutputList() override { return body_.output; }
  std::size_t ObjectBytes() const override;

 private:
  VXSlotCallBody body_;
  std::uint8_t received_;
  VXNotifyCallback callback_;
  void* userData_;
};

}  // namespace vxbus

#endif  // VXBUS_SESSION_SLOT_CALL_MESSAGE_H_
