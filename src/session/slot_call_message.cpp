// SPDX-License-Identifier: MIT
#include "session/slot_call_message.h"

#include <cstring>

#include "paramlist/handle.h"
#include "paramlist/param_list.h"
#include "runtime/block_pool.h"
#include "runtime/little_endian.h"
#include "runtime/memory_buffer.h"
#include "runtime/private_heap.h"
#include "session/session.h"

namespace vxbus {

namespace {
ListRef NewListUnlessOneWay(std::uint32_t state) {
  return state == kStateOneWay ? ListRef() : ListRef(new ParamList);
}
}  // namespace

VXSlotCallBody::VXSlotCallBody(std::uint32_t id, ListRef in, ListRef out)
    : slotId(id), input(std::move(in)), output(std::move(out)) {}

VXSlotCallBody::VXSlotCallBody(ListRef in, ListRef out)
    : VXSlotCallBody(0xFFFFFFFFu, std::move(in), std::move(out)) {}

std::int32_t VXSlotCallBody::Write(ITransportChannel& channel, bool isRequest,
                                   std::uint32_t messageId, std::uint32_t state) {
  // A missing or invalid list goes out as an empty one, for this frame alone.
  // The message's own reference keeps the list alive: a second one would
  // cost two atomic operations on a count the caller's thread also touches.
  const ListRef& held = isRequest ? input : output;
  ListRef empty;
  if (!held.IsValid()) empty = new ParamList;
  ParamList* list = held.IsValid() ? held.get() : empty.get();
  if (list == nullptr) return -1;  // the heap refused the empty list

  VXMemoryBufferTpl<128> header;
  header.Append32(messageId);
  header.Append32(state);
  if (isRequest) header.Append32(slotId);
  header.Append32(list->Used());
  header.Append32(list->ChildCount());
  std::int32_t written = channel.Write(header.data, static_cast<std::uint32_t>(header.used));
  if (written < 0) return written;
  const std::int32_t body = list->WriteList(&channel, false, 0, 0);
  return body < 0 ? body : written + body;
}

std::int32_t VXSlotCallBody::Read(ITransportChannel& channel, bool isRequest,
                                  const unsigned char* tail, Status* failure) {
  ListRef& target = isRequest ? input : output;
  unsigned char header[12];
  std::memcpy(header, tail, 8);
  std::uint32_t headerLength = 8;
  if (isRequest) {
    // A request's header has one word more: the slot id stood first in the tail.
    slotId = Load32(header);
    if (channel.Read(header + 8, 4) < 0) {
      const Status channelFailure = channel.FirstFailure();
      *failure = channelFailure.ok() ? Status::Of(Cause::kSystemError) : channelFailure;
      return -1;
    }
    headerLength = 12;
  }
  std::uint32_t childCount = Load32(header + headerLength - 4);
  std::uint32_t size = Load32(header + headerLength - 8);
  std::uint32_t nextSize = 0, nextChildCount = 0;
  const std::int32_t body =
      target->ReadList(&channel, size, childCount, false, &nextSize, &nextChildCount, failure);
  return body < 0 || !isRequest ? body : body + 4;
}

VXSlotCallMessage::VXSlotCallMessage(EventRef event, SessionRef session, std::uint32_t slotId,
                                     HVXPARAMLIST input, VXNotifyCallback callback, void* userData)
    : IVXMessage(event, std::move(session), NextMessageId(),
                 (event.IsValid() || callback) ? kStateCall : kStateOneWay, nullptr),
      body_(slotId, ListRef(ListFromHandle(input)), ListRef()),
      received_(0),
      callback_(callback),
      userData_(userData) {
  body_.output = NewListUnlessOneWay(state_);
}

VXSlotCallMessage::VXSlotCallMessage(SessionRef session, const unsigned char* header)
    : IVXMessage(EventRef(), std::move(session), Load32(header), Load32(header + 4), header + 8),
      body_(ListRef(new ParamList), ListRef()),
      received_(1),
      callback_(nullptr),
      userData_(nullptr) {
  body_.output = NewListUnlessOneWay(state_);
}

// One made and one let go for every frame, mostly on two threads.
void* VXSlotCallMessage::operator new(std::size_t size) noexcept {
  return PooledAllocate(size);
}
void VXSlotCallMessage::operator delete(void* pointer, std::size_t size) {
  PooledFree(pointer, size);
}
std::size_t VXSlotCallMessage::ObjectBytes() const {
  static const std::size_t bytes = PrivateBlockBytes(PooledBlockBytes(sizeof(VXSlotCallMessage)));
  return bytes;
}

std::int32_t VXSlotCallMessage::Send() {
  // A received call leaves as a reply, whatever its slot did.
  if (received_ && state_ == kStateCall) state_ = kStateReply;
  bool isRequest = state_ != kStateReply;
  return body_.Write(*session_->Channel(), isRequest, id_, state_);
}

std::int32_t VXSlotCallMessage::Receive(const unsigned char* headerTail, Status* failure) {
  if (!session_.IsValid()) {
    *failure = Status::Of(Cause::kLocalStop);
    return -1;
  }
  bool isRequest = state_ != kStateReply;
  ListRef& target = isRequest ? body_.input : body_.output;
  // A list the heap refused when the message was made.
  if (!target.IsValid()) {
    *failure = Status::OutOfMemory();
    return -1;
  }
  return body_.Read(*session_->Channel(), isRequest, headerTail ? headerTail : headerTail_,
                    failure);
}

void VXSlotCallMessage::Complete(bool discardOutput) {
  if (discardOutput) body_.output.Reset();
  if (callback_)
    callback_(GetApplicationName(), body_.slotId, HandleFromList(body_.input.get()),
              HandleFromList(body_.output.get()), userData_);
  if (syncEvent_.IsValid()) syncEvent_->Set();
}

void VXSlotCallMessage::CompleteUnanswered() {
  if (callback_)
    callback_(GetApplicationName(), body_.slotId, HandleFromList(body_.input.get()),
              VX_INVALID_PARAMLIST, userData_);
  if (syncEvent_.IsValid()) syncEvent_->Set();
}

}  // namespace vxbus
