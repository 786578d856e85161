// SPDX-License-Identifier: MIT
// Start and stop of the library in a process.
//
// Initialise calls are counted and only the first does the work; only the
// VXShutdown that matches it undoes it. Slots, signals, listeners and open
// gates stay over a shutdown.
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "messaging/dispatch_thread.h"
#include "messaging/signals.h"
#include "platform/host.h"
#include "platform/socket.h"
#include "process/process_context.h"
#include "runtime/log.h"
#include "session/dropped_messages.h"
#include "session/session_acceptor.h"
#include "session/session_threads.h"
#include "transport/pipe_channel.h"
#include "transport/pipe_connection_thread.h"
#include "transport/tcp_connection_thread.h"

namespace vxbus {
namespace {

// The context is never destroyed: a process that exits without VXShutdown
// still holds its threads joinable, and destroying a joinable thread ends
// the process.
ProcessContext& context = ProcessContext::Get();

constexpr char kAnyAddress[] = "0.0.0.0";

void StopAndJoinReader(const SessionRef& session) {
  if (session->IsSessionValid()) session->Stop();
}

// Runs at exit when the library was not shut down, maybe on one of its own
// threads (exit inside a slot): it asks every thread to stop and wakes what
// it can, but joins nothing, so the process ends whichever thread called it.
void StopWithoutWaitingAtExit() {
  if (context.initCount.load() == 0) return;
  context.shuttingDown = true;
  VXConnectionReady();
  context.dispatchQueue.Push(MessageRef());
}

// The last VXShutdown joins the dispatch thread and the connection threads,
// and so must not run on one of them: there it would wait for itself. Each
// marks itself as it starts, so that the test needs no lock.
thread_local bool t_joinedByShutdown = false;

// Starts `body` on a thread marked as one that the last VXShutdown joins.
template <class Body>
std::thread StartJoinedThread(Body body) {
  return std::thread([body] {
    t_joinedByShutdown = true;
    body();
  });
}

bool OnThreadShutdownJoins() {
  return t_joinedByShutdown || OnAcceptingThread();
}

// VXShutdown on such a thread, where context.initLock must not be taken: a slot
// holds the slot table's lock, which an initialise takes under context.initLock,
// and a shutdown holding context.initLock would be joining this very thread. A
// count above one only goes down; the last one stays, refused.
_tag_VX_ERROR ShutdownOnJoinedThread() {
  std::int32_t count = context.initCount.load();
  while (count > 1 && !context.initCount.compare_exchange_weak(count, count - 1)) {
  }
  if (count != 1) return VX_SUCCESS;
  VX_LOG(kLogError,
         "VXShutdown refused on a thread that it would join (a slot, a callback on the "
         "dispatch thread, or a connection thread); the library keeps running");
  return VX_ERROR_FAILED;
}

bool IsSet(const char* text) {
  return text != nullptr && *text != '\0';
}

// The process's appID: host name, ":", port in decimal, "/", application
// name. The full 32-bit port is printed, while the listener uses its low 16
// bits.
std::string BuildOwnAppId(std::int32_t port, const char* appName) {
  std::string appId(context.hostName);
  appId += ':';
  appId += std::to_string(port);
  appId += '/';
  appId += appName ? appName : "";
  return appId;
}

_tag_VX_ERROR InitializeCommon(const char* pipeName, const char* bindAddress, const char* appName,
                               std::int32_t port, const VXLimits* limits) {
  std::lock_guard<std::recursive_mutex> lock(context.initLock);
  const std::int32_t count = ++context.initCount;
  if (count == 1) {
    static const bool exitStepRegistered = std::atexit(StopWithoutWaitingAtExit) == 0;
    (void)exitStepRegistered;
    platform::StartSocketLibrary();
    context.ApplyLimits(limits);
  }
  // The count stays raised on every path below; each call needs its shutdown.
  if (!platform::GetHostName(context.hostName, sizeof context.hostName)) return VX_ERROR_FAILED;
  std::string appId = BuildOwnAppId(port, appName);
  context.shuttingDown = false;
  if (count != 1) return appId == context.ownAppId ? VX_SUCCESS : VX_ERROR_NAME_IN_USE;

  context.ownAppId = appId;
  context.RefreshSessionEnvironment();  // before any thread that makes sessions
  VXRegisterSlot(VX_SLOT_CONNECT_SIGNAL, SubscribeSlot, &context.signalTable.signals);
  VXRegisterSlot(VX_SLOT_DISCONNECT_SIGNAL, UnsubscribeSlot, &context.signalTable.signals);
  context.tcpAddress->Set(bindAddress, static_cast<std::uint16_t>(port));
  // Assigning over a thread that still runs ends the process; after a
  // correct shutdown none does.
  context.tcpThread = StartJoinedThread(
      [environment = context.ListenerEnvironmentAt(context.tcpGate.get()),
       address = context.tcpAddress] { TcpConnectionThread(environment, address); });
  context.pipeName->SetPipeName(pipeName);
  context.pipeThread =
      StartJoinedThread([environment = context.ListenerEnvironmentAt(context.pipeGate.get()),
                         name = context.pipeName] { PipeConnectionThread(environment, name); });
  context.dispatchThread = StartJoinedThread(DispatchThread);
  return VX_SUCCESS;
}

}  // namespace
}  // namespace vxbus

using namespace vxbus;

_tag_VX_ERROR VXInitialize(const char* appName, std::int32_t port, const VXLimits* limits) {
  return InitializeCommon(nullptr, kAnyAddress, appName, port, limits);
}

_tag_VX_ERROR VXInitializeEx(const char* bindAddress, const char* appName, std::int32_t port,
                             const VXLimits* limits) {
  std::uint32_t parsed;
  bool usable = IsSet(bindAddress) && platform::ParseDottedAddress(bindAddress, &parsed);
  return InitializeCommon(nullptr, usable ? bindAddress : kAnyAddress, appName, port, limits);
}

_tag_VX_ERROR VXInitializeWithPipeChannel(const char* pipeName, const char* bindAddress,
                                          const char* appName, std::int32_t port,
                                          const VXLimits* limits) {
  return InitializeCommon(pipeName, IsSet(bindAddress) ? bindAddress : kAnyAddress, appName, port,
                          limits);
}

// No lock and no test of initialisation: it may run before the first
// initialise call, which then overwrites what it stored.
_tag_VX_ERROR VXStartListeners(const char* pipeName, const char* bindAddress, std::uint16_t port) {
  context.tcpAddress->Set(bindAddress, port);
  context.pipeName->SetPipeName(pipeName);
  return VXConnectionReady();
}

// Stops, in order: new pipe connections, new TCP connections, the sessions,
// the dispatch thread, the socket library.
_tag_VX_ERROR VXShutdown(void) {
  if (OnThreadShutdownJoins()) return ShutdownOnJoinedThread();
  std::lock_guard<std::recursive_mutex> lock(context.initLock);
  if (context.initCount.load() == 0) return VX_SUCCESS;
  if (context.initCount.fetch_sub(1) != 1) return VX_SUCCESS;

  // Writers leave the registry once their sessions are stopped below, or on
  // the flag within their poll, while their readers may sit
  // in a 5 s channel wait. So the sessions are taken while the flag is set,
  // under the registry lock: a reader registered later sees the flag at the
  // top of its loop and ends by itself. Unjoined, a reader would outlive the
  // shutdown and, once a new initialise cleared the flag, keep serving its
  // peer with no writer and no registry entry.
  std::vector<SessionRef> running;
  {
    std::lock_guard<std::recursive_mutex> registryLock(context.registry.Mutex());
    context.shuttingDown = true;
    running = context.registry.Sessions();
  }
  context.dispatchQueue.WakeRoomWaiters();  // readers waiting for room see the flag
  WakePipeListener();
  VXConnectionReady();  // a thread still at its gate can run to its end
  if (context.pipeThread.joinable()) context.pipeThread.join();
  if (context.tcpThread.joinable()) context.tcpThread.join();

  for (const SessionRef& session : running)
    StopAndJoinReader(session);
  running.clear();
  // No sleep and no limit: each writer erases its entry within its poll.
  while (SessionRef session = context.registry.First()) {
    if (session->IsSessionValid())
      StopAndJoinReader(session);
    else
      std::this_thread::yield();  // its writer has yet to erase the entry
  }

  // Writers are never joined. Their sessions are out of the registry now;
  // wait until they, and readers of sessions that had left it before, are
  // out of the library too. A reader notices the shutdown within its poll.
  WaitForSessionThreadsToEnd(std::chrono::seconds(10));

  context.dispatchQueue.Push(MessageRef());  // wakes the dispatch thread for its last test
  // No test for existence: without a dispatch thread this raises the
  // invalid-argument system error, as it always has.
  context.dispatchThread.join();
  ReportShutdownDrops(context.dispatchQueue.DropBacklog());
  platform::StopSocketLibrary();
  return VX_SUCCESS;
}
