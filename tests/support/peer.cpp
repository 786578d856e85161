// SPDX-License-Identifier: MIT
#include "support/peer.h"

#include <gtest/gtest.h>

#include <sstream>

#include "platform/host.h"

namespace vxbus {
namespace testing {

Peer::Peer(const PeerOptions& options) : options_(options) {
  char host[1024] = {};
  platform::GetHostName(host, sizeof host);
  std::vector<std::string> arguments = {"--name", options.name, "--host",
                                        host,     "--port",     std::to_string(options.port)};
  auto add = [&arguments](bool given, const char* flag, const std::string& value) {
    if (given) arguments.insert(arguments.end(), {flag, value});
  };
  add(!options.pipe.empty(), "--pipe", options.pipe);
  add(!options.secretHex.empty(), "--secret-hex", options.secretHex);
  add(options.maxConnections != 0, "--max-connections", std::to_string(options.maxConnections));
  add(options.quiet, "--quiet", "1");
  add(options.sendQueueBytes != 0, "--send-queue-bytes", std::to_string(options.sendQueueBytes));
  add(options.ioTimeoutMs != 0, "--io-timeout-ms", std::to_string(options.ioTimeoutMs));
  add(options.dispatchQueueBytes != 0, "--dispatch-queue-bytes",
      std::to_string(options.dispatchQueueBytes));
  std::string program = options.program;
  if (!options.launcher.empty()) {
    arguments.insert(arguments.begin(), program);
    arguments.insert(arguments.begin(), options.launcher.begin() + 1, options.launcher.end());
    program = options.launcher.front();
  }
  Start(program, arguments);
  std::string ready = Expect("ready ");
  if (!ready.empty()) appId_ = ready.substr(6);
}

std::string Peer::Expect(const std::string& prefix, std::chrono::milliseconds limit) {
  if (missed_) {
    ADD_FAILURE() << "peer " << options_.name << ": not waiting for \"" << prefix
                  << "\" after an earlier line was missed";
    return "";
  }
  const auto deadline = std::chrono::steady_clock::now() + limit;
  for (;;) {
    const auto newline = pending_.find('\n');
    if (newline == std::string::npos) {
      if (!ReadMore(deadline)) {
        ReportMiss(prefix, std::chrono::steady_clock::now() < deadline);
        return "";
      }
      continue;
    }
    std::string line = pending_.substr(0, newline);
    pending_.erase(0, newline + 1);
    if (!line.empty() && line.back() == '\r') line.pop_back();
    lines_.push_back(line);
    if (line.compare(0, prefix.size(), prefix) == 0) return line;
  }
}

void Peer::ReportMiss(const std::string& prefix, bool outputEnded) {
  missed_ = true;
  std::ostringstream seen;
  for (const auto& line : lines_)
    seen << "\n  " << line;
  if (!pending_.empty()) seen << "\n  (unfinished) " << pending_;
  ADD_FAILURE() << "peer " << options_.name << ": no line starting with \"" << prefix << "\" "
                << (outputEnded ? "before its output ended" : "within the time limit")
                << "; lines seen:" << (lines_.empty() && pending_.empty() ? " none" : seen.str());
}

std::string Peer::ExpectSeen(const std::string& prefix) {
  for (const auto& line : lines_)
    if (line.compare(0, prefix.size(), prefix) == 0) return line;
  return Expect(prefix);
}

int Peer::CountLines(const std::string& prefix) const {
  int n = 0;
  for (const auto& line : lines_)
    if (line.compare(0, prefix.size(), prefix) == 0) ++n;
  return n;
}

}  // namespace testing
}  // namespace vxbus
