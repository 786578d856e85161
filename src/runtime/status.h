// SPDX-License-Identifier: MIT
// The one way a failure travels above the platform layer: what went wrong,
// and the system's own code when the system said so. A status is small and
// copied by value; the designed return values (-1, 0, null handles) stay at
// the edges, and a status rides beside them to the place that logs the end.
#ifndef VXBUS_RUNTIME_STATUS_H_
#define VXBUS_RUNTIME_STATUS_H_

namespace vxbus {

enum class Cause {
  kOk,             // nothing went wrong
  kPeerClosed,     // the far end ended its stream in order
  kTimedOut,       // a time limit passed first
  kSystemError,    // the system refused; `systemCode` says what
  kBadInput,       // bytes from the peer broke a rule or a bound
  kOutOfMemory,    // the private heap refused
  kLocalStop,      // this process asked to stop
};

struct Status {
  Cause cause = Cause::kOk;
  int systemCode = 0;  // errno or GetLastError/WSAGetLastError; for log lines only

  bool ok() const { return cause == Cause::kOk; }
  static Status Ok() { return {}; }
  static Status Of(Cause cause, int systemCode = 0) { return Status{cause, systemCode}; }
};

// A short lower-case text for a log line, e.g. "peer closed the stream".
const char* CauseText(Cause cause);

}  // namespace vxbus

#endif  // VXBUS_RUNTIME_STATUS_H_
