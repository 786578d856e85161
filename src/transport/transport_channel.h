// The byte channel under every session: a reliable, ordered stream in both
// directions with full-length, time-limited reads and writes.
#ifndef VXBUS_TRANSPORT_TRANSPORT_CHANNEL_H_
#define VXBUS_TRANSPORT_TRANSPORT_CHANNEL_H_

#include <atomic>
#include <cstdint>
#include <string>

#include "runtime/referenced_ptr.h"
#include "vxbus.h"

namespace vxbus {

class ITransportChannel : public MTObjects::MTReferencedTypeBase {
 public:
  // Each returns exactly `length`, or -1; after -1 the stream is out of step
  // and the caller drops the connection. A length of 0 returns 0 at once.
  // While *stopFlag reads false the read may wait without end for the next
  // byte; once it is set, or with a null pointer, the time limits apply.
  virtual std::int32_t ReadStoppable(void* buffer, std::uint32_t length,
                                     const std::atomic<bool>* stopFlag) = 0;
  virtual std::int32_t Read(void* buffer, std::uint32_t length) = 0;
  virtual std::int32_t Write(const void* bytes, std::uint32_t length) = 0;
  virtual std::string GetPeerAddress() = 0;
  virtual std::string GetLocalAddress() = 0;
  // > 0: data may be read now; 0: time-out; < 0: failure.
  virtual std::int32_t WaitReadable(std::uint32_t timeoutMs) = 0;
  virtual std::int32_t WaitReadableForever() = 0;
  virtual void Reserved() = 0;

 protected:
  bool IsObjectValid() const override { return true; }
};

using ChannelRef = MTObjects::MTReferencedPtr<ITransportChannel>;

}  // namespace vxbus

#endif  // VXBUS_TRANSPORT_TRANSPORT_CHANNEL_H_
