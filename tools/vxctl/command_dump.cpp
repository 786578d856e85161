// SPDX-License-Identifier: MIT
// dump: print a list saved in its stream form (for instance by call --save).
#include <iostream>

#include "bus_client.h"
#include "commands.h"
#include "list_text.h"
#include "stream_file.h"
#include "typed_value.h"

namespace vxctl {

int RunDump(const Options& options) {
  if (options.operands.size() != 1) {
    Complain("dump wants one FILE; see vxctl dump --help");
    return kExitUsage;
  }
  const std::string& path = options.operands[0];
  std::string bytes, error;
  if (!ReadAll(path, kMaxStreamFileSize, bytes, error)) {
    Complain(error);
    return kExitFailed;
  }
  ListPtr list = ParseStream(bytes, error);
  if (!list) {
    Complain("'" + path + "' does not hold a list: " + error);
    return kExitFailed;
  }
  if (options.json) {
    std::cout << ListToJson(*list) << std::endl;
    return kExitOk;
  }
  std::cout << ListToText(*list);
  return kExitOk;
}

}  // namespace vxctl
