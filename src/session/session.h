// SPDX-License-Identifier: MIT
// One connected peer: its channel, its two threads, its queue of outgoing
// messages and its table of calls waiting for replies.
#ifndef VXBUS_SESSION_SESSION_H_
#define VXBUS_SESSION_SESSION_H_

#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "runtime/latch.h"
#include "runtime/status.h"
#include "session/message.h"
#include "session/message_queue.h"
#include "session/session_environment.h"
#include "session/traffic_counter.h"
#include "session/unanswered_calls.h"
#include "transport/transport_channel.h"

namespace vxbus {

// Lifetime of a session, in one place:
// - Created by the session acceptor (on a connection thread, for a peer that
//   connected here) or by VXConnect (on the application's thread); that
//   set-up reference goes when the handshake returns.
// - The handshake starts both threads at once (StartThreads), parked at
//   their go gates, runs the exchange on the set-up thread, then opens the
//   gates (ReleaseThreads) and waits until both are up. An exchange that
//   failed leaves the session unestablished, and both threads end at once.
// - The reader enters the session in the registry; it ends on a channel
//   failure, a stop request or the process's stop, then runs the session-end
//   hook and the disconnect listener, and requests the stop for the writer.
//   Stop() (VXDisconnect, VXShutdown) requests it and joins the reader.
// - The writer is detached and never joined. It ends on a stop request,
//   the process's stop or a failed call; it erases the registry entry and
//   completes every queued and pending message as failed.
// - The writer closes sendQueue as it leaves: what is queued later, or is
//   being queued as it closes, is let go at once and never completed, so
//   no message and session are left holding each other.
// - Each thread holds a reference for its whole run; the last to end
//   (ThreadEnded) drops the pending table, which holds the session, and
//   closes the channel: a session that ended holds no descriptor, however
//   long its messages live on. The destructor joins nothing.
// - From the moment the reader leaves its loop HasEnded is true, and the
//   requests of the session still on their way to a slot are dropped.
class Session : public MTObjects::MTReferencedTypeBase {
 public:
  // Keeps a copy of `environment` for its whole life.
  explicit Session(const SessionEnvironment& environment);
  ~Session() override;

  // What the process handed this session when it was made.
  const SessionEnvironment& Environment() const { return environment_; }

  // The handshake on a fresh channel, on either side.
  bool AcceptApplication(const ChannelRef& channel);
  std::int32_t ConnectApplication(const ChannelRef& channel, char* appIdBuffer,
                                  std::uint32_t appIdBufferSize, const unsigned char* secret,
                                  std::int32_t secretLength);

  // Set-up without the exchange, for a channel whose peer is known already
  // (the frame tests and the fuzzers): takes the channel and its addresses,
  // then marks the session established under the peer's appID. Both before
  // StartThreads or while the threads are parked.
  void AttachChannel(const ChannelRef& channel);
  void MarkEstablished(const std::string& peerAppId);
  // The exchange itself on either side, on the attached channel: run by the
  // two calls above while the threads are parked, or alone (the fuzzers).
  void RunAcceptExchange();
  std::int32_t RunConnectExchange(char* appIdBuffer, std::uint32_t appIdBufferSize,
                                  const unsigned char* secret, std::int32_t secretLength);

  // Starts both threads, parked at their go gates. A thread that can't be
  // made raises the standard system error.
  void StartThreads();
  // Lets both threads go and waits until each is past its first step (the
  // reader has registered an established session).
  void ReleaseThreads();

  // Reads one frame; a status that is not ok ends the session and says why:
  // the channel's failure, bytes that break the protocol (which rule), or
  // the heap's refusal. Reader thread only.
  // With `refs`, the messages made take their references to this session
  // from it (the reader's loop: the dispatch thread releases one for every
  // message, and a count that both threads write for every frame bounces
  // between their cores); without, each takes one of its own.
  Status ReceiveMessage(MessageRef& out, MTObjects::ReferenceBlock<Session>* refs = nullptr);

  // Joins the reader unless it is the calling thread or already joined; two
  // callers that stop the same session at once are kept apart. Called on the
  // reader (a disconnect listener) it returns at once and takes no lock.
  void JoinReaderThread();
  // Asks both threads to end, wakes them, and waits for the reader, and so
  // for the disconnect listener; the writer follows at once.
  void Stop();
  bool IsSessionValid() const { return IsValid(); }
  bool StopRequested() const { return stopRequested_.load(); }
  // True once the reader has left its loop, for whatever cause: the session
  // takes no more requests, and those still on their way are not served.
  // Never false again. Any thread.
  bool HasEnded() const { return readingEnded_.load(); }

  // The peer's appID: empty until the handshake succeeded, then fixed.
  const std::string& Name() const { return name_; }
  // Set before the threads run; the last of them to end lets it go, so it
  // is used only on the session's threads and under the write claim.
  const ChannelRef& Channel() const { return channel_; }
  const std::string& RemoteAddress() const { return remoteAddress_; }
  const std::string& LocalAddress() const { return localAddress_; }
  // Calls written and waiting for their replies; owned by the session.
  VXPendingCalls& PendingCalls() { return *pendingCalls_; }
  // The session's part of the dispatch queue, which serves sessions in turn.
  QueueShare& DispatchShare() { return dispatchShare_; }
  // True once the peer is known to have ended its stream, although frames it
  // sent before may still wait unread. Reader thread only.
  bool PeerEnded() const { return channel_.IsValid() && channel_->PeerEnded(); }

  // What VXGetBusInfo tells of a session; any thread, while it holds a
  // reference. Frames and bytes are whole frames, headers included.
  struct Traffic {
    std::uint64_t framesSent, framesReceived, bytesSent, bytesReceived;
  };
  Traffic GetTraffic() const;
  // "tcp" or "pipe"; fixed when the channel is attached.
  const char* ChannelKind() const { return channelKind_; }
  // When the handshake succeeded; fixed from then on.
  std::chrono::steady_clock::time_point EstablishedAt() const { return establishedAt_; }
  std::uint64_t SendQueueBytes() const { return sendQueue_.QueuedBytes(); }
  // Calls in the pending table at this moment.
  std::size_t PendingCallCount() { return pendingCalls_->Size(); }

  // Writing frames. The writer thread writes what is queued, in batches; a
  // thread with a call or a reply of its own may write it directly while the
  // writer is idle, which spares two thread hand-offs. Frames leave in the
  // order the queue would give them: a frame is written directly only when
  // nothing is queued or being written ahead of it.
  //
  // Queues a frame for the writer; any thread, which holds a reference to
  // the session. Every frame of the send queue goes in through here. Once the
  // writer has gone the frame is let go at once, without completion.
  void QueueFrame(MessageRef message);
  // The same for a frame that counts `bytes` (VXMessageQueue::MessageBytes).
  void QueueFrame(MessageRef message, std::uint64_t bytes);
  // True when the calling thread may write its frame now; it then holds the
  // write lock and must call WriteClaimed next. Never blocks.
  bool ClaimIdleWriter();
  // Writes one frame under the claim and lets the claim go. A call that
  // cannot be written is completed as failed on the dispatch thread, and
  // writing ends for the session, as it does in the writer.
  void WriteClaimed(const MessageRef& message);
  // The writer's side: waits up to `limitMs` for a queued frame, then writes
  // it and all queued behind it in one write batch of the channel. False once
  // writing has ended, true otherwise (also when nothing came).
  bool WriteQueuedBatch(std::int32_t limitMs);
  // The writer calls this as it leaves; nothing is written any more.
  void EndWriting();
  // The writer calls this last, and a session run by hand when it is done:
  // lets go of what is still queued, uncompleted, and makes every later
  // QueueFrame let go of its frame at once.
  void CloseSendQueue();

 protected:
  bool IsObjectValid() const override;

 private:
  // VXNotify's wait for room in the send queue (back_pressure.h).
  friend VX_ERROR AwaitSendRoom(Session& session, std::uint64_t bytes);

  struct FrameBatch {
    bool hasCall = false;
    std::uint32_t firstCallId = 0;
  };

  // The bodies of the two threads and their common frame (session_io.cpp).
  template <void (Session::*Body)()>
  static void RunThread(Session* session);
  void RunReader();
  // Why the channel failed; a channel that can't tell gives kSystemError.
  Status ChannelFailure() const;
  void RunWriter();
  bool WriterStopping() const;
  // Counts a frame read whole; reader thread only.
  void CountReceived(std::int32_t rest);
  // The reader calls this as it leaves its loop, or when it never enters it.
  void EndReading() { readingEnded_.store(true); }
  // Each session thread calls this as it ends. The last one lets go of what
  // still stands in the pending table (those messages hold the session, and
  // with no thread left nothing can take them any more; the writer completed
  // them on its way out) and closes the channel.
  void ThreadEnded();

  // Both run under writeMutex_. False when a call could not be written.
  bool WriteFrame(const MessageRef& message, FrameBatch* batch);
  bool EndFrameBatch(bool allWritten, const FrameBatch& batch);
  void FailUnwrittenCall(std::uint32_t id);

  // On a cache line of its own, away from the reference count, which other
  // threads write for every message that holds the session.
  alignas(64) std::unique_ptr<VXPendingCalls> pendingCalls_;
  const SessionEnvironment environment_;
  std::string name_;
  ChannelRef channel_;
  std::string remoteAddress_;
  std::string localAddress_;
  const char* channelKind_ = "tcp";
  std::chrono::steady_clock::time_point establishedAt_{};
  VXMessageQueue sendQueue_;
  std::thread readerThread_;
  // The set-up gates: ReleaseThreads opens both go gates, and each thread
  // opens its up gate once it is past its first step.
  MTObjects::Latch readerGo_;
  MTObjects::Latch readerUp_;
  MTObjects::Latch writerGo_;
  MTObjects::Latch writerUp_;
  std::atomic<bool> stopRequested_{false};
  std::atomic<bool> established_{false};

  TrafficCounter framesReceived_, bytesReceived_;  // the reader's
  TrafficCounter framesSent_, bytesSent_;          // under writeMutex_

  std::mutex writeMutex_;                       // held while frames go onto the channel
  std::atomic<std::uint32_t> queuedFrames_{0};  // queued and not yet written
  bool writingEnded_ = false;                   // under writeMutex_
  std::atomic<bool> sendQueueClosed_{false};
  std::atomic<bool> readingEnded_{false};
  std::mutex channelMutex_;  // Stop against the close of the channel
  // Valid means established and the reader not yet joined. The predicate
  // reads this flag, never the thread object, so that it may be asked from
  // any thread while another joins.
  std::atomic<bool> readerJoined_{false};
  std::atomic<std::thread::id> readerId_{};
  std::atomic<int> runningThreads_{2};
  std::mutex joinMutex_;
  QueueShare dispatchShare_;  // lines of its own
};

}  // namespace vxbus

#endif  // VXBUS_SESSION_SESSION_H_
