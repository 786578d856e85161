// SPDX-License-Identifier: MIT
#include "transport/pipe_listen_name.h"

namespace vxbus {

MTObjects::MTReferencedPtr<PipeListenName> g_connPipeThreadInfo(new PipeListenName);

void PipeListenName::SetPipeName(const char* pipeName) {
  std::lock_guard<std::mutex> lock(mutex_);
  pipeName_ = pipeName ? pipeName : "";
}

std::string PipeListenName::PipeName() {
  std::lock_guard<std::mutex> lock(mutex_);
  return pipeName_;
}

}  // namespace vxbus
