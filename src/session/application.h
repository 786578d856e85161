// One connected peer: its channel, its two threads, its queue of outgoing
// messages and its table of calls waiting for replies.
#ifndef VXBUS_SESSION_APPLICATION_H_
#define VXBUS_SESSION_APPLICATION_H_

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "session/message.h"
#include "session/message_queue.h"
#include "session/pending_calls.h"
#include "transport/transport_channel.h"

namespace vxbus {

class VXAPPImpl : public MTObjects::MTReferencedTypeBase {
 public:
  VXAPPImpl();
  ~VXAPPImpl() override;

  // The handshake on a fresh channel, on either side.
  bool AcceptApplication(const ChannelRef& channel);
  std::int32_t ConnectApplication(const ChannelRef& channel, char* appIdBuffer,
                                  std::uint32_t appIdBufferSize, const unsigned char* secret,
                                  std::int32_t secretLength);
  // The exchange itself on either side, run while the threads are parked.
  void RunAcceptExchange();
  std::int32_t RunConnectExchange(char* appIdBuffer, std::uint32_t appIdBufferSize,
                                  const unsigned char* secret, std::int32_t secretLength);
  // Reads one frame; false ends the session.
  bool ReceiveMessage(MessageRef& out);

  // Stores a started reader thread, or joins it and forgets it. The validity
  // predicate reads `readerThreadHeld`, never the thread object, so that it
  // may be asked from any thread while another joins.
  void SetReaderThread(std::thread thread);
  // Joins the reader unless it is the calling thread or already joined; two
  // callers that stop the same session at once are kept apart.
  void JoinReaderThread();
  bool IsSessionValid() const { return IsValid(); }

  // Each session thread calls this as it ends. The last one lets go of what
  // still stands in the queue and the pending table: those messages hold the
  // session, and with no thread left nothing can take them any more. They
  // are not completed; the writer completed what it could on its way out.
  void ThreadEnded();

  std::unique_ptr<VXPendingCalls> pendingCalls;
  std::string name;  // the peer's appID; empty until the handshake succeeded
  ChannelRef channel;
  std::thread readerThread;
  std::thread writerThread;
  std::mutex readerMutex;
  std::mutex writerMutex;
  std::condition_variable readerUpCondition;
  std::condition_variable readerGoCondition;
  std::condition_variable writerUpCondition;
  std::condition_variable writerGoCondition;
  bool readerUp = false;
  bool writerUp = false;
  bool readerGo = false;
  bool writerGo = false;
  std::atomic<bool> stopRequested{false};
  std::atomic<bool> established{false};
  std::string peerHost;
  std::string peerPort;
  std::string remoteAddress;
  std::string localAddress;
  VXMessageQueue sendQueue;

 protected:
  bool IsObjectValid() const override;

 private:
  std::atomic<bool> readerThreadHeld_{false};
  std::atomic<int> runningThreads_{2};
  std::mutex joinMutex_;
};

}  // namespace vxbus

#endif  // VXBUS_SESSION_APPLICATION_H_
