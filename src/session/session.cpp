// SPDX-License-Identifier: MIT
#include "session/session.h"

#include "runtime/object_counters.h"
#include "transport/pipe_channel.h"

namespace vxbus {

Session::Session(const SessionEnvironment& environment)
    : pendingCalls_(new VXPendingCalls), environment_(environment) {
  ++Counters().liveSessions;
}

// Runs on whichever thread lets go last, often a session thread itself. The
// reader detaches itself; any other thread joins it, as a reader that no
// longer holds its session has only its return left, and a thread that
// another detaches while it exits corrupts one threads library's records.
Session::~Session() {
  --Counters().liveSessions;
  pendingCalls_.reset();
  if (!readerThread_.joinable()) return;
  if (readerThread_.get_id() == std::this_thread::get_id())
    readerThread_.detach();
  else
    readerThread_.join();
}

bool Session::IsObjectValid() const {
  return established_.load() && !readerJoined_.load();
}

void Session::AttachChannel(const ChannelRef& channel) {
  channel_ = channel;
  if (!channel_.IsValid()) return;
  remoteAddress_ = channel_->GetPeerAddress();
  localAddress_ = channel_->GetLocalAddress();
  channelKind_ = dynamic_cast<PipeChannel*>(channel_.get()) != nullptr ? "pipe" : "tcp";
}

void Session::MarkEstablished(const std::string& peerAppId) {
  name_ = peerAppId;
  establishedAt_ = std::chrono::steady_clock::now();
  established_ = true;
}

Session::Traffic Session::GetTraffic() const {
  return Traffic{framesSent_.Load(), framesReceived_.Load(), bytesSent_.Load(),
                 bytesReceived_.Load()};
}

void Session::Stop() {
  stopRequested_ = true;
  // Both threads are woken rather than left to notice the flag at the end
  // of their poll periods. The channel may be closing as the threads end.
  {
    std::lock_guard<std::mutex> lock(channelMutex_);
    if (channel_.IsValid()) channel_->InterruptReads();
  }
  sendQueue_.Wake();
  environment_.dispatchQueue->WakeRoomWaiters();  // the reader may wait for room there
  JoinReaderThread();
}

// The reader is told apart before the lock: a listener that stops its own
// session while another thread joins it would otherwise wait on that thread.
void Session::JoinReaderThread() {
  if (readerId_.load() == std::this_thread::get_id()) return;
  std::lock_guard<std::mutex> lock(joinMutex_);
  if (!readerThread_.joinable()) return;
  readerThread_.join();
  readerJoined_.store(true);
}

void Session::ThreadEnded() {
  if (--runningThreads_ != 0) return;
  pendingCalls_->Clear();
  // Closed now rather than with the last reference, which a message on its
  // way to a slot may hold for long: the peer sees the end at once.
  ChannelRef closing;
  {
    std::lock_guard<std::mutex> lock(channelMutex_);
    closing = std::move(channel_);
  }
}

// Closed before the queue is emptied: a push that lands after the emptying
// sees the flag (its compare-and-swap acquires what the emptying released)
// and lets go of its own frame; one that lands before is emptied here.
void Session::CloseSendQueue() {
  sendQueueClosed_.store(true);
  sendQueue_.Clear();
}

}  // namespace vxbus
