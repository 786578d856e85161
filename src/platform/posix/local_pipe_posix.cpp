// SPDX-License-Identifier: MIT
// Local pipes as Unix-domain stream sockets in the Linux abstract namespace.
// Each direction is one connection, so the two streams stay one-way as on
// every other platform. The listening sockets live for one accept round only:
// between rounds, and while a client is being served, a connect to the names
// fails at once, and a client has to try again.
#include "platform/local_pipe.h"

#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstddef>
#include <cstring>
#include <mutex>
#include <new>
#include <vector>

#include "platform/local_pipe_listener.h"
#include "platform/pending_pipe_halves.h"
#include "platform/posix/gather_posix.h"
#include "platform/posix/poll_posix.h"

namespace vxbus {
namespace platform {

// One connected pair: the descriptor this side reads and the one it writes.
class LocalPipe {
 public:
  LocalPipe(int readFd, int writeFd) : readFd(readFd), writeFd(writeFd) {}
  ~LocalPipe() {
    ::close(readFd);
    ::close(writeFd);
  }
  LocalPipe(const LocalPipe&) = delete;
  LocalPipe& operator=(const LocalPipe&) = delete;

  const int readFd;
  const int writeFd;
};

namespace {

// What each direction may hold in flight; the system caps it at its own
// most. A stream socket moves a large write in pieces of up to half of it,
// and every time it fills, writer and reader take turns through a wake-up:
// at 16 KB a 1 MiB image took some sixty of them.
constexpr int kPipeBufferBytes = 512 * 1024;
// How long a connect waits while another client is being taken.
constexpr time_t kConnectWaitSeconds = 10;
// How often the wait for a client looks at the stop flag.
constexpr std::int64_t kStopCheckMs = 1000;

bool Stopped(const std::atomic<bool>* stop) {
  return stop != nullptr && stop->load(std::memory_order_relaxed);
}

// An abstract name starts with a zero byte and needs no file on disk, so a
// process that dies leaves nothing behind.
bool MakeAddress(const std::string& name, sockaddr_un* address, socklen_t* length) {
  std::memset(address, 0, sizeof *address);
  if (name.empty() || name.size() + 1 > sizeof address->sun_path) return false;
  address->sun_family = AF_UNIX;
  std::memcpy(address->sun_path + 1, name.data(), name.size());
  *length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + name.size());
  return true;
}

void SetBuffers(int fd) {
  int bytes = kPipeBufferBytes;
  ::setsockopt(fd, SOL_SOCKET, SO_SNDBUF, &bytes, sizeof bytes);
  ::setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &bytes, sizeof bytes);
}

void SetSendTimeout(int fd, time_t seconds) {
  timeval limit{seconds, 0};
  ::setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
}

void CloseFd(int fd) {
  if (fd >= 0) ::close(fd);
}

LocalPipe* MakePipe(int readFd, int writeFd) {
  auto* pipe = new (std::nothrow) LocalPipe(readFd, writeFd);
  if (pipe == nullptr) {
    ::close(readFd);
    ::close(writeFd);
  }
  return pipe;
}

// A round's backlog of 0 lets one client wait to be taken; a second one
// waits in its connect until the round ends, and then fails. On failure
// `*error` gets the reason: EADDRINUSE while another process listens on the
// name.
int OpenListener(const std::string& name, int* error, int backlog = 0, int flags = 0) {
  sockaddr_un address;
  socklen_t length = 0;
  if (!MakeAddress(name, &address, &length)) {
    *error = ENAMETOOLONG;
    return -1;
  }
  int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | flags, 0);
  if (fd < 0) {
    *error = errno;
    return -1;
  }
  if (::bind(fd, reinterpret_cast<const sockaddr*>(&address), length) != 0 ||
      ::listen(fd, backlog) != 0) {
    *error = errno;
    ::close(fd);
    return -1;
  }
  return fd;
}

int AcceptOne(int listener) {
  for (;;) {
    int fd = ::accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
    if (fd >= 0 || (errno != EINTR && errno != ECONNABORTED)) return fd;
  }
}

pid_t PeerProcess(int fd) {
  ucred credentials;
  socklen_t length = sizeof credentials;
  if (::getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &credentials, &length) != 0) return -1;
  return credentials.pid;
}

// Waits up to `waitMs` for the "_out" half of the client that is already
// connected on `inConnection`. A connection from another process is turned
// away, so that two clients cannot end up with each other's halves; a client
// that goes away in the meantime ends the wait, and so does a stop request,
// so that a client that never opens "_out" can hold up neither the listener
// nor a shutdown.
int AcceptSecondHalf(int outListener, int inConnection, std::int64_t waitMs,
                     const std::atomic<bool>* stop) {
  using Clock = std::chrono::steady_clock;
  const Clock::time_point deadline =
      Clock::now() + std::chrono::milliseconds(std::max<std::int64_t>(waitMs, 0));
  const pid_t client = PeerProcess(inConnection);
  for (;;) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
    if (left <= 0) return -1;
    pollfd entries[2] = {{outListener, POLLIN, 0}, {inConnection, POLLRDHUP, 0}};
    int result = ::poll(entries, 2, static_cast<int>(std::min<std::int64_t>(left, kStopCheckMs)));
    if (result < 0) {
      if (errno == EINTR) continue;
      return -1;
    }
    if (result == 0) {
      if (Stopped(stop)) return -1;
      continue;
    }
    if ((entries[1].revents & (POLLRDHUP | POLLHUP | POLLERR | POLLNVAL)) != 0) return -1;
    if ((entries[0].revents & (POLLERR | POLLHUP | POLLNVAL)) != 0) return -1;
    if ((entries[0].revents & POLLIN) == 0) continue;
    int fd = AcceptOne(outListener);
    if (fd < 0) {
      if (errno == EAGAIN || errno == EWOULDBLOCK) continue;
      return -1;
    }
    pid_t peer = PeerProcess(fd);
    if (client < 0 || peer < 0 || peer == client) return fd;
    ::close(fd);
  }
}

// The process's one wake for the wait for a client: readable while a wake
// is pending. Made at first use and kept for the life of the process.
int AcceptWakeFd() {
  static const int fd = ::eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
  return fd;
}

// Takes a pending wake; true when there was one.
bool TakeAcceptWake() {
  eventfd_t count = 0;
  return ::eventfd_read(AcceptWakeFd(), &count) == 0;
}

// Waits up to `waitMs` for a client on the "_in" listener, in steps of at
// most a second; a wake, or a stop request seen between steps, cuts the wait
// short. A wake without a stop request is taken and the wait goes on. With
// a listener of -1, which poll passes over, it only waits.
bool WaitForFirstHalf(int inListener, std::int64_t waitMs, const std::atomic<bool>* stop) {
  using Clock = std::chrono::steady_clock;
  const bool forever = waitMs < 0;
  const Clock::time_point deadline = Clock::now() + std::chrono::milliseconds(forever ? 0 : waitMs);
  for (;;) {
    std::int64_t step = kStopCheckMs;
    if (!forever) {
      auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
      step = std::max<std::int64_t>(0, std::min<std::int64_t>(left, kStopCheckMs));
    }
    pollfd entries[2] = {{inListener, POLLIN, 0}, {AcceptWakeFd(), POLLIN, 0}};
    int result = ::poll(entries, 2, static_cast<int>(step));
    if (result < 0 && errno != EINTR) return false;
    if (result > 0 && entries[0].revents != 0) return (entries[0].revents & POLLNVAL) == 0;
    if (result > 0 && entries[1].revents != 0) TakeAcceptWake();
    if (Stopped(stop) || (!forever && Clock::now() >= deadline)) return false;
  }
}

int ConnectTo(const std::string& name) {
  sockaddr_un address;
  socklen_t length = 0;
  if (!MakeAddress(name, &address, &length)) return -1;
  int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (fd < 0) return -1;
  SetBuffers(fd);
  // The send time-out bounds only a connect to a listener that is busy; a
  // name that nobody listens on is refused at once.
  SetSendTimeout(fd, kConnectWaitSeconds);
  int result;
  do {
    result = ::connect(fd, reinterpret_cast<const sockaddr*>(&address), length);
  } while (result != 0 && errno == EINTR);
  if (result != 0) {
    ::close(fd);
    return -1;
  }
  SetSendTimeout(fd, 0);  // writes block without a limit
  return fd;
}

}  // namespace

LocalPipe* AcceptLocalPipe(const std::string& inName, const std::string& outName,
                           std::int64_t inWaitMs, std::int64_t outWaitMs,
                           const std::atomic<bool>* stop, int* createError) {
  int error = 0;
  if (createError != nullptr) *createError = 0;
  if (Stopped(stop)) return nullptr;
  // "_out" first: a client that reached "_in" must find "_out" there too.
  int outListener = OpenListener(outName, &error);
  int inListener = outListener < 0 ? -1 : OpenListener(inName, &error);
  if (inListener < 0 || outListener < 0) {
    CloseFd(outListener);
    if (createError != nullptr) *createError = error;
    return nullptr;
  }
  int inConnection = -1;
  if (WaitForFirstHalf(inListener, inWaitMs, stop)) inConnection = AcceptOne(inListener);
  // Closed at once, so that no second client gets into this round.
  ::close(inListener);
  if (inConnection < 0) {
    ::close(outListener);
    return nullptr;
  }
  int outConnection = AcceptSecondHalf(outListener, inConnection, outWaitMs, stop);
  ::close(outListener);
  if (outConnection < 0) {
    ::close(inConnection);
    return nullptr;
  }
  SetBuffers(inConnection);
  SetBuffers(outConnection);
  return MakePipe(inConnection, outConnection);
}

// Polls no listener: only the deadline, the wake and the stop flag end it.
void IdleLocalPipeRound(std::int64_t waitMs, const std::atomic<bool>* stop) {
  WaitForFirstHalf(-1, waitMs, stop);
}

// Both names, kept from open to close; non-blocking, so that the accepts of
// one wake take what is queued and no more.
class LocalPipeListener {
 public:
  LocalPipeListener(int inFd, int outFd) : inFd(inFd), outFd(outFd) {}
  ~LocalPipeListener() {
    std::vector<int> halves;
    pending.TakeAll(&halves);
    for (int fd : halves)
      ::close(fd);
    ::close(inFd);
    ::close(outFd);
  }
  LocalPipeListener(const LocalPipeListener&) = delete;
  LocalPipeListener& operator=(const LocalPipeListener&) = delete;

  const int inFd;
  const int outFd;
  PendingPipeHalves<int> pending;
};

namespace {

// Room for a burst of clients, as a TCP listener has.
constexpr int kLastingBacklog = 128;

std::uint32_t ClientOf(int fd) {
  const pid_t pid = PeerProcess(fd);
  return pid < 0 ? 0 : static_cast<std::uint32_t>(pid);
}

// A half whose client has closed it, or gone, is no use to pair.
bool StillOpen(int fd) {
  pollfd entry{fd, POLLRDHUP, 0};
  return ::poll(&entry, 1, 0) == 0;
}

void CloseAll(const std::vector<int>& fds) {
  for (int fd : fds)
    ::close(fd);
}

// Takes every "in" half queued now. Each client's "in" was queued before it
// opened "out", so after this an "out" finds the "in" of its client.
void TakeInHalves(LocalPipeListener& listener, std::int64_t halfWaitMs) {
  const auto deadline = std::chrono::steady_clock::now() +
                        std::chrono::milliseconds(std::max<std::int64_t>(halfWaitMs, 0));
  for (;;) {
    int fd = AcceptOne(listener.inFd);
    if (fd < 0) return;
    if (!listener.pending.Add(fd, ClientOf(fd), deadline)) ::close(fd);
  }
}

// Takes queued "out" halves until one pairs with a waiting "in" half of its
// process; an "out" with none is closed. Null when none is queued any more.
LocalPipe* PairOutHalf(LocalPipeListener& listener, std::uint32_t* client) {
  for (;;) {
    int outFd = AcceptOne(listener.outFd);
    if (outFd < 0) return nullptr;
    const std::uint32_t process = ClientOf(outFd);
    int inFd = -1;
    std::vector<int> gone;
    const bool paired = listener.pending.Take(process, StillOpen, &inFd, &gone);
    CloseAll(gone);
    if (!paired) {
      ::close(outFd);
      continue;
    }
    SetBuffers(inFd);
    SetBuffers(outFd);
    if (client != nullptr) *client = process;
    return MakePipe(inFd, outFd);
  }
}

}  // namespace

LocalPipeListener* OpenLocalPipeListener(const std::string& inName, const std::string& outName,
                                         int* createError) {
  int error = 0;
  if (createError != nullptr) *createError = 0;
  int outFd = OpenListener(outName, &error, kLastingBacklog, SOCK_NONBLOCK);
  int inFd = outFd < 0 ? -1 : OpenListener(inName, &error, kLastingBacklog, SOCK_NONBLOCK);
  if (inFd < 0) {
    CloseFd(outFd);
    if (createError != nullptr) *createError = error;
    return nullptr;
  }
  auto* listener = new (std::nothrow) LocalPipeListener(inFd, outFd);
  if (listener == nullptr) {
    ::close(inFd);
    ::close(outFd);
    if (createError != nullptr) *createError = ENOMEM;
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
    std::vector<int> expired;
    const std::int64_t nextExpiry = listener->pending.TakeExpired(Clock::now(), &expired);
    CloseAll(expired);
    TakeInHalves(*listener, halfWaitMs);
    if (LocalPipe* pipe = PairOutHalf(*listener, client)) return pipe;
    std::int64_t step = kStopCheckMs;
    if (!forever) {
      const auto left =
          std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
      if (left <= 0) return nullptr;
      step = std::min<std::int64_t>(step, left);
    }
    if (nextExpiry >= 0) step = std::min(step, nextExpiry);
    pollfd entries[3] = {
        {listener->inFd, POLLIN, 0}, {listener->outFd, POLLIN, 0}, {AcceptWakeFd(), POLLIN, 0}};
    const int result = ::poll(entries, 3, static_cast<int>(step));
    if (result < 0 && errno != EINTR) return nullptr;
    if (result > 0 && entries[2].revents != 0) {
      TakeAcceptWake();
      return nullptr;
    }
  }
}

void CloseLocalPipeListener(LocalPipeListener* listener) {
  delete listener;
}

std::size_t MaxLocalPipeNameLength() {
  return sizeof sockaddr_un::sun_path - 1;  // after the zero byte of an abstract name
}

// One client of this process at a time opens its two halves, so that a
// lasting listener, which pairs halves by process, pairs this process's in
// the order they came.
LocalPipe* ConnectLocalPipe(const std::string& inName, const std::string& outName) {
  static std::mutex oneClientAtATime;
  std::lock_guard<std::mutex> lock(oneClientAtATime);
  int inConnection = ConnectTo(inName);
  if (inConnection < 0) return nullptr;
  int outConnection = ConnectTo(outName);
  if (outConnection < 0) {
    ::close(inConnection);
    return nullptr;
  }
  return MakePipe(outConnection, inConnection);
}

void CloseLocalPipe(LocalPipe* pipe) {
  delete pipe;
}

namespace {

IoResult Status(IoStatus status, std::int64_t count = 0, int systemCode = 0) {
  IoResult result;
  result.status = status;
  result.count = count;
  result.systemCode = systemCode;
  return result;
}

// One non-blocking receive; kWouldBlock when nothing is there yet.
IoResult ReceiveNow(int fd, void* buffer, std::uint32_t length) {
  for (;;) {
    ssize_t count = ::recv(fd, buffer, length, MSG_DONTWAIT);
    if (count > 0) return Status(IoStatus::kOk, count);
    if (count == 0) return Status(IoStatus::kClosed);
    if (errno == EINTR) continue;
    if (errno == EAGAIN || errno == EWOULDBLOCK) return Status(IoStatus::kWouldBlock);
    return Status(IoStatus::kFailed, 0, errno);
  }
}

}  // namespace

// Nothing is ever in flight between the calls here: a read that waits
// polls, and only a poll that saw data is followed by a receive.
IoResult ReadLocalPipe(LocalPipe* pipe, void* buffer, std::uint32_t length, std::int64_t roundMs,
                       const std::atomic<bool>* stop) {
  if (pipe == nullptr) return Status(IoStatus::kFailed, 0, EBADF);
  for (;;) {
    IoResult result = ReceiveNow(pipe->readFd, buffer, length);
    if (result.status != IoStatus::kWouldBlock) return result;
    int waited = posix::PollOne(pipe->readFd, POLLIN, roundMs, nullptr);
    // A reader that may wait for its stop flag looks at it only when a whole
    // round has passed without data.
    while (waited == 0 && stop != nullptr && !stop->load(std::memory_order_relaxed))
      waited = posix::PollOne(pipe->readFd, POLLIN, roundMs, nullptr);
    if (waited == 0) return Status(IoStatus::kTimedOut);
    if (waited < 0) return Status(IoStatus::kFailed, 0, errno);
  }
}

IoResult ReadLocalPipeNow(LocalPipe* pipe, void* buffer, std::uint32_t length) {
  if (pipe == nullptr) return Status(IoStatus::kFailed, 0, EBADF);
  return ReceiveNow(pipe->readFd, buffer, length);
}

void InterruptLocalPipeRead(LocalPipe* pipe) {
  if (pipe != nullptr) ::shutdown(pipe->readFd, SHUT_RD);
}

void WakeLocalPipeAccept() {
  ::eventfd_write(AcceptWakeFd(), 1);
}

// MSG_NOSIGNAL: a reader that has gone makes the write fail with EPIPE
// instead of raising SIGPIPE, which would end the whole process.
IoResult WriteLocalPipe(LocalPipe* pipe, const void* bytes, std::uint32_t length) {
  if (pipe == nullptr) return Status(IoStatus::kFailed, 0, EBADF);
  for (;;) {
    ssize_t count = ::send(pipe->writeFd, bytes, length, MSG_NOSIGNAL);
    if (count >= 0) return Status(IoStatus::kOk, count);
    if (errno == EINTR) continue;
    return Status(errno == EPIPE || errno == ECONNRESET ? IoStatus::kClosed : IoStatus::kFailed, 0,
                  errno);
  }
}

IoResult WriteLocalPipeGathered(LocalPipe* pipe, const BytePiece* pieces, std::size_t count) {
  if (pipe == nullptr) return Status(IoStatus::kFailed, 0, EBADF);
  ssize_t sent = posix::SendPieces(pipe->writeFd, pieces, count, 0);
  if (sent >= 0) return Status(IoStatus::kOk, sent);
  return Status(errno == EPIPE || errno == ECONNRESET ? IoStatus::kClosed : IoStatus::kFailed, 0,
                errno);
}

}  // namespace platform
}  // namespace vxbus
