// SPDX-License-Identifier: MIT
// The TARGET operand taken apart, and what vxctl can learn by itself about a
// target that the library could not connect to: the library's connect tells
// only "failed" (-1) or "refused" (-7).
#ifndef VXCTL_TARGET_ADDRESS_H_
#define VXCTL_TARGET_ADDRESS_H_

#include <string>

namespace vxctl {

struct TargetAddress {
  std::string host;  // TCP: a dotted address or a host name
  int port = 0;
  std::string pipe;  // non-empty for "pipe:NAME"
};

// "host:port", "host:port/name" (the name is not checked) or "pipe:NAME".
// False with the reason in `error`, which names the operand.
bool ParseTarget(const std::string& text, TargetAddress& out, std::string& error);

// Whether `host` has an IPv4 address, the only kind the library connects
// to. Blocks on the system's resolver, which the caller bounds.
bool HostResolves(const std::string& host);

enum class ProbeResult {
  kRefused,   // nothing listens there
  kAccepted,  // something listens, and it is not a vxbus peer that took us
  kOther,     // no route, a time-out of the system, or the like
};

// Opens and at once closes a plain TCP connection to learn why the
// library's connect failed. Blocks up to the system's connect time-out.
ProbeResult ProbeTcp(const std::string& host, int port);

}  // namespace vxctl

#endif  // VXCTL_TARGET_ADDRESS_H_
