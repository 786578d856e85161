// SPDX-License-Identifier: MIT
#include "local_targets.h"

#include "bridge_log.h"
#include "vxbus.h"

namespace vxbridge {
namespace {

// Unsubscribing a pair that was never subscribed changes nothing, but the
// answer comes back behind the subscriptions sent before it.
constexpr std::uint32_t kBarrierSlot = 0xFFFFFFF0u;

}  // namespace

void LocalTargets::Add(const Target& target) {
  std::lock_guard<std::mutex> lock(mutex_);
  auto& entry = entries_[target.text];
  if (!entry) {
    entry.reset(new Entry);
    entry->target = target;
  }
}

void LocalTargets::AddSignal(const Target& target, const std::string& signal, std::uint32_t slot) {
  Add(target);
  std::lock_guard<std::mutex> lock(mutex_);
  entries_[target.text]->signals.emplace_back(signal, slot);
}

LocalTargets::Reach LocalTargets::ConnectAll() {
  std::vector<Entry*> entries;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    for (auto& entry : entries_)
      entries.push_back(entry.second.get());
  }
  Reach worst = Reach::kConnected;
  for (Entry* entry : entries) {
    const Reach reach = Connect(*entry);
    if (reach == Reach::kRefused || (reach == Reach::kUnreachable && worst == Reach::kConnected))
      worst = reach;
  }
  return worst;
}

std::string LocalTargets::AppIdOf(const std::string& targetText) {
  Entry* entry = nullptr;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    auto found = entries_.find(targetText);
    if (found == entries_.end()) return "";
    entry = found->second.get();
    if (!entry->appId.empty()) return entry->appId;
  }
  Connect(*entry);
  std::lock_guard<std::mutex> lock(mutex_);
  return entry->appId;
}

void LocalTargets::Lost(const std::string& appId) {
  std::lock_guard<std::mutex> lock(mutex_);
  for (auto& entry : entries_) {
    if (entry.second->appId != appId) continue;
    entry.second->appId.clear();
    LogLine("lost " + entry.first + " (" + appId + "); reconnecting");
  }
}

LocalTargets::Reach LocalTargets::Connect(Entry& entry) {
  std::lock_guard<std::mutex> attempt(entry.connectMutex);
  {
    std::lock_guard<std::mutex> lock(mutex_);
    if (!entry.appId.empty()) return Reach::kConnected;
  }
  const Target& target = entry.target;
  char appId[256] = {};
  const auto* key = reinterpret_cast<const unsigned char*>(secret_.data());
  const auto keyLength = static_cast<std::int32_t>(secret_.size());
  const _tag_VX_ERROR result =
      target.pipe.empty()
          ? VXConnect(target.host.c_str(), target.port, appId, sizeof appId, key, keyLength)
          : VXConnectEx(target.pipe.c_str(), nullptr, 0, appId, sizeof appId, key, keyLength);
  if (result != VX_SUCCESS) {
    const Reach reach = result == VX_ERROR_NAME_IN_USE ? Reach::kRefused : Reach::kUnreachable;
    if (reach != entry.lastLogged)
      LogLine(reach == Reach::kRefused
                  ? target.text + " refused the bridge: wrong secret (see --secret-file and " +
                        kSecretVariable + "), or the bridge is connected to it already"
                  : "cannot reach " + target.text + ": nothing answered there; retrying");
    entry.lastLogged = reach;
    return reach;
  }
  for (const auto& signal : entry.signals)
    VXConnectSignal(appId, signal.first.c_str(), signal.second);
  if (!entry.signals.empty()) VXDisconnectSignal(appId, "", kBarrierSlot);
  {
    std::lock_guard<std::mutex> lock(mutex_);
    entry.appId = appId;
  }
  entry.lastLogged = Reach::kConnected;
  LogLine("connected to " + target.text + " (" + appId + ")" +
          (entry.signals.empty() ? "" : ", signals subscribed"));
  return Reach::kConnected;
}

}  // namespace vxbridge
