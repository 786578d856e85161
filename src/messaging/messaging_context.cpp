// SPDX-License-Identifier: MIT
#include "messaging/messaging_context.h"

#include <atomic>

namespace vxbus {
namespace {

std::atomic<MessagingContext*>& Installed() {
  static std::atomic<MessagingContext*> installed{nullptr};
  return installed;
}

}  // namespace

void InstallMessagingContext(MessagingContext* context) {
  Installed().store(context, std::memory_order_release);
}

MessagingContext& Messaging() {
  return *Installed().load(std::memory_order_acquire);
}

}  // namespace vxbus
