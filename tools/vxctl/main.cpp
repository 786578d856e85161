// SPDX-License-Identifier: MIT
// vxctl: calls, notifies, listens to and serves vxbus applications from the
// shell. See vxctl(1) and `vxctl COMMAND --help`.
#include <cstring>
#include <iostream>

#include "bus_client.h"
#include "commands.h"
#include "wakeup.h"

namespace {

struct Command {
  const char* name;
  int (*run)(const vxctl::Options&);
  const char* options;  // the options it takes, besides --help
  const char* help;
};

// Options of every command that connects.
#define CONNECTING "--secret-file --max-read-size --timeout "

const char kArgumentsHelp[] =
    "ARGS build the list that is sent:\n"
    "  name=value           an integer if it reads as one, else a string\n"
    "  name:TYPE=value      TYPE: int32 (int), int64, string (str), hex, bin, list, json,\n"
    "                       or int32[], int64[], string[], hex[], bin[], list[] (JSON arrays)\n"
    "  name:bin=@FILE       the bytes of FILE\n"
    "  name:json=JSON       nested lists ({...}) and arrays ([...]) written as JSON\n"
    "  {JSON} or @FILE      a JSON object whose members are added (@- reads stdin)\n"
    "A file for bin=@ may hold up to --max-read-size BYTES (default 1073741824, the\n"
    "most a peer with default limits reads; it is also our own library's limit);\n"
    "JSON up to 64 MiB, 1048576 values and 64 levels. More is refused (exit 2).\n";

const char kConnectHelp[] =
    "TARGET is host:port or pipe:NAME. The secret comes from --secret-file FILE\n"
    "(one trailing newline dropped) or the VXBUS_SECRET environment variable.\n"
    "FILE must be a regular file; a warning says when others may read it.\n"
    "Ctrl-C or SIGTERM while connecting, calling or reading the secret ends vxctl\n"
    "at once with exit 130 or 143 and a line that says what was interrupted.\n";

const Command kCommands[] = {
    {"call", vxctl::RunCall, CONNECTING "--json --save --allow-empty",
     "usage: vxctl call TARGET SLOT [ARGS...] [--json] [--save FILE] [--allow-empty]\n"
     "                  [--timeout S]\n"
     "Calls SLOT of the application at TARGET and prints the reply. An empty reply\n"
     "(what a missing slot gives) exits with 5 unless --allow-empty. --save writes\n"
     "the reply in its stream form, which `vxctl dump` reads. Without --timeout\n"
     "the call waits as long as the session lives.\n"},
    {"notify", vxctl::RunNotify, CONNECTING "--json",
     "usage: vxctl notify TARGET SLOT [ARGS...] [--timeout S]\n"
     "Sends a one-way notification to SLOT and waits up to S seconds (default 10)\n"
     "for the word that it arrived; the reply itself is not printed.\n"},
    {"listen", vxctl::RunListen, CONNECTING "--json --count",
     "usage: vxctl listen TARGET SIGNAL... [--json] [--count N] [--timeout S]\n"
     "Subscribes to the signals and prints every notification until Ctrl-C, the end\n"
     "of the session, or N notifications; --timeout bounds only the connect. With\n"
     "--json each is one line: {\"signal\":...,\"from\":...,\"list\":{...}}\n"},
    {"serve", vxctl::RunServe,
     "--secret-file --max-read-size --port --pipe --bind --signal --json --verbose",
     "usage: vxctl serve NAME (--port N | --pipe NAME) [--bind ADDRESS] [--signal S]...\n"
     "                  [--json] [--verbose]\n"
     "Runs an application: slot 1 echoes its input, slot 2 prints it, and slot 65535\n"
     "answers with its bus info (see `vxctl info`). --signal registers a signal; on\n"
     "standard input, 'emit S [ARGS...]' emits it and 'quit' stops (so do Ctrl-C\n"
     "and SIGTERM). Prints 'ready APPID' once peers can connect.\n"
     "It listens on 127.0.0.1 unless --bind names another address (0.0.0.0 for\n"
     "all), and warns when it serves without a secret.\n"},
    {"info", vxctl::RunInfo, CONNECTING "--slot --watch --json",
     "usage: vxctl info TARGET [--slot N] [--watch] [--json] [--timeout S]\n"
     "Prints the bus info of the application at TARGET: its slots, its signals with\n"
     "their subscribers, one row per session (frames and bytes each way, queued\n"
     "bytes, calls waiting for a reply) and its object counters. It asks on slot N\n"
     "(default 65535, where `vxctl serve` answers); an application answers there\n"
     "only if it offers its bus info (VXServeBusInfo), else the reply is empty\n"
     "(exit 5). --watch asks again each second, like top, until Ctrl-C or SIGTERM\n"
     "(exit 0); each answer may take --timeout S (default 10). --json prints each\n"
     "answer as one line of JSON.\n"},
    {"dump", vxctl::RunDump, "--json",
     "usage: vxctl dump FILE [--json]\n"
     "Prints a list saved in its stream form: the pair of the root (image size and\n"
     "number of nested lists, 32-bit little-endian each), then the images and pairs\n"
     "in pre-order. The file is checked before anything of it is used.\n"},
};

#undef CONNECTING

const char kTimeoutHelp[] =
    "--timeout S (seconds, fractions allowed) bounds the connect, and for call,\n"
    "notify and info the wait for the answer too, counted from the start; when\n"
    "it runs out vxctl says so and exits with 6.\n";

const char kOutputHelp[] =
    "Lists print one value a line: name:type = value, with numbers in decimal,\n"
    "texts quoted, binaries as two hex digits a byte, nested lists and array\n"
    "elements indented below. --json prints one line of JSON that ARGS take back.\n";

const char kUsage[] =
    "usage: vxctl COMMAND [OPTIONS] [OPERANDS]\n"
    "       vxctl --version\n"
    "  call TARGET SLOT [ARGS...]    call a slot and print the reply\n"
    "  notify TARGET SLOT [ARGS...]  send a one-way notification\n"
    "  listen TARGET SIGNAL...       print every notification of the signals\n"
    "  info TARGET                   print a peer's sessions, slots and signals\n"
    "  serve NAME --port N           offer slots that echo (1) and print (2)\n"
    "  dump FILE                     print a list saved in its stream form\n"
    "`vxctl COMMAND --help` tells more. Exit codes: 0 done, 1 failed, 2 bad\n"
    "arguments or input too large, 3 target unreachable (no such host, connection\n"
    "refused, failed handshake), 4 refused by the peer (wrong secret or name in\n"
    "use), 5 empty reply, 6 timed out (--timeout), 130 and 143 interrupted by\n"
    "Ctrl-C and SIGTERM.\n";

// Whether the help of `command` has a part: "ARGS" for the commands that
// build a list, else an option.
bool Takes(const Command& command, const char* what) {
  if (std::strcmp(what, "ARGS") == 0)
    return command.run == vxctl::RunCall || command.run == vxctl::RunNotify ||
           command.run == vxctl::RunServe;
  return (" " + std::string(command.options) + " ").find(std::string(" ") + what + " ") !=
         std::string::npos;
}

}  // namespace

int main(int argc, char** argv) {
  vxctl::Options options;
  std::string error;
  const bool parsed = vxctl::ParseOptions(argc, argv, options, error);
  const Command* command = nullptr;
  for (const Command& c : kCommands)
    if (options.command == c.name) command = &c;
  if (options.help || options.command == "help") {
    if (command)
      std::cout << command->help;
    else
      std::cout << kUsage;
    if (command && Takes(*command, "ARGS")) std::cout << "\n" << kArgumentsHelp;
    if (command && Takes(*command, "--secret-file")) std::cout << "\n" << kConnectHelp;
    if (command && Takes(*command, "--timeout")) std::cout << "\n" << kTimeoutHelp;
    if (command && !Takes(*command, "--slot")) std::cout << "\n" << kOutputHelp;
    return vxctl::kExitOk;
  }
  if (!parsed) {
    vxctl::Complain(error);
    return vxctl::kExitUsage;
  }
  if (options.version) {
    std::cout << "vxctl " << VXBUS_VERSION_STRING << ", library " << VXGetVersion() << std::endl;
    return vxctl::kExitOk;
  }
  if (!command) {
    if (options.command.empty())
      std::cerr << kUsage;
    else
      vxctl::Complain("unknown command '" + options.command + "'; see vxctl --help");
    return vxctl::kExitUsage;
  }
  if (!vxctl::CheckOptionsTaken(options, command->options, error)) {
    vxctl::Complain(error);
    return vxctl::kExitUsage;
  }
  // dump reads a file and ends, and starts no thread: the default action of
  // the signals serves it. The others take them from here on, before any
  // thread of the library starts, so that all threads inherit the mask.
  if (command->run != vxctl::RunDump) vxctl::BlockStopSignals();
  return command->run(options);
}
