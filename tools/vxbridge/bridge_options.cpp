// SPDX-License-Identifier: MIT
#include "bridge_options.h"

#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <fstream>
#include <set>

namespace vxbridge {
namespace {

constexpr std::size_t kMaxSecretBytes = 256;
constexpr std::size_t kMaxNameLength = 200;  // leaves room for host and port in an appID

bool ParseUnsigned(const std::string& text, std::uint64_t max, std::uint64_t& out) {
  if (text.empty() || text.size() > 20 || text.find_first_not_of("0123456789") != std::string::npos)
    return false;
  errno = 0;
  out = std::strtoull(text.c_str(), nullptr, 10);
  return errno == 0 && out <= max;
}

// NATS subjects are dot-separated tokens without white space. Wildcards ("*"
// as a whole token, ">" as the last) only where the bridge subscribes.
std::string CheckSubject(const std::string& subject, bool wildcards) {
  if (subject.empty()) return "the subject is empty";
  if (subject.size() > kMaxSubjectLength)
    return "the subject is longer than " + std::to_string(kMaxSubjectLength) + " bytes";
  std::size_t start = 0;
  for (;;) {
    const std::size_t dot = subject.find('.', start);
    const std::string token = subject.substr(start, dot - start);
    if (token.empty()) return "the subject has an empty token";
    for (unsigned char c : token)
      if (c <= ' ' || c == 0x7f) return "the subject holds white space or a control character";
    const bool last = dot == std::string::npos;
    if ((token.find('*') != std::string::npos && token != "*") ||
        (token.find('>') != std::string::npos && (token != ">" || !last)))
      return "a wildcard must be a whole token ('>' only the last)";
    if (!wildcards && (token == "*" || token == ">"))
      return "wildcards are for --export and --emit only";
    if (last) return "";
    start = dot + 1;
  }
}

std::string CheckUrl(const std::string& url) {
  const std::size_t scheme = url.find("://");
  if (scheme == std::string::npos ||
      (url.compare(0, scheme, "nats") != 0 && url.compare(0, scheme, "tls") != 0))
    return "expected nats://HOST:PORT or tls://HOST:PORT";
  std::string rest = url.substr(scheme + 3);
  rest = rest.substr(rest.rfind('@') == std::string::npos ? 0 : rest.rfind('@') + 1);
  const std::size_t colon = rest.rfind(':');
  std::uint64_t port = 0;
  if (rest.empty() || colon == 0) return "the host is empty";
  if (colon != std::string::npos && !ParseUnsigned(rest.substr(colon + 1), 65535, port))
    return "the port is not a number from 1 to 65535";
  if (colon != std::string::npos && port == 0) return "the port is not a number from 1 to 65535";
  return "";
}

// "SUBJECT=REST": false when there is no '='.
bool SplitAtEquals(const std::string& text, std::string& subject, std::string& rest) {
  const std::size_t equals = text.find('=');
  if (equals == std::string::npos) return false;
  subject = text.substr(0, equals);
  rest = text.substr(equals + 1);
  return true;
}

std::string CheckSignalName(const std::string& signal) {
  if (signal.empty()) return "the signal name is empty";
  if (signal.size() > 253) return "the signal name is longer than 253 bytes";
  return "";
}

// One --export, --import, --signal or --emit value into `out`.
std::string ParseMapping(MappingKind kind, const std::string& value, Mapping& out) {
  out.kind = kind;
  std::string rest;
  if (!SplitAtEquals(value, out.subject, rest)) return "expected SUBJECT=...";
  const bool subscribes = kind == MappingKind::kExport || kind == MappingKind::kEmit;
  std::string why = CheckSubject(out.subject, subscribes);
  if (!why.empty()) return why;
  std::uint64_t slot = 0;
  if (kind == MappingKind::kImport) {
    if (!ParseUnsigned(rest, kFirstPrivateSlot - 1, slot))
      return "the slot is not a number below " + std::to_string(kFirstPrivateSlot);
    out.slot = static_cast<std::uint32_t>(slot);
    return "";
  }
  if (kind == MappingKind::kEmit) {
    out.signal = rest;
    return CheckSignalName(rest);
  }
  const std::size_t comma = rest.rfind(',');
  if (comma == std::string::npos) return "expected TARGET,... after the '='";
  if (!ParseTarget(rest.substr(0, comma), out.target, why)) return why;
  const std::string last = rest.substr(comma + 1);
  if (kind == MappingKind::kSignal) {
    out.signal = last;
    return CheckSignalName(last);
  }
  if (!ParseUnsigned(last, 0xFFFFFFFDu, slot)) return "the slot is not a number";
  out.slot = static_cast<std::uint32_t>(slot);
  return "";
}

std::string CheckReadable(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return file ? "" : "cannot read '" + path + "'";
}

}  // namespace

bool ParseTarget(const std::string& text, Target& out, std::string& error) {
  out = Target();
  out.text = text;
  if (text.compare(0, 5, "pipe:") == 0) {
    out.pipe = text.substr(5);
    if (out.pipe.empty()) error = "target '" + text + "': the pipe name is empty";
    return !out.pipe.empty();
  }
  const std::size_t colon = text.rfind(':');
  std::uint64_t port = 0;
  if (colon == std::string::npos || colon == 0 ||
      !ParseUnsigned(text.substr(colon + 1), 65535, port) || port == 0) {
    error = "target '" + text + "': expected host:port or pipe:NAME";
    return false;
  }
  out.host = text.substr(0, colon);
  out.port = static_cast<int>(port);
  return true;
}

bool ParseOptions(int argc, char** argv, Options& out, std::string& error) {
  std::set<std::uint32_t> importSlots;
  bool infoSlotGiven = false;
  for (int i = 1; i < argc; ++i) {
    const std::string flag = argv[i];
    if (flag == "--help" || flag == "-h") {
      out.help = true;
      return true;
    }
    if (flag == "--version") {
      out.version = true;
      return true;
    }
    if (flag == "--json" || flag == "--verbose") {
      (flag == "--json" ? out.json : out.verbose) = true;
      continue;
    }
    static const std::set<std::string> kValued = {
        "--nats",         "--name",       "--port",        "--pipe",
        "--secret-file",  "--export",     "--import",      "--signal",
        "--emit",         "--nats-creds", "--nats-tls-ca", "--request-timeout",
        "--buffer-bytes", "--info-slot"};
    if (!kValued.count(flag)) {
      error = "unknown option '" + flag + "'; see vxbridge --help";
      return false;
    }
    if (i + 1 >= argc) {
      error = flag + " wants a value";
      return false;
    }
    const std::string value = argv[++i];
    std::string why;
    std::uint64_t number = 0;
    if (flag == "--nats") {
      for (std::size_t start = 0;;) {
        const std::size_t comma = value.find(',', start);
        const std::string url = value.substr(start, comma - start);
        why = CheckUrl(url);
        if (!why.empty()) why = "'" + url + "': " + why;
        if (!why.empty() || out.natsUrls.size() >= 64) break;
        out.natsUrls.push_back(url);
        if (comma == std::string::npos) break;
        start = comma + 1;
      }
      if (why.empty() && out.natsUrls.size() >= 64) why = "more than 64 servers";
    } else if (flag == "--name") {
      if (value.empty() || value.size() > kMaxNameLength ||
          value.find_first_of("/: \t\n") != std::string::npos)
        why = "a name of 1 to 200 bytes without '/', ':' or white space";
      out.name = value;
    } else if (flag == "--port") {
      if (!ParseUnsigned(value, 65535, number) || number == 0) why = "not a port from 1 to 65535";
      out.port = static_cast<int>(number);
    } else if (flag == "--pipe") {
      if (value.empty()) why = "the pipe name is empty";
      out.pipe = value;
    } else if (flag == "--secret-file") {
      out.secretFile = value;
    } else if (flag == "--nats-creds" || flag == "--nats-tls-ca") {
      why = CheckReadable(value);
      (flag == "--nats-creds" ? out.natsCreds : out.natsTlsCa) = value;
    } else if (flag == "--request-timeout") {
      char* end = nullptr;
      const double seconds = std::strtod(value.c_str(), &end);
      if (value.empty() || *end != '\0' || !(seconds >= 0.001 && seconds <= 3600))
        why = "not a number of seconds from 0.001 to 3600";
      else
        out.requestTimeoutMs = std::llround(seconds * 1000);
    } else if (flag == "--buffer-bytes") {
      if (!ParseUnsigned(value, 0x7FFFFFFF, number) || number == 0)
        why = "not a number of bytes from 1 to 2147483647";
      out.bufferBytes = static_cast<int>(number);
    } else if (flag == "--info-slot") {
      if (!ParseUnsigned(value, kFirstPrivateSlot - 1, number))
        why = "not a slot number below " + std::to_string(kFirstPrivateSlot);
      out.infoSlot = static_cast<std::uint32_t>(number);
      infoSlotGiven = true;
    } else {
      static const std::pair<const char*, MappingKind> kKinds[] = {
          {"--export", MappingKind::kExport},
          {"--import", MappingKind::kImport},
          {"--signal", MappingKind::kSignal},
          {"--emit", MappingKind::kEmit}};
      Mapping mapping;
      for (const auto& kind : kKinds)
        if (flag == kind.first) why = ParseMapping(kind.second, value, mapping);
      if (why.empty() && mapping.kind == MappingKind::kImport &&
          !importSlots.insert(mapping.slot).second)
        why = "slot " + std::to_string(mapping.slot) + " is imported twice";
      if (why.empty() && out.mappings.size() >= kMaxMappings)
        why = "more than " + std::to_string(kMaxMappings) + " mappings";
      out.mappings.push_back(mapping);
    }
    if (!why.empty()) {
      error = flag + " '" + value + "': " + why;
      return false;
    }
  }
  if (out.natsUrls.empty()) {
    error = "--nats is missing: where is the NATS server?";
    return false;
  }
  if (out.name.empty()) {
    error = "--name is missing: the bridge's name on the bus";
    return false;
  }
  if (out.mappings.empty()) {
    error = "nothing to bridge: give at least one --export, --import, --signal or --emit";
    return false;
  }
  if (importSlots.count(out.infoSlot)) {
    error = (infoSlotGiven ? "--info-slot " : "the info slot ") + std::to_string(out.infoSlot) +
            " is also imported; choose another with --info-slot";
    return false;
  }
  return true;
}

bool LoadSecret(const Options& options, std::string& secret, std::string& error) {
  if (!options.secretFile.empty()) {
    std::ifstream file(options.secretFile, std::ios::binary);
    if (!file) {
      error = "--secret-file '" + options.secretFile + "': cannot read it";
      return false;
    }
    char bytes[kMaxSecretBytes + 2];  // room for a trailing newline, and one too many
    file.read(bytes, sizeof bytes);
    secret.assign(bytes, static_cast<std::size_t>(file.gcount()));
    if (!secret.empty() && secret.back() == '\n') secret.pop_back();
  } else if (const char* value = std::getenv(kSecretVariable)) {
    secret = value;
  } else {
    error = std::string("no secret: give --secret-file FILE or set ") + kSecretVariable;
    return false;
  }
  if (secret.size() > kMaxSecretBytes) {
    error = "the secret is longer than 256 bytes";
    return false;
  }
  return true;
}

}  // namespace vxbridge
