// SPDX-License-Identifier: MIT
#include "nats_link.h"

#include <chrono>

#include "bridge_log.h"

namespace vxbridge {
namespace {

constexpr std::int64_t kReconnectWaitMs = 500;
constexpr std::int64_t kJitterMs = 250;
constexpr std::int64_t kJitterTlsMs = 1000;

// Callbacks use the connection they are given: the first may run before
// natsConnection_Connect has returned it.
std::string UrlOf(natsConnection* connection) {
  char url[512] = {};
  if (!connection || natsConnection_GetConnectedUrl(connection, url, sizeof url) != NATS_OK)
    return "";
  return url;
}

std::string Text(natsStatus status) {
  return natsStatus_GetText(status);
}

void OnAsyncError(natsConnection*, natsSubscription* subscription, natsStatus status, void*) {
  const char* subject = subscription ? natsSubscription_GetSubject(subscription) : nullptr;
  LogLine("NATS error" + (subject ? " on " + std::string(subject) : std::string()) + ": " +
          Text(status));
}

}  // namespace

NatsLink::~NatsLink() {
  Release();
}

// The pointers stay: a handler that outlived the drain still holds the
// connection through its subscription, and may publish on it (and fail).
void NatsLink::Release() {
  if (released_) return;
  released_ = true;
  for (natsSubscription* subscription : subscriptions_)
    natsSubscription_Destroy(subscription);
  natsConnection_Destroy(connection_);
  natsOptions_Destroy(options_);
}

bool NatsLink::Start(const NatsSettings& settings, std::string& error) {
  bufferBytes_ = settings.bufferBytes;
  std::vector<const char*> urls;
  for (const std::string& url : settings.urls) {
    urls.push_back(url.c_str());
    urlsText_ += (urlsText_.empty() ? "" : ",") + url;
  }
  natsStatus status = natsOptions_Create(&options_);
  auto step = [&status](natsStatus next) {
    if (status == NATS_OK) status = next;
  };
  step(natsOptions_SetServers(options_, urls.data(), static_cast<int>(urls.size())));
  step(natsOptions_SetNoRandomize(options_, true));
  step(natsOptions_SetName(options_, settings.clientName.c_str()));
  step(natsOptions_SetNoEcho(options_, true));
  step(natsOptions_SetMaxReconnect(options_, -1));
  step(natsOptions_SetReconnectWait(options_, kReconnectWaitMs));
  step(natsOptions_SetReconnectJitter(options_, kJitterMs, kJitterTlsMs));
  step(natsOptions_SetReconnectBufSize(options_, settings.bufferBytes));
  step(natsOptions_SetRetryOnFailedConnect(options_, true, OnConnected, this));
  step(natsOptions_SetDisconnectedCB(options_, OnDisconnected, this));
  step(natsOptions_SetReconnectedCB(options_, OnReconnected, this));
  step(natsOptions_SetClosedCB(options_, OnClosed, this));
  step(natsOptions_SetErrorHandler(options_, OnAsyncError, this));
  if (status != NATS_OK) {
    error = "the NATS client cannot be set up: " + Text(status);
    return false;
  }
  if (!settings.credsFile.empty() &&
      (status = natsOptions_SetUserCredentialsFromFiles(options_, settings.credsFile.c_str(),
                                                        nullptr)) != NATS_OK) {
    error = "--nats-creds '" + settings.credsFile + "': " + Text(status);
    return false;
  }
  if (!settings.tlsCaFile.empty()) {
    status = natsOptions_LoadCATrustedCertificates(options_, settings.tlsCaFile.c_str());
    if (status == NATS_OK) status = natsOptions_SetSecure(options_, true);
    if (status != NATS_OK) {
      error = "--nats-tls-ca '" + settings.tlsCaFile + "': " + Text(status);
      return false;
    }
  }
  status = natsConnection_Connect(&connection_, options_);
  if (status == NATS_NOT_YET_CONNECTED) {
    LogLine("cannot reach NATS at " + urlsText_ + ": nothing answered; retrying every " +
            std::to_string(kReconnectWaitMs) + " ms, buffering up to " +
            std::to_string(bufferBytes_) + " bytes");
    return true;
  }
  if (status != NATS_OK) {
    error = "cannot connect to NATS at " + urlsText_ + ": " + Text(status);
    return false;
  }
  LogLine("connected to NATS at " + ConnectedUrl());
  return true;
}

bool NatsLink::Subscribe(const std::string& subject, natsMsgHandler handler, void* closure,
                         std::string& error) {
  natsSubscription* subscription = nullptr;
  natsStatus status =
      natsConnection_Subscribe(&subscription, connection_, subject.c_str(), handler, closure);
  if (status != NATS_OK) {
    error = "cannot subscribe to " + subject + ": " + Text(status);
    return false;
  }
  subscriptions_.push_back(subscription);
  // While connected, the server has the subscription once this returns;
  // otherwise the client sends it on connecting.
  if (natsConnection_Status(connection_) == NATS_CONN_STATUS_CONNECTED)
    natsConnection_FlushTimeout(connection_, 5000);
  return true;
}

PublishOutcome NatsLink::Publish(natsMsg* message) {
  const bool connected = natsConnection_Status(connection_) == NATS_CONN_STATUS_CONNECTED;
  const natsStatus status = natsConnection_PublishMsg(connection_, message);
  if (status == NATS_OK) {
    if (connected) return PublishOutcome::kSent;
    ++bufferedSinceDown_;
    return PublishOutcome::kBuffered;
  }
  if (status == NATS_INSUFFICIENT_BUFFER) {
    if (droppedSinceDown_++ == 0)
      LogLine("the buffer of " + std::to_string(bufferBytes_) +
              " bytes is full: dropping what is published until NATS is back");
    return PublishOutcome::kDropped;
  }
  LogLine("cannot publish on " + std::string(natsMsg_GetSubject(message)) + ": " + Text(status));
  return PublishOutcome::kFailed;
}

natsStatus NatsLink::Request(natsMsg* request, std::int64_t timeoutMs, natsMsg** reply) {
  return natsConnection_RequestMsg(reply, connection_, request, timeoutMs);
}

void NatsLink::DrainAndClose(std::int64_t timeoutMs) {
  if (!connection_) return;
  if (natsConnection_DrainTimeout(connection_, timeoutMs) != NATS_OK)
    natsConnection_Close(connection_);  // not connected: nothing can be drained
  std::unique_lock<std::mutex> lock(closedMutex_);
  if (!closedChanged_.wait_for(lock, std::chrono::milliseconds(timeoutMs + 1000),
                               [this] { return closed_; })) {
    lock.unlock();
    natsConnection_Close(connection_);
  }
}

std::string NatsLink::ConnectedUrl() {
  return UrlOf(connection_);
}

std::string NatsLink::StateText() {
  switch (connection_ ? natsConnection_Status(connection_) : NATS_CONN_STATUS_CLOSED) {
    case NATS_CONN_STATUS_CONNECTED:
      return "connected";
    case NATS_CONN_STATUS_RECONNECTING:
    case NATS_CONN_STATUS_DISCONNECTED:
      return "reconnecting";
    case NATS_CONN_STATUS_CONNECTING:
      return "connecting";
    case NATS_CONN_STATUS_DRAINING_SUBS:
    case NATS_CONN_STATUS_DRAINING_PUBS:
      return "draining";
    default:
      return "closed";
  }
}

void NatsLink::OnConnected(natsConnection* connection, void* closure) {
  auto* self = static_cast<NatsLink*>(closure);
  LogLine("connected to NATS at " + UrlOf(connection) + "; " +
          std::to_string(self->bufferedSinceDown_.exchange(0)) + " buffered messages sent, " +
          std::to_string(self->droppedSinceDown_.exchange(0)) + " dropped");
}

void NatsLink::OnDisconnected(natsConnection* connection, void* closure) {
  auto* self = static_cast<NatsLink*>(closure);
  const natsConnStatus status = natsConnection_Status(connection);
  if (status == NATS_CONN_STATUS_CLOSED || status == NATS_CONN_STATUS_DRAINING_SUBS ||
      status == NATS_CONN_STATUS_DRAINING_PUBS)
    return;
  LogLine("disconnected from NATS; reconnecting to " + self->urlsText_ + ", buffering up to " +
          std::to_string(self->bufferBytes_) + " bytes");
}

void NatsLink::OnReconnected(natsConnection* connection, void* closure) {
  auto* self = static_cast<NatsLink*>(closure);
  LogLine("reconnected to NATS at " + UrlOf(connection) + "; " +
          std::to_string(self->bufferedSinceDown_.exchange(0)) + " buffered messages sent, " +
          std::to_string(self->droppedSinceDown_.exchange(0)) + " dropped");
}

void NatsLink::OnClosed(natsConnection*, void* closure) {
  auto* self = static_cast<NatsLink*>(closure);
  std::lock_guard<std::mutex> lock(self->closedMutex_);
  self->closed_ = true;
  self->closedChanged_.notify_all();
}

}  // namespace vxbridge
