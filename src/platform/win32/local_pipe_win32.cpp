// SPDX-License-Identifier: MIT
// Local pipes as two one-way Win32 named pipes in the machine's local
// namespace, "\\.\pipe\<name>". The reading end of each side is
// overlapped, so that a read can be bounded in time and cancelled, and so are
// both ends that the listener makes, so that its waits for a client are
// bounded too; writes block until the pipe has taken the bytes.
#include <windows.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <mutex>
#include <new>
#include <vector>

#include "platform/local_pipe.h"
#include "platform/local_pipe_listener.h"
#include "platform/pending_pipe_halves.h"

namespace vxbus {
namespace platform {

// One connected pair: the pipe this side reads, the one it writes, and the
// event of the one overlapped read that may be under way.
class LocalPipe {
 public:
  LocalPipe(HANDLE read, HANDLE write, HANDLE readEvent, HANDLE interruptEvent, HANDLE writeEvent,
            bool listenerSide)
      : read(read),
        write(write),
        readEvent(readEvent),
        interruptEvent(interruptEvent),
        writeEvent(writeEvent),
        listenerSide(listenerSide) {
    if (listenerSide) ownListenerPipes.fetch_add(1);
  }
  ~LocalPipe() {
    ::CloseHandle(read);
    ::CloseHandle(write);
    ::CloseHandle(readEvent);
    ::CloseHandle(interruptEvent);
    ::CloseHandle(writeEvent);
    if (listenerSide) ownListenerPipes.fetch_sub(1);
  }
  LocalPipe(const LocalPipe&) = delete;
  LocalPipe& operator=(const LocalPipe&) = delete;

  const HANDLE read;
  const HANDLE write;
  const HANDLE readEvent;       // manual reset
  const HANDLE interruptEvent;  // manual reset; once set, every read ends
  const HANDLE writeEvent;      // manual reset; for the listener's overlapped writes
  const bool listenerSide;      // the two handles are instances this process made

  // Accepted pairs alive in this process: each holds one instance of each
  // name it was accepted on.
  static std::atomic<long> ownListenerPipes;
};

std::atomic<long> LocalPipe::ownListenerPipes{0};

namespace {

// What each direction may hold before a write waits for the reader: at 16 KB
// a large image crossed in a round of wake-ups per 16 KB.
constexpr DWORD kPipeBufferBytes = 512 * 1024;
constexpr DWORD kUnlimitedInstances = PIPE_UNLIMITED_INSTANCES;  // 255
constexpr DWORD kDefaultTimeout = 0xFFFFFFFF;
// How long a client waits for an instance while another client is taken.
constexpr DWORD kConnectWaitMs = 10000;
// How often the wait for the first client looks at the stop flag.
constexpr std::int64_t kStopPollMs = 1000;

std::string PipePath(const std::string& name) {
  return "\\\\.\\pipe\\" + name;
}

// Set by WakeLocalPipeAccept; auto reset, so a wake that finds no waiter
// costs the next wait one extra look at its stop flag.
HANDLE AcceptWakeEvent() {
  static const HANDLE event = ::CreateEventA(nullptr, FALSE, FALSE, nullptr);
  return event;
}

bool Stopped(const std::atomic<bool>* stop) {
  return stop != nullptr && stop->load(std::memory_order_relaxed);
}

void CloseIfOpen(HANDLE handle) {
  if (handle != INVALID_HANDLE_VALUE && handle != nullptr) ::CloseHandle(handle);
}

IoResult Status(IoStatus status, std::int64_t count = 0, int systemCode = 0) {
  IoResult result;
  result.status = status;
  result.count = count;
  result.systemCode = systemCode;
  return result;
}

// A pipe whose other end has gone reports one of these.
IoResult FromLastError() {
  const DWORD error = ::GetLastError();
  const bool closed =
      error == ERROR_BROKEN_PIPE || error == ERROR_PIPE_NOT_CONNECTED || error == ERROR_NO_DATA;
  return Status(closed ? IoStatus::kClosed : IoStatus::kFailed, 0, static_cast<int>(error));
}

// Open mode as given; byte stream, blocking, up to 255 instances, buffers of
// kPipeBufferBytes both ways.
HANDLE CreateListeningEnd(const std::string& name, DWORD openMode) {
  return ::CreateNamedPipeA(PipePath(name).c_str(), openMode, PIPE_TYPE_BYTE | PIPE_WAIT,
                            kUnlimitedInstances, kPipeBufferBytes, kPipeBufferBytes,
                            kDefaultTimeout, nullptr);
}

// Waits for an event in slices, so that `stop` is seen at least once a
// slice; true when the event was set.
bool WaitWithStop(HANDLE event, std::int64_t waitMs, const std::atomic<bool>* stop) {
  using Clock = std::chrono::steady_clock;
  const auto deadline = Clock::now() + std::chrono::milliseconds(std::max<std::int64_t>(waitMs, 0));
  for (;;) {
    if (Stopped(stop)) return false;
    std::int64_t slice = kStopPollMs;
    if (waitMs >= 0) {
      auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
      slice = std::min<std::int64_t>(slice, std::max<std::int64_t>(left, 0));
    }
    const HANDLE events[] = {event, AcceptWakeEvent()};
    const DWORD waited = ::WaitForMultipleObjects(2, events, FALSE, static_cast<DWORD>(slice));
    if (waited == WAIT_OBJECT_0) return true;
    if (waited == WAIT_OBJECT_0 + 1) continue;  // woken: look at the stop flag now
    if (waited != WAIT_TIMEOUT) return false;
    if (waitMs >= 0 && Clock::now() >= deadline) return false;
  }
}

// Waits, within `waitMs` and while `stop` allows, for a client on an
// overlapped listening end.
bool AwaitFirstClient(HANDLE in, std::int64_t waitMs, const std::atomic<bool>* stop) {
  HANDLE event = ::CreateEventA(nullptr, TRUE, FALSE, nullptr);
  if (event == nullptr) return false;
  OVERLAPPED overlapped{};
  overlapped.hEvent = event;
  bool connected = false;
  if (::ConnectNamedPipe(in, &overlapped)) {
    connected = true;
  } else {
    const DWORD error = ::GetLastError();
    if (error == ERROR_PIPE_CONNECTED) {
      connected = true;
    } else if (error == ERROR_IO_PENDING) {
      connected = WaitWithStop(event, waitMs, stop);
      if (!connected) {
        ::CancelIo(in);
        DWORD ignored = 0;  // the record must outlive the cancelled wait
        ::GetOverlappedResult(in, &overlapped, &ignored, TRUE);
      }
    } else {
      ::CancelIo(in);
    }
  }
  ::CloseHandle(event);
  return connected;
}

// Waits up to `waitMs`, and while `stop` allows, for a client on the
// overlapped "out" end, so that a client that opened only "in" holds up
// neither the listener nor a shutdown. A client other than the one on "in" is
// let go again, so that two clients cannot end up with each other's halves.
bool AwaitSameClient(HANDLE out, HANDLE in, std::int64_t waitMs, const std::atomic<bool>* stop) {
  using Clock = std::chrono::steady_clock;
  const auto deadline = Clock::now() + std::chrono::milliseconds(std::max<std::int64_t>(waitMs, 0));
  ULONG first = 0;
  const bool known = ::GetNamedPipeClientProcessId(in, &first) != 0;
  for (;;) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
    if (left <= 0 || !AwaitFirstClient(out, left, stop)) return false;
    ULONG second = 0;
    if (!known || !::GetNamedPipeClientProcessId(out, &second) || second == first) return true;
    ::DisconnectNamedPipe(out);
  }
}

// Another client may take the instance that the wait saw free: the wait
// and the open are then tried again, within the same 10 s.
HANDLE OpenClientEnd(const std::string& name, DWORD access, DWORD flags) {
  using Clock = std::chrono::steady_clock;
  const std::string path = PipePath(name);
  const auto giveUp = Clock::now() + std::chrono::milliseconds(kConnectWaitMs);
  for (;;) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(giveUp - Clock::now()).count();
    if (left <= 0 || !::WaitNamedPipeA(path.c_str(), static_cast<DWORD>(left)))
      return INVALID_HANDLE_VALUE;
    HANDLE end = ::CreateFileA(path.c_str(), access, 0, nullptr, OPEN_EXISTING, flags, nullptr);
    if (end != INVALID_HANDLE_VALUE || ::GetLastError() != ERROR_PIPE_BUSY) return end;
  }
}

// A name stays open to further instances in any process, so a second
// listener on a name would take clients in turn with the first, and could
// take one half of a client whose other half the first holds. A name with
// more instances than this process has made is counted as taken. The count
// spans every name of the process, so it can only err towards letting a
// round go ahead.
bool HeldElsewhere(HANDLE in) {
  DWORD instances = 0;
  if (!::GetNamedPipeHandleState(in, nullptr, &instances, nullptr, nullptr, nullptr, 0))
    return false;
  return static_cast<long>(instances) > LocalPipe::ownListenerPipes.load() + 1;
}

LocalPipe* MakePipe(HANDLE read, HANDLE write, bool listenerSide) {
  HANDLE readEvent = ::CreateEventA(nullptr, TRUE, FALSE, nullptr);
  HANDLE interruptEvent = ::CreateEventA(nullptr, TRUE, FALSE, nullptr);
  HANDLE writeEvent = ::CreateEventA(nullptr, TRUE, FALSE, nullptr);
  LocalPipe* pipe = readEvent == nullptr || interruptEvent == nullptr || writeEvent == nullptr
                        ? nullptr
                        : new (std::nothrow) LocalPipe(read, write, readEvent, interruptEvent,
                                                       writeEvent, listenerSide);
  if (pipe == nullptr) {
    ::CloseHandle(read);
    ::CloseHandle(write);
    CloseIfOpen(readEvent);
    CloseIfOpen(interruptEvent);
    CloseIfOpen(writeEvent);
  }
  return pipe;
}

}  // namespace

// Both overlapped, so that both waits are bounded.
LocalPipe* AcceptLocalPipe(const std::string& inName, const std::string& outName,
                           std::int64_t inWaitMs, std::int64_t outWaitMs,
                           const std::atomic<bool>* stop, int* createError) {
  if (createError != nullptr) *createError = 0;
  if (Stopped(stop)) return nullptr;
  HANDLE in = CreateListeningEnd(inName, PIPE_ACCESS_INBOUND | FILE_FLAG_OVERLAPPED);
  DWORD error = in == INVALID_HANDLE_VALUE ? ::GetLastError() : 0;
  if (error == 0 && HeldElsewhere(in)) error = ERROR_ALREADY_EXISTS;
  HANDLE out = INVALID_HANDLE_VALUE;
  if (error == 0) {
    out = CreateListeningEnd(outName, PIPE_ACCESS_OUTBOUND | FILE_FLAG_OVERLAPPED);
    if (out == INVALID_HANDLE_VALUE) error = ::GetLastError();
  }
  if (error != 0) {
    CloseIfOpen(in);
    CloseIfOpen(out);
    if (createError != nullptr) *createError = static_cast<int>(error);
    return nullptr;
  }
  if (!AwaitFirstClient(in, inWaitMs, stop) || !AwaitSameClient(out, in, outWaitMs, stop)) {
    ::CloseHandle(in);
    ::CloseHandle(out);
    return nullptr;
  }
  return MakePipe(in, out, true);
}

// Waits on an event that nobody sets, so that only the deadline, the wake
// and the stop flag end it.
void IdleLocalPipeRound(std::int64_t waitMs, const std::atomic<bool>* stop) {
  HANDLE never = ::CreateEventA(nullptr, TRUE, FALSE, nullptr);
  if (never == nullptr) return;
  WaitWithStop(never, waitMs, stop);
  ::CloseHandle(never);
}

// Both names, each with one instance that waits for the next client in an
// overlapped connect; an instance that a client took is replaced at once, so
// the next client finds one while this one is paired and served.
class LocalPipeListener {
 public:
  // One name's waiting instance and its connect.
  struct WaitingEnd {
    std::string name;
    DWORD openMode = 0;
    HANDLE instance = INVALID_HANDLE_VALUE;
    HANDLE event = nullptr;  // manual reset; set when a client has come
    OVERLAPPED overlapped{};
    bool connecting = false;  // the overlapped connect is under way
  };

  ~LocalPipeListener() {
    for (WaitingEnd* end : {&in, &out}) {
      DropInstance(*end);
      if (end->event != nullptr) ::CloseHandle(end->event);
    }
    std::vector<HANDLE> halves;
    pending.TakeAll(&halves);
    pendingOut.TakeAll(&halves);
    for (HANDLE half : halves)
      ::CloseHandle(half);
  }

  // Closes the waiting instance; a connect under way is cancelled first, as
  // its record must outlive it.
  static void DropInstance(WaitingEnd& end) {
    if (end.instance == INVALID_HANDLE_VALUE) return;
    if (end.connecting) {
      ::CancelIo(end.instance);
      DWORD ignored = 0;
      ::GetOverlappedResult(end.instance, &end.overlapped, &ignored, TRUE);
    }
    ::CloseHandle(end.instance);
    end.instance = INVALID_HANDLE_VALUE;
    end.connecting = false;
  }

  WaitingEnd in;
  WaitingEnd out;
  // "in" halves, and "out" halves seen before their "in": a client opens "in"
  // first, but the two connects may be reported here the other way round.
  PendingPipeHalves<HANDLE> pending;
  PendingPipeHalves<HANDLE> pendingOut;
};

namespace {

// Makes a new waiting instance, if there is none, and starts its connect; a
// client that came between the two shows as a set event. False when no
// instance could be made; the next look tries again.
bool AwaitNextClient(LocalPipeListener::WaitingEnd& end) {
  if (end.instance != INVALID_HANDLE_VALUE) return true;
  end.instance = CreateListeningEnd(end.name, end.openMode);
  if (end.instance == INVALID_HANDLE_VALUE) return false;
  ::ResetEvent(end.event);
  end.overlapped = OVERLAPPED{};
  end.overlapped.hEvent = end.event;
  if (!::ConnectNamedPipe(end.instance, &end.overlapped)) {
    const DWORD error = ::GetLastError();
    if (error == ERROR_IO_PENDING) {
      end.connecting = true;
      return true;
    }
    if (error != ERROR_PIPE_CONNECTED) {
      LocalPipeListener::DropInstance(end);
      return false;
    }
  }
  ::SetEvent(end.event);
  return true;
}

// The instance that a client has taken, handed over to the caller, or
// INVALID_HANDLE_VALUE when none has come.
HANDLE TakeConnected(LocalPipeListener::WaitingEnd& end) {
  if (end.instance == INVALID_HANDLE_VALUE || ::WaitForSingleObject(end.event, 0) != WAIT_OBJECT_0)
    return INVALID_HANDLE_VALUE;
  DWORD ignored = 0;
  const bool connected =
      !end.connecting || ::GetOverlappedResult(end.instance, &end.overlapped, &ignored, FALSE);
  end.connecting = false;
  HANDLE taken = end.instance;
  end.instance = INVALID_HANDLE_VALUE;
  ::ResetEvent(end.event);
  if (connected) return taken;
  ::CloseHandle(taken);
  return INVALID_HANDLE_VALUE;
}

std::uint32_t ClientOf(HANDLE instance) {
  ULONG process = 0;
  return ::GetNamedPipeClientProcessId(instance, &process) ? process : 0;
}

// A half whose client has closed it is no use to pair.
bool StillOpen(HANDLE half) {
  return ::PeekNamedPipe(half, nullptr, 0, nullptr, nullptr, nullptr) != 0;
}

void CloseAll(const std::vector<HANDLE>& handles) {
  for (HANDLE handle : handles)
    ::CloseHandle(handle);
}

}  // namespace

LocalPipeListener* OpenLocalPipeListener(const std::string& inName, const std::string& outName,
                                         int* createError) {
  if (createError != nullptr) *createError = 0;
  auto* listener = new (std::nothrow) LocalPipeListener;
  if (listener == nullptr) {
    if (createError != nullptr) *createError = ERROR_NOT_ENOUGH_MEMORY;
    return nullptr;
  }
  listener->in.name = inName;
  listener->in.openMode = PIPE_ACCESS_INBOUND | FILE_FLAG_OVERLAPPED;
  listener->out.name = outName;
  listener->out.openMode = PIPE_ACCESS_OUTBOUND | FILE_FLAG_OVERLAPPED;
  DWORD error = 0;
  for (LocalPipeListener::WaitingEnd* end : {&listener->in, &listener->out}) {
    end->event = ::CreateEventA(nullptr, TRUE, FALSE, nullptr);
    if (end->event == nullptr) error = ::GetLastError();
  }
  // The first instance of "in" tells whether another process holds the name.
  if (error == 0) {
    listener->in.instance = CreateListeningEnd(inName, listener->in.openMode);
    if (listener->in.instance == INVALID_HANDLE_VALUE)
      error = ::GetLastError();
    else if (HeldElsewhere(listener->in.instance))
      error = ERROR_ALREADY_EXISTS;
    LocalPipeListener::DropInstance(listener->in);
  }
  if (error == 0 && (!AwaitNextClient(listener->in) || !AwaitNextClient(listener->out)))
    error = ::GetLastError();
  if (error != 0) {
    delete listener;
    if (createError != nullptr) *createError = static_cast<int>(error);
    return nullptr;
  }
  return listener;
}

LocalPipe* AcceptFromLocalPipeListener(LocalPipeListener* listener, std::int64_t waitMs,
                                       std::int64_t halfWaitMs, const std::atomic<bool>* stop,
                                       std::uint32_t* client) {
  using Clock = std::chrono::steady_clock;
  if (listener == nullptr) return nullptr;
  const bool forever = waitMs < 0;
  const Clock::time_point deadline = Clock::now() + std::chrono::milliseconds(forever ? 0 : waitMs);
  for (;;) {
    if (Stopped(stop)) return nullptr;
    std::vector<HANDLE> closed;
    const auto now = Clock::now();
    std::int64_t nextExpiry = listener->pending.TakeExpired(now, &closed);
    const std::int64_t nextOutExpiry = listener->pendingOut.TakeExpired(now, &closed);
    if (nextExpiry < 0 || (nextOutExpiry >= 0 && nextOutExpiry < nextExpiry))
      nextExpiry = nextOutExpiry;
    const auto halfDeadline =
        now + std::chrono::milliseconds(std::max<std::int64_t>(halfWaitMs, 0));
    auto anyOut = [](HANDLE) { return true; };  // a gone client fails the handshake
    HANDLE pairedIn = INVALID_HANDLE_VALUE, pairedOut = INVALID_HANDLE_VALUE;
    std::uint32_t process = 0;
    HANDLE in = TakeConnected(listener->in);
    if (in != INVALID_HANDLE_VALUE) {
      process = ClientOf(in);
      if (listener->pendingOut.Take(process, anyOut, &pairedOut, &closed))
        pairedIn = in;
      else if (!listener->pending.Add(in, process, halfDeadline))
        closed.push_back(in);
    }
    HANDLE out =
        pairedIn == INVALID_HANDLE_VALUE ? TakeConnected(listener->out) : INVALID_HANDLE_VALUE;
    if (out != INVALID_HANDLE_VALUE) {
      process = ClientOf(out);
      if (listener->pending.Take(process, StillOpen, &pairedIn, &closed))
        pairedOut = out;
      else if (!listener->pendingOut.Add(out, process, halfDeadline))
        closed.push_back(out);
    }
    CloseAll(closed);
    AwaitNextClient(listener->in);
    AwaitNextClient(listener->out);
    if (pairedIn != INVALID_HANDLE_VALUE) {
      if (client != nullptr) *client = process;
      return MakePipe(pairedIn, pairedOut, true);
    }
    if (in != INVALID_HANDLE_VALUE || out != INVALID_HANDLE_VALUE) continue;  // look again at once
    std::int64_t step = kStopPollMs;
    if (!forever) {
      const auto left =
          std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
      if (left <= 0) return nullptr;
      step = std::min<std::int64_t>(step, left);
    }
    if (nextExpiry >= 0) step = std::min(step, nextExpiry);
    const HANDLE events[] = {listener->in.event, listener->out.event, AcceptWakeEvent()};
    if (::WaitForMultipleObjects(3, events, FALSE, static_cast<DWORD>(step)) == WAIT_OBJECT_0 + 2)
      return nullptr;  // woken: the caller looks at its stop flag
  }
}

void CloseLocalPipeListener(LocalPipeListener* listener) {
  delete listener;
}

// The whole path "\\.\pipe\<name>" may have 256 characters.
std::size_t MaxLocalPipeNameLength() {
  return 256 - PipePath("").size();
}

// "in" first, as the listener waits for it first; only "out", which this
// side reads, is overlapped. One client of this process at a time opens its
// two halves, so that a lasting listener, which pairs halves by process,
// pairs this process's in the order they came.
LocalPipe* ConnectLocalPipe(const std::string& inName, const std::string& outName) {
  static std::mutex oneClientAtATime;
  std::lock_guard<std::mutex> lock(oneClientAtATime);
  HANDLE in = OpenClientEnd(inName, GENERIC_WRITE, 0);
  if (in == INVALID_HANDLE_VALUE) return nullptr;
  HANDLE out = OpenClientEnd(outName, GENERIC_READ, FILE_FLAG_OVERLAPPED);
  if (out == INVALID_HANDLE_VALUE) {
    ::CloseHandle(in);
    return nullptr;
  }
  return MakePipe(out, in, false);
}

void CloseLocalPipe(LocalPipe* pipe) {
  delete pipe;
}

// One overlapped ReadFile, waited on in rounds. A round that gives up
// cancels the read and waits for the cancellation, which may still deliver
// bytes that arrived in the meantime: those are returned, not lost.
IoResult ReadLocalPipe(LocalPipe* pipe, void* buffer, std::uint32_t length, std::int64_t roundMs,
                       const std::atomic<bool>* stop) {
  if (pipe == nullptr) return Status(IoStatus::kFailed, 0, ERROR_INVALID_HANDLE);
  const DWORD round =
      roundMs < 0 ? INFINITE : static_cast<DWORD>(std::min<std::int64_t>(roundMs, INFINITE - 1));
  const HANDLE events[] = {pipe->readEvent, pipe->interruptEvent};
  for (;;) {
    if (::WaitForSingleObject(pipe->interruptEvent, 0) == WAIT_OBJECT_0)
      return Status(IoStatus::kClosed);
    OVERLAPPED overlapped{};
    overlapped.hEvent = pipe->readEvent;
    DWORD count = 0;
    // Bytes that were there already complete the read at once: no wait.
    if (::ReadFile(pipe->read, buffer, length, nullptr, &overlapped)) {
      if (!::GetOverlappedResult(pipe->read, &overlapped, &count, FALSE)) return FromLastError();
      if (count > 0) return Status(IoStatus::kOk, count);
      continue;
    }
    if (::GetLastError() != ERROR_IO_PENDING) return FromLastError();
    DWORD waited = ::WaitForMultipleObjects(2, events, FALSE, round);
    while (waited == WAIT_TIMEOUT && stop != nullptr && !stop->load(std::memory_order_relaxed))
      waited = ::WaitForMultipleObjects(2, events, FALSE, round);
    const DWORD waitError = ::GetLastError();
    if (waited != WAIT_OBJECT_0) ::CancelIo(pipe->read);
    if (!::GetOverlappedResult(pipe->read, &overlapped, &count, TRUE)) {
      if (::GetLastError() != ERROR_OPERATION_ABORTED) return FromLastError();
      if (waited == WAIT_OBJECT_0 + 1) return Status(IoStatus::kClosed);
      return waited == WAIT_TIMEOUT ? Status(IoStatus::kTimedOut)
                                    : Status(IoStatus::kFailed, 0, static_cast<int>(waitError));
    }
    if (count > 0) return Status(IoStatus::kOk, count);
  }
}

// Only bytes that PeekNamedPipe has seen are read, so the ReadFile behind it
// completes at once and nothing stays in flight.
IoResult ReadLocalPipeNow(LocalPipe* pipe, void* buffer, std::uint32_t length) {
  if (pipe == nullptr) return Status(IoStatus::kFailed, 0, ERROR_INVALID_HANDLE);
  if (::WaitForSingleObject(pipe->interruptEvent, 0) == WAIT_OBJECT_0)
    return Status(IoStatus::kClosed);
  DWORD available = 0;
  if (!::PeekNamedPipe(pipe->read, nullptr, 0, nullptr, &available, nullptr))
    return FromLastError();
  if (available == 0) return Status(IoStatus::kWouldBlock);
  return ReadLocalPipe(pipe, buffer, std::min<DWORD>(length, available), kWaitForever, nullptr);
}

// The read under way waits on this event too, and cancels itself; a later
// read sees the event set before it starts.
void InterruptLocalPipeRead(LocalPipe* pipe) {
  if (pipe != nullptr) ::SetEvent(pipe->interruptEvent);
}

void WakeLocalPipeAccept() {
  ::SetEvent(AcceptWakeEvent());
}

// The listener's end is overlapped: its write is waited for without a limit,
// as a blocking one would be.
IoResult WriteLocalPipe(LocalPipe* pipe, const void* bytes, std::uint32_t length) {
  if (pipe == nullptr) return Status(IoStatus::kFailed, 0, ERROR_INVALID_HANDLE);
  DWORD written = 0;
  if (!pipe->listenerSide) {
    if (!::WriteFile(pipe->write, bytes, length, &written, nullptr)) return FromLastError();
    return Status(IoStatus::kOk, written);
  }
  OVERLAPPED overlapped{};
  overlapped.hEvent = pipe->writeEvent;
  if (!::WriteFile(pipe->write, bytes, length, nullptr, &overlapped) &&
      ::GetLastError() != ERROR_IO_PENDING)
    return FromLastError();
  if (!::GetOverlappedResult(pipe->write, &overlapped, &written, TRUE)) return FromLastError();
  return Status(IoStatus::kOk, written);
}

// Named pipes have no gathered write: the caller's batch is already one
// piece, and a large piece behind it goes out in a write of its own.
IoResult WriteLocalPipeGathered(LocalPipe* pipe, const BytePiece* pieces, std::size_t count) {
  for (std::size_t i = 0; i < count; ++i) {
    if (pieces[i].length == 0) continue;
    const std::size_t length = std::min<std::size_t>(pieces[i].length, 0x7FFFFFFF);
    return WriteLocalPipe(pipe, pieces[i].data, static_cast<std::uint32_t>(length));
  }
  return Status(IoStatus::kOk, 0);
}

}  // namespace platform
}  // namespace vxbus
