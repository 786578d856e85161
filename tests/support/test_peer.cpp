// SPDX-License-Identifier: MIT
// A second application for tests, driven line by line over standard input
// (the verbs of Command below) and reporting what happens to it on standard
// output. It uses only the exported interface of the shared library, as any
// application would. Its options are read in main.
#include <algorithm>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <map>
#include <mutex>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "support/process_resources.h"
#include "support/wait.h"
#include "vxbus.h"

namespace {

std::mutex g_outputMutex;
std::string g_ownAppId;

void Say(const std::string& line) {
  std::lock_guard<std::mutex> lock(g_outputMutex);
  std::printf("%s\n", line.c_str());
  std::fflush(stdout);
}

std::string Text(const char* s) {
  return s ? s : "(null)";
}

std::vector<unsigned char> FromHex(const std::string& hex) {
  std::vector<unsigned char> bytes;
  for (std::size_t i = 0; i + 1 < hex.size(); i += 2)
    bytes.push_back(static_cast<unsigned char>(std::stoi(hex.substr(i, 2), nullptr, 16)));
  return bytes;
}

vxbus::testing::Signal g_listening;
bool g_quiet = false;  // set before the library starts, read by its threads

void LogSink(std::uint32_t level, std::uint32_t, const char* text) {
  if (!g_quiet) Say("log " + std::to_string(level) + " " + text);
  if (std::strncmp(text, "listen for incoming connection on", 33) == 0) g_listening.Raise();
}

void OnConnect(const char* local, const char* remote, const char* appId, const char* host,
               std::int32_t port, const char* name) {
  Say("connected " + Text(appId) + " " + Text(host) + " " + std::to_string(port) + " " +
      Text(name) + " " + Text(local) + " " + Text(remote));
}
void OnDisconnect(const char* appId, const char*, std::int32_t, const char*) {
  Say("disconnected " + Text(appId));
}
void OnAuthFailed(const char* local, const char* remote, const char* appId) {
  Say("authfailed " + Text(local) + " " + Text(remote) + " " + Text(appId));
}

// 1: echoes the input and says who served it.
_tag_VX_ERROR Echo(HVXPARAMLIST input, HVXPARAMLIST output, VXSlotContext*) {
  VXCopyHandle(input, output);
  VXSetStringValue(output, "servedBy", g_ownAppId.c_str());
  return VX_SUCCESS;
}

// 2: never answers while the process lives.
_tag_VX_ERROR Block(HVXPARAMLIST, HVXPARAMLIST, VXSlotContext*) {
  Say("blocking");
  for (;;)
    std::this_thread::sleep_for(std::chrono::hours(1));
}

// 3: calls slot 1 of the application named in "target" and returns its reply.
_tag_VX_ERROR Forward(HVXPARAMLIST input, HVXPARAMLIST output, VXSlotContext*) {
  HVXPARAMLIST reply = VXCall(VXGetStringValue(input, "target"), 1, input);
  VXSetHandleValue(output, "reply", reply);
  VXCloseHandle(reply);
  return VX_SUCCESS;
}

// 6: reports what a notification looked like on arrival.
_tag_VX_ERROR Record(HVXPARAMLIST input, HVXPARAMLIST output, VXSlotContext* context) {
  Say(std::string("notified from ") + context->senderName + " output=" +
      (output.value ? "list" : "null") + " count=" + std::to_string(VXGetParamCount(input)));
  return VX_SUCCESS;
}

// 8: a slow slot: each run waits until the command "release" came (at most
// a minute, so that a forgotten release ends no run), and the first says so.
// What peers send to it meanwhile piles up in this process.
vxbus::testing::Signal g_released;
_tag_VX_ERROR Hold(HVXPARAMLIST, HVXPARAMLIST output, VXSlotContext*) {
  if (!g_released.WaitFor(std::chrono::milliseconds(0))) Say("holding");
  g_released.WaitFor(std::chrono::minutes(1));
  if (output.value) VXSetStringValue(output, "servedBy", "hold");
  return VX_SUCCESS;
}

// Completions of notifications that want a reply; their result is not told.
_tag_VX_ERROR IgnoreCompletion(const char*, std::uint32_t, HVXPARAMLIST, HVXPARAMLIST, void*) {
  return VX_SUCCESS;
}

constexpr int kExitInSlotCode = 7;

// 7: ends the process from inside the slot, without VXShutdown.
_tag_VX_ERROR ExitInSlot(HVXPARAMLIST, HVXPARAMLIST, VXSlotContext*) {
  std::exit(kExitInSlotCode);
}

void Command(const std::string& line) {
  std::istringstream in(line);
  auto word = [&in] {  // the command's next word, empty when there is none
    std::string next;
    in >> next;
    return next;
  };
  auto number = [&word] { return static_cast<std::uint32_t>(std::atoi(word().c_str())); };
  const std::string verb = word();
  if (verb == "connect" || verb == "connect-pipe") {
    const std::string target = word();
    const int port = verb == "connect" ? static_cast<int>(number()) : 0;
    const std::vector<unsigned char> secret = FromHex(word());
    char appId[256] = {};
    _tag_VX_ERROR result = verb == "connect"
                               ? VXConnect(target.c_str(), port, appId, sizeof appId, secret.data(),
                                           static_cast<int>(secret.size()))
                               : VXConnectEx(target.c_str(), nullptr, 0, appId, sizeof appId,
                                             secret.data(), static_cast<int>(secret.size()));
    Say("connect-result " + std::to_string(result) + " " + appId);
  } else if (verb == "call") {
    const std::string appId = word();
    HVXPARAMLIST list = VXCreateParamList();
    HVXPARAMLIST reply = VXCall(appId.c_str(), number(), list);
    Say("call-result " + std::string(reply.value ? "list" : "null") + " " +
        Text(VXGetStringValue(reply, "servedBy")));
    VXCloseHandle(reply);
    VXCloseHandle(list);
  } else if (verb == "register-signal") {
    const std::string name = word();
    VXRegisterSignal(name.c_str());
    Say("registered " + name);
  } else if (verb == "emit") {
    const std::string name = word();
    HVXPARAMLIST list = VXCreateParamList();
    VXSetStringValue(list, "signal", name.c_str());
    _tag_VX_ERROR result = VXEmit(name.c_str(), list, nullptr, nullptr);
    VXCloseHandle(list);
    Say("emit-result " + std::to_string(result));
  } else if (verb == "subscribe") {
    const std::string appId = word(), signal = word();
    VXConnectSignal(appId.c_str(), signal.c_str(), number());
    Say("subscribed");
  } else if (verb == "notify") {
    // COUNT notifications of BYTES each, back to back, wanting a reply with
    // "reply": how they ended, and the most messages alive after any returned.
    const std::string appId = word();
    const std::uint32_t slot = number(), count = number(), bytes = number();
    const VXNotifyCallback callback = word() == "reply" ? IgnoreCompletion : nullptr;
    HVXPARAMLIST list = VXCreateParamList();
    const std::vector<char> payload(bytes, 'f');
    VXSetBinaryValue(list, "payload", payload.data(), bytes);
    std::uint32_t sent = 0, full = 0, gone = 0, maxLive = 0;
    for (std::uint32_t i = 0; i < count; ++i) {
      _tag_VX_ERROR result = VXNotify(appId.c_str(), slot, list, callback, nullptr);
      if (result == VX_SUCCESS) ++sent;
      if (result == VX_ERROR_QUEUE_FULL) ++full;
      if (result == VX_ERROR_NO_APPLICATION) ++gone;
      maxLive = std::max(maxLive, DEBUG_VXObjectCount().messages);
    }
    VXCloseHandle(list);
    Say("notify-result sent=" + std::to_string(sent) + " full=" + std::to_string(full) +
        " gone=" + std::to_string(gone) + " maxLive=" + std::to_string(maxLive));
  } else if (verb == "release") {
    g_released.Raise();
    Say("released");
  } else if (verb == "serve-info") {
    Say("serve-info-result " + std::to_string(VXServeBusInfo(number())));
  } else if (verb == "counters") {
    VXObjectCounters c = DEBUG_VXObjectCount();
    Say("counters " + std::to_string(c.applications) + " " + std::to_string(c.messages) + " " +
        std::to_string(c.paramLists));
  } else if (verb == "resources") {
    Say("resources " + std::to_string(vxbus::testing::CountOpenDescriptors()) + " " +
        std::to_string(vxbus::testing::CountThreads()));
  } else if (verb == "memory") {
    Say("memory " + std::to_string(vxbus::testing::ResidentBytes()));
  } else {
    Say("unknown-command " + verb);
  }
}

}  // namespace

int main(int argc, char** argv) {
  std::map<std::string, std::string> option = {{"--name", "peer"}};
  for (int i = 1; i + 1 < argc; i += 2)
    option[argv[i]] = argv[i + 1];
  auto number = [&option](const char* key) { return std::atoi(option[key].c_str()); };
  const std::string& name = option["--name"];
  const std::string& pipe = option["--pipe"];
  const int port = number("--port");
  g_quiet = option["--quiet"] == "1";
  VXSetLogLevel(0x1F, 0, LogSink);  // the designed levels and the debug one
  VXSetConnectListener(OnConnect);
  VXSetDisconnectListener(OnDisconnect);
  VXSetAuthFailedListener(OnAuthFailed);
  std::vector<unsigned char> secret = FromHex(option["--secret-hex"]);
  VXSetAuthenticationInfo(secret.data(), static_cast<int>(secret.size()));

  VXLimits limits{};
  limits.size = sizeof limits;
  limits.limits.MAX_CONNECTIONS = number("--max-connections");  // 0 keeps the default
  limits.limits.RESERVED_E = number("--send-queue-bytes");      // each session's send queue
  limits.limits.RESERVED_D = number("--dispatch-queue-bytes");  // requests for its slots
  limits.limits.IO_TIMEOUT_MS = number("--io-timeout-ms");      // 0 keeps the default
  if (!secret.empty()) std::memcpy(limits.limits.authBlock, secret.data(), secret.size());
  if (VXInitializeWithPipeChannel(pipe.empty() ? nullptr : pipe.c_str(), nullptr, name.c_str(),
                                  port, &limits) != VX_SUCCESS) {
    Say("init-failed");
    return 1;
  }
  // --host is the machine's name, as the library puts it in an appID.
  g_ownAppId = option["--host"] + ":" + std::to_string(port) + "/" + name;
  const _tag_SLOT_DESCRIPTION slots[] = {{1, Echo, nullptr},       {2, Block, nullptr},
                                         {3, Forward, nullptr},    {6, Record, nullptr},
                                         {7, ExitInSlot, nullptr}, {8, Hold, nullptr}};
  VXRegisterSlots(slots, 6);
  VXConnectionReady();
  if (port != 0) g_listening.WaitFor();  // ready means a peer can connect now
  Say("ready " + g_ownAppId);

  std::string line;
  const std::string returnVerb = "return-without-shutdown ";
  while (std::getline(std::cin, line) && line != "quit") {
    if (line.compare(0, returnVerb.size(), returnVerb) == 0)
      return std::atoi(line.c_str() + returnVerb.size());
    Command(line);
  }
  VXShutdown();
  return 0;
}
