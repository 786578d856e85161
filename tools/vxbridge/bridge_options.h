// SPDX-License-Identifier: MIT
// The command line of vxbridge: where NATS is, who we are on the bus, and the
// mappings between the two. Everything here is checked before anything starts.
#ifndef VXBRIDGE_BRIDGE_OPTIONS_H_
#define VXBRIDGE_BRIDGE_OPTIONS_H_

#include <cstdint>
#include <string>
#include <vector>

namespace vxbridge {

// Exit codes of the program.
enum ExitCode {
  kExitOk = 0,       // stopped by SIGINT or SIGTERM after draining
  kExitFailed = 1,   // the library or the NATS client could not be set up
  kExitUsage = 2,    // a malformed option; the message names it
  kExitRefused = 4,  // a local target refused the bridge: wrong secret
};

constexpr const char* kSecretVariable = "VXBUS_SECRET";
// The slot that answers with the bridge's mappings and counters.
constexpr std::uint32_t kDefaultInfoSlot = 65535;
// Slot ids from here up are the bridge's own (its signal subscriptions).
constexpr std::uint32_t kFirstPrivateSlot = 0xF0000000u;
constexpr std::size_t kMaxMappings = 1024;
constexpr std::size_t kMaxSubjectLength = 255;
// The largest list, in its stream form or as JSON, that crosses the bridge;
// also the library's read size, so the bus side takes no larger image.
constexpr std::uint32_t kMaxPayloadBytes = 64u << 20;

// "host:port" or "pipe:NAME", as vxctl takes it.
struct Target {
  std::string text;
  std::string host;
  int port = 0;
  std::string pipe;
};

enum class MappingKind { kExport, kImport, kSignal, kEmit };

struct Mapping {
  MappingKind kind = MappingKind::kExport;
  std::string subject;
  Target target;           // kExport, kSignal
  std::uint32_t slot = 0;  // kExport: the target's slot; kImport: ours
  std::string signal;      // kSignal: the target's signal; kEmit: ours
};

struct Options {
  bool help = false;
  bool version = false;
  bool json = false;
  bool verbose = false;
  std::vector<std::string> natsUrls;
  std::string name;
  int port = 0;
  std::string pipe;
  std::string secretFile;
  std::string natsCreds;
  std::string natsTlsCa;
  std::vector<Mapping> mappings;
  std::int64_t requestTimeoutMs = 5000;
  int bufferBytes = 8 << 20;
  std::uint32_t infoSlot = kDefaultInfoSlot;
};

// Fills `out` from argv. False with a reason naming the argument in `error`.
bool ParseOptions(int argc, char** argv, Options& out, std::string& error);

// The secret from --secret-file (one trailing newline dropped) or from
// VXBUS_SECRET. False when neither is given, the file cannot be read, or it
// is longer than the library takes (256 bytes).
bool LoadSecret(const Options& options, std::string& secret, std::string& error);

// Parses "host:port" or "pipe:NAME"; false with the reason in `error`.
bool ParseTarget(const std::string& text, Target& out, std::string& error);

}  // namespace vxbridge

#endif  // VXBRIDGE_BRIDGE_OPTIONS_H_
