// The physical limit: the same traffic over plain blocking TCP sockets, with
// a frame of our own (kind word, length word, payload) and no library at all.
// The receiver reads through one buffer that it reuses, so it pays no page
// faults for fresh memory.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstring>
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

bool ReceiveAll(int fd, void* data, std::size_t size) {
  char* p = static_cast<char*>(data);
  while (size > 0) {
    const ssize_t got = recv(fd, p, size, 0);
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

sockaddr_in Loopback(int port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<std::uint16_t>(port));
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  return address;
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
        const ssize_t got = recv(fd_, buffer_.data(), buffer_.size(), 0);
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
  const int listener = socket(AF_INET, SOCK_STREAM, 0);
  int on = 1;
  setsockopt(listener, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
  const sockaddr_in address = Loopback(ports.first);
  if (bind(listener, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
      listen(listener, 5) != 0)
    return 1;
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
    fd_ = socket(AF_INET, SOCK_STREAM, 0);
    const sockaddr_in address = Loopback(port_);
    if (connect(fd_, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
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
