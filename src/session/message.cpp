// SPDX-License-Identifier: MIT
#include "session/message.h"

#include <atomic>
#include <cstring>

#include "paramlist/handle.h"
#include "paramlist/param_list.h"
#include "runtime/block_pool.h"
#include "runtime/little_endian.h"
#include "runtime/memory_buffer.h"
#include "runtime/object_counters.h"
#include "runtime/private_heap.h"
#include "session/session.h"

namespace vxbus {

namespace {

const char kNoName[] = "";

ListRef NewListUnlessOneWay(std::uint32_t state) {
  return state == kStateOneWay ? ListRef() : ListRef(new ParamList);
}

}  // namespace

std::atomic<std::uint32_t>& LastMessageId() {
  static std::atomic<std::uint32_t>& last = *new std::atomic<std::uint32_t>(0);
  return last;
}

std::uint32_t Message::NextMessageId() {
  return ++LastMessageId();
}

Message::Message(EventRef event, SessionRef session, std::uint32_t slotId, HVXPARAMLIST input,
                 VXNotifyCallback callback, void* userData)
    : completion_(std::move(event)),
      id_(NextMessageId()),
      state_((completion_.IsValid() || callback) ? kStateCall : kStateOneWay),
      session_(std::move(session)),
      slotId_(slotId),
      input_(ListFromHandle(input)),
      received_(0),
      callback_(callback),
      userData_(userData) {
  std::memset(headerTail_, 0, sizeof headerTail_);  // a message built for sending keeps zeros
  output_ = NewListUnlessOneWay(state_);
  ++Counters().liveMessages;
}

Message::Message(SessionRef session, const unsigned char* header)
    : id_(Load32(header)),
      state_(Load32(header + 4)),
      session_(std::move(session)),
      slotId_(0xFFFFFFFFu),
      input_(new ParamList),
      received_(1),
      callback_(nullptr),
      userData_(nullptr) {
  std::memcpy(headerTail_, header + 8, sizeof headerTail_);
  output_ = NewListUnlessOneWay(state_);
  ++Counters().liveMessages;
}

// The output list goes first, then the input list, the session and the event.
Message::~Message() {
  output_.Reset();
  input_.Reset();
  session_.Reset();
  completion_.Reset();
  --Counters().liveMessages;
}

// One made and one let go for every frame, mostly on two threads.
void* Message::operator new(std::size_t size) noexcept {
  return PooledAllocate(size);
}
void Message::operator delete(void* pointer, std::size_t size) {
  PooledFree(pointer, size);
}
std::size_t Message::ObjectBytes() const {
  static const std::size_t bytes = PrivateBlockBytes(PooledBlockBytes(sizeof(Message)));
  return bytes;
}

std::int32_t Message::Send() {
  // A received call leaves as a reply, whatever its slot did.
  if (received_ && state_ == kStateCall) state_ = kStateReply;
  bool isRequest = state_ != kStateReply;
  return WriteFrame(*session_->Channel(), isRequest);
}

std::int32_t Message::Receive(const unsigned char* headerTail, Status* failure) {
  if (!session_.IsValid()) {
    *failure = Status::Of(Cause::kLocalStop);
    return -1;
  }
  bool isRequest = state_ != kStateReply;
  ListRef& target = isRequest ? input_ : output_;
  // A list the heap refused when the message was made.
  if (!target.IsValid()) {
    *failure = Status::OutOfMemory();
    return -1;
  }
  return ReadFrame(*session_->Channel(), session_->Environment().maxReadSize, isRequest,
                   headerTail ? headerTail : headerTail_, failure);
}

std::int32_t Message::WriteFrame(ITransportChannel& channel, bool isRequest) {
  // A missing or invalid list goes out as an empty one, for this frame alone.
  // The message's own reference keeps the list alive: a second one would
  // cost two atomic operations on a count the caller's thread also touches.
  const ListRef& held = isRequest ? input_ : output_;
  ListRef empty;
  if (!held.IsValid()) empty = new ParamList;
  ParamList* list = held.IsValid() ? held.get() : empty.get();
  if (list == nullptr) return -1;  // the heap refused the empty list

  VXMemoryBufferTpl<128> header;
  header.Append32(id_);
  header.Append32(state_);
  if (isRequest) header.Append32(slotId_);
  header.Append32(list->Used());
  header.Append32(list->ChildCount());
  std::int32_t written = channel.Write(header.data, static_cast<std::uint32_t>(header.used));
  if (written < 0) return written;
  const std::int32_t body = list->WriteList(&channel, false, 0, 0);
  return body < 0 ? body : written + body;
}

std::int32_t Message::ReadFrame(ITransportChannel& channel, std::uint32_t maxReadSize,
                                bool isRequest, const unsigned char* tail, Status* failure) {
  ListRef& target = isRequest ? input_ : output_;
  unsigned char header[12];
  std::memcpy(header, tail, 8);
  std::uint32_t headerLength = 8;
  if (isRequest) {
    // A request's header has one word more: the slot id stood first in the tail.
    slotId_ = Load32(header);
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
  const std::int32_t body = target->ReadList(&channel, maxReadSize, size, childCount, false,
                                             &nextSize, &nextChildCount, failure);
  return body < 0 || !isRequest ? body : body + 4;
}

void Message::Complete(bool discardOutput) {
  if (discardOutput) output_.Reset();
  if (callback_)
    callback_(GetApplicationName(), slotId_, HandleFromList(input_.get()),
              HandleFromList(output_.get()), userData_);
  if (completion_.IsValid()) completion_->Set();
}

void Message::CompleteUnanswered() {
  if (callback_)
    callback_(GetApplicationName(), slotId_, HandleFromList(input_.get()), VX_INVALID_PARAMLIST,
              userData_);
  if (completion_.IsValid()) completion_->Set();
}

const char* Message::GetApplicationName() const {
  if (session_.IsValid()) return session_->Name().c_str();
  return kNoName;
}

void Message::WaitForCompletion() {
  if (completion_.IsValid()) completion_->Wait();
}

bool Message::WaitForCompletion(std::chrono::milliseconds limit) {
  return !completion_.IsValid() || completion_->WaitFor(limit);
}

}  // namespace vxbus
