// SPDX-License-Identifier: MIT
// The subcommands of vxctl. Each takes the parsed command line, reports
// problems on standard error and returns an ExitCode.
#ifndef VXCTL_COMMANDS_H_
#define VXCTL_COMMANDS_H_

#include "options.h"

namespace vxctl {

int RunCall(const Options& options);    // call TARGET SLOT [ARGS...]
int RunNotify(const Options& options);  // notify TARGET SLOT [ARGS...]
int RunListen(const Options& options);  // listen TARGET SIGNAL...
int RunServe(const Options& options);   // serve NAME
int RunDump(const Options& options);    // dump FILE
int RunInfo(const Options& options);    // info TARGET

// Parses a slot number operand; false (after saying why) when it is none.
bool ParseSlot(const std::string& text, std::uint32_t& slot);

// The list built from `operands` (see ListFromOperands); with --json and no
// operands, read as JSON from standard input when that is not a terminal.
// Complains and gives false on a malformed operand.
bool BuildInputList(const Options& options, const std::vector<std::string>& operands, List& out);

}  // namespace vxctl

#endif  // VXCTL_COMMANDS_H_
