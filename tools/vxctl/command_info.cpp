// SPDX-License-Identifier: MIT
// info: a peer's bus info (what VXGetBusInfo gives there), asked for on the
// slot where the peer serves it, as a table; --watch asks again each second.
#include <unistd.h>

#include <iostream>
#include <mutex>

#include "bus_client.h"
#include "bus_info_table.h"
#include "commands.h"
#include "list_bridge.h"
#include "typed_value.h"
#include "wakeup.h"

namespace vxctl {
namespace {

// How long one answer may take when --timeout is not given.
constexpr int kDefaultAnswerWaitMs = 10000;
constexpr int kRefreshMs = 1000;

// The answer to the last request, filled on a library thread.
struct Answer {
  std::mutex mutex;
  bool replied = false;  // false: the session ended or the time ran out
  ListPtr list;
  std::string error;  // why a reply could not be read
};
Answer g_answer;  // read by the callback, which may outlive main's wait

_tag_VX_ERROR OnAnswer(const char*, std::uint32_t, HVXPARAMLIST, HVXPARAMLIST output, void*) {
  {
    std::lock_guard<std::mutex> lock(g_answer.mutex);
    g_answer.replied = output != VX_INVALID_PARAMLIST;
    g_answer.list.reset();
    g_answer.error.clear();
    if (g_answer.replied) g_answer.list = FromHandle(output, g_answer.error);
  }
  Wake(kWakeDone);
  return VX_SUCCESS;
}

// Asks once and waits for the answer; a stop signal (while watching) gives
// kWakeStop. kWakeDone once g_answer holds the answer.
WakeReason Ask(const std::string& appId, std::uint32_t slot, HVXPARAMLIST request, int waitMs) {
  if (VXNotifyWithTimeout(appId.c_str(), slot, request, OnAnswer, nullptr, waitMs) != VX_SUCCESS) {
    std::lock_guard<std::mutex> lock(g_answer.mutex);
    g_answer.replied = false;
    return kWakeDone;
  }
  // The callback comes at the latest at the deadline; the margin only keeps
  // a lost one from holding us for ever.
  const Deadline margin(waitMs + 5000);
  for (;;) {
    WakeReason why = WaitForWake(margin.LeftMs());
    if (why == kWakeDone || why == kWakeTimeout || why == kWakeStop) return why;
  }
}

// Whether `list` has any field of what VXGetBusInfo gives, so that a table
// of question marks is not printed for some other slot's answer.
bool LooksLikeBusInfo(const List& list) {
  for (const auto& p : list.params)
    if (p.first == "appId" || p.first == "slots" || p.first == "sessions") return true;
  return false;
}

// Prints the answer that Ask waited for, or says why there is none; the
// exit code.
int Show(const Options& options, const std::string& what, WakeReason why, const Deadline& answerBy,
         const std::string& limit, bool clearScreen) {
  std::lock_guard<std::mutex> lock(g_answer.mutex);
  if (why == kWakeTimeout || (!g_answer.replied && answerBy.Passed())) {
    Complain("timed out: no bus info from " + what + " within " + limit);
    return kExitTimedOut;
  }
  if (!g_answer.replied) {
    Complain("the session ended before the bus info from " + what + " came");
    return kExitFailed;
  }
  if (!g_answer.list) {
    Complain("the bus info from " + what + " cannot be read: " + g_answer.error);
    return kExitFailed;
  }
  if (g_answer.list->params.empty()) {
    Complain(what + " gave an empty reply: its bus info is not served there (vxctl serve " +
             "serves it on " + std::to_string(kBusInfoSlot) + "; see --slot)");
    return kExitEmptyReply;
  }
  if (!options.json && !LooksLikeBusInfo(*g_answer.list)) {
    Complain(what +
             " answered with a list that is not bus info (no appId, slots or sessions); "
             "see --slot");
    return kExitFailed;
  }
  if (options.json)
    std::cout << ListToJson(*g_answer.list) << std::endl;
  else
    std::cout << (clearScreen ? "\033[H\033[2J" : "") << BusInfoTable(*g_answer.list) << std::flush;
  return kExitOk;
}

}  // namespace

int RunInfo(const Options& options) {
  if (options.operands.size() != 1) {
    Complain("info wants TARGET; see vxctl info --help");
    return kExitUsage;
  }
  const Deadline deadline(options.timeoutMs);
  std::string appId;
  int code = StartAndConnect(options, options.operands[0], deadline, appId);
  if (code != kExitOk) return code;
  const std::string what = "slot " + std::to_string(options.infoSlot) + " of " + appId;
  const int answerMs = deadline.Limited() ? options.timeoutMs : kDefaultAnswerWaitMs;
  const std::string limit =
      deadline.Limited() ? "--timeout " + deadline.Text() : Deadline(answerMs).Text();
  const bool clearScreen = options.watch && !options.json && isatty(STDOUT_FILENO);
  HVXPARAMLIST request = VXCreateParamList();  // unchanged while a request is out
  if (options.watch) {
    CatchStopSignals();
    std::cerr << "vxctl: watching " << appId << "; Ctrl-C stops" << std::endl;
  }
  for (bool first = true;; first = false) {
    // The first answer shares the deadline with the connect; each later one
    // has --timeout of its own.
    const int waitMs = first && deadline.Limited() ? deadline.LeftMs() : answerMs;
    const Deadline answerBy(waitMs);
    WakeReason why = kWakeTimeout;
    if (options.watch) {
      why = Ask(appId, options.infoSlot, request, waitMs);
    } else {
      Interruptible asking("asking " + what + " for its bus info");
      why = Ask(appId, options.infoSlot, request, waitMs);
    }
    if (why == kWakeStop) break;
    code = Show(options, what, why, answerBy, limit, clearScreen);
    if (code != kExitOk || !options.watch) break;
    const Deadline refresh(kRefreshMs);
    while ((why = WaitForWake(refresh.LeftMs())) != kWakeTimeout && why != kWakeStop) {
    }
    if (why == kWakeStop) break;
  }
  Leave(code);
}

}  // namespace vxctl
