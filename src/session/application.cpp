#include "session/application.h"

#include "runtime/object_counters.h"

namespace vxbus {

VXAPPImpl::VXAPPImpl() : pendingCalls(new VXPendingCalls) {
  ++g_liveApplications;
}

// Runs on whichever thread lets go last, often a session thread itself, so it
// detaches and never joins.
VXAPPImpl::~VXAPPImpl() {
  --g_liveApplications;
  pendingCalls.reset();
  if (readerThread.joinable()) readerThread.detach();
  if (writerThread.joinable()) writerThread.detach();
}

bool VXAPPImpl::IsObjectValid() const {
  return readerThreadHeld_.load() && established.load();
}

void VXAPPImpl::SetReaderThread(std::thread thread) {
  readerId_.store(thread.get_id());
  readerThread = std::move(thread);
  readerThreadHeld_.store(true);
}

void VXAPPImpl::Stop() {
  stopRequested = true;
  // Both threads are woken rather than left to notice the flag at the end
  // of their poll periods.
  if (channel.IsValid()) channel->InterruptReads();
  sendQueue.Wake();
  g_dispatchQueue.WakeRoomWaiters();  // the reader may wait for room there
  JoinReaderThread();
}

// The reader is told apart before the lock: a listener that stops its own
// session while another thread joins it would otherwise wait on that thread.
void VXAPPImpl::JoinReaderThread() {
  if (readerId_.load() == std::this_thread::get_id()) return;
  std::lock_guard<std::mutex> lock(joinMutex_);
  if (!readerThread.joinable()) return;
  readerThread.join();
  readerThreadHeld_.store(false);
}

}  // namespace vxbus

namespace vxbus {

void VXAPPImpl::ThreadEnded() {
  if (--runningThreads_ != 0) return;
  sendQueue.Clear();
  pendingCalls->Clear();
}

}  // namespace vxbus
