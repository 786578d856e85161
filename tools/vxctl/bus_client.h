// SPDX-License-Identifier: MIT
// vxctl's own application on the bus and its one connection to a target.
#ifndef VXCTL_BUS_CLIENT_H_
#define VXCTL_BUS_CLIENT_H_

#include <string>

#include "deadline.h"
#include "options.h"
#include "vxbus.h"

namespace vxctl {

// Starts the library as "vxctl-<pid>" (connecting out only) and connects to
// `target`: "host:port", "host:port/name" (the name is not checked) or
// "pipe:NAME". Reports failure on standard error and gives the exit code,
// telling a host that does not resolve, a port where nothing listens, a
// failed handshake and a refusal apart; on success `appId` is the peer's
// name on the bus. When `deadline` passes first it says so and ends the
// process at once with kExitTimedOut: the connect cannot be stopped, and the
// library's ordered stop would wait for it.
ExitCode StartAndConnect(const Options& options, const std::string& target,
                         const Deadline& deadline, std::string& appId);

// The limits record for our own library: the defaults (zero words keep
// them), with MAX_READ_SIZE from --max-read-size, and `secret`, since the
// library takes a record's secret block as it is, even when all zero.
VXLimits ReadLimits(const Options& options, const std::string& secret);

// Ends the process with `code`: the library's ordered stop first (it wakes
// the session's threads, so it returns at once), then the output is flushed.
[[noreturn]] void Leave(int code);

// "vxctl: " and the text, on standard error.
void Complain(const std::string& text);

}  // namespace vxctl

#endif  // VXCTL_BUS_CLIENT_H_
