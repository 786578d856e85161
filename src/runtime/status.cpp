// SPDX-License-Identifier: MIT
#include "runtime/status.h"

#include "platform/error_text.h"

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

std::string StatusText(const Status& status) {
  std::string text = CauseText(status.cause);
  if (status.cause == Cause::kSystemError) {
    text += ' ';
    text += std::to_string(status.systemCode);
    const std::string words = platform::SystemErrorText(status.systemCode);
    if (!words.empty()) text += " (" + words + ")";
  }
  if (status.detail != nullptr) {
    text += ": ";
    text += status.detail;
  }
  return text;
}

}  // namespace vxbus
