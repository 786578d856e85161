#include "options.h"

#include <cstdlib>
#include <fstream>
#include <iostream>
#include <iterator>

#include "typed_value.h"

namespace vxctl {
namespace {

bool Number(const std::string& option, const std::string& text, long low, long high, long& out,
            std::string& error) {
  char* end = nullptr;
  out = std::strtol(text.c_str(), &end, 10);
  if (text.empty() || *end != '\0' || out < low || out > high) {
    error = option + " wants a number from " + std::to_string(low) + " to " + std::to_string(high) +
            ", not '" + text + "'";
    return false;
  }
  return true;
}

}  // namespace

bool ParseOptions(int argc, char** argv, Options& out, std::string& error) {
  bool optionsEnd = false;
  for (int i = 1; i < argc; ++i) {
    const std::string arg = argv[i];
    if (optionsEnd || arg.size() < 2 || arg[0] != '-' || arg == "-") {
      if (out.command.empty())
        out.command = arg;
      else
        out.operands.push_back(arg);
      continue;
    }
    if (arg == "--") {
      optionsEnd = true;
    } else if (arg == "--help" || arg == "-h") {
      out.help = true;
    } else if (arg == "--json") {
      out.json = true;
    } else if (arg == "--allow-empty") {
      out.allowEmpty = true;
    } else if (arg == "--verbose") {
      out.verbose = true;
    } else if (arg == "--secret-file" || arg == "--name" || arg == "--port" || arg == "--pipe" ||
               arg == "--bind" || arg == "--signal" || arg == "--count" || arg == "--save" ||
               arg == "--timeout") {
      if (i + 1 >= argc) {
        error = arg + " wants a value";
        return false;
      }
      const std::string value = argv[++i];
      long n = 0;
      if (arg == "--secret-file")
        out.secretFile = value;
      else if (arg == "--name")
        out.name = value;
      else if (arg == "--pipe")
        out.pipe = value;
      else if (arg == "--bind")
        out.bind = value;
      else if (arg == "--signal")
        out.signals.push_back(value);
      else if (arg == "--save")
        out.save = value;
      else if (arg == "--port") {
        if (!Number(arg, value, 1, 65535, n, error)) return false;
        out.port = static_cast<int>(n);
      } else if (arg == "--count") {
        if (!Number(arg, value, 1, 1000000000L, n, error)) return false;
        out.count = n;
      } else {
        if (!Number(arg, value, 1, 86400, n, error)) return false;
        out.timeoutSeconds = static_cast<int>(n);
      }
    } else if (arg == "--secret") {
      error =
          "--secret is not taken: a secret on the command line shows in the process list; "
          "use --secret-file FILE or " +
          std::string(kSecretVariable);
      return false;
    } else {
      error = "unknown option '" + arg + "'";
      return false;
    }
  }
  return true;
}

bool ReadAll(const std::string& path, std::size_t limit, std::string& out, std::string& error) {
  std::ifstream file;
  std::istream* in = &std::cin;
  if (path != "-") {
    file.open(path, std::ios::binary);
    if (!file) {
      error = "cannot open '" + path + "'";
      return false;
    }
    in = &file;
  }
  out.clear();
  char buffer[65536];
  while (in->read(buffer, sizeof buffer) || in->gcount() > 0) {
    out.append(buffer, static_cast<std::size_t>(in->gcount()));
    if (out.size() > limit) {
      error = "'" + path + "' is larger than " + std::to_string(limit) + " bytes";
      return false;
    }
  }
  return true;
}

bool LoadSecret(const Options& options, std::string& secret, std::string& error) {
  secret.clear();
  if (!options.secretFile.empty()) {
    if (!ReadAll(options.secretFile, 257, secret, error)) return false;
    if (!secret.empty() && secret.back() == '\n') secret.pop_back();
  } else if (const char* env = std::getenv(kSecretVariable)) {
    secret = env;
  }
  if (secret.size() > 256) {
    error = "the secret is longer than 256 bytes";
    return false;
  }
  return true;
}

bool ListFromOperands(const std::vector<std::string>& operands, List& out, std::string& error) {
  for (std::size_t i = 0; i < operands.size(); ++i) {
    const std::string& arg = operands[i];
    std::string why;
    if (!arg.empty() && (arg[0] == '{' || arg[0] == '@')) {
      std::string text = arg;
      Json json;
      if ((arg[0] == '{' || ReadAll(arg.substr(1), kMaxJsonSize, text, why)) &&
          ParseJson(text, json, why) && ListFromJson(json, 0, out, why))
        continue;
    } else if (arg.find('=') == std::string::npos) {
      why = "expected name=value, name:type=value, {JSON} or @FILE";
    } else {
      TypedKey key = SplitKey(arg.substr(0, arg.find('=')));
      Value value;
      why = CheckName(key.name);
      if (why.empty() && ValueFromText(key, arg.substr(arg.find('=') + 1), value, why)) {
        out.Set(key.name, std::move(value));
        continue;
      }
    }
    error = "argument '" + arg + "': " + why;
    return false;
  }
  return true;
}

}  // namespace vxctl
