// SPDX-License-Identifier: MIT
// The one way a failure travels above the platform layer: what went wrong,
// the system's own code when the system said so, and for input that broke a
// rule, which one. A status is small and copied by value; the designed
// return values (-1, 0, null handles) stay at the edges, and a status rides
// beside them to the place that logs the end.
#ifndef VXBUS_RUNTIME_STATUS_H_
#define VXBUS_RUNTIME_STATUS_H_

#include <string>

namespace vxbus {

enum class Cause {
  kOk,           // nothing went wrong
  kPeerClosed,   // the far end ended its stream in order
  kTimedOut,     // a time limit passed first
  kSystemError,  // the system refused; `systemCode` says what
  kBadInput,     // bytes from the peer broke a rule or a bound; `detail` says which
  kOutOfMemory,  // the private heap refused
  kLocalStop,    // this process asked to stop
};

struct Status {
  Cause cause = Cause::kOk;
  int systemCode = 0;  // errno or GetLastError/WSAGetLastError; for log lines only
  // A text with static storage (never owned, never freed), or null.
  const char* detail = nullptr;

  bool ok() const { return cause == Cause::kOk; }
  static Status Ok() { return {}; }
  static Status Of(Cause cause, int systemCode = 0) { return Status{cause, systemCode, nullptr}; }
  // Input from the peer that broke the rule named by `rule`, a static text.
  static Status BadInput(const char* rule) { return Status{Cause::kBadInput, 0, rule}; }
  static Status OutOfMemory() { return Status{Cause::kOutOfMemory, 0, nullptr}; }
};

// A short lower-case text for a log line, e.g. "peer closed the stream".
const char* CauseText(Cause cause);

// The whole of a status for a log line: the cause, then the system's code
// and words, or the rule that was broken, e.g. "system error 104 (Connection
// reset by peer)" or "peer sent bytes that break the protocol: list nesting
// deeper than 256".
std::string StatusText(const Status& status);

}  // namespace vxbus

#endif  // VXBUS_RUNTIME_STATUS_H_
