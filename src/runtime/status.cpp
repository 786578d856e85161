// SPDX-License-Identifier: MIT
#include "runtime/status.h"

namespace vxbus {

const char* CauseText(Cause cause) {
  switch (cause) {
    case Cause::kOk:
      return "no failure";
    case Cause::kPeerClosed:
      return "peer closed the stream";
    case Cause::kTimedOut:
      return "time limit passed";
    case Cause::kSystemError:
      return "system error";
    case Cause::kBadInput:
      return "peer sent bytes that break the protocol";
    case Cause::kOutOfMemory:
      return "out of memory";
    case Cause::kLocalStop:
      return "local stop";
  }
  return "unknown cause";
}

}  // namespace vxbus
