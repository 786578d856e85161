// SPDX-License-Identifier: MIT
// The two process-wide threads that take in peers, and what they listen on.
#ifndef VXBUS_TRANSPORT_LISTEN_ADDRESSES_H_
#define VXBUS_TRANSPORT_LISTEN_ADDRESSES_H_

#include <mutex>
#include <string>

#include "platform/socket.h"
#include "runtime/referenced_ptr.h"
#include "transport/transport_channel.h"

namespace vxbus {

// Where the TCP listener binds. Port 0 means no TCP listener is wanted.
class TcpListenAddress : public MTObjects::MTReferencedTypeBase {
 public:
  // An address text that is not a dotted IPv4 address means all local addresses.
  void Set(const char* bindAddress, std::uint16_t port);
  platform::Ipv4Endpoint Address();

 protected:
  bool IsObjectValid() const override { return true; }

 private:
  std::mutex mutex_;  // the address is written by the application, read by the thread
  std::uint32_t enabled_ = 0;
  platform::Ipv4Endpoint address_;
};

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

// What the connection threads hand every accepted channel to: the layer that
// owns sessions. The threads log each outcome in their own words.
class IChannelAcceptor {
 public:
  enum class Outcome {
    kStarted,    // the handshake passed; the session lives on in its own threads
    kNoSession,  // no session object could be made; the channel is let go
    kFailed,     // the handshake failed; the session ends itself
  };
  // Sessions now, for the connection limit; read without a lock, so the
  // value may be a moment old.
  virtual std::size_t SessionCount() = 0;
  // Runs the whole handshake on the calling thread; blocks until it is done.
  virtual Outcome Accept(const ChannelRef& channel) = 0;

 protected:
  ~IChannelAcceptor() = default;
};

// Set once at load, before any thread starts; not owned.
void SetChannelAcceptor(IChannelAcceptor* acceptor);
IChannelAcceptor& ChannelAcceptor();
// Hands `channel` to the acceptor and logs a failure at level 2, each
// thread's lines starting with its own `linePrefix`.
void AcceptAndLog(const ChannelRef& channel, const char* linePrefix);

extern MTObjects::MTReferencedPtr<TcpListenAddress> g_connThreadInfo;
extern MTObjects::MTReferencedPtr<PipeListenName> g_connPipeThreadInfo;

// Both wait at their gates first and end on g_shuttingDown. Each runs every
// handshake on a handshake thread (HandshakeThreads), within its caps and
// deadline, and cuts off and joins those still under way before it ends.
void TcpConnectionThread();
void PipeConnectionThread();

}  // namespace vxbus

#endif  // VXBUS_TRANSPORT_LISTEN_ADDRESSES_H_
