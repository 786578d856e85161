// SPDX-License-Identifier: MIT
// A short, bounded look before a thread goes to sleep on a hand-off.
#ifndef VXBUS_RUNTIME_BRIEF_SPIN_H_
#define VXBUS_RUNTIME_BRIEF_SPIN_H_

#include <chrono>
#include <cstdint>
#include <thread>

namespace vxbus {

// How long a waiting thread keeps looking before it sleeps unless told
// otherwise: about one round trip over loopback, so that a reply or the next
// frame of a stream costs no sleep and no wake-up.
constexpr std::chrono::microseconds kBriefSpin{50};
// The most that VXBUS_SPIN_US may ask for; a larger value is cut to it.
constexpr std::chrono::microseconds kLongestSpin{10000};

// The spin of this process: VXBUS_SPIN_US in whole microseconds when it is
// set to a number, else kBriefSpin. 0 switches spinning off, for users who
// prefer low CPU to low latency. Read once, at the first call.
std::chrono::microseconds BriefSpinBudget();

// Reads a spin setting's text: whole microseconds, at most kLongestSpin;
// anything that is not a number gives kBriefSpin.
std::chrono::microseconds ParseSpinSetting(const char* text);

// Asks `ready` again and again, yielding the core in between so that the
// thread waited for can run, until it returns true or `budget` has passed.
// With no budget it asks once. Returns what `ready` said last; never blocks.
template <class Ready>
bool SpinFor(std::chrono::microseconds budget, Ready ready) {
  if (budget.count() <= 0) return ready();
  const auto end = std::chrono::steady_clock::now() + budget;
  for (;;) {
    if (ready()) return true;
    if (std::chrono::steady_clock::now() >= end) return false;
    std::this_thread::yield();
  }
}

// SpinFor with the spin budget of this process.
template <class Ready>
bool SpinBriefly(Ready ready) {
  return SpinFor(BriefSpinBudget(), ready);
}

}  // namespace vxbus

#endif  // VXBUS_RUNTIME_BRIEF_SPIN_H_
