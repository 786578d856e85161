// SPDX-License-Identifier: MIT
#include "bridge.h"

#include <unistd.h>

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstring>
#include <mutex>

#include "bridge_log.h"
#include "list_bridge.h"

namespace vxbridge {
namespace {

constexpr std::int64_t kDrainTimeoutMs = 5000;

Bridge* g_bridge = nullptr;  // for the library's listeners, which take no closure
bool g_verbose = false;

// The TCP listener logs the first line (at level 8) once it accepts, and
// one of the others (at level 1) when it cannot bind or listen.
std::mutex g_listeningMutex;
std::condition_variable g_listeningChanged;
bool g_tcpListening = false;
bool g_tcpFailed = false;

void OnLibraryLog(std::uint32_t level, std::uint32_t, const char* text) {
  if (g_verbose || level == 1) LogLine("vxbus[" + std::to_string(level) + "]: " + text);
  const bool listening = std::strncmp(text, "listen for incoming connection on", 33) == 0;
  const bool failed =
      std::strncmp(text, "bind to:", 8) == 0 || std::strncmp(text, "listen to:", 10) == 0;
  if (listening || failed) {
    std::lock_guard<std::mutex> lock(g_listeningMutex);
    (listening ? g_tcpListening : g_tcpFailed) = true;
    g_listeningChanged.notify_all();
  }
}

void OnDisconnect(const char* appId, const char*, std::int32_t, const char*) {
  if (g_bridge && appId) g_bridge->Lost(appId);
}

void OnAuthFailed(const char*, const char* remote, const char*) {
  LogLine(std::string("refused ") + remote + ": wrong secret");
}

std::string Seconds(std::int64_t ms) {
  std::string text = std::to_string(ms / 1000);
  if (ms % 1000) {
    char fraction[8];
    std::snprintf(fraction, sizeof fraction, ".%03d", static_cast<int>(ms % 1000));
    text += fraction;
    while (text.back() == '0')
      text.pop_back();
  }
  return text;
}

const char* KindName(MappingKind kind) {
  switch (kind) {
    case MappingKind::kExport:
      return "export";
    case MappingKind::kImport:
      return "import";
    case MappingKind::kSignal:
      return "signal";
    default:
      return "emit";
  }
}

}  // namespace

Bridge::Bridge(Options options, std::string secret)
    : options_(std::move(options)),
      codec_(options_.json),
      secret_(secret),
      targets_(std::move(secret)) {
  std::uint32_t nextSignalSlot = kFirstPrivateSlot;
  for (const Mapping& mapping : options_.mappings) {
    routes_.emplace_back(new Route);
    routes_.back()->mapping = mapping;
    routes_.back()->bridge = this;
    if (mapping.kind == MappingKind::kSignal) routes_.back()->signalSlot = nextSignalSlot++;
  }
}

std::string Bridge::Describe(const Route& route) const {
  const Mapping& m = route.mapping;
  switch (m.kind) {
    case MappingKind::kExport:
      return "export " + m.subject + " -> " + m.target.text + " slot " + std::to_string(m.slot);
    case MappingKind::kImport:
      return "import slot " + std::to_string(m.slot) + " -> " + m.subject;
    case MappingKind::kSignal:
      return "signal " + m.target.text + " " + m.signal + " -> " + m.subject;
    default:
      return "emit " + m.subject + " -> signal " + m.signal;
  }
}

ExitCode Bridge::Start() {
  g_bridge = this;
  g_verbose = options_.verbose;
  VXSetLogLevel(options_.verbose ? 0xF : 0x9, 0, OnLibraryLog);
  VXSetDisconnectListener(OnDisconnect);
  VXSetAuthFailedListener(OnAuthFailed);
  VXLimits limits{};
  limits.size = sizeof limits;
  limits.limits.MAX_READ_SIZE = kMaxPayloadBytes;  // zero words keep their defaults
  // A caller's record brings its own secret, which peers must prove.
  std::memcpy(limits.limits.authBlock, secret_.data(), secret_.size());
  if (VXInitializeWithPipeChannel(options_.pipe.empty() ? nullptr : options_.pipe.c_str(), nullptr,
                                  options_.name.c_str(), options_.port, &limits) != VX_SUCCESS) {
    LogLine("the library did not start as " + options_.name);
    return kExitFailed;
  }
  char host[256] = {};
  gethostname(host, sizeof host - 1);
  appId_ = std::string(host) + ":" + std::to_string(options_.port) + "/" + options_.name;

  for (auto& route : routes_) {
    const Mapping& m = route->mapping;
    if (m.kind == MappingKind::kImport) VXRegisterSlot(m.slot, ImportSlot, route.get());
    if (m.kind == MappingKind::kSignal) {
      VXRegisterSlot(route->signalSlot, SignalSlot, route.get());
      targets_.AddSignal(m.target, m.signal, route->signalSlot);
    }
    if (m.kind == MappingKind::kExport) targets_.Add(m.target);
    if (m.kind == MappingKind::kEmit) VXRegisterSignal(m.signal.c_str());
  }
  VXRegisterSlot(options_.infoSlot, InfoSlot, this);

  NatsSettings settings;
  settings.urls = options_.natsUrls;
  settings.clientName = "vxbridge " + appId_;
  settings.credsFile = options_.natsCreds;
  settings.tlsCaFile = options_.natsTlsCa;
  settings.bufferBytes = options_.bufferBytes;
  std::string error;
  bool ready = nats_.Start(settings, error);
  for (auto& route : routes_) {
    const Mapping& m = route->mapping;
    if (!ready) break;
    if (m.kind == MappingKind::kExport)
      ready = nats_.Subscribe(m.subject, OnExportMessage, route.get(), error);
    if (m.kind == MappingKind::kEmit)
      ready = nats_.Subscribe(m.subject, OnEmitMessage, route.get(), error);
  }
  ExitCode code = ready ? kExitOk : kExitFailed;
  if (!ready) LogLine(error);
  if (code == kExitOk && targets_.ConnectAll() == LocalTargets::Reach::kRefused) {
    LogLine("stopping: a local target refused the bridge's secret");
    code = kExitRefused;
  }
  if (code == kExitOk) {
    VXConnectionReady();
    std::unique_lock<std::mutex> lock(g_listeningMutex);
    if (options_.port != 0 && (!g_listeningChanged.wait_for(lock, std::chrono::seconds(10), [] {
          return g_tcpListening || g_tcpFailed;
        }) || g_tcpFailed)) {
      lock.unlock();
      LogLine("port " + std::to_string(options_.port) + " did not open; is it in use?");
      code = kExitFailed;
    }
  }
  if (code != kExitOk) {
    nats_.DrainAndClose(0);
    VXShutdown();
    nats_.Release();
    return code;
  }
  for (const auto& route : routes_)
    SayLine(Describe(*route));
  SayLine("ready " + appId_ + " info slot " + std::to_string(options_.infoSlot));
  return kExitOk;
}

void Bridge::Tick() {
  targets_.ConnectAll();
}

void Bridge::Stop() {
  LogLine("stopping: draining NATS");
  nats_.DrainAndClose(kDrainTimeoutMs);
  VXShutdown();  // no slot runs after this, so nothing uses the client any more
  nats_.Release();
  SayLine("stopped");
}

natsMsg* Bridge::MakeMessage(Route& route, const char* subject, HVXPARAMLIST list) {
  std::string payload, error;
  if (!codec_.Encode(list, payload, error)) {
    ++route.counters.failed;
    LogLine(Describe(route) + ": the list cannot be read: " + error);
    return nullptr;
  }
  natsMsg* message = nullptr;
  if (natsMsg_Create(&message, subject, nullptr, payload.data(),
                     static_cast<int>(payload.size())) != NATS_OK) {
    ++route.counters.failed;
    return nullptr;
  }
  natsMsgHeader_Set(message, kFormatHeader, codec_.Format());
  natsMsgHeader_Set(message, kVersionHeader, VXBRIDGE_VERSION);
  return message;
}

void Bridge::PublishCounted(Route& route, natsMsg* message) {
  switch (nats_.Publish(message)) {
    case PublishOutcome::kBuffered:
      ++route.counters.buffered;
      ++route.counters.forwarded;
      break;
    case PublishOutcome::kSent:
      ++route.counters.forwarded;
      break;
    case PublishOutcome::kDropped:
      ++route.counters.dropped;
      break;
    case PublishOutcome::kFailed:
      ++route.counters.failed;
      break;
  }
  natsMsg_Destroy(message);
}

bool Bridge::DecodeMessage(Route& route, natsMsg* message, vxctl::List& out) {
  const char* format = nullptr;
  if (natsMsgHeader_Get(message, kFormatHeader, &format) != NATS_OK) format = nullptr;
  std::string error;
  if (codec_.Decode(natsMsg_GetData(message),
                    static_cast<std::size_t>(natsMsg_GetDataLength(message)), format, out, error))
    return true;
  LogLine(Describe(route) + ": a message on " + natsMsg_GetSubject(message) +
          " is not a list: " + error);
  return false;
}

void Bridge::Request(Route& route, natsMsg* request, HVXPARAMLIST output) {
  const std::string& subject = route.mapping.subject;
  natsMsg* reply = nullptr;
  const natsStatus status = nats_.Request(request, options_.requestTimeoutMs, &reply);
  std::string failure;
  if (status == NATS_TIMEOUT)
    failure = "no answer within " + Seconds(options_.requestTimeoutMs) + " s";
  else if (status == NATS_NO_RESPONDERS)
    failure = "nobody answers on " + subject;
  else if (status != NATS_OK)
    failure = std::string("the request failed: ") + natsStatus_GetText(status);
  const char* remoteError = nullptr;
  if (failure.empty() && natsMsgHeader_Get(reply, kErrorHeader, &remoteError) == NATS_OK)
    failure = std::string("the other side answered: ") + remoteError;
  vxctl::List list;
  if (failure.empty() && !DecodeMessage(route, reply, list)) {
    natsMsg_Destroy(reply);
    ++route.counters.failed;
    return;
  }
  natsMsg_Destroy(reply);
  if (!failure.empty()) {
    ++route.counters.failed;
    LogLine(Describe(route) + ": " + failure + "; the caller gets an empty list");
    return;
  }
  vxctl::FillHandle(output, list);
  ++route.counters.forwarded;
}

// Runs on the library's dispatch thread. A notify without a callback comes
// with no output list: it is published and nothing waits for an answer.
_tag_VX_ERROR Bridge::ImportSlot(HVXPARAMLIST input, HVXPARAMLIST output, VXSlotContext* context) {
  Route& route = *static_cast<Route*>(context->userData);
  Bridge& self = *route.bridge;
  natsMsg* message = self.MakeMessage(route, route.mapping.subject.c_str(), input);
  if (!message) return VX_SUCCESS;
  if (output == VX_INVALID_PARAMLIST) {
    self.PublishCounted(route, message);
    return VX_SUCCESS;
  }
  self.Request(route, message, output);
  natsMsg_Destroy(message);
  return VX_SUCCESS;
}

_tag_VX_ERROR Bridge::SignalSlot(HVXPARAMLIST input, HVXPARAMLIST, VXSlotContext* context) {
  Route& route = *static_cast<Route*>(context->userData);
  natsMsg* message = route.bridge->MakeMessage(route, route.mapping.subject.c_str(), input);
  if (message) route.bridge->PublishCounted(route, message);
  return VX_SUCCESS;
}

_tag_VX_ERROR Bridge::InfoSlot(HVXPARAMLIST, HVXPARAMLIST output, VXSlotContext* context) {
  if (output != VX_INVALID_PARAMLIST) static_cast<Bridge*>(context->userData)->FillInfo(output);
  return VX_SUCCESS;
}

void Bridge::FillInfo(HVXPARAMLIST output) {
  std::uint64_t totals[4] = {};
  std::vector<HVXPARAMLIST> mappings;
  for (const auto& route : routes_) {
    const Mapping& m = route->mapping;
    HVXPARAMLIST item = VXCreateParamList();
    VXSetStringValue(item, "kind", KindName(m.kind));
    VXSetStringValue(item, "subject", m.subject.c_str());
    if (!m.target.text.empty()) VXSetStringValue(item, "target", m.target.text.c_str());
    if (m.kind == MappingKind::kExport || m.kind == MappingKind::kImport)
      VXSetInt64Value(item, "slot", m.slot);
    if (!m.signal.empty()) VXSetStringValue(item, "signal", m.signal.c_str());
    const std::uint64_t counts[4] = {route->counters.forwarded, route->counters.failed,
                                     route->counters.buffered, route->counters.dropped};
    static const char* const kNames[4] = {"forwarded", "failed", "buffered", "dropped"};
    for (int i = 0; i < 4; ++i) {
      VXSetInt64Value(item, kNames[i], counts[i]);
      totals[i] += counts[i];
    }
    mappings.push_back(item);
  }
  VXSetStringValue(output, "name", appId_.c_str());
  VXSetStringValue(output, "version", VXBRIDGE_VERSION);
  VXSetStringValue(output, "format", codec_.Format());
  VXSetStringValue(output, "nats", nats_.StateText().c_str());
  VXSetStringValue(output, "server", nats_.ConnectedUrl().c_str());
  VXSetInt64Value(output, "forwarded", totals[0]);
  VXSetInt64Value(output, "failed", totals[1]);
  VXSetInt64Value(output, "buffered", totals[2]);
  VXSetInt64Value(output, "dropped", totals[3]);
  VXSetHandleArray(output, "mappings", static_cast<std::uint32_t>(mappings.size()),
                   mappings.data());
  for (HVXPARAMLIST item : mappings)
    VXCloseHandle(item);
}

void Bridge::ReplyError(Route& route, natsMsg* request, const std::string& why) {
  ++route.counters.failed;
  LogLine(Describe(route) + ": " + why + "; answering with " + kErrorHeader);
  natsMsg* reply = nullptr;
  if (natsMsg_Create(&reply, natsMsg_GetReply(request), nullptr, nullptr, 0) != NATS_OK) return;
  natsMsgHeader_Set(reply, kFormatHeader, codec_.Format());
  natsMsgHeader_Set(reply, kVersionHeader, VXBRIDGE_VERSION);
  natsMsgHeader_Set(reply, kErrorHeader, why.c_str());
  nats_.Publish(reply);
  natsMsg_Destroy(reply);
}

// Runs on the client's thread for this subscription, one message at a time.
void Bridge::OnExportMessage(natsConnection*, natsSubscription*, natsMsg* message, void* closure) {
  Route& route = *static_cast<Route*>(closure);
  Bridge& self = *route.bridge;
  const Mapping& m = route.mapping;
  const char* replyTo = natsMsg_GetReply(message);
  const bool wantsReply = replyTo && *replyTo;
  vxctl::List list;
  if (!self.DecodeMessage(route, message, list)) {
    if (wantsReply)
      self.ReplyError(route, message, "the request is not a list");
    else
      ++route.counters.failed;
    natsMsg_Destroy(message);
    return;
  }
  const std::string appId = self.targets_.AppIdOf(m.target.text);
  HVXPARAMLIST input = vxctl::ToHandle(list);
  if (appId.empty()) {
    if (wantsReply)
      self.ReplyError(route, message, m.target.text + " is not reachable");
    else
      ++route.counters.failed;
  } else if (!wantsReply) {
    const _tag_VX_ERROR result = VXNotify(appId.c_str(), m.slot, input, nullptr, nullptr);
    if (result == VX_SUCCESS) ++route.counters.forwarded;
    if (result != VX_SUCCESS) ++route.counters.failed;
    if (result == VX_ERROR_NO_APPLICATION) self.targets_.Lost(appId);
  } else {
    HVXPARAMLIST output = VXCall(appId.c_str(), m.slot, input);
    if (output == VX_INVALID_PARAMLIST) {
      self.targets_.Lost(appId);
      self.ReplyError(route, message, "the session to " + m.target.text + " ended");
    } else if (natsMsg* reply = self.MakeMessage(route, replyTo, output)) {
      if (self.nats_.Publish(reply) == PublishOutcome::kFailed)
        ++route.counters.failed;
      else
        ++route.counters.forwarded;
      natsMsg_Destroy(reply);
    }
    VXCloseHandle(output);
  }
  VXCloseHandle(input);
  natsMsg_Destroy(message);
}

void Bridge::OnEmitMessage(natsConnection*, natsSubscription*, natsMsg* message, void* closure) {
  Route& route = *static_cast<Route*>(closure);
  vxctl::List list;
  if (route.bridge->DecodeMessage(route, message, list)) {
    HVXPARAMLIST handle = vxctl::ToHandle(list);
    // A subscriber whose queue stays full misses this one; the others got it.
    if (VXEmit(route.mapping.signal.c_str(), handle, nullptr, nullptr) == VX_ERROR_NO_SIGNAL)
      ++route.counters.failed;
    else
      ++route.counters.forwarded;
    VXCloseHandle(handle);
  } else {
    ++route.counters.failed;
  }
  natsMsg_Destroy(message);
}

}  // namespace vxbridge
