// SPDX-License-Identifier: MIT
#include "transport/handshake_threads.h"

#include <algorithm>
#include <map>
#include <system_error>
#include <utility>

namespace vxbus {

std::size_t HandshakeThreads::CapForHandleLimit(std::size_t handleLimit) {
  return std::min(kMostRunning, std::max(kFewestRunning, handleLimit / 4));
}

HandshakeThreads::HandshakeThreads(std::size_t maxRunning) : mostAtOnce_(maxRunning) {}

HandshakeThreads::~HandshakeThreads() {
  std::list<Handshake> ending;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    for (Handshake& handshake : underWay_)
      if (!handshake.done) CutOff(handshake);
    ending.swap(underWay_);
  }
  // Joined without the lock: a thread takes it as its last step.
  for (Handshake& handshake : ending)
    handshake.thread.join();
}

void HandshakeThreads::JoinEnded() {
  // A handshake marks itself done as its last step under the mutex, so the
  // join below waits for no more than the thread's return.
  for (auto it = underWay_.begin(); it != underWay_.end();) {
    if (!it->done) {
      ++it;
      continue;
    }
    it->thread.join();
    it = underWay_.erase(it);
  }
}

// Ends every wait for data of the exchange: its next read fails, and the
// handshake ends as it would on a silent peer.
void HandshakeThreads::CutOff(Handshake& handshake) {
  if (handshake.cutOff) return;
  handshake.cutOff = true;
  if (handshake.channel.IsValid()) handshake.channel->InterruptReads();
}

std::size_t HandshakeThreads::Counted() const {
  return static_cast<std::size_t>(std::count_if(
      underWay_.begin(), underWay_.end(), [](const Handshake& h) { return !h.done && !h.cutOff; }));
}

std::size_t HandshakeThreads::CountedFrom(std::uint32_t source) const {
  return static_cast<std::size_t>(std::count_if(
      underWay_.begin(), underWay_.end(),
      [source](const Handshake& h) { return !h.done && !h.cutOff && h.source == source; }));
}

std::list<HandshakeThreads::Handshake>::iterator HandshakeThreads::RoomMaker(
    std::uint32_t newcomer) {
  std::map<std::uint32_t, std::size_t> held;
  for (const Handshake& h : underWay_)
    if (!h.done && !h.cutOff) ++held[h.source];
  auto most = std::max_element(held.begin(), held.end(),
                               [](const auto& a, const auto& b) { return a.second < b.second; });
  if (most == held.end() || most->second <= held[newcomer] + 1) return underWay_.end();
  // The list is in order of arrival, so the first one found is the oldest.
  return std::find_if(underWay_.begin(), underWay_.end(), [&most](const Handshake& h) {
    return !h.done && !h.cutOff && h.source == most->first;
  });
}

bool HandshakeThreads::HasRoom(std::uint32_t source) {
  std::lock_guard<std::mutex> lock(mutex_);
  JoinEnded();
  if (CountedFrom(source) >= kMostPerSource) return false;
  return Counted() < mostAtOnce_ || RoomMaker(source) != underWay_.end();
}

bool HandshakeThreads::Run(std::uint32_t source, const ChannelRef& channel, std::int64_t deadlineMs,
                           std::function<void()> handshake) {
  std::lock_guard<std::mutex> lock(mutex_);
  JoinEnded();
  if (CountedFrom(source) >= kMostPerSource) return false;
  if (Counted() >= mostAtOnce_) {
    auto oldest = RoomMaker(source);
    if (oldest == underWay_.end()) return false;
    CutOff(*oldest);
  }
  auto slot = underWay_.emplace(underWay_.end());
  slot->source = source;
  slot->channel = channel;
  slot->deadline = Clock::now() + std::chrono::milliseconds(std::max<std::int64_t>(deadlineMs, 1));
  slot->work = std::move(handshake);
  try {
    slot->thread = std::thread([this, slot] {
      {
        // What the work holds (the accepted channel) goes with it, not
        // when the slot is reaped: a refused peer sees its close at once.
        std::function<void()> work = std::move(slot->work);
        work();
      }
      std::lock_guard<std::mutex> done(mutex_);
      slot->channel.Reset();
      slot->done = true;
    });
  } catch (const std::system_error&) {
    underWay_.erase(slot);
    return false;
  }
  return true;
}

std::int64_t HandshakeThreads::CutOffOverdue() {
  std::lock_guard<std::mutex> lock(mutex_);
  JoinEnded();
  const Clock::time_point now = Clock::now();
  std::int64_t next = -1;
  for (Handshake& h : underWay_) {
    if (h.done || h.cutOff) continue;
    if (now >= h.deadline) {
      CutOff(h);
      continue;
    }
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(h.deadline - now).count();
    if (next < 0 || left < next) next = left;
  }
  return next;
}

}  // namespace vxbus
