#include "session/application.h"

#include "runtime/object_counters.h"

namespace vxbus {

VXAPPImpl::VXAPPImpl() : pendingCalls_(new VXPendingCalls) {
  ++g_liveApplications;
}

// Runs on whichever thread lets go last, often a session thread itself, so it
// detaches and never joins.
VXAPPImpl::~VXAPPImpl() {
  --g_liveApplications;
  pendingCalls_.reset();
  if (readerThread_.joinable()) readerThread_.detach();
}

bool VXAPPImpl::IsObjectValid() const {
  return established_.load() && !readerJoined_.load();
}

void VXAPPImpl::AttachChannel(const ChannelRef& channel) {
  channel_ = channel;
  if (!channel_.IsValid()) return;
  remoteAddress_ = channel_->GetPeerAddress();
  localAddress_ = channel_->GetLocalAddress();
}

void VXAPPImpl::MarkEstablished(const std::string& peerAppId) {
  name_ = peerAppId;
  established_ = true;
}

void VXAPPImpl::Stop() {
  stopRequested_ = true;
  // Both threads are woken rather than left to notice the flag at the end
  // of their poll periods.
  if (channel_.IsValid()) channel_->InterruptReads();
  sendQueue_.Wake();
  JoinReaderThread();
}

// The reader is told apart before the lock: a listener that stops its own
// session while another thread joins it would otherwise wait on that thread.
void VXAPPImpl::JoinReaderThread() {
  if (readerId_.load() == std::this_thread::get_id()) return;
  std::lock_guard<std::mutex> lock(joinMutex_);
  if (!readerThread_.joinable()) return;
  readerThread_.join();
  readerJoined_.store(true);
}

void VXAPPImpl::ThreadEnded() {
  if (--runningThreads_ != 0) return;
  sendQueue_.Clear();
  pendingCalls_->Clear();
}

}  // namespace vxbus
