// SPDX-License-Identifier: MIT
#include "session/session_threads.h"

#include "runtime/log.h"
#include "runtime/printable_name.h"
#include "runtime/process_state.h"
#include "session/app_id_tokens.h"
#include "session/back_pressure.h"
#include "session/dropped_messages.h"
#include "session/session_registry.h"

namespace vxbus {

namespace {

// Counts the session threads that still run, so that a shutdown can make
// sure none of them is still inside the library when it returns.
thread_local bool t_onSessionThread = false;

std::atomic<SessionEndHook> g_sessionEndHook{nullptr};

class LiveThreads {
 public:
  void Started() {
    std::lock_guard<std::mutex> lock(mutex_);
    ++count_;
  }
  void Ended() {
    std::lock_guard<std::mutex> lock(mutex_);
    --count_;
    allEnded_.notify_all();
  }
  // A session thread that waits (a shutdown called from a listener) does not
  // wait for itself.
  bool WaitForNone(std::chrono::milliseconds limit) {
    const int self = t_onSessionThread ? 1 : 0;
    std::unique_lock<std::mutex> lock(mutex_);
    return allEnded_.wait_for(lock, limit, [this, self] { return count_ <= self; });
  }

 private:
  std::mutex mutex_;
  std::condition_variable allEnded_;
  int count_ = 0;
};
// Never destroyed: a detached thread may still report its end while the
// process runs its exit handlers.
LiveThreads& LiveSessionThreads() {
  static LiveThreads* threads = new LiveThreads;
  return *threads;
}

void LogNotInitialized(const Session& session) {
  VX_LOG(kLogWarning, "Application '", PrintableName(session.Name()), "' is not initialized");
}

void CallConnectListener(const Session& session) {
  VXConnectListener listener = g_connectListener.load(std::memory_order_acquire);
  if (!listener) return;
  AppIdParts parts = SplitAppId(session.Name());
  listener(session.LocalAddress().c_str(), session.RemoteAddress().c_str(), session.Name().c_str(),
           parts.hasHost ? parts.host.c_str() : nullptr, parts.PortNumber(),
           parts.hasName ? parts.name.c_str() : nullptr);
}

void CallDisconnectListener(const Session& session) {
  VXDisconnectListener listener = g_disconnectListener.load(std::memory_order_acquire);
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
  g_applications.Assign(name_, this);
  readerUp_.Set();
  VX_LOG(kLogInfo, "Application connected:", PrintableName(name_));
  CallConnectListener(*this);

  {
    MTObjects::ReferenceBlock<Session> messageRefs(this);
    for (;;) {
      if (g_shuttingDown.load(std::memory_order_relaxed)) break;
      if (stopRequested_.load()) break;
      std::int32_t ready = channel_->WaitReadable(kReaderPollMs);
      if (ready < 0) break;
      if (ready == 0) continue;
      // A local stop wakes the wait; the frames behind it are not read.
      if (stopRequested_.load()) break;
      MessageRef message;
      if (!ReceiveMessage(message, &messageRefs) || !message.IsValid()) break;
      if (message->GetState() == kStateReply) {
        // Completed here and never queued, so that a slot function blocked in
        // a call on the dispatch thread still gets its answer.
        message->Complete(false);
      } else {
        // A full dispatch queue holds the reading back, and so the peer.
        const std::uint64_t bytes = VXMessageQueue::MessageBytes(message);
        if (!AwaitDispatchRoom(*this, bytes)) break;
        g_dispatchQueue.Push(std::move(message), bytes);
      }
    }
  }
  EndReading();

  const char* cause = g_shuttingDown.load(std::memory_order_relaxed) ? "Global shutdown: "
                      : stopRequested_.load()                        ? "Local shutdown: "
                                                                     : "Remote disconnect: ";
  VX_LOG(kLogInfo, cause, '"', PrintableName(name_), '"', " stopped");
  if (SessionEndHook hook = g_sessionEndHook.load(std::memory_order_acquire)) hook(this);
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

  g_applications.Erase(name_, this);
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
  ReportDropped(name_, dropped);
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

void SetSessionEndHook(SessionEndHook hook) {
  g_sessionEndHook.store(hook, std::memory_order_release);
}

bool WaitForSessionThreadsToEnd(std::chrono::milliseconds limit) {
  return LiveSessionThreads().WaitForNone(limit);
}

void Session::ReleaseThreads() {
  VX_LOG(kLogInfo, "Start management threads for ", PrintableName(name_));
  readerGo_.Set();
  writerGo_.Set();
  readerUp_.Wait();
  writerUp_.Wait();
  VX_LOG(kLogInfo, "Startup completed for ", PrintableName(name_));
}

}  // namespace vxbus
