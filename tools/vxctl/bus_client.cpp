#include "bus_client.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iostream>

#include "vxbus.h"
#include "wakeup.h"

namespace vxctl {

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

ExitCode StartAndConnect(const Options& options, const std::string& target, std::string& appId) {
  std::string secret, error;
  if (!LoadSecret(options, secret, error)) {
    Complain(error);
    return kExitUsage;
  }
  std::string host, pipe;
  long port = 0;
  if (target.compare(0, 5, "pipe:") == 0) {
    pipe = target.substr(5);
  } else {
    std::string address = target.substr(0, target.find('/'));
    std::size_t colon = address.rfind(':');
    char* end = nullptr;
    if (colon != std::string::npos) port = std::strtol(address.c_str() + colon + 1, &end, 10);
    if (colon == std::string::npos || colon == 0 || *end != '\0' || port < 1 || port > 65535) {
      Complain("target '" + target + "': expected host:port or pipe:NAME");
      return kExitUsage;
    }
    host = address.substr(0, colon);
  }
  if (pipe.empty() && host.empty()) {
    Complain("target '" + target + "': the pipe name is empty");
    return kExitUsage;
  }
  const std::string ownName = "vxctl-" + std::to_string(getpid());
  const VXLimits limits = ReadLimits(options, secret);
  if (VXInitialize(ownName.c_str(), 0, options.maxReadSizeGiven ? &limits : nullptr) !=
      VX_SUCCESS) {
    Complain("the library did not start");
    return kExitFailed;
  }
  char peer[256] = {};
  const auto* key = reinterpret_cast<const unsigned char*>(secret.data());
  const int keyLength = static_cast<int>(secret.size());
  _tag_VX_ERROR result = VX_ERROR_FAILED;
  {
    Interruptible connecting("connecting to " + target);
    result =
        pipe.empty()
            ? VXConnect(host.c_str(), static_cast<int>(port), peer, sizeof peer, key, keyLength)
            : VXConnectEx(pipe.c_str(), nullptr, 0, peer, sizeof peer, key, keyLength);
  }
  if (result == VX_SUCCESS) {
    appId = peer;
    return kExitOk;
  }
  VXShutdown();
  if (result == VX_ERROR_NAME_IN_USE) {
    Complain(target + " refused the connection: wrong secret (see --secret-file and " +
             kSecretVariable + ")");
    return kExitRefused;
  }
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
