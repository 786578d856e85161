// SPDX-License-Identifier: MIT
// Wakes vxctl's main thread: from Ctrl-C or SIGTERM, and from the library's
// threads when something the main thread waits for has happened. Or, while
// the main thread is blocked where no wake-up reaches it (inside a call of
// the library, reading the secret), ends vxctl at once on Ctrl-C or SIGTERM.
#ifndef VXCTL_WAKEUP_H_
#define VXCTL_WAKEUP_H_

#include <string>

namespace vxctl {

enum WakeReason : char {
  kWakeTimeout = 0,
  kWakeStop = 's',        // Ctrl-C or SIGTERM
  kWakeDisconnect = 'd',  // the peer's session ended
  kWakeDone = 'n',        // what we waited for arrived
  kWakeInput = 'i',       // the extra descriptor is readable
};

// Call first in main, before the library starts: SIGINT and SIGTERM are
// blocked in this thread and in every thread started later, and one thread of
// vxctl's own takes them with sigwait. From then on either ends the process
// at once with exit status 130 or 143 (128 + the signal's number) and the
// line "vxctl: interrupted" on standard error. Nothing runs down (no library
// stop, no destructors), so no library thread can touch freed state.
// SIGPIPE is ignored.
void BlockStopSignals();

// From now on a stop signal posts kWakeStop instead, for a main thread that
// waits in WaitForWake and stops in order; except inside an Interruptible.
void CatchStopSignals();

// While one lives, a stop signal ends the process as above, and the line
// says what was interrupted: "vxctl: interrupted while " + `what`. For
// waits that no wake-up reaches (inside a call of the library, reading the
// secret). Not nested; main thread only.
class Interruptible {
 public:
  explicit Interruptible(const std::string& what);
  ~Interruptible();
  Interruptible(const Interruptible&) = delete;
  Interruptible& operator=(const Interruptible&) = delete;
};

// Posts a reason; async-signal-safe, callable from any thread.
void Wake(WakeReason reason);

// Blocks for the next reason, up to `timeoutMs` (-1: no limit), and also
// returns kWakeInput when `inputFd` (if not -1) becomes readable.
WakeReason WaitForWake(int timeoutMs, int inputFd = -1);

}  // namespace vxctl

#endif  // VXCTL_WAKEUP_H_
