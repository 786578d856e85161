// SPDX-License-Identifier: MIT
// The bridge's one connection to NATS, through the NATS C client: its own
// reconnect over the cluster's URLs with a jittered wait, a bounded buffer
// for what is published while no server is there, and no echo, so that what
// the bridge publishes never comes back into it.
#ifndef VXBRIDGE_NATS_LINK_H_
#define VXBRIDGE_NATS_LINK_H_

#include <nats/nats.h>

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

namespace vxbridge {

struct NatsSettings {
  std::vector<std::string> urls;  // tried in the order given
  std::string clientName;
  std::string credsFile;  // empty: none
  std::string tlsCaFile;  // empty: no TLS unless a URL says tls://
  int bufferBytes = 8 << 20;
};

// What became of one publish.
enum class PublishOutcome { kSent, kBuffered, kDropped, kFailed };

class NatsLink {
 public:
  NatsLink() = default;
  NatsLink(const NatsLink&) = delete;
  NatsLink& operator=(const NatsLink&) = delete;
  ~NatsLink();

  // Sets the client up and connects. When no server answers it logs that
  // and keeps trying in the background (true). False with the reason in
  // `error` when the settings cannot be used (a TLS file, the client itself).
  bool Start(const NatsSettings& settings, std::string& error);

  // Subscribes `handler` (run on a thread of the client, one message at a
  // time per subscription) and flushes, so that the server knows of it when
  // this returns while connected.
  bool Subscribe(const std::string& subject, natsMsgHandler handler, void* closure,
                 std::string& error);

  // Publishes `message` (still the caller's). While no server is there the
  // client buffers it up to the buffer's size; beyond that it is dropped.
  // A first drop after a disconnection is logged; the next reconnection
  // logs how many were dropped.
  PublishOutcome Publish(natsMsg* message);

  // Sends `request` and waits up to `timeoutMs` for the reply through the
  // client's reply inbox. On NATS_OK `*reply` is the caller's to destroy.
  natsStatus Request(natsMsg* request, std::int64_t timeoutMs, natsMsg** reply);

  // Stops the subscriptions, lets their handlers finish, sends what is
  // buffered, and closes; blocks at most `timeoutMs`.
  void DrainAndClose(std::int64_t timeoutMs);

  // Lets the client's objects go, after DrainAndClose, so that the client
  // library can end its threads.
  void Release();

  // The URL of the server in use, or empty; and "connected",
  // "reconnecting", "connecting", "draining" or "closed".
  std::string ConnectedUrl();
  std::string StateText();

 private:
  static void OnConnected(natsConnection* connection, void* closure);
  static void OnDisconnected(natsConnection* connection, void* closure);
  static void OnReconnected(natsConnection* connection, void* closure);
  static void OnClosed(natsConnection* connection, void* closure);

  natsOptions* options_ = nullptr;
  natsConnection* connection_ = nullptr;
  std::vector<natsSubscription*> subscriptions_;
  bool released_ = false;
  std::string urlsText_;
  int bufferBytes_ = 0;
  std::atomic<std::uint64_t> bufferedSinceDown_{0};
  std::atomic<std::uint64_t> droppedSinceDown_{0};
  std::mutex closedMutex_;
  std::condition_variable closedChanged_;
  bool closed_ = false;
};

}  // namespace vxbridge

#endif  // VXBRIDGE_NATS_LINK_H_
