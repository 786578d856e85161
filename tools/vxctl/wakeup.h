// Wakes vxctl's main thread: from Ctrl-C or SIGTERM, and from the library's
// threads when something the main thread waits for has happened.
#ifndef VXCTL_WAKEUP_H_
#define VXCTL_WAKEUP_H_

namespace vxctl {

enum WakeReason : char {
  kWakeTimeout = 0,
  kWakeStop = 's',        // Ctrl-C or SIGTERM
  kWakeDisconnect = 'd',  // the peer's session ended
  kWakeDone = 'n',        // what we waited for arrived
  kWakeInput = 'i',       // the extra descriptor is readable
};

// Call before the library starts, so that its threads inherit a mask in which
// SIGINT and SIGTERM are blocked; only the main thread then takes them.
void BlockStopSignals();

// On the main thread after the library started: SIGINT and SIGTERM post
// kWakeStop from now on.
void CatchStopSignals();

// Posts a reason; async-signal-safe, callable from any thread.
void Wake(WakeReason reason);

// Blocks for the next reason, up to `timeoutMs` (-1: no limit), and also
// returns kWakeInput when `inputFd` (if not -1) becomes readable.
WakeReason WaitForWake(int timeoutMs, int inputFd = -1);

}  // namespace vxctl

#endif  // VXCTL_WAKEUP_H_
