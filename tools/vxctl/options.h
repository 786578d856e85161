// SPDX-License-Identifier: MIT
// The command line of vxctl: a subcommand, its options and its operands.
#ifndef VXCTL_OPTIONS_H_
#define VXCTL_OPTIONS_H_

#include <cstdint>
#include <string>
#include <vector>

#include "list_model.h"
#include "read_all.h"

namespace vxctl {

// Exit codes, the same for every subcommand.
enum ExitCode {
  kExitOk = 0,
  kExitFailed = 1,       // the session ended, a reply did not come, a file is damaged
  kExitUsage = 2,        // a malformed option or argument
  kExitUnreachable = 3,  // nothing answered at the target
  kExitRefused = 4,      // the peer refused us: wrong secret, or a duplicate name
  kExitEmptyReply = 5,   // the slot answered with an empty list: most likely no such slot
  kExitTimedOut = 6,     // --timeout ran out while connecting, calling or notifying
};

// The slot on which `vxctl serve` offers its bus info, and where `vxctl info`
// asks for it unless --slot says otherwise. Far from the small numbers that
// applications tend to take, and below the built-in slots.
constexpr std::uint32_t kBusInfoSlot = 65535;

// The environment variable that holds the secret when --secret-file is not given.
constexpr const char* kSecretVariable = "VXBUS_SECRET";

struct Options {
  std::string command;
  std::vector<std::string> operands;
  std::vector<std::string> given;  // each option given, as written, for CheckOptionsTaken
  bool help = false;
  bool version = false;
  bool json = false;
  bool allowEmpty = false;
  bool verbose = false;
  bool watch = false;  // info: refresh each second
  std::string secretFile;
  int port = 0;
  std::string pipe;
  std::string bind;
  std::vector<std::string> signals;
  long count = 0;    // listen: stop after this many notifications; 0 is never
  std::string save;  // call: also write the reply's stream form here
  // --timeout in milliseconds; -1 when not given. Counted from the start
  // of connecting, through the call or notification.
  int timeoutMs = -1;
  std::uint32_t infoSlot = kBusInfoSlot;  // info: --slot
  // The limits record's MAX_READ_SIZE for our own library, and the most
  // that a bin=@FILE or a JSON document may hold.
  std::size_t maxReadSize = kDefaultMaxReadSize;
  bool maxReadSizeGiven = false;
};

// Fills `out` from argv. False with the reason in `error`.
bool ParseOptions(int argc, char** argv, Options& out, std::string& error);

// False, naming the first option in `options.given` that is not among
// `taken` (a space-separated list such as "--json --save"), when the command
// does not take it. --help is taken by every command.
bool CheckOptionsTaken(const Options& options, const std::string& taken, std::string& error);

// The secret from --secret-file (one trailing newline is dropped) or from
// VXBUS_SECRET; empty when neither is given. False when the file is not a
// regular file, cannot be read, or the secret is longer than 256 bytes.
// Warns on standard error when others may read the file. Interruptible.
bool LoadSecret(const Options& options, std::string& secret, std::string& error);

// A list from operands: "name[:type]=value", "{...}" (a JSON object) or
// "@FILE" (a JSON object in a file; "@-" reads standard input). No file is
// read past `readLimit` bytes (and no JSON past kMaxJsonSize). An error
// names the operand and says why.
bool ListFromOperands(const std::vector<std::string>& operands, std::size_t readLimit, List& out,
                      std::string& error);

}  // namespace vxctl

#endif  // VXCTL_OPTIONS_H_
