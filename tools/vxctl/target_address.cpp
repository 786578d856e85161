// SPDX-License-Identifier: MIT
#include "target_address.h"

#include <errno.h>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>

namespace vxctl {
namespace {

// The first IPv4 address of `host`, as the library takes it.
bool Resolve(const std::string& host, sockaddr_in& out) {
  addrinfo hints = {};
  hints.ai_family = AF_INET;
  hints.ai_socktype = SOCK_STREAM;
  addrinfo* results = nullptr;
  if (getaddrinfo(host.c_str(), nullptr, &hints, &results) != 0 || results == nullptr) return false;
  bool found = false;
  for (addrinfo* entry = results; entry && !found; entry = entry->ai_next) {
    if (entry->ai_family != AF_INET || entry->ai_addrlen < sizeof out) continue;
    std::memcpy(&out, entry->ai_addr, sizeof out);
    found = true;
  }
  freeaddrinfo(results);
  return found;
}

}  // namespace

bool ParseTarget(const std::string& text, TargetAddress& out, std::string& error) {
  out = TargetAddress();
  if (text.compare(0, 5, "pipe:") == 0) {
    out.pipe = text.substr(5);
    if (out.pipe.empty()) error = "target '" + text + "': the pipe name is empty";
    return !out.pipe.empty();
  }
  const std::string address = text.substr(0, text.find('/'));
  const std::size_t colon = address.rfind(':');
  char* end = nullptr;
  long port = 0;
  if (colon != std::string::npos) port = std::strtol(address.c_str() + colon + 1, &end, 10);
  if (colon == std::string::npos || colon == 0 || colon + 1 == address.size() || *end != '\0' ||
      port < 1 || port > 65535) {
    error = "target '" + text + "': expected host:port or pipe:NAME";
    return false;
  }
  out.host = address.substr(0, colon);
  out.port = static_cast<int>(port);
  return true;
}

bool HostResolves(const std::string& host) {
  sockaddr_in address = {};
  return Resolve(host, address);
}

ProbeResult ProbeTcp(const std::string& host, int port) {
  sockaddr_in address = {};
  if (!Resolve(host, address)) return ProbeResult::kOther;
  address.sin_port = htons(static_cast<std::uint16_t>(port));
  const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (fd < 0) return ProbeResult::kOther;
  ProbeResult result = ProbeResult::kAccepted;
  if (connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
    result = errno == ECONNREFUSED ? ProbeResult::kRefused : ProbeResult::kOther;
  close(fd);
  return result;
}

}  // namespace vxctl
