// SPDX-License-Identifier: MIT
// ZeroMQ, the messaging library that vxbus is held against: REQ/REP
// for calls and PUSH/PULL for one-way messages. The first byte of a request
// says what it is; the rest is payload, so every message has the same size as
// the other peers'.
#include <zmq.h>

#include <string>
#include <vector>

#include "harness.h"

namespace {

enum Kind : char { kCall = 'C', kFinish = 'F', kQuit = 'Q' };

// ipc:// under an abstract name with BENCH_TRANSPORT=local.
std::string Endpoint(int port) {
  if (bench::OverLocalChannel()) return "ipc://@" + bench::LocalName(port);
  return "tcp://127.0.0.1:" + std::to_string(port);
}

void* Open(void* context, int type) {
  void* socket = zmq_socket(context, type);
  int linger = 0;
  zmq_setsockopt(socket, ZMQ_LINGER, &linger, sizeof linger);
  return socket;
}

// Takes one-way messages; an empty one marks the end of a run.
class NotifyCounter {
 public:
  explicit NotifyCounter(void* pull) : pull_(pull) {}

  void TakeWaiting() {
    while (Take(ZMQ_DONTWAIT)) {
    }
  }

  // Blocks until the end of the run, then starts the next.
  std::uint64_t Finish() {
    while (!ended_ && Take(0)) {
    }
    const std::uint64_t counted = count_;
    count_ = 0;
    ended_ = false;
    return counted;
  }

 private:
  bool Take(int flags) {
    zmq_msg_t message;
    zmq_msg_init(&message);
    const int size = zmq_msg_recv(&message, pull_, flags);
    zmq_msg_close(&message);
    if (size < 0) return false;
    if (size == 0)
      ended_ = true;
    else
      ++count_;
    return true;
  }

  void* pull_;
  std::uint64_t count_ = 0;
  bool ended_ = false;
};

int Serve(bench::Ports ports) {
  void* context = zmq_ctx_new();
  void* rep = Open(context, ZMQ_REP);
  void* pull = Open(context, ZMQ_PULL);
  if (zmq_bind(rep, Endpoint(ports.first).c_str()) != 0 ||
      zmq_bind(pull, Endpoint(ports.second).c_str()) != 0)
    return 1;
  NotifyCounter notifies(pull);
  const std::vector<char> reply(bench::kSmallBytes, 'r');
  const bench::Clock::time_point end =
      bench::Clock::now() + std::chrono::seconds(bench::kServerLifetimeSeconds);
  bool quit = false;
  while (!quit && bench::Clock::now() < end) {
    zmq_pollitem_t items[] = {{rep, 0, ZMQ_POLLIN, 0}, {pull, 0, ZMQ_POLLIN, 0}};
    if (zmq_poll(items, 2, 100) <= 0) continue;
    if (items[1].revents & ZMQ_POLLIN) notifies.TakeWaiting();
    if (!(items[0].revents & ZMQ_POLLIN)) continue;
    zmq_msg_t request;
    zmq_msg_init(&request);
    if (zmq_msg_recv(&request, rep, 0) < 1) break;
    const char kind = *static_cast<const char*>(zmq_msg_data(&request));
    zmq_msg_close(&request);
    if (kind == kFinish) {
      const std::uint64_t counted = notifies.Finish();
      zmq_send(rep, &counted, sizeof counted, 0);
    } else {
      quit = kind == kQuit;
      zmq_send(rep, reply.data(), reply.size(), 0);
    }
  }
  zmq_close(pull);
  zmq_close(rep);
  zmq_ctx_term(context);
  return quit ? 0 : 1;
}

class ZmqPeer : public bench::Peer {
 public:
  explicit ZmqPeer(bench::Ports ports)
      : ports_(ports), context_(zmq_ctx_new()), push_(Open(context_, ZMQ_PUSH)) {
    zmq_connect(push_, Endpoint(ports.second).c_str());
  }
  ~ZmqPeer() override { Shutdown(); }

  // zmq_connect returns at once and connects in the background: the first
  // round trip is what shows that the connection is there.
  bool Connect() override {
    req_ = Open(context_, ZMQ_REQ);
    int timeout = 1000;  // the server may not listen yet
    zmq_setsockopt(req_, ZMQ_RCVTIMEO, &timeout, sizeof timeout);
    PrepareCall(bench::kSmallBytes);
    if (zmq_connect(req_, Endpoint(ports_.first).c_str()) == 0 && Call()) return true;
    Disconnect();
    return false;
  }

  void Disconnect() override {
    if (req_) zmq_close(req_);
    req_ = nullptr;
  }

  void PrepareCall(std::size_t bytes) override {
    request_.assign(bytes, 'x');
    request_[0] = kCall;
  }

  bool Call() override { return Request(request_.data(), request_.size()) > 0; }

  bool Notify() override { return zmq_send(push_, notify_.data(), notify_.size(), 0) >= 0; }

  std::uint64_t FinishNotifies() override {
    std::uint64_t counted = 0;
    const char finish = kFinish;
    if (zmq_send(push_, nullptr, 0, 0) < 0 ||
        Request(&finish, 1, &counted, sizeof counted) != sizeof counted)
      return 0;
    return counted;
  }

  void Quit() override {
    const char quit = kQuit;
    Request(&quit, 1);
  }

  void Shutdown() override {
    Disconnect();
    if (push_) zmq_close(push_);
    push_ = nullptr;
    if (context_) zmq_ctx_term(context_);
    context_ = nullptr;
  }

 private:
  // Sends a request and takes its reply; the reply's size, or -1.
  int Request(const void* data, std::size_t size, void* reply = nullptr,
              std::size_t replySize = 0) {
    char small[bench::kSmallBytes];
    if (!reply) {
      reply = small;
      replySize = sizeof small;
    }
    if (zmq_send(req_, data, size, 0) < 0) return -1;
    return zmq_recv(req_, reply, replySize, 0);
  }

  bench::Ports ports_;
  void* context_;
  void* push_;
  void* req_ = nullptr;
  std::vector<char> request_;
  const std::vector<char> notify_ = std::vector<char>(bench::kSmallBytes, 'n');
};

std::unique_ptr<bench::Peer> MakePeer(bench::Ports ports) {
  return std::make_unique<ZmqPeer>(ports);
}

}  // namespace

int main(int argc, char** argv) {
  return bench::BenchMain(argc, argv, Serve, MakePeer);
}
