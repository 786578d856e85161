// SPDX-License-Identifier: MIT
// The limits record in force and the few things that exist once per process.
// All of it is constructed at load and survives VXShutdown.
#ifndef VXBUS_RUNTIME_PROCESS_STATE_H_
#define VXBUS_RUNTIME_PROCESS_STATE_H_

#include <atomic>
#include <mutex>
#include <string>

#include "runtime/latch.h"
#include "runtime/referenced_ptr.h"
#include "vxbus.h"

namespace vxbus {

extern const VXLimits kFactoryLimits;  // the defaults as shipped, never written
extern VXLimits g_defaultLimits;       // defaults; VXSetAuthenticationInfo writes its block
extern VXLimits g_limits;              // the record in force
extern std::atomic<bool> g_shuttingDown;
extern char g_hostName[1024];
extern std::string& g_ownAppId;

// Gates of the two connection threads; opened once, never reset.
extern MTObjects::MTReferencedPtr<MTObjects::Latch> tcpListenerGate;
extern MTObjects::MTReferencedPtr<MTObjects::Latch> pipeListenerGate;

// Set with release and read with acquire, so that what an application set up
// before installing a listener is visible inside it.
extern std::atomic<VXConnectListener> g_connectListener;
extern std::atomic<VXDisconnectListener> g_disconnectListener;
extern std::atomic<VXAuthFailedListener> g_authFailedListener;
extern std::atomic<VXUnknownConnectListener> g_unknownConnectListener;

// Held by every write of the secret block (VXSetAuthenticationInfo, the
// merge of an initialise) and by SnapshotSecret, so that a handshake never
// digests half of an old secret and half of a new one.
std::mutex& SecretMutex();
// Copies the secret block of the record in force under SecretMutex.
void SnapshotSecret(unsigned char (&block)[sizeof(VXLimits::limits.authBlock)]);

// The process's appID: host name, ":", port in decimal, "/", application name.
std::string BuildOwnAppId(std::int32_t port, const char* appName);

}  // namespace vxbus

#endif  // VXBUS_RUNTIME_PROCESS_STATE_H_
