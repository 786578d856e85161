// call and notify: one request to one slot of a peer.
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <fstream>
#include <iostream>

#include "bus_client.h"
#include "commands.h"
#include "list_bridge.h"
#include "list_output.h"
#include "stream_file.h"
#include "wakeup.h"

namespace vxctl {
namespace {

// Set on a library thread when the answer to a notification says that the
// session ended. A process-wide flag: a late answer may still come after main
// stopped waiting.
std::atomic<bool> g_notifySessionEnded{false};

_tag_VX_ERROR OnNotifyAnswered(const char*, std::uint32_t, HVXPARAMLIST, HVXPARAMLIST output,
                               void*) {
  g_notifySessionEnded = output == VX_INVALID_PARAMLIST;
  Wake(kWakeDone);
  return VX_SUCCESS;
}

struct Request {
  std::string appId;
  std::uint32_t slot = 0;
  HVXPARAMLIST list = VX_INVALID_PARAMLIST;
};

// Parses the operands, connects, and fills `request`; kExitOk or why not.
int Prepare(const Options& options, Request& request) {
  if (options.operands.size() < 2) {
    Complain(options.command + " wants TARGET SLOT [ARGS...]; see vxctl " + options.command +
             " --help");
    return kExitUsage;
  }
  List input;
  if (!ParseSlot(options.operands[1], request.slot) ||
      !BuildInputList(options, {options.operands.begin() + 2, options.operands.end()}, input))
    return kExitUsage;
  int code = StartAndConnect(options, options.operands[0], request.appId);
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
  Request request;
  int code = Prepare(options, request);
  if (code != kExitOk) return code;
  HVXPARAMLIST reply = VX_INVALID_PARAMLIST;
  {
    Interruptible calling("calling slot " + std::to_string(request.slot) + " of " + request.appId);
    reply = VXCall(request.appId.c_str(), request.slot, request.list);
  }
  VXCloseHandle(request.list);
  std::string error;
  if (reply == VX_INVALID_PARAMLIST) {
    Complain("the session with " + request.appId + " ended before the reply came");
    code = kExitFailed;
  } else if (!PrintList(std::cout, reply, options.json, error)) {
    Complain("the reply cannot be read: " + error);
    code = kExitFailed;
  } else if (!options.save.empty() && !Save(options.save, reply)) {
    code = kExitFailed;
  } else if (VXGetHandleSize(reply) == 0 && !options.allowEmpty) {
    Complain("slot " + std::to_string(request.slot) + " of " + request.appId +
             " gave an empty reply: it may have no such slot (--allow-empty accepts it)");
    code = kExitEmptyReply;
  }
  VXCloseHandle(reply);
  Leave(code);
}

int RunNotify(const Options& options) {
  Request request;
  int code = Prepare(options, request);
  if (code != kExitOk) return code;
  // The peer answers a notification that has a callback; waiting for that
  // answer tells us it arrived before we disconnect.
  _tag_VX_ERROR sent =
      VXNotify(request.appId.c_str(), request.slot, request.list, OnNotifyAnswered, nullptr);
  VXCloseHandle(request.list);
  WakeReason why = kWakeTimeout;
  if (sent == VX_SUCCESS) {
    Interruptible notifying("notifying slot " + std::to_string(request.slot) + " of " +
                            request.appId);
    why = WaitForWake(options.timeoutSeconds * 1000);
  }
  if (sent != VX_SUCCESS || (why == kWakeDone && g_notifySessionEnded)) {
    Complain("the session with " + request.appId + " ended before the notification arrived");
    code = kExitFailed;
  } else if (why == kWakeTimeout) {
    Complain("no word from " + request.appId + " within " + std::to_string(options.timeoutSeconds) +
             " s that the notification arrived");
    code = kExitFailed;
  }
  Leave(code);
}

}  // namespace vxctl
