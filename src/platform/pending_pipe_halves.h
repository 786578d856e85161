// SPDX-License-Identifier: MIT
// The "in" halves that a lasting pipe listener holds while their clients
// open "out": bookkeeping only, the same on every system. The port owns the
// handles and closes whatever this hands back to it.
#ifndef VXBUS_PLATFORM_PENDING_PIPE_HALVES_H_
#define VXBUS_PLATFORM_PENDING_PIPE_HALVES_H_

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <vector>

namespace vxbus {
namespace platform {

template <typename Handle>
class PendingPipeHalves {
 public:
  using Clock = std::chrono::steady_clock;
  // As for the handshakes of a TCP listener: one client process may hold
  // 8 halves, all together at most 128, so that a process that opens "in"
  // again and again holds neither handles nor other clients' room.
  static constexpr std::size_t kMostPerClient = 8;
  static constexpr std::size_t kMost = 128;

  // False when the caps leave no room: the caller closes `half`.
  bool Add(Handle half, std::uint32_t client, Clock::time_point deadline) {
    const auto own = std::count_if(halves_.begin(), halves_.end(),
                                   [client](const Half& h) { return h.client == client; });
    if (halves_.size() >= kMost || static_cast<std::size_t>(own) >= kMostPerClient) return false;
    halves_.push_back(Half{half, client, deadline});
    return true;
  }

  // Takes out the oldest half of `client` that `alive` accepts; those it
  // refuses on the way are handed to `closed`. False when none is left.
  template <typename Alive>
  bool Take(std::uint32_t client, Alive alive, Handle* half, std::vector<Handle>* closed) {
    for (auto it = halves_.begin(); it != halves_.end();) {
      if (it->client != client) {
        ++it;
        continue;
      }
      const Handle found = it->handle;
      it = halves_.erase(it);
      if (alive(found)) {
        *half = found;
        return true;
      }
      closed->push_back(found);
    }
    return false;
  }

  // Hands every half past its deadline to `expired`; returns the
  // milliseconds to the next deadline, or -1 when none waits.
  std::int64_t TakeExpired(Clock::time_point now, std::vector<Handle>* expired) {
    std::int64_t next = -1;
    for (auto it = halves_.begin(); it != halves_.end();) {
      if (now >= it->deadline) {
        expired->push_back(it->handle);
        it = halves_.erase(it);
        continue;
      }
      const auto left = std::chrono::ceil<std::chrono::milliseconds>(it->deadline - now).count();
      if (next < 0 || left < next) next = left;
      ++it;
    }
    return next;
  }

  // Empties the table into `all`.
  void TakeAll(std::vector<Handle>* all) {
    for (const Half& h : halves_)
      all->push_back(h.handle);
    halves_.clear();
  }

  std::size_t Size() const { return halves_.size(); }

 private:
  struct Half {
    Handle handle;
    std::uint32_t client;
    Clock::time_point deadline;
  };
  std::deque<Half> halves_;  // in order of arrival
};

}  // namespace platform
}  // namespace vxbus

#endif  // VXBUS_PLATFORM_PENDING_PIPE_HALVES_H_
