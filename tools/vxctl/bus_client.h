// vxctl's own application on the bus and its one connection to a target.
#ifndef VXCTL_BUS_CLIENT_H_
#define VXCTL_BUS_CLIENT_H_

#include <string>

#include "options.h"

namespace vxctl {

// Starts the library as "vxctl-<pid>" (connecting out only) and connects to
// `target`: "host:port", "host:port/name" (the name is not checked) or
// "pipe:NAME". Reports failure on standard error and gives the exit code;
// on success `appId` is the peer's name on the bus.
ExitCode StartAndConnect(const Options& options, const std::string& target, std::string& appId);

// Ends the process with `code` once the output is flushed, without the
// library's ordered stop: that waits up to a reader's poll period (5 s) for
// each TCP session, too long for a command whose work is done. The process's
// end closes the connection, which the peer sees as the end of the session.
[[noreturn]] void Leave(int code);

// "vxctl: " and the text, on standard error.
void Complain(const std::string& text);

}  // namespace vxctl

#endif  // VXCTL_BUS_CLIENT_H_
