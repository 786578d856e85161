#include "session/session_threads.h"

#include "runtime/log.h"
#include "runtime/process_state.h"
#include "session/app_id_tokens.h"
#include "session/application_registry.h"
#include "session/back_pressure.h"
#include "session/dropped_messages.h"

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

// Tells the session that one of its threads is done, on every way out.
class ThreadExit {
 public:
  explicit ThreadExit(VXAPPImpl* session) : session_(session) {}
  ~ThreadExit() { session_->ThreadEnded(); }
  ThreadExit(const ThreadExit&) = delete;
  ThreadExit& operator=(const ThreadExit&) = delete;

 private:
  VXAPPImpl* session_;
};

void LogNotInitialized(const VXAPPImpl* session) {
  VX_LOG(kLogWarning, "Application '", session->name, "' is not initialized");
}

void CallConnectListener(VXAPPImpl* session) {
  VXConnectListener listener = g_connectListener.load(std::memory_order_acquire);
  if (!listener) return;
  AppIdParts parts = SplitAppId(session->name);
  listener(session->localAddress.c_str(), session->remoteAddress.c_str(), session->name.c_str(),
           parts.hasHost ? parts.host.c_str() : nullptr, parts.PortNumber(),
           parts.hasName ? parts.name.c_str() : nullptr);
}

void CallDisconnectListener(VXAPPImpl* session) {
  VXDisconnectListener listener = g_disconnectListener.load(std::memory_order_acquire);
  if (!listener) return;
  AppIdParts parts = SplitAppId(session->name);
  listener(session->name.c_str(), parts.hasHost ? parts.host.c_str() : nullptr, parts.PortNumber(),
           parts.hasName ? parts.name.c_str() : nullptr);
}

void ReaderThread(VXAPPImpl* raw) {
  SessionRef session(raw);
  ThreadExit exit(raw);
  raw->readerGo.Wait();
  if (!raw->established) {
    raw->EndReading();
    raw->readerUp.Set();
    LogNotInitialized(raw);
    return;
  }
  g_applications.Assign(raw->name, raw);
  raw->readerUp.Set();
  VX_LOG(kLogInfo, "Application connected:", raw->name);
  CallConnectListener(raw);

  for (;;) {
    if (g_shuttingDown.load(std::memory_order_relaxed)) break;
    if (raw->stopRequested.load()) break;
    std::int32_t ready = raw->channel->WaitReadable(kReaderPollMs);
    if (ready < 0) break;
    if (ready == 0) continue;
    // A local stop wakes the wait; the frames behind it are not read.
    if (raw->stopRequested.load()) break;
    MessageRef message;
    if (!raw->ReceiveMessage(message) || !message.IsValid()) break;
    if (message->GetState() == kStateReply) {
      // Completed here and never queued, so that a slot function blocked in
      // a call on the dispatch thread still gets its answer.
      message->Complete(false);
    } else {
      // A full dispatch queue holds the reading back, and so the peer.
      if (!AwaitDispatchRoom(*raw, message)) break;
      g_dispatchQueue.Push(message);
    }
  }
  raw->EndReading();

  const char* cause = g_shuttingDown.load(std::memory_order_relaxed) ? "Global shutdown: "
                      : raw->stopRequested.load()                    ? "Local shutdown: "
                                                                     : "Remote disconnect: ";
  VX_LOG(kLogInfo, cause, '"', raw->name, '"', " stopped");
  if (SessionEndHook hook = g_sessionEndHook.load(std::memory_order_acquire)) hook(raw);
  CallDisconnectListener(raw);
  // The writer learns of a remote end from this flag; registry and queues
  // are the writer's to clean.
  raw->stopRequested.store(true);
  raw->sendQueue.Wake();
}

bool WriterStopping(const VXAPPImpl* raw) {
  return g_shuttingDown.load(std::memory_order_relaxed) || raw->stopRequested.load();
}

void WriterThread(VXAPPImpl* raw) {
  SessionRef session(raw);
  ThreadExit exit(raw);
  raw->writerGo.Wait();
  raw->writerUp.Set();
  if (!raw->established) {
    raw->CloseSendQueue();
    LogNotInitialized(raw);
    return;
  }

  while (!WriterStopping(raw)) {
    MessageRef message;
    raw->sendQueue.Pop(message, kWriterPollMs);
    if (!message) continue;
    if (!raw->WriteQueuedBatch(std::move(message))) break;
  }
  raw->EndWriting();

  g_applications.Erase(raw->name);
  // Every caller that found the session under the registry lock has pushed
  // by now: fail what is queued, then what waits for a reply.
  QueueTally dropped;
  for (;;) {
    MessageRef message;
    raw->sendQueue.Pop(message, 0);
    if (!message.IsValid()) break;
    dropped.Add(VXMessageQueue::MessageBytes(message));
    message->Complete(true);
  }
  ReportDropped(raw->name, dropped);
  raw->pendingCalls->ForEach([](MessageRef& message) { message->Complete(true); });
  raw->CloseSendQueue();
}

// The thread's last act, after every reference of its own is gone.
template <void (*Body)(VXAPPImpl*)>
void Run(VXAPPImpl* session) {
  t_onSessionThread = true;
  Body(session);
  LiveSessionThreads().Ended();
}

}  // namespace

bool StartThreads(VXAPPImpl* session) {
  LiveSessionThreads().Started();
  session->SetReaderThread(std::thread(Run<ReaderThread>, session));
  LiveSessionThreads().Started();
  session->writerThread = std::thread(Run<WriterThread>, session);
  // Nothing ever joins a writer; letting it go now means no thread object
  // is left joinable when its session outlives the thread.
  session->writerThread.detach();
  return true;
}

void SetSessionEndHook(SessionEndHook hook) {
  g_sessionEndHook.store(hook, std::memory_order_release);
}

bool WaitForSessionThreadsToEnd(std::chrono::milliseconds limit) {
  return LiveSessionThreads().WaitForNone(limit);
}

bool ReleaseThreads(VXAPPImpl* session) {
  VX_LOG(kLogInfo, "Start management threads for ", session->name);
  session->readerGo.Set();
  session->writerGo.Set();
  session->readerUp.Wait();
  session->writerUp.Wait();
  VX_LOG(kLogInfo, "Startup completed for ", session->name);
  return true;
}

}  // namespace vxbus
