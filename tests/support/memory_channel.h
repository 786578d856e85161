// SPDX-License-Identifier: MIT
// An in-memory byte channel for tests: what is written can be read back, in
// order, and every written byte is kept for comparison with expected wire
// bytes. Reads never wait: too few bytes queued is a failed read.
#ifndef VXBUS_TESTS_SUPPORT_MEMORY_CHANNEL_H_
#define VXBUS_TESTS_SUPPORT_MEMORY_CHANNEL_H_

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <mutex>
#include <string>
#include <vector>

#include "transport/transport_channel.h"

namespace vxbus {
namespace testing {

class MemoryChannel : public ITransportChannel {
 public:
  using Bytes = std::vector<unsigned char>;

  // Takes exactly `length` queued bytes, or none and -1 when fewer are there.
  std::int32_t Read(void* buffer, std::uint32_t length) override {
    std::lock_guard<std::mutex> lock(mutex_);
    if (length == 0) return 0;
    if (queue_.size() < length) return -1;
    std::copy_n(queue_.begin(), length, static_cast<unsigned char*>(buffer));
    queue_.erase(queue_.begin(), queue_.begin() + length);
    return static_cast<std::int32_t>(length);
  }
  std::int32_t ReadStoppable(void* buffer, std::uint32_t length,
                             const std::atomic<bool>*) override {
    return Read(buffer, length);
  }

  // Appends to the queue and to the record of written bytes. After
  // FailWritesAfter(n), the write that would go beyond n calls fails.
  std::int32_t Write(const void* bytes, std::uint32_t length) override {
    std::lock_guard<std::mutex> lock(mutex_);
    if (length == 0) return 0;
    if (writesLeft_ == 0) return -1;
    if (writesLeft_ > 0) --writesLeft_;
    const auto* in = static_cast<const unsigned char*>(bytes);
    written_.insert(written_.end(), in, in + length);
    queue_.insert(queue_.end(), in, in + length);
    return static_cast<std::int32_t>(length);
  }

  std::string GetPeerAddress() override { return "memory:peer"; }
  std::string GetLocalAddress() override { return "memory:local"; }
  std::int32_t WaitReadable(std::uint32_t) override { return Queued() > 0 ? 1 : 0; }
  std::int32_t WaitReadableForever() override { return Queued() > 0 ? 1 : -1; }
  void InterruptReads() override {}

  // Bytes for the reader that were never written through Write.
  void Feed(const Bytes& bytes) {
    std::lock_guard<std::mutex> lock(mutex_);
    queue_.insert(queue_.end(), bytes.begin(), bytes.end());
  }

  void FailWritesAfter(int successfulWrites) {
    std::lock_guard<std::mutex> lock(mutex_);
    writesLeft_ = successfulWrites;
  }
  Bytes Written() {
    std::lock_guard<std::mutex> lock(mutex_);
    return written_;
  }
  std::size_t Queued() {
    std::lock_guard<std::mutex> lock(mutex_);
    return queue_.size();
  }

 private:
  std::mutex mutex_;
  std::deque<unsigned char> queue_;
  Bytes written_;
  int writesLeft_ = -1;  // negative: no limit
};

}  // namespace testing
}  // namespace vxbus

#endif  // VXBUS_TESTS_SUPPORT_MEMORY_CHANNEL_H_
