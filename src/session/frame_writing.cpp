// SPDX-License-Identifier: MIT
// Writing frames onto a session's channel: in batches from the writer
// thread, or one frame directly from the thread that made it while the
// writer is idle.
#include <utility>

#include "runtime/process_state.h"
#include "session/session.h"

namespace vxbus {

bool Session::WriterStopping() const {
  return g_shuttingDown.load(std::memory_order_relaxed) || stopRequested_.load();
}

void Session::QueueFrame(MessageRef message) {
  const std::uint64_t bytes = VXMessageQueue::MessageBytes(message);
  QueueFrame(std::move(message), bytes);
}

void Session::QueueFrame(MessageRef message, std::uint64_t bytes) {
  queuedFrames_.fetch_add(1);
  sendQueue_.Push(std::move(message), bytes);
  // Nobody takes frames from a closed queue; they would hold the session.
  if (sendQueueClosed_.load()) sendQueue_.DropPushed();
}

bool Session::ClaimIdleWriter() {
  if (queuedFrames_.load() != 0 || !writeMutex_.try_lock()) return false;
  // Under the lock, no count means every queued frame has been written.
  if (queuedFrames_.load() == 0 && !writingEnded_ && !WriterStopping()) return true;
  writeMutex_.unlock();
  return false;
}

void Session::WriteClaimed(const MessageRef& message) {
  std::lock_guard<std::mutex> lock(writeMutex_, std::adopt_lock);
  channel_->BeginWriteBatch();
  FrameBatch batch;
  const bool written = WriteFrame(message, &batch);
  if (EndFrameBatch(written, batch)) return;
  writingEnded_ = true;
  sendQueue_.Wake();  // the writer ends as it would after its own failure
}

bool Session::WriteQueuedBatch(std::int32_t limitMs) {
  MessageRef message;
  sendQueue_.Pop(message, limitMs);
  if (!message) return true;
  std::lock_guard<std::mutex> lock(writeMutex_);
  if (writingEnded_) return false;
  channel_->BeginWriteBatch();
  FrameBatch batch;
  bool written = true;
  // Counted off once for the batch: the count is only read by a claim, which
  // can't happen while this thread holds the write lock.
  std::uint32_t taken = 0;
  while (message) {
    written = WriteFrame(message, &batch);
    ++taken;
    if (!written || WriterStopping()) break;
    sendQueue_.Pop(message, 0);
  }
  queuedFrames_.fetch_sub(taken);
  if (EndFrameBatch(written, batch)) return true;
  writingEnded_ = true;
  return false;
}

void Session::EndWriting() {
  std::lock_guard<std::mutex> lock(writeMutex_);
  writingEnded_ = true;
}

bool Session::WriteFrame(const MessageRef& message, FrameBatch* batch) {
  if (!message.IsValid()) return true;
  const bool isCall = message->GetState() == kStateCall;
  // Entered before the first byte goes out, so no reply can overtake it.
  if (isCall) pendingCalls_->Insert(message);
  const std::int32_t sent = message->Send();
  if (sent >= 0) {
    framesSent_.Add(1);
    bytesSent_.Add(static_cast<std::uint32_t>(sent));
    // The state is not looked at again: once the bytes are out, the reader
    // may already be turning the call into its reply.
    if (isCall && !batch->hasCall) batch->firstCallId = message->GetId();
    batch->hasCall = batch->hasCall || isCall;
    return true;
  }
  // A failed reply or one-way frame is dropped. Send turns a received
  // call's state into a reply.
  if (message->GetState() != kStateCall) return true;
  FailUnwrittenCall(message->GetId());
  return false;
}

// When the batch fails as a whole, its first call counts as the one that
// could not be written.
bool Session::EndFrameBatch(bool allWritten, const FrameBatch& batch) {
  const bool flushed = channel_->EndWriteBatch() >= 0;
  if (!allWritten) return false;
  if (flushed || !batch.hasCall) return true;
  FailUnwrittenCall(batch.firstCallId);
  return false;
}

void Session::FailUnwrittenCall(std::uint32_t id) {
  MessageRef failed;
  pendingCalls_->Take(id, failed);
  if (!failed.IsValid()) return;
  failed->SetReplyState();
  g_dispatchQueue.Push(failed);  // completed by the dispatch thread
}

}  // namespace vxbus
