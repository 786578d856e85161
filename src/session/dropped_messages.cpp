// SPDX-License-Identifier: MIT
#include "session/dropped_messages.h"

#include <mutex>

#include "runtime/log.h"
#include "runtime/printable_name.h"
#include "runtime/process_state.h"

namespace vxbus {

namespace {

std::mutex g_shutdownDropsMutex;
QueueTally g_shutdownDrops;  // under g_shutdownDropsMutex

}  // namespace

void ReportDropped(const std::string& sessionName, const QueueTally& dropped) {
  if (dropped.messages == 0) return;
  if (!g_shuttingDown.load(std::memory_order_relaxed)) {
    VX_LOG(kLogWarning, "Dropped ", dropped.messages, " queued messages (", dropped.bytes,
           " bytes) for \"", PrintableName(sessionName), '"');
    return;
  }
  std::lock_guard<std::mutex> lock(g_shutdownDropsMutex);
  g_shutdownDrops.messages += dropped.messages;
  g_shutdownDrops.bytes += dropped.bytes;
}

void ReportShutdownDrops(const QueueTally& dispatchBacklog) {
  QueueTally total;
  {
    std::lock_guard<std::mutex> lock(g_shutdownDropsMutex);
    total = g_shutdownDrops;
    g_shutdownDrops = QueueTally();
  }
  total.messages += dispatchBacklog.messages;
  total.bytes += dispatchBacklog.bytes;
  if (total.messages == 0) return;
  VX_LOG(kLogWarning, "Shutdown dropped ", total.messages, " queued messages (", total.bytes,
         " bytes)");
}

}  // namespace vxbus
