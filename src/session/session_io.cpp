// SPDX-License-Identifier: MIT
// The session's two threads and the frames they move: the reader's loop and
// frame reading, the writer's loop and frame writing, in batches from the
// writer thread or one frame directly from the thread that made it while the
// writer is idle.
#include <cstring>
#include <utility>

#include "runtime/little_endian.h"
#include "runtime/log.h"
#include "runtime/printable_name.h"
#include "runtime/status.h"
#include "session/app_id_tokens.h"
#include "session/back_pressure.h"
#include "session/dropped_messages.h"
#include "session/message.h"
#include "session/session.h"
#include "session/session_registry.h"
#include "session/session_threads.h"

namespace vxbus {

namespace {

void LogNotInitialized(const Session& session) {
  VX_LOG(kLogWarning, "Application '", PrintableName(session.Name()), "' is not initialized");
}

void CallConnectListener(const Session& session) {
  VXConnectListener listener =
      session.Environment().listeners->connect.load(std::memory_order_acquire);
  if (!listener) return;
  AppIdParts parts = SplitAppId(session.Name());
  listener(session.LocalAddress().c_str(), session.RemoteAddress().c_str(), session.Name().c_str(),
           parts.hasHost ? parts.host.c_str() : nullptr, parts.PortNumber(),
           parts.hasName ? parts.name.c_str() : nullptr);
}

void CallDisconnectListener(const Session& session) {
  VXDisconnectListener listener =
      session.Environment().listeners->disconnect.load(std::memory_order_acquire);
  if (!listener) return;
  AppIdParts parts = SplitAppId(session.Name());
  listener(session.Name().c_str(), parts.hasHost ? parts.host.c_str() : nullptr, parts.PortNumber(),
           parts.hasName ? parts.name.c_str() : nullptr);
}

}  // namespace

void Session::RunReader() {
  readerGo_.Wait();
  if (!established_) {
    EndReading();
    readerUp_.Set();
    LogNotInitialized(*this);
    return;
  }
  // A registry that can't hold the name (the heap refused its copy) ends
  // the session as a local stop, once the connection is reported.
  Status ended = Status::Of(Cause::kLocalStop);
  if (!environment_.registry->Assign(name_, this)) {
    ended = Status::OutOfMemory();
    stopRequested_.store(true);
  }
  readerUp_.Set();
  VX_LOG(kLogInfo, "Application connected:", PrintableName(name_));
  CallConnectListener(*this);

  {
    MTObjects::ReferenceBlock<Session> messageRefs(this);
    for (;;) {
      if (environment_.processStop.StopRequested()) break;
      if (stopRequested_.load()) break;
      std::int32_t ready = channel_->WaitReadable(kReaderPollMs);
      if (ready < 0) {
        ended = ChannelFailure();
        break;
      }
      if (ready == 0) continue;
      // A local stop wakes the wait; the frames behind it are not read.
      if (stopRequested_.load()) break;
      MessageRef message;
      const Status received = ReceiveMessage(message, &messageRefs);
      if (!received.ok()) {
        ended = received;
        break;
      }
      if (message->GetState() == kStateReply) {
        // Completed here and never queued, so that a slot function blocked in
        // a call on the dispatch thread still gets its answer.
        message->Complete(false);
      } else {
        // A full dispatch queue holds the reading back, and so the peer.
        const std::uint64_t bytes = VXMessageQueue::MessageBytes(message);
        if (!AwaitDispatchRoom(*this, bytes)) {
          ended = PeerEnded() ? Status::Of(Cause::kPeerClosed) : Status::Of(Cause::kLocalStop);
          break;
        }
        if (!environment_.dispatchQueue->Push(std::move(message), bytes)) {
          ended = Status::OutOfMemory();
          break;
        }
      }
    }
  }
  EndReading();

  const char* cause = environment_.processStop.StopRequested() ? "Global shutdown: "
                      : stopRequested_.load()                  ? "Local shutdown: "
                                                               : "Remote disconnect: ";
  VX_LOG(kLogInfo, cause, '"', PrintableName(name_), '"', " stopped");
  // The designed line above is fixed; this one says what really ended it.
  VX_LOG(kLogDebug, '"', PrintableName(name_), "\" ended: ", StatusText(ended));
  environment_.services->SessionEnded(this);
  CallDisconnectListener(*this);
  // The writer learns of a remote end from this flag; registry and queues
  // are the writer's to clean.
  stopRequested_.store(true);
  sendQueue_.Wake();
}

void Session::RunWriter() {
  writerGo_.Wait();
  writerUp_.Set();
  if (!established_) {
    CloseSendQueue();
    LogNotInitialized(*this);
    return;
  }

  while (!WriterStopping()) {
    if (!WriteQueuedBatch(kWriterPollMs)) break;
  }
  EndWriting();

  environment_.registry->Erase(name_, this);
  // Every caller that found the session under the registry lock has pushed
  // by now: fail what is queued, then what waits for a reply.
  QueueTally dropped;
  for (;;) {
    MessageRef message;
    sendQueue_.Pop(message, 0);
    if (!message.IsValid()) break;
    dropped.Add(VXMessageQueue::MessageBytes(message));
    message->Complete(true);
  }
  ReportDropped(name_, dropped, environment_.processStop.StopRequested());
  pendingCalls_->ForEach([](MessageRef& message) { message->Complete(true); });
  CloseSendQueue();
}

// The frame of both threads: each holds the session for its whole run and
// reports its end to the session, then, after every reference of its own is
// gone, to the count of live threads.
template <void (Session::*Body)()>
void Session::RunThread(Session* raw) {
  t_onSessionThread = true;
  {
    SessionRef session(raw);
    (raw->*Body)();
    raw->ThreadEnded();
  }
  LiveSessionThreads().Ended();
}

void Session::StartThreads() {
  LiveSessionThreads().Started();
  readerThread_ = std::thread(RunThread<&Session::RunReader>, this);
  readerId_.store(readerThread_.get_id());
  LiveSessionThreads().Started();
  // Nothing ever joins a writer; letting it go at once means no thread
  // object is left joinable when its session outlives the thread.
  std::thread(RunThread<&Session::RunWriter>, this).detach();
}

void Session::ReleaseThreads() {
  VX_LOG(kLogInfo, "Start management threads for ", PrintableName(name_));
  readerGo_.Set();
  writerGo_.Set();
  readerUp_.Wait();
  writerUp_.Wait();
  VX_LOG(kLogInfo, "Startup completed for ", PrintableName(name_));
}

// `rest`: what the frame's Receive read behind the first 16 header bytes.
void Session::CountReceived(std::int32_t rest) {
  framesReceived_.Add(1);
  bytesReceived_.Add(16 + static_cast<std::uint32_t>(rest));
}

Status Session::ChannelFailure() const {
  const Status failure = channel_->FirstFailure();
  return failure.ok() ? Status::Of(Cause::kSystemError) : failure;
}

Status Session::ReceiveMessage(MessageRef& out, MTObjects::ReferenceBlock<Session>* refs) {
  out.Reset();
  unsigned char header[16] = {0xFF, 0xFF, 0xFF, 0xFF};
  // Only this first read may wait for as long as the peer stays silent; the
  // rest of the frame is bounded by the channel's time limit.
  if (channel_->ReadStoppable(header, sizeof header, &stopRequested_) < 0) return ChannelFailure();
  const std::uint32_t id = Load32(header);
  const std::uint32_t state = Load32(header + 4);

  Status failure;
  if (state == kStateCall || state == kStateOneWay) {
    MessageRef message(new Message(refs ? refs->Take() : SessionRef(this), header));
    if (!message.IsValid()) return Status::OutOfMemory();
    const std::int32_t received = message->Receive(nullptr, &failure);
    if (received < 0) return failure;
    CountReceived(received);
    out = std::move(message);
    return Status::Ok();
  }
  if (state == kStateReply) {
    // A reply to an id we don't wait for ends the session; its body is not read.
    MessageRef message;
    pendingCalls_->Take(id, message);
    if (!message.IsValid()) return Status::BadInput("a reply to no call that waits");
    message->SetReplyState();
    // Taken from the table already: if the body fails now, the call is
    // neither pending nor completed. That gap is kept on purpose.
    const std::int32_t received = message->Receive(header + 8, &failure);
    if (received < 0) return failure;
    CountReceived(received);
    out = std::move(message);
    return Status::Ok();
  }
  // Nothing more is consumed.
  return Status::BadInput("a frame state other than call, reply or one-way");
}

bool Session::WriterStopping() const {
  return environment_.processStop.StopRequested() || stopRequested_.load();
}

void Session::QueueFrame(MessageRef message) {
  const std::uint64_t bytes = VXMessageQueue::MessageBytes(message);
  QueueFrame(std::move(message), bytes);
}

void Session::QueueFrame(MessageRef message, std::uint64_t bytes) {
  queuedFrames_.fetch_add(1);
  if (!sendQueue_.Push(std::move(message), bytes)) {
    // The heap refused the node: failed as the writer fails what is left
    // at a session's end, so no caller waits for a frame that never goes.
    queuedFrames_.fetch_sub(1);
    message->Complete(true);
    return;
  }
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
  // Completed by the dispatch thread, or here when the heap refuses the node.
  if (!environment_.dispatchQueue->Push(std::move(failed))) failed->Complete(true);
}

}  // namespace vxbus
