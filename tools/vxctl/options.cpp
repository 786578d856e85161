// SPDX-License-Identifier: MIT
#include "options.h"

#include <algorithm>
#include <cstdlib>
#include <iostream>

#include "secret_file.h"
#include "typed_value.h"
#include "wakeup.h"

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

// Seconds with an optional decimal fraction ("2", "0.25"), from one
// millisecond to a day, as whole milliseconds.
bool Seconds(const std::string& option, const std::string& text, int& ms, std::string& error) {
  const std::size_t dot = text.find('.');
  const std::string whole = text.substr(0, dot);
  const std::string fraction = dot == std::string::npos ? "" : text.substr(dot + 1);
  const bool digitsOnly = (whole + fraction).find_first_not_of("0123456789") == std::string::npos;
  if (digitsOnly && !(whole + fraction).empty() && whole.size() <= 5 &&
      (dot == std::string::npos || !fraction.empty())) {
    long total = std::strtol(("0" + whole).c_str(), nullptr, 10) * 1000;
    std::string millis = (fraction + "000").substr(0, 3);
    total += std::strtol(millis.c_str(), nullptr, 10);
    if (fraction.size() > 3 && fraction.find_first_not_of('0', 3) != std::string::npos) ++total;
    if (total >= 1 && total <= 86400L * 1000) {
      ms = static_cast<int>(total);
      return true;
    }
  }
  error = option + " wants seconds from 0.001 to 86400, not '" + text + "'";
  return false;
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
    if (arg != "--") out.given.push_back(arg);
    if (arg == "--") {
      optionsEnd = true;
    } else if (arg == "--help" || arg == "-h") {
      out.help = true;
    } else if (arg == "--version") {
      out.version = true;
    } else if (arg == "--watch") {
      out.watch = true;
    } else if (arg == "--json") {
      out.json = true;
    } else if (arg == "--allow-empty") {
      out.allowEmpty = true;
    } else if (arg == "--verbose") {
      out.verbose = true;
    } else if (arg == "--secret-file" || arg == "--port" || arg == "--pipe" || arg == "--bind" ||
               arg == "--signal" || arg == "--count" || arg == "--save" || arg == "--timeout" ||
               arg == "--max-read-size" || arg == "--slot") {
      if (i + 1 >= argc) {
        error = arg + " wants a value";
        return false;
      }
      const std::string value = argv[++i];
      long n = 0;
      if (arg == "--secret-file")
        out.secretFile = value;
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
      } else if (arg == "--max-read-size") {
        if (!Number(arg, value, 1, 0xFFFFFFFFL, n, error)) return false;
        out.maxReadSize = static_cast<std::size_t>(n);
        out.maxReadSizeGiven = true;
      } else if (arg == "--slot") {
        if (!Number(arg, value, 0, 0xFFFFFFFFL, n, error)) return false;
        out.infoSlot = static_cast<std::uint32_t>(n);
      } else if (!Seconds(arg, value, out.timeoutMs, error)) {
        return false;
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

bool CheckOptionsTaken(const Options& options, const std::string& taken, std::string& error) {
  const std::string padded = " " + taken + " --help -h ";
  for (const std::string& option : options.given) {
    if (padded.find(" " + option + " ") == std::string::npos) {
      error = options.command + " does not take " + option + "; see vxctl " + options.command +
              " --help";
      return false;
    }
  }
  return true;
}

bool LoadSecret(const Options& options, std::string& secret, std::string& error) {
  secret.clear();
  if (!options.secretFile.empty()) {
    Interruptible reading("reading the secret file '" + options.secretFile + "'");
    bool othersMayRead = false;
    if (!ReadSecretFile(options.secretFile, secret, othersMayRead, error)) return false;
    if (othersMayRead)
      std::cerr << "vxctl: warning: the secret file '" << options.secretFile
                << "' can be read by other users (chmod 600 it)" << std::endl;
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

bool ListFromOperands(const std::vector<std::string>& operands, std::size_t readLimit, List& out,
                      std::string& error) {
  std::vector<std::pair<std::string, Value>> values;  // set all at once: see List::SetAll
  for (std::size_t i = 0; i < operands.size(); ++i) {
    const std::string& arg = operands[i];
    std::string why;
    if (!arg.empty() && (arg[0] == '{' || arg[0] == '@')) {
      std::string text = arg;
      Json json;
      List members;
      if ((arg[0] == '{' || ReadAll(arg.substr(1), std::min(kMaxJsonSize, readLimit), text, why)) &&
          ParseJson(text, json, why) && ListFromJson(json, 0, members, why)) {
        for (auto& member : members.params)
          values.push_back(std::move(member));
        continue;
      }
    } else if (arg.find('=') == std::string::npos) {
      why = "expected name=value, name:type=value, {JSON} or @FILE";
    } else {
      TypedKey key;
      Value value;
      if (SplitTypedKey(arg.substr(0, arg.find('=')), key, why) &&
          (why = CheckName(key.name)).empty() &&
          ValueFromText(key, arg.substr(arg.find('=') + 1), value, why, readLimit)) {
        values.emplace_back(std::move(key.name), std::move(value));
        continue;
      }
    }
    error = "argument '" + arg + "': " + why;
    return false;
  }
  out.SetAll(std::move(values));
  return true;
}

}  // namespace vxctl
