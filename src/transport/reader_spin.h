// SPDX-License-Identifier: MIT
// How long a channel's reader looks for bytes before it sleeps in the system.
// A reply or the next frame that comes within about one round trip then
// costs the reader no wake-up, which on a machine with idle cores is most of
// a small call's time. The look is bounded by the process's spin budget
// (VXBUS_SPIN_US; 0 switches it off) and backs off on a quiet channel: a
// look that found nothing and a sleep longer than the budget behind it halve
// the next look, down to none; a sleep that ended within the budget earns the
// whole budget back, as a look would have caught its bytes.
#ifndef VXBUS_TRANSPORT_READER_SPIN_H_
#define VXBUS_TRANSPORT_READER_SPIN_H_

#include <chrono>

namespace vxbus {

// One per reading side; the reader's own, not shared between threads.
class ReaderSpin {
 public:
  using Duration = std::chrono::steady_clock::duration;

  // `full` is the most a look takes; the process's spin budget by default.
  ReaderSpin();
  explicit ReaderSpin(std::chrono::microseconds full);

  // The look for the wait about to start; zero: sleep at once.
  std::chrono::microseconds Look() const { return look_; }
  // The look found bytes: the next gets as long.
  void Found() { look_ = full_; }
  // The look found nothing and the reader slept `slept` for its bytes.
  void Slept(Duration slept);

 private:
  std::chrono::microseconds full_;
  std::chrono::microseconds look_;
};

}  // namespace vxbus

#endif  // VXBUS_TRANSPORT_READER_SPIN_H_
