// SPDX-License-Identifier: MIT
#include "session/dropped_messages.h"

#include <mutex>

#include "runtime/log.h"
#include "runtime/printable_name.h"

namespace vxbus {

namespace {

// What sessions let go of during the shutdown under way. Never destroyed:
// session threads may still report while the process exits.
struct ShutdownDrops {
  std::mutex mutex;
  QueueTally tally;  // under mutex
};

ShutdownDrops& DropsOfShutdown() {
  static ShutdownDrops& drops = *new ShutdownDrops;
  return drops;
}

}  // namespace

void ReportDropped(const std::string& sessionName, const QueueTally& dropped, bool duringShutdown) {
  if (dropped.messages == 0) return;
  if (!duringShutdown) {
    VX_LOG(kLogWarning, "Dropped ", dropped.messages, " queued messages (", dropped.bytes,
           " bytes) for \"", PrintableName(sessionName), '"');
    return;
  }
  ShutdownDrops& drops = DropsOfShutdown();
  std::lock_guard<std::mutex> lock(drops.mutex);
  drops.tally.messages += dropped.messages;
  drops.tally.bytes += dropped.bytes;
}

void ReportShutdownDrops(const QueueTally& dispatchBacklog) {
  QueueTally total;
  {
    ShutdownDrops& drops = DropsOfShutdown();
    std::lock_guard<std::mutex> lock(drops.mutex);
    total = drops.tally;
    drops.tally = QueueTally();
  }
  total.messages += dispatchBacklog.messages;
  total.bytes += dispatchBacklog.bytes;
  if (total.messages == 0) return;
  VX_LOG(kLogWarning, "Shutdown dropped ", total.messages, " queued messages (", total.bytes,
         " bytes)");
}

}  // namespace vxbus
