// SPDX-License-Identifier: MIT
// The byte channel under every session: a reliable, ordered stream in both
// directions with full-length, time-limited reads and writes, and the two
// addresses that name its ends.
#ifndef VXBUS_TRANSPORT_TRANSPORT_CHANNEL_H_
#define VXBUS_TRANSPORT_TRANSPORT_CHANNEL_H_

#include <cstdint>
#include <string>

#include "runtime/byte_stream.h"
#include "runtime/referenced_ptr.h"
#include "runtime/status.h"

namespace vxbus {

class ITransportChannel : public IByteStream {
 public:
  virtual std::string GetPeerAddress() = 0;
  virtual std::string GetLocalAddress() = 0;
  // > 0: data may be read now; 0: time-out; < 0: failure.
  virtual std::int32_t WaitReadable(std::uint32_t timeoutMs) = 0;
  virtual std::int32_t WaitReadableForever() = 0;
  // Ends every wait for data at once, the one under way and all later ones;
  // the reads that follow fail. Writes go on. Safe from any thread while
  // another reads; for a local stop.
  virtual void InterruptReads() = 0;
  // True once the peer is known to have ended its stream, also while bytes
  // it sent before still wait unread; false when not, or when the channel
  // can't tell without reading. Never blocks; the reading thread.
  virtual bool PeerEnded() { return false; }
  // What wrong secrets are counted by: the peer's address without its port,
  // unless the channel knows its peer better (a pipe knows its client's
  // process), so that one peer's guesses never hold back another's.
  virtual std::string SourceKey() {
    const std::string address = GetPeerAddress();
    return address.substr(0, address.rfind(':'));
  }

  // Between these two, small writes may be collected and passed on together
  // in fewer system calls, in order; EndWriteBatch passes on what is left.
  // A write inside a batch that returned its length may still fail later,
  // in a write or in EndWriteBatch (0 or -1). One writing thread only.
  virtual void BeginWriteBatch() {}
  virtual std::int32_t EndWriteBatch() { return 0; }

 protected:
  bool IsObjectValid() const override { return true; }
};

using ChannelRef = MTObjects::MTReferencedPtr<ITransportChannel>;

}  // namespace vxbus

#endif  // VXBUS_TRANSPORT_TRANSPORT_CHANNEL_H_
