// Local pipes as Unix-domain stream sockets in the Linux abstract namespace.
// Each direction is one connection, so the two streams stay one-way as on
// every other platform. The listening sockets live for one accept round only:
// between rounds, and while a client is being served, a connect to the names
// fails at once, and a client has to try again.
#include "platform/local_pipe.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstring>

#include "platform/posix/poll_posix.h"

namespace vxbus {
namespace platform {

struct PipeReadEvent {
  // Bytes that BeginPipeRead got at once, waiting for FinishPipeRead; -1 if none.
  std::int64_t completed = -1;
};

namespace {

// The size of the pipe buffers in both directions.
constexpr int kPipeBufferBytes = 16284;
// How long a connect waits while another client is being taken.
constexpr time_t kConnectWaitSeconds = 10;
constexpr std::uint32_t kWaitWithoutLimit = 0xFFFFFFFFu;

int Fd(PipeHandle pipe) {
  return static_cast<int>(pipe);
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

// A backlog of 0 lets one client wait to be taken; a second one waits in
// its connect until the round ends, and then fails.
int OpenListener(const std::string& name) {
  sockaddr_un address;
  socklen_t length = 0;
  if (!MakeAddress(name, &address, &length)) return -1;
  int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (fd < 0) return -1;
  if (::bind(fd, reinterpret_cast<const sockaddr*>(&address), length) != 0 ||
      ::listen(fd, 0) != 0) {
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

// Waits without a limit for the "_out" half of the client that is already
// connected on `inConnection`. A connection from another process is turned
// away, so that two clients cannot end up with each other's halves; a client
// that goes away in the meantime ends the wait.
int AcceptSecondHalf(int outListener, int inConnection) {
  const pid_t client = PeerProcess(inConnection);
  for (;;) {
    pollfd entries[2] = {{outListener, POLLIN, 0}, {inConnection, POLLRDHUP, 0}};
    int result = ::poll(entries, 2, -1);
    if (result < 0) {
      if (errno == EINTR) continue;
      return -1;
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

bool AcceptPipePair(const std::string& inName, const std::string& outName, std::uint32_t inWaitMs,
                    PipeEnds* ends) {
  // "_out" first: a client that reached "_in" must find "_out" there too.
  int outListener = OpenListener(outName);
  int inListener = OpenListener(inName);
  if (inListener < 0 || outListener < 0) {
    CloseFd(inListener);
    CloseFd(outListener);
    return false;
  }
  std::int64_t wait = inWaitMs == kWaitWithoutLimit ? -1 : static_cast<std::int64_t>(inWaitMs);
  int inConnection = -1;
  if (posix::PollOne(inListener, POLLIN, wait, nullptr) > 0) inConnection = AcceptOne(inListener);
  // Closed at once, so that no second client gets into this round.
  ::close(inListener);
  if (inConnection < 0) {
    ::close(outListener);
    return false;
  }
  int outConnection = AcceptSecondHalf(outListener, inConnection);
  ::close(outListener);
  if (outConnection < 0) {
    ::close(inConnection);
    return false;
  }
  SetBuffers(inConnection);
  SetBuffers(outConnection);
  ends->read = inConnection;
  ends->write = outConnection;
  return true;
}

bool ConnectPipePair(const std::string& inName, const std::string& outName, PipeEnds* ends) {
  int inConnection = ConnectTo(inName);
  if (inConnection < 0) return false;
  int outConnection = ConnectTo(outName);
  if (outConnection < 0) {
    ::close(inConnection);
    return false;
  }
  ends->write = inConnection;
  ends->read = outConnection;
  return true;
}

void ClosePipe(PipeHandle pipe) {
  if (pipe >= 0) ::close(Fd(pipe));
}

PipeReadEvent* CreatePipeReadEvent() {
  return new PipeReadEvent();
}

void ClosePipeReadEvent(PipeReadEvent* event) {
  delete event;
}

namespace {

// One non-blocking receive: the count, 0 when nothing is there yet, -1 when
// the writer has gone or the pipe failed.
std::int64_t ReceiveNow(PipeHandle pipe, void* buffer, std::uint32_t length) {
  for (;;) {
    ssize_t count = ::recv(Fd(pipe), buffer, length, MSG_DONTWAIT);
    if (count > 0) return count;
    if (count == 0) return -1;
    if (errno == EINTR) continue;
    return (errno == EAGAIN || errno == EWOULDBLOCK) ? 0 : -1;
  }
}

}  // namespace

int BeginPipeRead(PipeHandle pipe, PipeReadEvent* event, void* buffer, std::uint32_t length) {
  if (event == nullptr || pipe < 0) return -1;
  event->completed = -1;
  std::int64_t count = ReceiveNow(pipe, buffer, length);
  if (count < 0) return -1;
  if (count == 0) return 0;
  event->completed = count;
  return 1;
}

int WaitPipeRead(PipeHandle pipe, PipeReadEvent* event, std::uint32_t timeoutMs) {
  if (event == nullptr || pipe < 0) return -1;
  if (event->completed >= 0) return 1;
  std::int64_t wait = timeoutMs == kWaitWithoutLimit ? -1 : static_cast<std::int64_t>(timeoutMs);
  int result = posix::PollOne(Fd(pipe), POLLIN, wait, nullptr);
  return result > 0 ? 1 : result;
}

// Nothing is in flight between the calls here, so there is nothing to stop.
void CancelPipeRead(PipeHandle, PipeReadEvent* event) {
  if (event != nullptr) event->completed = -1;
}

std::int64_t FinishPipeRead(PipeHandle pipe, PipeReadEvent* event, void* buffer,
                            std::uint32_t length) {
  if (event == nullptr || pipe < 0) return -1;
  if (event->completed >= 0) {
    std::int64_t count = event->completed;
    event->completed = -1;
    return count;
  }
  return ReceiveNow(pipe, buffer, length);
}

// MSG_NOSIGNAL: a reader that has gone makes the write fail with EPIPE
// instead of raising SIGPIPE, which would end the whole process.
std::int64_t WritePipe(PipeHandle pipe, const void* bytes, std::uint32_t length) {
  if (pipe < 0) return -1;
  for (;;) {
    ssize_t count = ::send(Fd(pipe), bytes, length, MSG_NOSIGNAL);
    if (count >= 0 || errno != EINTR) return count;
  }
}

}  // namespace platform
}  // namespace vxbus
