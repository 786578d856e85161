// A short, bounded look before a thread goes to sleep on a hand-off.
#ifndef VXBUS_RUNTIME_BRIEF_SPIN_H_
#define VXBUS_RUNTIME_BRIEF_SPIN_H_

#include <chrono>
#include <thread>

namespace vxbus {

// How long a waiting thread keeps looking before it sleeps: about one round
// trip over loopback, so that a reply or the next frame of a stream costs no
// sleep and no wake-up.
constexpr std::chrono::microseconds kBriefSpin{50};

// Asks `ready` again and again, yielding the core in between so that the
// thread waited for can run, until it returns true or kBriefSpin has passed.
// Returns what `ready` said last; never blocks.
template <class Ready>
bool SpinBriefly(Ready ready) {
  const auto end = std::chrono::steady_clock::now() + kBriefSpin;
  for (;;) {
    if (ready()) return true;
    if (std::chrono::steady_clock::now() >= end) return false;
    std::this_thread::yield();
  }
}

}  // namespace vxbus

#endif  // VXBUS_RUNTIME_BRIEF_SPIN_H_
