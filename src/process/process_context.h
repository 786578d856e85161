// SPDX-License-Identifier: MIT
// The state that exists once per process, in one object: the limits in
// force and their defaults, the secret, host name and own appID, the stop
// flag, the session registry, the slot and signal tables, the dispatch queue, the
// listener threads with their gates and addresses, the four listeners and
// the initialise count. Made at load, before any exported function can run,
// and never destroyed: threads of the library may still reach it while the
// process exits. Nothing of it is reset by VXShutdown.
//
// The lower layers never reach it themselves. They are handed what they
// need: each session a SessionEnvironment when it is made, each listener
// thread a ListenerEnvironment as it starts, each channel its ChannelLimits,
// and messaging/ the MessagingContext hook installed at load.
#ifndef VXBUS_PROCESS_PROCESS_CONTEXT_H_
#define VXBUS_PROCESS_PROCESS_CONTEXT_H_

#include <atomic>
#include <cstdint>
#include <mutex>
#include <string>
#include <thread>

#include "messaging/messaging_context.h"
#include "messaging/signal_table.h"
#include "messaging/slot_table.h"
#include "runtime/latch.h"
#include "session/message_queue.h"
#include "session/session_acceptor.h"
#include "session/session_environment.h"
#include "session/session_registry.h"
#include "transport/listener_environment.h"
#include "transport/pipe_listen_name.h"
#include "transport/tcp_listen_address.h"
#include "vxbus.h"

namespace vxbus {

// The defaults as shipped, never written.
extern const VXLimits kFactoryLimits;

class ProcessContext final : public SessionServices, public MessagingContext {
 public:
  static ProcessContext& Get();

  // --- Limits and the secret. The secret block of both records is written
  // only under the secret's lock (SetSecret, ApplyLimits) and copied out by
  // SnapshotSecret under it. The other fields change only in the first
  // initialise, before any listener thread starts, and are read without a
  // lock; the environments below carry copies of them.
  VXLimits limits = kFactoryLimits;         // in force
  VXLimits defaultLimits = kFactoryLimits;  // the secret block is their one mutable part
  // The first initialise: the defaults merged with the caller's record.
  void ApplyLimits(const VXLimits* given);
  // VXSetAuthenticationInfo: into the defaults and the record in force.
  // False, with nothing changed, for a length outside 0..256 or bytes from
  // nowhere.
  bool SetSecret(const void* data, std::int32_t length);
  void SnapshotSecret(unsigned char (&block)[kSecretBytes]) override;

  // --- Names. Written by initialise calls under initLock.
  char hostName[1024] = {};
  std::string ownAppId;

  // --- Stop: set by the last VXShutdown, cleared by every initialise call
  // that got its host name. Read without a lock through stop tokens.
  std::atomic<bool> shuttingDown{false};
  StopToken Stop() const { return StopToken(&shuttingDown); }

  // --- What sessions and messaging share.
  SessionRegistry registry;
  DispatchQueue dispatchQueue;
  VXSlotTable slotTable;
  VXSignalTable signalTable;
  SessionListeners listeners;

  // --- The listener threads: gates opened once and never reset, and what
  // each listens on; the pipe thread's accept wait only tests shorten.
  MTObjects::MTReferencedPtr<MTObjects::Latch> tcpGate{new MTObjects::Latch};
  MTObjects::MTReferencedPtr<MTObjects::Latch> pipeGate{new MTObjects::Latch};
  MTObjects::MTReferencedPtr<TcpListenAddress> tcpAddress{new TcpListenAddress};
  MTObjects::MTReferencedPtr<PipeListenName> pipeName{new PipeListenName};
  std::atomic<std::uint32_t> pipeAcceptWaitMs{kPipeAcceptWaitMs};
  std::thread tcpThread, pipeThread, dispatchThread;

  // --- Initialise count and its lock; see lifecycle.cpp.
  std::recursive_mutex initLock;
  std::atomic<std::int32_t> initCount{0};

  // The environment that each session gets a copy of, as it stands now:
  // limits and own appID of the last first initialise.
  const SessionEnvironment& SessionEnvironmentNow() const { return sessionEnvironment_; }
  // Takes the limits in force and the own appID into the session
  // environment; the first initialise calls it before any thread starts.
  void RefreshSessionEnvironment();
  // What a listener thread gets as it starts, waiting at `gate`.
  ListenerEnvironment ListenerEnvironmentAt(MTObjects::Latch* gate);
  IChannelAcceptor& Acceptor() { return acceptor_; }

  // SessionServices: forgets the session's subscriptions.
  void SessionEnded(Session* session) override;
  // MessagingContext.
  SessionRegistry& Sessions() override { return registry; }
  DispatchQueue& Dispatch() override { return dispatchQueue; }
  VXSlotTable& Slots() override { return slotTable; }
  VXSignalTable& Signals() override { return signalTable; }
  bool ShuttingDown() const override { return shuttingDown.load(std::memory_order_relaxed); }
  std::string OwnAppId() const override;

 private:
  ProcessContext();
  ~ProcessContext() = default;

  std::mutex secretMutex_;
  SessionEnvironment sessionEnvironment_;
  SessionAcceptor acceptor_{&sessionEnvironment_};
};

}  // namespace vxbus

#endif  // VXBUS_PROCESS_PROCESS_CONTEXT_H_
