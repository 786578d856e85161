// SPDX-License-Identifier: MIT
// The unit that crosses between two applications after the handshake.
#ifndef VXBUS_SESSION_MESSAGE_H_
#define VXBUS_SESSION_MESSAGE_H_

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>

#include "runtime/latch.h"
#include "runtime/referenced_ptr.h"
#include "runtime/status.h"
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
extern std::atomic<std::uint32_t> g_lastMessageId;

class IVXMessage : public MTObjects::MTReferencedTypeBase {
 public:
  // The wait object of one blocking call. Never reset: one event, one call.
  using EventRef = MTObjects::MTReferencedPtr<MTObjects::Latch>;

  // Takes the next process-wide id; the first id of a process is 1 and the
  // counter wraps from 4294967295 to 0.
  static std::uint32_t NextMessageId();

  virtual std::int32_t Send() = 0;
  // The bytes read behind the header, or -1 with `failure` (not null) set
  // to why: the channel's failure, a broken bound, or the heap's refusal.
  virtual std::int32_t Receive(const unsigned char* headerTail, Status* failure) = 0;
  virtual void Complete(bool discardOutput);
  virtual std::uint32_t GetSlotId() const { return 0; }
  virtual ListRef& GetInputList();
  virtual ListRef& GetOutputList();
  // The bytes of the heap that the object itself takes, its lists aside.
  virtual std::size_t ObjectBytes() const;

  // The session's name while it is valid, else an empty string.
  const char* GetApplicationName() const;
  std::uint32_t GetId() const { return id_; }
  std::uint32_t GetState() const { return state_; }
  void SetState(std::uint32_t state) { state_ = state; }
  void SetReplyState() { state_ = kStateReply; }
  const unsigned char* GetHeaderTail() const { return headerTail_; }
  const SessionRef& GetSession() const { return session_; }
  void WaitForCompletion();
  // At most `limit`; true when the message was completed. A message without
  // an event counts as completed.
  bool WaitForCompletion(std::chrono::milliseconds limit);

 protected:
  // `headerTail` may be null: a message built for sending keeps zeros there.
  IVXMessage(EventRef event, SessionRef session, std::uint32_t id, std::uint32_t state,
             const unsigned char* headerTail);
  ~IVXMessage() override;
  bool IsObjectValid() const override { return true; }

  EventRef syncEvent_;
  std::uint32_t id_;
  std::uint32_t state_;
  unsigned char headerTail_[8];
  SessionRef session_;
};

using MessageRef = MTObjects::MTReferencedPtr<IVXMessage>;

}  // namespace vxbus

#endif  // VXBUS_SESSION_MESSAGE_H_
