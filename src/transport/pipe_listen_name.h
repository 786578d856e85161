// SPDX-License-Identifier: MIT
// The name the pipe listener serves, set by the application, read by the thread.
#ifndef VXBUS_TRANSPORT_PIPE_LISTEN_NAME_H_
#define VXBUS_TRANSPORT_PIPE_LISTEN_NAME_H_

#include <mutex>
#include <string>

#include "runtime/referenced_ptr.h"

namespace vxbus {

// The base name of the pipe listener; empty means no pipe listener.
class PipeListenName : public MTObjects::MTReferencedTypeBase {
 public:
  void SetPipeName(const char* pipeName);
  std::string PipeName();

 protected:
  bool IsObjectValid() const override { return true; }

 private:
  std::mutex mutex_;
  std::string pipeName_;
};

extern MTObjects::MTReferencedPtr<PipeListenName> g_connPipeThreadInfo;

}  // namespace vxbus

#endif  // VXBUS_TRANSPORT_PIPE_LISTEN_NAME_H_
