// SPDX-License-Identifier: MIT
#include "transport/guess_backoff.h"

#include <algorithm>

#include "runtime/log.h"

namespace vxbus {

namespace {

std::int64_t RefusalMs(std::uint32_t failures) {
  std::int64_t ms = GuessBackoff::kFirstRefusalMs;
  for (std::uint32_t extra = GuessBackoff::kFreeFailures + 1;
       extra < failures && ms < GuessBackoff::kLongestRefusalMs; ++extra)
    ms *= 2;
  return std::min(ms, GuessBackoff::kLongestRefusalMs);
}

}  // namespace

bool GuessBackoff::Refusing(const std::string& source) {
  std::lock_guard<std::mutex> lock(mutex_);
  auto found = sources_.find(source);
  if (found == sources_.end() || Clock::now() >= found->second.refusedUntil) return false;
  ++found->second.refused;
  return true;
}

bool GuessBackoff::BeginCheck(const std::string& source) {
  std::lock_guard<std::mutex> lock(mutex_);
  const Clock::time_point now = Clock::now();
  auto found = sources_.find(source);
  if (found == sources_.end()) {
    if (sources_.size() >= kMostSources) MakeRoom(now);
    found = sources_.emplace(source, Source()).first;
  }
  Source& entry = found->second;
  if (now < entry.refusedUntil || (entry.failures > 0 && entry.checking > 0)) {
    ++entry.refused;
    return false;
  }
  ++entry.checking;
  return true;
}

void GuessBackoff::EndCheck(const std::string& source, bool matched) {
  std::int64_t refusalMs = 0;
  std::uint32_t failures = 0;
  std::uint64_t refused = 0;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    auto found = sources_.find(source);
    if (found == sources_.end()) return;
    Source& entry = found->second;
    if (entry.checking > 0) --entry.checking;
    if (matched) {
      if (entry.checking == 0)
        sources_.erase(found);
      else
        entry.failures = 0;
      return;
    }
    const Clock::time_point now = Clock::now();
    entry.lastFailure = now;
    failures = ++entry.failures;
    if (failures <= kFreeFailures) return;
    refusalMs = RefusalMs(failures);
    entry.refusedUntil = now + std::chrono::milliseconds(refusalMs);
    refused = entry.refused;
    entry.refused = 0;
  }
  VX_LOG(kLogWarning, "Wrong secrets from '", source, "': ", failures,
         " in a row; refusing it for ", refusalMs, " ms (", refused,
         " connections refused since the last such line)");
}

// Forgets the sources quiet for long; if that frees nothing, the one whose
// last wrong answer is oldest. Sources with an answer being compared stay.
void GuessBackoff::MakeRoom(Clock::time_point now) {
  auto oldest = sources_.end();
  for (auto it = sources_.begin(); it != sources_.end();) {
    const Source& entry = it->second;
    if (entry.checking == 0 && now >= entry.refusedUntil &&
        now - entry.lastFailure >= std::chrono::milliseconds(kForgetAfterMs)) {
      it = sources_.erase(it);
      continue;
    }
    if (entry.checking == 0 &&
        (oldest == sources_.end() || entry.lastFailure < oldest->second.lastFailure))
      oldest = it;
    ++it;
  }
  if (sources_.size() >= kMostSources && oldest != sources_.end()) sources_.erase(oldest);
}

GuessBackoff& SecretGuessBackoff() {
  static GuessBackoff* table = new GuessBackoff;  // never destroyed: threads may outlive exit
  return *table;
}

}  // namespace vxbus
