// SPDX-License-Identifier: MIT
#include "session/message.h"

#include <atomic>
#include <cstring>

#include "paramlist/param_list.h"
#include "runtime/object_counters.h"
#include "runtime/private_heap.h"
#include "session/session.h"

namespace vxbus {

namespace {
// What a message without lists hands out; never destroyed, as messages may
// still be in use on session threads while the process exits.
ListRef& NullList() {
  static ListRef& nullList = *new ListRef;
  return nullList;
}
const char kNoName[] = "";
}  // namespace

std::atomic<std::uint32_t>& LastMessageId() {
  static std::atomic<std::uint32_t>& last = *new std::atomic<std::uint32_t>(0);
  return last;
}

std::uint32_t IVXMessage::NextMessageId() {
  return ++LastMessageId();
}

IVXMessage::IVXMessage(EventRef event, SessionRef session, std::uint32_t id, std::uint32_t state,
                       const unsigned char* headerTail)
    : syncEvent_(std::move(event)), id_(id), state_(state), session_(std::move(session)) {
  if (headerTail)
    std::memcpy(headerTail_, headerTail, sizeof headerTail_);
  else
    std::memset(headerTail_, 0, sizeof headerTail_);
  ++Counters().liveMessages;
}

// The session goes first, then the event.
IVXMessage::~IVXMessage() {
  session_.Reset();
  syncEvent_.Reset();
  --Counters().liveMessages;
}

void IVXMessage::Complete(bool /*discardOutput*/) {
  if (syncEvent_.IsValid()) syncEvent_->Set();
}

ListRef& IVXMessage::GetInputList() {
  return NullList();
}
ListRef& IVXMessage::GetOutputList() {
  return NullList();
}
std::size_t IVXMessage::ObjectBytes() const {
  return PrivateBlockBytes(sizeof(IVXMessage));
}

const char* IVXMessage::GetApplicationName() const {
  if (session_.IsValid()) return session_->Name().c_str();
  return kNoName;
}

void IVXMessage::WaitForCompletion() {
  if (syncEvent_.IsValid()) syncEvent_->Wait();
}

bool IVXMessage::WaitForCompletion(std::chrono::milliseconds limit) {
  return !syncEvent_.IsValid() || syncEvent_->WaitFor(limit);
}

}  // namespace vxbus
