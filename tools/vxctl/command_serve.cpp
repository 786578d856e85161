// SPDX-License-Identifier: MIT
// serve: an application with slots that echo and print what arrives, and
// signals that it emits on command, for trying a client against.
#include <unistd.h>

#include <chrono>
#include <condition_variable>
#include <cstring>
#include <iostream>
#include <mutex>
#include <sstream>

#include "bus_client.h"
#include "commands.h"
#include "list_bridge.h"
#include "list_output.h"
#include "wakeup.h"

namespace vxctl {
namespace {

constexpr std::uint32_t kEchoSlot = 1;
constexpr std::uint32_t kPrintSlot = 2;
// A trial server is for this machine unless --bind says otherwise.
constexpr const char* kDefaultBind = "127.0.0.1";

bool g_json = false;
std::size_t g_readLimit = kDefaultMaxReadSize;  // for the lists of 'emit' commands
std::mutex g_outputMutex;                       // slots, listeners and main all print

void Say(const std::string& line) {
  std::lock_guard<std::mutex> lock(g_outputMutex);
  std::cout << line << std::endl;
}

// Rebuilds the input rather than copying the handle: a copy shares nested
// lists by position, which garbles handle arrays and null handles.
_tag_VX_ERROR Echo(HVXPARAMLIST input, HVXPARAMLIST output, VXSlotContext*) {
  std::string error;
  ListPtr list = FromHandle(input, error);
  if (list)
    FillHandle(output, *list);
  else
    Complain("slot 1 cannot read its input: " + error);
  return VX_SUCCESS;
}

_tag_VX_ERROR Print(HVXPARAMLIST input, HVXPARAMLIST, VXSlotContext* context) {
  std::lock_guard<std::mutex> lock(g_outputMutex);
  std::string error;
  std::cout << "slot " << kPrintSlot << " from " << context->senderName << std::endl;
  if (!PrintList(std::cout, input, g_json, error)) Complain("the list cannot be read: " + error);
  return VX_SUCCESS;
}

void OnConnect(const char*, const char*, const char* appId, const char*, std::int32_t,
               const char*) {
  Say(std::string("connected ") + appId);
}
void OnDisconnect(const char* appId, const char*, std::int32_t, const char*) {
  Say(std::string("disconnected ") + appId);
}
void OnAuthFailed(const char*, const char* remote, const char*) {
  Say(std::string("refused ") + remote + ": wrong secret");
}

// The TCP listener logs this line (at level 8) once it accepts; until then a
// peer's connection would be refused.
std::mutex g_listeningMutex;
std::condition_variable g_listeningChanged;
bool g_tcpListening = false;
bool g_verbose = false;

void OnLog(std::uint32_t level, std::uint32_t, const char* text) {
  if (g_verbose) std::cerr << "vxbus[" << level << "]: " << text << std::endl;
  if (std::strncmp(text, "listen for incoming connection on", 33) == 0) {
    std::lock_guard<std::mutex> lock(g_listeningMutex);
    g_tcpListening = true;
    g_listeningChanged.notify_all();
  }
}

bool WaitUntilListening() {
  Interruptible starting("waiting for the port to open");
  std::unique_lock<std::mutex> lock(g_listeningMutex);
  return g_listeningChanged.wait_for(lock, std::chrono::seconds(10), [] { return g_tcpListening; });
}

// "emit SIGNAL [ARGS...]" or "quit"; false once the server should stop.
bool Command(const std::string& line) {
  std::istringstream in(line);
  std::string verb, signal, word;
  in >> verb;
  if (verb.empty()) return true;
  if (verb == "quit") return false;
  if (verb != "emit" || !(in >> signal)) {
    Say("error: commands are 'emit SIGNAL [ARGS...]' and 'quit'");
    return true;
  }
  std::vector<std::string> operands;
  while (in >> word)
    operands.push_back(word);
  List list;
  Options readLimit;
  readLimit.maxReadSize = g_readLimit;
  if (!BuildInputList(readLimit, operands, list)) return true;
  HVXPARAMLIST handle = ToHandle(list);
  _tag_VX_ERROR result = VXEmit(signal.c_str(), handle, nullptr, nullptr);
  VXCloseHandle(handle);
  Say("emitted " + signal + " " + std::to_string(result));
  return true;
}

}  // namespace

int RunServe(const Options& options) {
  if (options.operands.size() != 1 || (options.port == 0 && options.pipe.empty())) {
    Complain("serve wants NAME and --port N or --pipe NAME; see vxctl serve --help");
    return kExitUsage;
  }
  std::string secret, error;
  if (!LoadSecret(options, secret, error)) {
    Complain(error);
    return kExitUsage;
  }
  if (secret.empty())
    Complain("warning: serving without a secret: whoever reaches " +
             (options.port ? "port " + std::to_string(options.port) : "pipe " + options.pipe) +
             " may call its slots (see --secret-file and " + kSecretVariable + ")");
  g_json = options.json;
  g_verbose = options.verbose;
  g_readLimit = options.maxReadSize;
  VXSetLogLevel(options.verbose ? 0xF : 0x8, 0, OnLog);  // level 8 has the listener's line
  VXSetConnectListener(OnConnect);
  VXSetDisconnectListener(OnDisconnect);
  VXSetAuthFailedListener(OnAuthFailed);
  VXSetAuthenticationInfo(secret.data(), static_cast<std::int32_t>(secret.size()));
  const std::string& name = options.operands[0];
  const std::string bind = options.bind.empty() ? kDefaultBind : options.bind;
  VXLimits limits = ReadLimits(options, secret);
  if (VXInitializeWithPipeChannel(options.pipe.empty() ? nullptr : options.pipe.c_str(),
                                  bind.c_str(), name.c_str(), options.port,
                                  options.maxReadSizeGiven ? &limits : nullptr) != VX_SUCCESS) {
    Complain("the library did not start as " + name);
    return kExitFailed;
  }
  CatchStopSignals();
  VXRegisterSlot(kEchoSlot, Echo, nullptr);
  VXRegisterSlot(kPrintSlot, Print, nullptr);
  VXServeBusInfo(kBusInfoSlot);  // what `vxctl info` asks for
  for (const auto& signal : options.signals)
    VXRegisterSignal(signal.c_str());
  VXConnectionReady();
  if (options.port != 0 && !WaitUntilListening()) {
    Complain("port " + std::to_string(options.port) + " did not open; is it in use?");
    VXShutdown();
    return kExitFailed;
  }
  char host[256] = {};
  gethostname(host, sizeof host - 1);
  Say("ready " + std::string(host) + ":" + std::to_string(options.port) + "/" + name);

  // Commands come on standard input; its end only stops reading them.
  int input = STDIN_FILENO;
  std::string pending;
  for (bool running = true; running;) {
    WakeReason why = WaitForWake(-1, input);
    if (why == kWakeStop) break;
    if (why != kWakeInput) continue;
    char buffer[4096];
    ssize_t n = read(input, buffer, sizeof buffer);
    if (n <= 0) {
      input = -1;
      continue;
    }
    pending.append(buffer, static_cast<std::size_t>(n));
    for (std::size_t end; running && (end = pending.find('\n')) != std::string::npos;) {
      running = Command(pending.substr(0, end));
      pending.erase(0, end + 1);
    }
  }
  VXShutdown();
  Say("stopped");
  return kExitOk;
}

}  // namespace vxctl
