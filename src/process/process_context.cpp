// SPDX-License-Identifier: MIT
#include "process/process_context.h"

#include <cstring>

#include "process/limits_merge.h"

namespace vxbus {

const VXLimits kFactoryLimits = {
    sizeof(VXLimits),
    {
        10,          // MAX_CONNECTIONS
        64,          // RESERVED_A
        1073741824,  // MAX_READ_SIZE
        1073741824,  // RESERVED_B
        64,          // RESERVED_C
        67108864,    // RESERVED_D
        1048576,     // RESERVED_E
        60000,       // IO_TIMEOUT_MS
        {},          // authBlock
    },
};

namespace {
// Made at load, so that it exists before any exported function runs and the
// messaging hook is in place whether or not the library is initialised.
const bool g_contextMadeAtLoad = (ProcessContext::Get(), true);
}  // namespace

ProcessContext& ProcessContext::Get() {
  static ProcessContext& context = *new ProcessContext;  // never destroyed
  return context;
}

ProcessContext::ProcessContext() {
  sessionEnvironment_.processStop = Stop();
  sessionEnvironment_.registry = &registry;
  sessionEnvironment_.dispatchQueue = &dispatchQueue;
  sessionEnvironment_.listeners = &listeners;
  sessionEnvironment_.services = this;
  RefreshSessionEnvironment();
  InstallMessagingContext(this);
}

void ProcessContext::ApplyLimits(const VXLimits* given) {
  std::lock_guard<std::mutex> lock(secretMutex_);
  limits = MergeLimits(defaultLimits, given);
}

bool ProcessContext::SetSecret(const void* data, std::int32_t length) {
  if (length > 256 || length < 0 || (length != 0 && data == nullptr)) return false;
  std::lock_guard<std::mutex> lock(secretMutex_);
  for (VXLimits* record : {&defaultLimits, &limits}) {
    std::memset(record->limits.authBlock, 0, sizeof record->limits.authBlock);
    if (length != 0) std::memcpy(record->limits.authBlock, data, static_cast<std::size_t>(length));
  }
  return true;
}

void ProcessContext::SnapshotSecret(unsigned char (&block)[kSecretBytes]) {
  std::lock_guard<std::mutex> lock(secretMutex_);
  std::memcpy(block, limits.limits.authBlock, sizeof block);
}

void ProcessContext::RefreshSessionEnvironment() {
  const VXLimits::Values& values = limits.limits;
  sessionEnvironment_.ioTimeoutMs = values.IO_TIMEOUT_MS;
  sessionEnvironment_.maxReadSize = values.MAX_READ_SIZE;
  sessionEnvironment_.sendQueueBytes = values.RESERVED_E;
  sessionEnvironment_.dispatchQueueBytes = values.RESERVED_D;
  sessionEnvironment_.ownAppId = ownAppId;
}

ListenerEnvironment ProcessContext::ListenerEnvironmentAt(MTObjects::Latch* gate) {
  ListenerEnvironment environment;
  environment.maxConnections = limits.limits.MAX_CONNECTIONS;
  environment.channelLimits = ChannelLimits::From(limits);
  environment.pipeAcceptWaitMs = pipeAcceptWaitMs.load();
  environment.stop = Stop();
  environment.gate = gate;
  environment.acceptor = &acceptor_;
  return environment;
}

void ProcessContext::SessionEnded(Session* session) {
  signalTable.RemoveSession(session);
}

std::string ProcessContext::OwnAppId() const {
  return ownAppId;
}

}  // namespace vxbus
