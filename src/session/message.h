// SPDX-License-Identifier: MIT
// The unit that crosses between two applications after the handshake: calls,
// notifications, signal traffic and the replies to all of them. A received
// request is turned into its own reply.
#ifndef VXBUS_SESSION_MESSAGE_H_
#define VXBUS_SESSION_MESSAGE_H_

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>

#include "runtime/latch.h"
#include "runtime/referenced_ptr.h"
#include "runtime/status.h"
#include "transport/transport_channel.h"
#include "vxbus.h"

namespace vxbus {

class ParamList;
class Session;
using ListRef = MTObjects::MTReferencedPtr<ParamList>;
using SessionRef = MTObjects::MTReferencedPtr<Session>;

// States of a message; the second word of every frame.
enum MessageState : std::uint32_t {
  kStateCall = 1,    // a reply is wanted
  kStateReply = 2,   // the output list goes back, or has come back
  kStateOneWay = 3,  // no reply exists
};

// The last message id handed out; shared by all sessions of the process.
// Made on first use and never destroyed. Any thread.
std::atomic<std::uint32_t>& LastMessageId();

// A message holds its slot id, its two lists and the session it travels on,
// and writes and reads its own frames on that session's channel. Made and let
// go from a pool, as one of each happens for every frame.
class Message : public MTObjects::MTReferencedTypeBase {
 public:
  // The wait object of one blocking call. Never reset: one event, one call.
  using EventRef = MTObjects::MTReferencedPtr<MTObjects::Latch>;

  // Takes the next process-wide id; the first id of a process is 1 and the
  // counter wraps from 4294967295 to 0.
  static std::uint32_t NextMessageId();

  // For sending. The state is a call when there is a valid event or a
  // callback, one-way otherwise. The message shares the caller's list.
  Message(EventRef event, SessionRef session, std::uint32_t slotId, HVXPARAMLIST input,
          VXNotifyCallback callback, void* userData);
  // For receiving: from the 16 header bytes read off the channel. A request
  // gets a fresh input list; a call gets an output list for its reply too.
  Message(SessionRef session, const unsigned char* header);

  // From the block pool; null when the heap refuses, and then nothing is
  // constructed.
  static void* operator new(std::size_t size) noexcept;
  static void operator delete(void* pointer, std::size_t size);

  // Writes the whole frame on the session's channel: the bytes written,
  // negative on failure. A received call leaves as its reply.
  std::int32_t Send();
  // Reads the rest of a frame whose first 8 header bytes were read, into the
  // input list of a request or the output list of a reply; `headerTail`
  // holds the next 8, null for those the message was made from. The bytes
  // read past the first 16; negative on failure, with `failure` (not null)
  // set to why: the channel's failure, a broken bound, or the heap's refusal.
  std::int32_t Receive(const unsigned char* headerTail, Status* failure);
  // Runs the callback and sets the event, each when there is one;
  // `discardOutput` lets go of the output list first (a failed call).
  virtual void Complete(bool discardOutput);
  // Completes as a call that got no answer, without touching the output
  // list, which a late reply may be filling on the reader at this moment:
  // the callback sees a null output. For a deadline that ran out.
  void CompleteUnanswered();

  std::uint32_t GetSlotId() const { return slotId_; }
  ListRef& GetInputList() { return input_; }
  ListRef& GetOutputList() { return output_; }
  // The bytes of the heap that the object itself takes, its lists aside.
  std::size_t ObjectBytes() const;

  // The session's name while it is valid, else an empty string.
  const char* GetApplicationName() const;
  std::uint32_t GetId() const { return id_; }
  std::uint32_t GetState() const { return state_; }
  void SetReplyState() { state_ = kStateReply; }
  const SessionRef& GetSession() const { return session_; }
  void WaitForCompletion();
  // At most `limit`; true when the message was completed. A message without
  // an event counts as completed.
  bool WaitForCompletion(std::chrono::milliseconds limit);

 protected:
  ~Message() override;
  bool IsObjectValid() const override { return true; }

 private:
  // Header and list of one frame: the bytes written, negative on failure.
  std::int32_t WriteFrame(ITransportChannel& channel, bool isRequest);
  // The rest of a frame behind its first 8 header bytes, `tail` the next 8:
  // the bytes read past those 16, negative on failure with `failure` set.
  std::int32_t ReadFrame(ITransportChannel& channel, std::uint32_t maxReadSize, bool isRequest,
                         const unsigned char* tail, Status* failure);

  EventRef completion_;  // set as the message completes; null: nobody waits
  std::uint32_t id_;
  std::uint32_t state_;
  unsigned char headerTail_[8];
  SessionRef session_;
  std::uint32_t slotId_;
  ListRef input_;
  ListRef output_;  // let go first
  std::uint8_t received_;
  VXNotifyCallback callback_;
  void* userData_;
};

using MessageRef = MTObjects::MTReferencedPtr<Message>;

}  // namespace vxbus

#endif  // VXBUS_SESSION_MESSAGE_H_
