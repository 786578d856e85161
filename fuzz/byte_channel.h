// SPDX-License-Identifier: MIT
// A channel over fixed bytes for the harnesses: reads take from the input
// and fail once it runs out; writes are kept, so a harness can compare what
// the library writes with what it read.
#ifndef VXBUS_FUZZ_BYTE_CHANNEL_H_
#define VXBUS_FUZZ_BYTE_CHANNEL_H_

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "transport/transport_channel.h"

namespace vxbus {
namespace fuzz {

class ByteChannel : public ITransportChannel {
 public:
  ByteChannel(const std::uint8_t* data, std::size_t size) : data_(data), left_(size) {}

  std::int32_t Read(void* buffer, std::uint32_t length) override {
    if (length == 0) return 0;
    if (length > left_) return -1;
    std::memcpy(buffer, data_, length);
    data_ += length;
    left_ -= length;
    return static_cast<std::int32_t>(length);
  }
  std::int32_t ReadStoppable(void* buffer, std::uint32_t length,
                             const std::atomic<bool>*) override {
    return Read(buffer, length);
  }
  std::int32_t Write(const void* bytes, std::uint32_t length) override {
    const auto* in = static_cast<const std::uint8_t*>(bytes);
    written_.insert(written_.end(), in, in + length);
    return static_cast<std::int32_t>(length);
  }
  std::string GetPeerAddress() override { return "fuzz:peer"; }
  std::string GetLocalAddress() override { return "fuzz:local"; }
  std::int32_t WaitReadable(std::uint32_t) override { return left_ > 0 ? 1 : -1; }
  std::int32_t WaitReadableForever() override { return left_ > 0 ? 1 : -1; }
  void InterruptReads() override { left_ = 0; }

  std::size_t Left() const { return left_; }
  const std::vector<std::uint8_t>& Written() const { return written_; }

 private:
  const std::uint8_t* data_;
  std::size_t left_;
  std::vector<std::uint8_t> written_;
};

}  // namespace fuzz
}  // namespace vxbus

#endif  // VXBUS_FUZZ_BYTE_CHANNEL_H_
