// SPDX-License-Identifier: MIT
// call and notify: one request to one slot of a peer.
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <fstream>
#include <iostream>

#include "bus_client.h"
#include "commands.h"
#include "deadline.h"
#include "list_bridge.h"
#include "list_output.h"
#include "stream_file.h"
#include "wakeup.h"

namespace vxctl {
namespace {

// How long notify waits for the word that its notification arrived when
// --timeout is not given.
constexpr int kDefaultNotifyWaitMs = 10000;

// Set on a library thread when the answer to a notification came without a
// reply: the session ended or the time ran out. A process-wide flag: the
// answer may still come after main stopped waiting.
std::atomic<bool> g_notifyUnanswered{false};

_tag_VX_ERROR OnNotifyAnswered(const char*, std::uint32_t, HVXPARAMLIST, HVXPARAMLIST output,
                               void*) {
  g_notifyUnanswered = output == VX_INVALID_PARAMLIST;
  Wake(kWakeDone);
  return VX_SUCCESS;
}

struct Request {
  std::string appId;
  std::uint32_t slot = 0;
  HVXPARAMLIST list = VX_INVALID_PARAMLIST;
};

// Parses the operands, connects, and fills `request`; kExitOk or why not.
int Prepare(const Options& options, const Deadline& deadline, Request& request) {
  if (options.operands.size() < 2) {
    Complain(options.command + " wants TARGET SLOT [ARGS...]; see vxctl " + options.command +
             " --help");
    return kExitUsage;
  }
  List input;
  if (!ParseSlot(options.operands[1], request.slot) ||
      !BuildInputList(options, {options.operands.begin() + 2, options.operands.end()}, input))
    return kExitUsage;
  int code = StartAndConnect(options, options.operands[0], deadline, request.appId);
  if (code == kExitOk) request.list = ToHandle(input);
  return code;
}

bool Save(const std::string& path, HVXPARAMLIST list) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  const std::string bytes = SerializeStream(list);
  out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  out.close();
  if (!out) Complain("cannot write '" + path + "'");
  return static_cast<bool>(out);
}

}  // namespace

bool ParseSlot(const std::string& text, std::uint32_t& slot) {
  char* end = nullptr;
  unsigned long long n = std::strtoull(text.c_str(), &end, 0);
  if (text.empty() || text[0] == '-' || *end != '\0' || n > 0xFFFFFFFFull) {
    Complain("slot '" + text + "': expected a number from 0 to 4294967295");
    return false;
  }
  slot = static_cast<std::uint32_t>(n);
  return true;
}

bool BuildInputList(const Options& options, const std::vector<std::string>& operands, List& out) {
  std::string error;
  std::vector<std::string> from = operands;
  if (options.json && from.empty() && !isatty(STDIN_FILENO)) from.push_back("@-");
  if (ListFromOperands(from, options.maxReadSize, out, error)) return true;
  Complain(error);
  return false;
}

int RunCall(const Options& options) {
  const Deadline deadline(options.timeoutMs);
  Request request;
  int code = Prepare(options, deadline, request);
  if (code != kExitOk) return code;
  const std::string what = "slot " + std::to_string(request.slot) + " of " + request.appId;
  HVXPARAMLIST reply = VX_INVALID_PARAMLIST;
  {
    Interruptible calling("calling " + what);
    reply = deadline.Limited() ? VXCallWithTimeout(request.appId.c_str(), request.slot,
                                                   request.list, deadline.LeftMs())
                               : VXCall(request.appId.c_str(), request.slot, request.list);
  }
  VXCloseHandle(request.list);
  std::string error;
  if (reply == VX_INVALID_PARAMLIST && deadline.Passed()) {
    Complain("timed out: no reply from " + what + " within --timeout " + deadline.Text());
    code = kExitTimedOut;
  } else if (reply == VX_INVALID_PARAMLIST) {
    Complain("the session with " + request.appId + " ended before the reply came");
    code = kExitFailed;
  } else if (!PrintList(std::cout, reply, options.json, error)) {
    Complain("the reply cannot be read: " + error);
    code = kExitFailed;
  } else if (!options.save.empty() && !Save(options.save, reply)) {
    code = kExitFailed;
  } else if (VXGetHandleSize(reply) == 0 && !options.allowEmpty) {
    Complain(what + " gave an empty reply: it may have no such slot (--allow-empty accepts it)");
    code = kExitEmptyReply;
  }
  VXCloseHandle(reply);
  Leave(code);
}

int RunNotify(const Options& options) {
  const Deadline deadline(options.timeoutMs);
  Request request;
  int code = Prepare(options, deadline, request);
  if (code != kExitOk) return code;
  const std::string what = "slot " + std::to_string(request.slot) + " of " + request.appId;
  // The peer answers a notification that has a callback; waiting for that
  // answer tells us it arrived before we disconnect. The library runs the
  // callback once, without a reply when the time runs out.
  const int waitMs = deadline.Limited() ? deadline.LeftMs() : kDefaultNotifyWaitMs;
  const Deadline waiting(waitMs);
  _tag_VX_ERROR sent = VXNotifyWithTimeout(request.appId.c_str(), request.slot, request.list,
                                           OnNotifyAnswered, nullptr, waitMs);
  WakeReason why = kWakeTimeout;
  if (sent == VX_SUCCESS) {
    Interruptible notifying("notifying " + what);
    // The callback comes at the latest at the deadline; the margin only
    // keeps a lost one from holding us for ever.
    const Deadline margin(waitMs + 5000);
    while ((why = WaitForWake(margin.LeftMs())) != kWakeDone && why != kWakeTimeout) {
    }
  }
  const bool timedOut = why == kWakeTimeout || (g_notifyUnanswered && waiting.Passed());
  if (sent != VX_SUCCESS) {
    Complain("the notification to " + what + " was not sent: " + VXErrorText(sent));
    code = kExitFailed;
  } else if (!timedOut && g_notifyUnanswered) {
    Complain("the session with " + request.appId + " ended before the notification arrived");
    code = kExitFailed;
  } else if (timedOut) {
    Complain("timed out: no word from " + what + " within " +
             (deadline.Limited() ? "--timeout " + deadline.Text() : waiting.Text()) +
             " that the notification arrived");
    code = kExitTimedOut;
  }
  // Its input list stays unchanged until the callback has run.
  if (why == kWakeDone) VXCloseHandle(request.list);
  Leave(code);
}

}  // namespace vxctl
