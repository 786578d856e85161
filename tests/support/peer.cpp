#include "support/peer.h"

namespace vxbus {
namespace testing {

Peer::Peer(const PeerOptions& options) : options_(options) {
  std::vector<std::string> arguments = {"--name", options.name, "--port",
                                        std::to_string(options.port)};
  if (!options.pipe.empty()) arguments.insert(arguments.end(), {"--pipe", options.pipe});
  if (!options.secretHex.empty())
    arguments.insert(arguments.end(), {"--secret-hex", options.secretHex});
  if (options.maxConnections)
    arguments.insert(arguments.end(),
                     {"--max-connections", std::to_string(options.maxConnections)});
  if (options.quiet) arguments.insert(arguments.end(), {"--quiet", "1"});
  if (options.sendQueueBytes)
    arguments.insert(arguments.end(),
                     {"--send-queue-bytes", std::to_string(options.sendQueueBytes)});
  std::string program = options.program;
  if (!options.launcher.empty()) {
    arguments.insert(arguments.begin(), program);
    arguments.insert(arguments.begin(), options.launcher.begin() + 1, options.launcher.end());
    program = options.launcher.front();
  }
  process_ = std::make_unique<ChildProcess>(program, arguments);
  std::string ready = Expect("ready ");
  if (!ready.empty()) appId_ = ready.substr(6);
}

Peer::~Peer() = default;

std::string Peer::Expect(const std::string& prefix, std::chrono::milliseconds limit) {
  auto deadline = std::chrono::steady_clock::now() + limit;
  for (;;) {
    auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
        deadline - std::chrono::steady_clock::now());
    std::string line;
    if (left.count() <= 0 || !process_->ReadLine(line, left)) return "";
    lines_.push_back(line);
    if (line.compare(0, prefix.size(), prefix) == 0) return line;
  }
}

int Peer::CountLines(const std::string& prefix) const {
  int n = 0;
  for (const auto& line : lines_)
    if (line.compare(0, prefix.size(), prefix) == 0) ++n;
  return n;
}

}  // namespace testing
}  // namespace vxbus
