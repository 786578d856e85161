// SPDX-License-Identifier: MIT
// The stream reader of lists, as the frame reader drives it: the first 8
// bytes are the root's pair from a frame header, the rest is the stream.
// A stream that reads back whole must be written again byte for byte.
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "byte_channel.h"
#include "paramlist/param_list.h"

using vxbus::ChannelRef;
using vxbus::ListRef;
using vxbus::ParamList;
using vxbus::fuzz::ByteChannel;

// A deployment's read limit; the default of 1 GiB would only spend the
// harness's memory on allocations that the limit check already covers.
constexpr std::uint32_t kReadLimit = 1 << 20;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < 8) return 0;
  std::uint32_t pair[2];
  std::memcpy(pair, data, 8);
  auto* input = new ByteChannel(data + 8, size - 8);
  ChannelRef in(input);
  ListRef root(new ParamList);
  std::uint32_t next[2] = {};
  if (root->ReadList(in.get(), kReadLimit, pair[0], pair[1], false, &next[0], &next[1]) < 0)
    return 0;

  auto* output = new ByteChannel(nullptr, 0);
  ChannelRef out(output);
  if (root->WriteList(out.get(), false, 0, 0) < 0) __builtin_trap();
  const std::size_t consumed = size - 8 - input->Left();
  if (root->Used() != pair[0] || output->Written().size() != consumed ||
      (consumed != 0 && std::memcmp(output->Written().data(), data + 8, consumed) != 0))
    __builtin_trap();
  return 0;
}
