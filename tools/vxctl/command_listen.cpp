// SPDX-License-Identifier: MIT
// listen: subscribe to signals of a peer and print every notification.
#include <atomic>
#include <iostream>
#include <mutex>
#include <vector>

#include "bus_client.h"
#include "commands.h"
#include "list_output.h"
#include "typed_value.h"
#include "wakeup.h"

namespace vxctl {
namespace {

// Our slots for the signals start here; slot N + i receives signal i.
constexpr std::uint32_t kFirstSignalSlot = 1000;

struct Listening {
  std::vector<std::string> signals;
  bool json = false;
  long limit = 0;
  std::atomic<long> seen{0};
  std::mutex peerMutex;  // the disconnect listener runs on a library thread
  std::string peer;
};
Listening g_listening;  // read by slot functions, which may outlive main's wait

_tag_VX_ERROR OnSignal(HVXPARAMLIST input, HVXPARAMLIST, VXSlotContext* context) {
  const std::string& signal = *static_cast<const std::string*>(context->userData);
  std::string error;
  if (g_listening.json) {
    std::string list = ListJson(input, error);
    if (list.empty()) list = "null";
    std::cout << "{\"signal\":" << JsonQuote(signal)
              << ",\"from\":" << JsonQuote(context->senderName) << ",\"list\":" << list << "}"
              << std::endl;
  } else {
    std::cout << "signal " << signal << " from " << context->senderName << std::endl;
    PrintList(std::cout, input, false, error);
  }
  if (!error.empty()) Complain("a notification of " + signal + " cannot be read: " + error);
  long seen = ++g_listening.seen;
  if (g_listening.limit && seen == g_listening.limit) Wake(kWakeDone);
  return VX_SUCCESS;
}

void OnDisconnect(const char* appId, const char*, std::int32_t, const char*) {
  std::lock_guard<std::mutex> lock(g_listening.peerMutex);
  if (g_listening.peer == appId) Wake(kWakeDisconnect);
}

}  // namespace

int RunListen(const Options& options) {
  if (options.operands.size() < 2) {
    Complain("listen wants TARGET SIGNAL...; see vxctl listen --help");
    return kExitUsage;
  }
  g_listening.signals.assign(options.operands.begin() + 1, options.operands.end());
  g_listening.json = options.json;
  g_listening.limit = options.count;
  std::string appId;
  int code = StartAndConnect(options, options.operands[0], Deadline(options.timeoutMs), appId);
  if (code != kExitOk) return code;
  {
    std::lock_guard<std::mutex> lock(g_listening.peerMutex);
    g_listening.peer = appId;
  }
  VXSetDisconnectListener(OnDisconnect);
  CatchStopSignals();
  {
    Interruptible subscribing("subscribing to the signals of " + appId);
    for (std::size_t i = 0; i < g_listening.signals.size() && code == kExitOk; ++i) {
      const auto slot = static_cast<std::uint32_t>(kFirstSignalSlot + i);
      VXRegisterSlot(slot, OnSignal, &g_listening.signals[i]);
      if (VXConnectSignal(appId.c_str(), g_listening.signals[i].c_str(), slot) != VX_SUCCESS) {
        Complain("cannot subscribe to " + g_listening.signals[i] + " of " + appId);
        code = kExitFailed;
      }
    }
    // Subscribing is one-way; this blocking request passes the same queues
    // behind it, so when it returns the owner has taken every subscription.
    // It unsubscribes a pair that was never subscribed: it changes nothing.
    if (code == kExitOk) VXDisconnectSignal(appId.c_str(), "", kFirstSignalSlot - 1);
  }
  if (code == kExitOk) {
    std::cerr << "vxctl: listening to " << appId << "; Ctrl-C stops" << std::endl;
    WakeReason why = WaitForWake(-1);
    if (why == kWakeDisconnect) {
      Complain(appId + " ended the session");
      code = kExitFailed;
    }
  }
  Leave(code);
}

}  // namespace vxctl
