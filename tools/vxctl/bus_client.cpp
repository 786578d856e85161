// SPDX-License-Identifier: MIT
#include "bus_client.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <memory>
#include <thread>

#include "target_address.h"
#include "vxbus.h"
#include "wakeup.h"

namespace vxctl {
namespace {

// A connect on a thread of its own, so that the main thread can give up on
// it. Shared with that thread, which may outlive the wait.
struct ConnectAttempt {
  TargetAddress target;
  std::string secret;
  _tag_VX_ERROR result = VX_ERROR_FAILED;
  bool resolved = true;  // false: the host has no address
  ProbeResult probe = ProbeResult::kOther;
  char peer[256] = {};
};

void Connect(std::shared_ptr<ConnectAttempt> attempt) {
  ConnectAttempt& a = *attempt;
  const auto* key = reinterpret_cast<const unsigned char*>(a.secret.data());
  const int keyLength = static_cast<int>(a.secret.size());
  if (!a.target.pipe.empty()) {
    a.result =
        VXConnectEx(a.target.pipe.c_str(), nullptr, 0, a.peer, sizeof a.peer, key, keyLength);
  } else if (!(a.resolved = HostResolves(a.target.host))) {
    a.result = VX_ERROR_FAILED;
  } else {
    a.result =
        VXConnect(a.target.host.c_str(), a.target.port, a.peer, sizeof a.peer, key, keyLength);
    // The library tells only that it failed; a second, plain attempt tells why.
    if (a.result == VX_ERROR_FAILED) a.probe = ProbeTcp(a.target.host, a.target.port);
  }
  Wake(kWakeDone);
}

}  // namespace

void Complain(const std::string& text) {
  std::cerr << "vxctl: " << text << std::endl;
}

VXLimits ReadLimits(const Options& options, const std::string& secret) {
  VXLimits limits = {};
  limits.size = sizeof limits;
  limits.limits.MAX_READ_SIZE = static_cast<std::uint32_t>(options.maxReadSize);
  std::memcpy(limits.limits.authBlock, secret.data(),
              std::min(secret.size(), sizeof limits.limits.authBlock));
  return limits;
}

ExitCode StartAndConnect(const Options& options, const std::string& target,
                         const Deadline& deadline, std::string& appId) {
  std::string secret, error;
  if (!LoadSecret(options, secret, error)) {
    Complain(error);
    return kExitUsage;
  }
  auto attempt = std::make_shared<ConnectAttempt>();
  if (!ParseTarget(target, attempt->target, error)) {
    Complain(error);
    return kExitUsage;
  }
  attempt->secret = secret;
  const std::string ownName = "vxctl-" + std::to_string(getpid());
  const VXLimits limits = ReadLimits(options, secret);
  if (VXInitialize(ownName.c_str(), 0, options.maxReadSizeGiven ? &limits : nullptr) !=
      VX_SUCCESS) {
    Complain("the library did not start");
    return kExitFailed;
  }
  {
    Interruptible connecting("connecting to " + target);
    std::thread worker(Connect, attempt);
    WakeReason why = kWakeTimeout;
    while ((why = WaitForWake(deadline.LeftMs())) != kWakeDone && why != kWakeTimeout) {
    }
    if (why != kWakeDone) {
      // The worker and the library's threads go on with the connect; nothing
      // of ours that they touch is freed before the process ends.
      worker.detach();
      Complain("timed out connecting to " + target + " (--timeout " + deadline.Text() + ")");
      _exit(kExitTimedOut);
    }
    worker.join();
  }
  const ConnectAttempt& done = *attempt;
  if (done.result == VX_SUCCESS) {
    appId = done.peer;
    return kExitOk;
  }
  VXShutdown();
  if (done.result == VX_ERROR_NAME_IN_USE) {
    Complain(target +
             " refused the connection: wrong secret or name in use (see --secret-file and " +
             kSecretVariable + ")");
    return kExitRefused;
  }
  const std::string& host = done.target.host;
  if (!done.resolved)
    Complain("cannot reach " + target + ": no such host '" + host + "'");
  else if (done.probe == ProbeResult::kRefused)
    Complain("cannot reach " + target + ": connection refused (nothing listens on port " +
             std::to_string(done.target.port) + " of " + host + ")");
  else if (done.probe == ProbeResult::kAccepted)
    Complain("cannot reach " + target +
             ": the port is open but the handshake failed (not a vxbus application, or it takes "
             "no more peers)");
  else
    Complain("cannot reach " + target + ": nothing answered there");
  return kExitUnreachable;
}

void Leave(int code) {
  VXShutdown();
  std::cout.flush();
  std::cerr.flush();
  std::exit(code);
}

}  // namespace vxctl
