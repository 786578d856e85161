// SPDX-License-Identifier: MIT
// The physical limit: the same traffic over plain TCP sockets, or unix-domain
// sockets with BENCH_TRANSPORT=local, with a frame of our own (kind word,
// length word, payload) and no library at all. The receiver reads through one
// buffer that it reuses, so it pays no page faults for fresh memory. With
// BENCH_POLL=1 both sides busy-poll their receives instead of sleeping in
// them: the lowest latency the machine gives, at the price of a core each.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "harness.h"

namespace {

enum Kind : std::uint32_t { kCall = 1, kNotify = 2, kFinish = 3, kQuit = 4 };

struct Header {
  std::uint32_t kind;
  std::uint32_t length;
};

bool SendAll(int fd, const void* data, std::size_t size) {
  const char* p = static_cast<const char*>(data);
  while (size > 0) {
    const ssize_t sent = send(fd, p, size, MSG_NOSIGNAL);
    if (sent <= 0) return false;
    p += sent;
    size -= static_cast<std::size_t>(sent);
  }
  return true;
}

// One receive: blocking, or spinning on a non-blocking one when polling.
ssize_t ReceiveSome(int fd, void* data, std::size_t size) {
  static const bool polling = bench::BusyPolling();
  if (!polling) return recv(fd, data, size, 0);
  for (;;) {
    const ssize_t got = recv(fd, data, size, MSG_DONTWAIT);
    if (got >= 0 || (errno != EAGAIN && errno != EWOULDBLOCK && errno != EINTR)) return got;
  }
}

bool ReceiveAll(int fd, void* data, std::size_t size) {
  char* p = static_cast<char*>(data);
  while (size > 0) {
    const ssize_t got = ReceiveSome(fd, p, size);
    if (got <= 0) return false;
    p += got;
    size -= static_cast<std::size_t>(got);
  }
  return true;
}

// A frame with `payload` bytes, laid out for one send.
std::vector<char> Frame(Kind kind, std::size_t payload) {
  std::vector<char> frame(sizeof(Header) + payload, 'x');
  const Header header{kind, static_cast<std::uint32_t>(payload)};
  std::memcpy(frame.data(), &header, sizeof header);
  return frame;
}

void NoDelay(int fd) {
  int on = 1;
  setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
}

// The server's address: loopback TCP, or an abstract unix-domain name.
struct Address {
  sockaddr_storage storage{};
  socklen_t length = 0;
  const sockaddr* get() const { return reinterpret_cast<const sockaddr*>(&storage); }
};

Address ServerAddress(int port) {
  Address address;
  if (bench::OverLocalChannel()) {
    auto* local = reinterpret_cast<sockaddr_un*>(&address.storage);
    local->sun_family = AF_UNIX;
    const std::string name = bench::LocalName(port);
    std::memcpy(local->sun_path + 1, name.data(), name.size());
    address.length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + name.size());
  } else {
    auto* inet = reinterpret_cast<sockaddr_in*>(&address.storage);
    inet->sin_family = AF_INET;
    inet->sin_port = htons(static_cast<std::uint16_t>(port));
    inet->sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.length = sizeof(sockaddr_in);
  }
  return address;
}

int NewSocket() {
  return socket(bench::OverLocalChannel() ? AF_UNIX : AF_INET, SOCK_STREAM, 0);
}

// Reads frames of one connection: many small ones come in one recv.
class FrameReader {
 public:
  explicit FrameReader(int fd) : fd_(fd), buffer_(256 * 1024) {}

  bool Read(void* data, std::size_t size) {
    char* out = static_cast<char*>(data);
    while (size > 0) {
      if (begin_ == end_) {
        if (size >= buffer_.size()) return ReceiveAll(fd_, out, size);
        const ssize_t got = ReceiveSome(fd_, buffer_.data(), buffer_.size());
        if (got <= 0) return false;
        begin_ = 0;
        end_ = static_cast<std::size_t>(got);
      }
      const std::size_t take = std::min(size, end_ - begin_);
      std::memcpy(out, buffer_.data() + begin_, take);
      begin_ += take;
      out += take;
      size -= take;
    }
    return true;
  }

 private:
  int fd_;
  std::vector<char> buffer_;
  std::size_t begin_ = 0, end_ = 0;
};

std::atomic<bool> g_quit{false};

void ServeConnection(int fd) {
  NoDelay(fd);
  FrameReader reader(fd);
  std::vector<char> payload;
  const std::vector<char> reply = Frame(kCall, bench::kSmallBytes);
  std::uint64_t notifies = 0;
  Header header{};
  while (reader.Read(&header, sizeof header)) {
    if (payload.size() < header.length) payload.resize(header.length);
    if (!reader.Read(payload.data(), header.length)) break;
    if (header.kind == kNotify) {
      ++notifies;
    } else if (header.kind == kCall) {
      if (!SendAll(fd, reply.data(), reply.size())) break;
    } else if (header.kind == kFinish) {
      if (!SendAll(fd, &notifies, sizeof notifies)) break;
      notifies = 0;
    } else if (header.kind == kQuit) {
      g_quit = true;
      break;
    }
  }
  close(fd);
}

int Serve(bench::Ports ports) {
  const int listener = NewSocket();
  int on = 1;
  setsockopt(listener, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
  const Address address = ServerAddress(ports.first);
  if (bind(listener, address.get(), address.length) != 0 || listen(listener, 5) != 0) return 1;
  const bench::Clock::time_point end =
      bench::Clock::now() + std::chrono::seconds(bench::kServerLifetimeSeconds);
  while (!g_quit && bench::Clock::now() < end) {
    pollfd waiting{listener, POLLIN, 0};
    if (poll(&waiting, 1, 50) <= 0) continue;
    const int fd = accept(listener, nullptr, nullptr);
    if (fd >= 0) std::thread(ServeConnection, fd).detach();
  }
  close(listener);
  return g_quit ? 0 : 1;
}

class RawTcpPeer : public bench::Peer {
 public:
  explicit RawTcpPeer(bench::Ports ports) : port_(ports.first) {}
  ~RawTcpPeer() override { Disconnect(); }

  bool Connect() override {
    fd_ = NewSocket();
    const Address address = ServerAddress(port_);
    if (connect(fd_, address.get(), address.length) != 0) {
      Disconnect();
      return false;
    }
    NoDelay(fd_);
    PrepareCall(bench::kSmallBytes);
    return Call();
  }

  void Disconnect() override {
    if (fd_ >= 0) close(fd_);
    fd_ = -1;
  }

  void PrepareCall(std::size_t bytes) override { request_ = Frame(kCall, bytes); }

  bool Call() override {
    Header header{};
    char reply[bench::kSmallBytes];
    return SendAll(fd_, request_.data(), request_.size()) &&
           ReceiveAll(fd_, &header, sizeof header) && header.length == sizeof reply &&
           ReceiveAll(fd_, reply, sizeof reply);
  }

  bool Notify() override { return SendAll(fd_, notify_.data(), notify_.size()); }

  std::uint64_t FinishNotifies() override {
    std::uint64_t counted = 0;
    const std::vector<char> finish = Frame(kFinish, 0);
    if (!SendAll(fd_, finish.data(), finish.size()) || !ReceiveAll(fd_, &counted, sizeof counted))
      return 0;
    return counted;
  }

  void Quit() override {
    const std::vector<char> quit = Frame(kQuit, 0);
    SendAll(fd_, quit.data(), quit.size());
  }

  void Shutdown() override { Disconnect(); }

 private:
  int port_;
  int fd_ = -1;
  std::vector<char> request_;
  const std::vector<char> notify_ = Frame(kNotify, bench::kSmallBytes);
};

std::unique_ptr<bench::Peer> MakePeer(bench::Ports ports) {
  return std::make_unique<RawTcpPeer>(ports);
}

}  // namespace

int main(int argc, char** argv) {
  return bench::BenchMain(argc, argv, Serve, MakePeer);
}
